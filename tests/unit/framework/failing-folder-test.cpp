// Archives that cannot be listed or removed, and memory that runs out meanwhile: this program leads the calls
// here (--wrap).
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>

#include "log-fixture.h"

namespace {

int entriesBeforeFailure = -1;  // so many entries are read, then one is not; -1: all are
int readError = 0;              // 0: memory runs out instead
std::string kept;               // the file of this name cannot be removed

}  // namespace

extern "C" {

dirent* __real_readdir(DIR* folder);
int __real_unlink(const char* path);

dirent* __wrap_readdir(DIR* folder) {
    if (entriesBeforeFailure == 0) {
        if (readError == 0) {
            throw std::bad_alloc();
        }
        errno = readError;
        return nullptr;
    }
    if (entriesBeforeFailure > 0) {
        --entriesBeforeFailure;
    }
    return __real_readdir(folder);
}

int __wrap_unlink(const char* path) {
    if (!kept.empty() && std::string(path).ends_with("/" + kept)) {
        errno = EPERM;
        return -1;
    }
    return __real_unlink(path);
}

}  // extern "C"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::SizeIs;

class FailingFolder : public testing::Test {
protected:
    ~FailingFolder() override {
        entriesBeforeFailure = -1;
        kept.clear();
    }

    ArchiveFolder folder;
};

TEST_F(FailingFolder, FileThatCannotBeRemoved_IsTracedAndCostsNoYoungerOne) {
    folder.AddArchives(12);
    kept = ArchiveFolder::Archive(0);
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 237 (Err: 1)"));
    EXPECT_THAT(folder.Names(), SizeIs(11));
    EXPECT_THAT(folder.Names(), Contains(ArchiveFolder::Archive(0)));
    EXPECT_THAT(folder.Names(), Not(Contains(ArchiveFolder::Archive(1))));
    EXPECT_THAT(folder.Names(), Contains(ArchiveFolder::Archive(2)));
}

TEST_F(FailingFolder, FolderThatCannotBeReadToItsEnd_IsTraced) {
    folder.AddArchives(12);
    entriesBeforeFailure = 5;
    readError = EIO;
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 333 (Err: 5)"));
    entriesBeforeFailure = -1;
    EXPECT_THAT(folder.Names(), SizeIs(12));  // five are no more than the maximum
}

TEST_F(FailingFolder, EnoughNamesBeforeAFailure_ArePruned) {
    folder.AddArchives(20);
    entriesBeforeFailure = 20;  // two of them are the folder itself and the one above it, at any place
    readError = EIO;
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 333 (Err: 5)"));
    entriesBeforeFailure = -1;
    EXPECT_LE(folder.Names().size(), 12u);
    EXPECT_THAT(folder.Names(), Contains(ArchiveFolder::Archive(19)));
}

TEST_F(FailingFolder, MemoryRunsOut_IsTracedAndNothingIsRemoved) {
    folder.AddArchives(12);
    entriesBeforeFailure = 5;
    readError = 0;
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 340"));
    entriesBeforeFailure = -1;
    EXPECT_THAT(folder.Names(), SizeIs(12));
}

}  // namespace
