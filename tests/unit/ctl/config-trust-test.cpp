#include "config-trust.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "shell.h"
#include "test-root.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kConfiguration = "etc/opt/tarn/bayward/bayward.conf";
constexpr const char* kTool = "opt/MegaRAID/storcli/storcli64";
constexpr uid_t kSomebody = 4711;

// A host in order: nobody but the owner writes anything.
class ConfigTrustTest : public testing::Test {
protected:
    ConfigTrustTest() : m_mask(umask(S_IWGRP | S_IWOTH)) {
        for (const char* const file : {kConfiguration, kTool, "bin/bayward", "bin/json.py"}) {
            root.Write(file, "");
        }
        std::filesystem::create_directories(root / "var/log/bayward");
        SetMode("var/log/bayward", 0750);
    }
    ~ConfigTrustTest() override { umask(m_mask); }

    std::vector<Finding> Look() {
        Surroundings found;
        LookAtTrust(root.path(), root / "bin", found);
        for (const Finding& finding : found.findings) {
            EXPECT_EQ(finding.level, Finding::Level::kWarning);
            EXPECT_EQ(finding.line, 0);
        }
        return found.findings;
    }
    // The one finding is about this place and says this.
    void ExpectOne(const std::string& place, const std::string& text) {
        const std::vector<Finding> found = Look();
        ASSERT_THAT(found, SizeIs(1)) << place;
        EXPECT_EQ(found[0].file, root / place);
        EXPECT_THAT(found[0].sentence, HasSubstr(text));
    }
    void SetMode(const std::string& place, mode_t mode) { ASSERT_EQ(chmod((root / place).c_str(), mode), 0); }

    TestRoot root;

private:
    mode_t m_mask;
};

TEST_F(ConfigTrustTest, HostInOrder_HasNoFinding) {
    EXPECT_THAT(Look(), IsEmpty());
}

TEST_F(ConfigTrustTest, WhatEverybodyMayWrite_IsFoundOnce) {
    for (const char* const place :
         {"bin", "bin/json.py", "etc/opt", kConfiguration, "opt", kTool, "var/log/bayward"}) {
        struct stat before {};
        ASSERT_EQ(stat((root / place).c_str(), &before), 0);
        SetMode(place, 0777);
        ExpectOne(place, "chmod go-w");
        SetMode(place, before.st_mode);
    }
}

TEST_F(ConfigTrustTest, FoldersThatTheServiceTakesProgramsFrom_AreLookedAt) {
    const char* const before = getenv("PATH");
    const std::string path = before == nullptr ? "" : before;
    unsetenv("PATH");
    std::istringstream folders(tovaserverutil::ShellRunner()
                                   .Capture("printf %s \"$PATH\"", tovaserverutil::kListingDeadline)
                                   .output);
    setenv("PATH", path.c_str(), 1);
    int count = 0;
    for (std::string folder; std::getline(folders, folder, ':'); ++count) {
        const std::string place = folder.substr(1);
        std::filesystem::create_directories(root / place);
        SetMode(place, 0777);
        ExpectOne(place, "chmod go-w");
        SetMode(place, 0755);
    }
    EXPECT_GT(count, 4);
}

TEST_F(ConfigTrustTest, ProgramThatTheServiceRunsByName_IsLookedAt) {
    for (const char* const program : {"dmidecode", "grep", "ip", "sh", "unzip"}) {
        const std::string place = std::string("usr/sbin/") + program;
        root.Write(place, "");
        SetMode(place, 0777);
        ExpectOne(place, "chmod go-w");
        SetMode(place, 0755);
    }
    root.Write("usr/sbin/other", "");
    SetMode("usr/sbin/other", 0777);
    EXPECT_THAT(Look(), IsEmpty()) << "the service does not run it";
}

TEST_F(ConfigTrustTest, FolderOfProgramsThatIsALink_IsFollowed) {
    root.Write("usr/bin/unzip", "");
    std::filesystem::create_directory_symlink("usr/bin", root / "sbin");
    SetMode("usr/bin", 0777);
    ExpectOne("usr/bin", "chmod go-w");
}

TEST_F(ConfigTrustTest, FolderWhereOnlyOwnersRename_IsNone) {
    SetMode("opt", 01777);
    EXPECT_THAT(Look(), IsEmpty());
}

TEST_F(ConfigTrustTest, WhatAnotherUserOrGroupHas_IsFound) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    ASSERT_EQ(chown((root / "opt/MegaRAID").c_str(), kSomebody, static_cast<gid_t>(-1)), 0);
    ExpectOne("opt/MegaRAID", "chown root");
    ASSERT_EQ(chown((root / "opt/MegaRAID").c_str(), 0, kSomebody), 0);
    EXPECT_THAT(Look(), IsEmpty());
    SetMode("opt/MegaRAID", 0775);
    ExpectOne("opt/MegaRAID", "chmod go-w");
}

TEST_F(ConfigTrustTest, LogFolderThatOthersOpen_IsWithoutLock) {
    for (const mode_t mode : {0754U, 0751U, 0755U}) {
        SetMode("var/log/bayward", mode);
        ExpectOne("var/log/bayward", "chmod o-rwx");
    }
    SetMode("var/log/bayward", 0700);
    EXPECT_THAT(Look(), IsEmpty());
    std::filesystem::remove(root / "var/log/bayward");
    root.Write("var/log/bayward", "");
    EXPECT_THAT(Look(), IsEmpty()) << "no folder at all, which is said elsewhere";
}

TEST_F(ConfigTrustTest, FolderAboveTheLogs_IsTheDistributionsAffair) {
    SetMode("var/log", 0777);
    EXPECT_THAT(Look(), IsEmpty());
}

TEST_F(ConfigTrustTest, TargetOfALink_IsLookedAtToo) {
    root.Write("home/storcli64", "");
    SetMode("home", 0777);
    std::filesystem::remove(root / kTool);
    std::filesystem::create_symlink(root / "home/storcli64", root / kTool);
    ExpectOne("home", "chmod go-w");
}

TEST_F(ConfigTrustTest, EveryLinkOnTheWay_IsFollowedByItself) {
    // The tool is reached by way of "middle", which is on neither the way to the link nor that to its target.
    root.Write("target/storcli64", "");
    std::filesystem::create_directory(root / "middle");
    std::filesystem::create_symlink("../target/./storcli64", root / "middle/link");
    std::filesystem::remove(root / kTool);
    std::filesystem::create_symlink("../../../middle//link", root / kTool);
    EXPECT_THAT(Look(), IsEmpty());
    for (const char* const place : {"middle", "target", "target/storcli64"}) {
        SetMode(place, 0777);
        ExpectOne(place, "chmod go-w");
        SetMode(place, 0755);
    }
}

TEST_F(ConfigTrustTest, FolderBeforeDots_IsOnTheWay) {
    std::filesystem::create_directories(root / "real/deep");
    std::filesystem::create_symlink(root / "real/deep", root / "link");
    root.Write("real/storcli64", "");
    std::filesystem::remove(root / kTool);
    std::filesystem::create_symlink(root / "link/../storcli64", root / kTool);  // real/storcli64
    for (const char* const place : {"real/storcli64", "real/deep"}) {
        SetMode(place, 0777);
        ExpectOne(place, "chmod go-w");
        SetMode(place, 0755);
    }
}

TEST_F(ConfigTrustTest, LinkOfAnotherUser_IsFoundWhereThatUserMayReplaceIt) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    root.Write("target/storcli64", "");
    std::filesystem::remove(root / kTool);
    std::filesystem::create_symlink(root / "target/storcli64", root / kTool);
    ASSERT_EQ(lchown((root / kTool).c_str(), kSomebody, kSomebody), 0);
    EXPECT_THAT(Look(), IsEmpty()) << "root alone writes its folder";
    SetMode("opt/MegaRAID/storcli", 01777);
    ExpectOne(kTool, "chown -h root");
    ASSERT_EQ(lchown((root / kTool).c_str(), 0, 0), 0);
    EXPECT_THAT(Look(), IsEmpty());
}

TEST_F(ConfigTrustTest, WayWithoutEnd_AddsNothing) {
    SetMode("opt/MegaRAID/storcli", 0777);
    std::filesystem::remove(root / kTool);
    std::filesystem::create_symlink("storcli64", root / kTool);  // round and round
    EXPECT_THAT(Look(), IsEmpty());
    std::filesystem::remove(root / kTool);
    std::filesystem::create_symlink("nowhere", root / kTool);
    EXPECT_THAT(Look(), IsEmpty());
}

TEST_F(ConfigTrustTest, AccountFileThatOthersRead_IsFound) {
    root.Write("etc/.TARNiLO1", "");
    SetMode("etc/.TARNiLO1", 0600);
    EXPECT_THAT(Look(), IsEmpty());
    SetMode("etc/.TARNiLO1", 0640);
    ExpectOne("etc/.TARNiLO1", "chmod 600");
}

TEST_F(ConfigTrustTest, ForgottenTestInput_IsFound) {
    root.Write("bin/KMT_ADUReport_test/storcli_show_events.txt", "");
    ExpectOne("bin/KMT_ADUReport_test", "instead of what ssacli and storcli64 tell");
}

TEST_F(ConfigTrustTest, LinkInTheTraceLogsPlace_IsFound) {
    root.Write("elsewhere", "");
    std::filesystem::create_symlink(root / "elsewhere", root / "var/log/bayward/bayward.log");
    ExpectOne("var/log/bayward/bayward.log", "no regular file");
}

TEST_F(ConfigTrustTest, SingleFile_IsJudgedWithItsFolders) {
    root.Write("etc/ssl/ca.pem", "");
    Surroundings found;
    CheckOnlyRootChanges(root.path(), root / "etc/ssl/ca.pem", found);
    CheckOnlyRootChanges(root.path(), root / "etc/ssl/missing.pem", found);
    EXPECT_THAT(found.findings, IsEmpty());
    SetMode("etc/ssl", 0777);
    CheckOnlyRootChanges(root.path(), root / "etc/ssl/ca.pem", found);
    EXPECT_THAT(found.findings, SizeIs(1));
}

}  // namespace
