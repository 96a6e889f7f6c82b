// Disks and file systems that fail while the account files are written.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>

#include "account-file.h"
#include "ctl-error.h"
#include "fake-commands.h"
#include "ilo-account.h"
#include "test-root.h"

namespace {

// What the system calls below do to this test program; nothing unless a test says so.
struct Disk {
    int folderSyncError = 0;             // of fsync on a folder
    bool hardLinks = true;               // link works
    std::size_t mostPerWrite = 0;        // bytes that one write to a file takes; 0 for all
    bool interrupted = false;            // every other write to a file
    std::size_t room = std::size_t(-1);  // bytes until the disk is full
    bool interruptNext = false;
};
Disk s_disk;

bool IsA(int descriptor, mode_t kind) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == kind;
}

int FailWith(int error) {
    errno = error;
    return -1;
}

}  // namespace

extern "C" int fsync(int descriptor) {
    if (s_disk.folderSyncError != 0 && IsA(descriptor, S_IFDIR)) {
        return FailWith(s_disk.folderSyncError);
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int link(const char* from, const char* to) noexcept {
    if (!s_disk.hardLinks) {
        return FailWith(EPERM);
    }
    return static_cast<int>(syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t size) {
    if (s_disk.mostPerWrite != 0 && IsA(descriptor, S_IFREG)) {
        s_disk.interruptNext = s_disk.interrupted && !s_disk.interruptNext;
        if (s_disk.interruptNext) {
            return FailWith(EINTR);
        }
        size = std::min({size, s_disk.mostPerWrite, s_disk.room});
        if (size == 0) {
            return FailWith(ENOSPC);
        }
        s_disk.room -= size;
    }
    return syscall(SYS_write, descriptor, bytes, size);
}

namespace {

constexpr const char* kUuid = "00112233445566778899aabbccddeeff";

class AccountDiskTest : public testing::Test {
protected:
    AccountDiskTest() {
        std::filesystem::create_directories(root / "etc");
        std::filesystem::create_directories(root / "run");
        commands.result.output = "UUID: 00112233-4455-6677-8899-aabbccddeeff\n";
    }
    ~AccountDiskTest() override { s_disk = {}; }

    void Write(const std::string& account) { WriteAccountFiles(root.path(), kUuid, account, account); }
    template <typename Run>
    static std::string FailureOf(const Run& run) {
        try {
            run();
        } catch (const CtlError& failure) {
            return failure.what();
        }
        ADD_FAILURE() << "did not fail";
        return {};
    }
    std::string Record(int record) {
        std::string text(kMaxAccountText, 'x');
        const bool done = DecryptAccount(record, reinterpret_cast<unsigned char*>(text.data()), text.size(),
                                         commands, root.path());
        return done ? std::string(text.c_str()) : std::string();
    }
    static bool Has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
    std::size_t FilesInEtc() const {
        const std::filesystem::directory_iterator files(root / "etc");
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    TestRoot root;
    FakeCommands commands;
};

TEST_F(AccountDiskTest, FolderThatCannotBeSynchronised_SaysThatTheWorkIsDone) {
    s_disk.folderSyncError = EIO;
    const std::string written = FailureOf([&] { Write("user"); });
    EXPECT_TRUE(Has(written, "The account is registered, but ")) << written;
    EXPECT_TRUE(Has(written, "Input/output error")) << written;
    EXPECT_EQ(Record(0), "user");
    EXPECT_EQ(Record(1), "user");
    const std::string removed = FailureOf([&] { RemoveAccountFiles(root.path()); });
    EXPECT_TRUE(Has(removed, "The account is removed, but ")) << removed;
    EXPECT_EQ(FilesInEtc(), 0U);
}

TEST_F(AccountDiskTest, FileSystemThatSynchronisesNoFolders_IsNoFailure) {
    s_disk.folderSyncError = EINVAL;
    Write("user");
    EXPECT_TRUE(RemoveAccountFiles(root.path()));
}

TEST_F(AccountDiskTest, FileSystemWithoutHardLinks_IsWrittenToAndPutBackToo) {
    s_disk.hardLinks = false;
    Write("old");
    Write("new");
    EXPECT_EQ(Record(0), "new");
    std::filesystem::remove(root / "etc/.TARNiLO1");
    std::filesystem::create_directories(root / "etc/.TARNiLO1/in-the-way");
    EXPECT_TRUE(Has(FailureOf([&] { Write("newer"); }), "remove what stands in its place"));
    EXPECT_EQ(Record(0), "new");
    EXPECT_EQ(FilesInEtc(), 2U);
}

TEST_F(AccountDiskTest, ShortAndInterruptedWrites_AreContinued) {
    s_disk.mostPerWrite = 5;
    s_disk.interrupted = true;
    const std::string longest(40, 'x');
    Write(longest);
    EXPECT_EQ(Record(0).substr(0, 40), longest);
    EXPECT_EQ(Record(1).substr(0, 40), longest);
}

TEST_F(AccountDiskTest, DiskThatFillsUpInTheMiddle_IsSaidAndLeavesTheOldFiles) {
    Write("old");
    s_disk.mostPerWrite = 5;
    for (const std::size_t room : {0U, 7U, 16U, 20U, 32U, 40U}) {
        s_disk.room = room;
        const std::string sentence = FailureOf([&] { Write("new"); });
        EXPECT_TRUE(Has(sentence, "No space left on device; free space there")) << sentence;
        EXPECT_EQ(Record(0), "old") << room;
        EXPECT_EQ(Record(1), "old") << room;
        EXPECT_EQ(FilesInEtc(), 2U) << room;
    }
}

}  // namespace
