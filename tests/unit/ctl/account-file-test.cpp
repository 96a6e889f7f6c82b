#include "account-file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "account-root.h"
#include "ctl-error.h"

namespace {

class AccountFileTest : public AccountRoot {
protected:
    void Write(const std::string& account, const std::string& password) {
        WriteAccountFiles(root.path(), kUuid, account, password);
    }
};

TEST_F(AccountFileTest, WrittenFiles_AreReadBackByTheService) {
    Write("Administrator", "p\xC3\xA4ss w\xE3\x82\xABrd");
    EXPECT_EQ(Record(0), "Administrator");
    EXPECT_EQ(Record(1), "p\xC3\xA4ss w\xE3\x82\xABrd");
    EXPECT_EQ(FilesInEtc(), 2U) << "no temporary file stays behind";
}

TEST_F(AccountFileTest, EveryLengthPossible_ComesBackWhole) {
    for (std::size_t length = 1; length <= 40; ++length) {
        const std::string text(length, 'y');
        Write(text, text);
        EXPECT_EQ(Record(0).substr(0, length), text);
        EXPECT_EQ(Record(1).substr(0, length), text);
    }
}

TEST_F(AccountFileTest, WrittenFiles_AreForTheOwnerAlone) {
    umask(0);
    Write("user", "secret");
    for (const char* file : {"etc/.TARNiLO0", "etc/.TARNiLO1"}) {
        struct stat status {};
        ASSERT_EQ(stat((root / file).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0600U);
        EXPECT_EQ(status.st_uid, geteuid());
        if (geteuid() == 0) {
            EXPECT_EQ(status.st_gid, 0U);
        }
    }
    umask(022);
}

TEST_F(AccountFileTest, NoPlainTextStandsInTheFiles) {
    Write("visiblename", "visiblesecret");
    EXPECT_EQ(root.Read("etc/.TARNiLO0").find("visible"), std::string::npos);
    EXPECT_EQ(root.Read("etc/.TARNiLO1").find("visible"), std::string::npos);
}

TEST_F(AccountFileTest, SecondRenameFails_PutsTheFirstFileBack) {
    Write("old", "oldpassword");
    std::filesystem::remove(root / "etc/.TARNiLO1");
    std::filesystem::create_directories(root / "etc/.TARNiLO1/in-the-way");
    EXPECT_THROW(Write("new", "newpassword"), CtlError);
    EXPECT_EQ(Record(0), "old");
    EXPECT_EQ(FilesInEtc(), 2U);
}

TEST_F(AccountFileTest, SecondRenameFailsWithoutAnOldFile_LeavesNeither) {
    std::filesystem::create_directories(root / "etc/.TARNiLO1/in-the-way");
    EXPECT_THROW(Write("new", "newpassword"), CtlError);
    EXPECT_FALSE(std::filesystem::exists(root / "etc/.TARNiLO0"));
    EXPECT_EQ(FilesInEtc(), 1U);
}

TEST_F(AccountFileTest, FirstRenameFails_LeavesTheSecondFileAlone) {
    Write("old", "oldpassword");
    std::filesystem::remove(root / "etc/.TARNiLO0");
    std::filesystem::create_directories(root / "etc/.TARNiLO0/in-the-way");
    EXPECT_THROW(Write("new", "newpassword"), CtlError);
    EXPECT_EQ(Record(1), "oldpassword");
    EXPECT_EQ(FilesInEtc(), 2U);
}

TEST_F(AccountFileTest, FolderMissing_FailsWithThePath) {
    std::filesystem::remove_all(root / "etc");
    try {
        Write("user", "secret");
        FAIL();
    } catch (const CtlError& failure) {
        EXPECT_NE(std::string(failure.what()).find("/etc/.TARNiLO0"), std::string::npos);
        EXPECT_EQ(std::string(failure.what()).find("secret"), std::string::npos);
    }
}

TEST_F(AccountFileTest, NoPlaceForTheLock_FailsAndChangesNothing) {
    Write("old", "oldpassword");
    std::filesystem::remove_all(root / "run");
    for (const std::function<void()>& run :
         {std::function<void()>([&] { Write("new", "newpassword"); }),
          std::function<void()>([&] { RemoveAccountFiles(root.path()); })}) {
        try {
            run();
            ADD_FAILURE() << "did not fail";
        } catch (const CtlError& failure) {
            EXPECT_NE(std::string(failure.what()).find("/run/baywardctl.lock"), std::string::npos);
        }
    }
    EXPECT_EQ(Record(0), "old");
    EXPECT_EQ(Record(1), "oldpassword");
}

TEST_F(AccountFileTest, LockFile_IsForTheOwnerAlone) {
    Write("user", "secret");
    struct stat status {};
    ASSERT_EQ(stat((root / "run/baywardctl.lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U) << "another user could hold the lock for ever";
}

TEST_F(AccountFileTest, LeftoversOfKilledRuns_GoWithTheNextOne) {
    const auto leave = [&] {
        for (const char* file :
             {".TARNiLO0.new", ".TARNiLO1.new", ".TARNiLO0.previous", ".TARNiLO1.previous"}) {
            root.Write(std::string("etc/") + file, "left");
        }
    };
    leave();
    Write("user", "secret");
    EXPECT_EQ(FilesInEtc(), 2U);
    EXPECT_EQ(Record(0), "user");
    leave();
    EXPECT_TRUE(RemoveAccountFiles(root.path()));
    EXPECT_EQ(FilesInEtc(), 0U);
    leave();
    EXPECT_FALSE(RemoveAccountFiles(root.path())) << "leftovers are no account";
    EXPECT_EQ(FilesInEtc(), 0U);
}

TEST_F(AccountFileTest, LinkInTheFilesPlace_IsReplacedAndNotFollowed) {
    root.Write("etc/other", "untouched");
    std::filesystem::create_symlink(root / "etc/other", root / "etc/.TARNiLO0");
    Write("user", "secret");
    EXPECT_EQ(root.Read("etc/other"), "untouched");
    EXPECT_EQ(Record(0), "user");
}

TEST_F(AccountFileTest, UnusableUuid_Fails) {
    EXPECT_THROW(WriteAccountFiles(root.path(), "none", "user", "secret"), CtlError);
    EXPECT_EQ(FilesInEtc(), 0U);
}

TEST_F(AccountFileTest, Remove_TakesBothAndSaysWhetherThereWasOne) {
    EXPECT_FALSE(RemoveAccountFiles(root.path()));
    Write("user", "secret");
    EXPECT_TRUE(RemoveAccountFiles(root.path()));
    EXPECT_EQ(FilesInEtc(), 0U);
    root.Write("etc/.TARNiLO1", "x");
    EXPECT_TRUE(RemoveAccountFiles(root.path()));
    EXPECT_EQ(FilesInEtc(), 0U);
    std::filesystem::create_directories(root / "etc/.TARNiLO0/in-the-way");
    EXPECT_THROW(RemoveAccountFiles(root.path()), CtlError);
}

}  // namespace
