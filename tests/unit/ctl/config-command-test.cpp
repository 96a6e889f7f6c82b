#include "config-command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <iterator>
#include <sstream>
#include <vector>

#include "account-file.h"
#include "ctl-error.h"
#include "fake-commands.h"
#include "monitor-loop.h"
#include "serial-log-cycle.h"
#include "settings.h"
#include "table-text.h"
#include "test-root.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tova_service::Setting;

constexpr const char* kCertificate =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBdDCCARugAwIBAgIUYC9BU1aQV+Q5h4/BbPnmzeM0ni8wCgYIKoZIzj0EAwIw\n"
    "DzENMAsGA1UEAwwEVGVzdDAgFw0yNjExMjExNTA4NDZaGA8yMTI2MTAyODE1MDg0\n"
    "NlowDzENMAsGA1UEAwwEVGVzdDBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABGcS\n"
    "RkkN/3m9RU7In+Pe8CFugHo28IwdBhJagPKY3/whmx/QxEHi1E3/t4ySfHQLO3pw\n"
    "qL4fyKK5Ku6guwJRDwSjUzBRMB0GA1UdDgQWBBTet34QAB8HF8GT66g+tCjwYK6e\n"
    "9TAfBgNVHSMEGDAWgBTet34QAB8HF8GT66g+tCjwYK6e9TAPBgNVHRMBAf8EBTAD\n"
    "AQH/MAoGCCqGSM49BAMCA0cAMEQCICrjawcdpYphbU1lnNl7pOGeyWDdPbW9Hk6f\n"
    "n4Frjh3xAiAdifTYK5o76F54EE8d/SKio/yM5RJCKhnxWCtRyvC3yQ==\n"
    "-----END CERTIFICATE-----\n";

class NoTerminal : public Terminal {
public:
    bool IsInteractive() override { return false; }
    std::optional<std::string> ReadLine(const std::string&) override { return std::nullopt; }
    std::optional<std::string> ReadHidden(const std::string&) override { return std::nullopt; }
};

// A system in order.
class ConfigCommandTest : public testing::Test {
protected:
    ConfigCommandTest() {
        Configure("[iLo]\nurl=\n");
        root.Write("etc/locale.conf", "LANG=C\n");
        std::filesystem::create_directories(root / "var/log/bayward");
        std::filesystem::permissions(root / "var/log/bayward", std::filesystem::perms(0750));
        std::filesystem::create_directories(root / "run");
        commands.result.output = "UUID: 00112233-4455-6677-8899-aabbccddeeff\n";
    }

    void Configure(const std::string& content) { root.Write("etc/opt/tarn/bayward/bayward.conf", content); }
    void Register() {
        WriteAccountFiles(root.path(), "00112233445566778899aabbccddeeff", "monitor", "another");
    }
    ConfigCommand Command(const std::optional<std::string>& given = {}) {
        return ConfigCommand({.root = root.path(),
                              .user = user,
                              .commands = commands,
                              .terminal = terminal,
                              .out = out,
                              .messages = messages,
                              .makeBridge = {},
                              .paint = Paint(colour)},
                             given);
    }
    int Check(const std::optional<std::string>& given = {}) {
        out.str("");
        messages.str("");
        return Command(given).Check();
    }
    std::string Show(ConfigCommand::Format format) {
        out.str("");
        Command().Show(format);
        return out.str();
    }

    TestRoot root;
    const std::string file = root / "etc/opt/tarn/bayward/bayward.conf";
    FakeCommands commands;
    NoTerminal terminal;
    std::ostringstream out;
    std::ostringstream messages;
    uid_t user = 0;
    bool colour = false;
};

// ---- check ----

TEST_F(ConfigCommandTest, CheckInOrder_IsSilentAndZero) {
    EXPECT_EQ(Check(), 0);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(messages.str(), file + ": nothing to complain about\n");
}

TEST_F(ConfigCommandTest, CheckWithWarning_NamesFileAndLineAndIsOne) {
    Configure("[iLo]\ninterval=5\n");
    EXPECT_EQ(Check(), 1);
    EXPECT_THAT(out.str(), StartsWith(file + ":2: warning: \"interval\" is \"5\": "));
    EXPECT_EQ(messages.str(), file + ": 0 errors, 1 warning\n");
}

TEST_F(ConfigCommandTest, CheckOfAnotherFile_LeavesTheServicesOwnAlone) {
    Configure("[iLo]\ninterval=5\n");
    root.Write("other", "[iLo]\nurl=blobstore://.\n");
    EXPECT_EQ(Check(root / "other"), 0);
}

TEST_F(ConfigCommandTest, CheckWithoutFile_IsAnErrorAndStillLooksAround) {
    std::filesystem::remove(file);
    std::filesystem::remove_all(root / "var/log/bayward");
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(),
                StartsWith(file + ": error: cannot be read: No such file or directory; without its "
                                  "configuration the service does not start\n"));
    EXPECT_THAT(out.str(), HasSubstr(root / "var/log/bayward: warning: there is no such folder"));
    EXPECT_EQ(messages.str(), file + ": 1 error, 1 warning\n");
}

TEST_F(ConfigCommandTest, CheckOfAnotherFileThatIsMissing_DoesNotSpeakOfTheService) {
    EXPECT_EQ(Check(root / "other"), 2);
    EXPECT_EQ(out.str(), (root / "other") + ": error: cannot be read: No such file or directory\n");
}

TEST_F(ConfigCommandTest, CheckOfWhatReadsAsEmpty_SaysSo) {
    EXPECT_EQ(Check(root / "etc"), 1);
    EXPECT_EQ(out.str(), (root / "etc") +
                             ": warning: it is a folder, which the service reads as an empty file: "
                             "every setting has its default\n");
    EXPECT_EQ(Check("/dev/null"), 1);
    EXPECT_THAT(out.str(), HasSubstr("every setting has its default"));
    // The service's reader agrees.
    for (const std::string& path : {root / "etc", std::string("/dev/null")}) {
        tovaserverutil::Profile profile(path);
        profile.ReadProfile();
        EXPECT_TRUE(profile.sections().empty()) << path;
    }
}

TEST_F(ConfigCommandTest, CheckOfAFifo_DoesNotWait) {
    const std::string fifo = root / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(Check(fifo), 2);
    EXPECT_EQ(out.str(),
              fifo + ": error: cannot be read: it is a FIFO, at which a reader waits for a writer\n");
    std::filesystem::remove(root / "etc/locale.conf");
    ASSERT_EQ(mkfifo((root / "etc/locale.conf").c_str(), 0600), 0);
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(
        out.str(),
        HasSubstr("etc/locale.conf: error: the language is detected from this file, but it is a FIFO"));
}

TEST_F(ConfigCommandTest, CheckOfAHugeFile_IsOneSentence) {
    const std::string huge = root / "huge";
    root.Write("huge", "");
    std::filesystem::resize_file(huge, std::uintmax_t{1} << 40);
    EXPECT_EQ(Check(huge), 2);
    EXPECT_EQ(out.str(), huge + ": error: cannot be read: it is larger than 16 MiB\n");
}

TEST_F(ConfigCommandTest, CheckOfAFileThatClaimsNoSize_ReadsItToItsEnd) {
    EXPECT_EQ(Check("/proc/self/status"), 1);
    EXPECT_THAT(out.str(), HasSubstr("/proc/self/status:1: warning: the line stands before any section"));
}

TEST_F(ConfigCommandTest, CheckWithAccountButWithoutFiles_SaysThatItIsEmptied) {
    Configure("[iLo]\nurl=x\npassword=hunter2\n");
    EXPECT_EQ(Check(), 1);
    EXPECT_THAT(out.str(),
                StartsWith(file + ":3: warning: no account is registered, so the service empties"));
}

TEST_F(ConfigCommandTest, CheckOfAnAddressWithoutAccount_SaysThatNoLogInSucceeds) {
    Configure("[iLo]\ninterval=5000\nurl=https://ilo\n");
    for (const uid_t asker : {0U, 1000U}) {
        user = asker;
        EXPECT_EQ(Check(), 1);
        EXPECT_EQ(out.str(), file +
                                 ":3: warning: no account is registered; without one no log-in over the "
                                 "network succeeds: register it with \"baywardctl account set\"\n");
    }
    for (const char* const inBand : {"", "blobstore://.", " BlobStore://x"}) {
        Configure(std::string("[iLo]\nurl=") + inBand + "\n");
        Check();
        EXPECT_THAT(out.str(), Not(HasSubstr("account"))) << inBand;
    }
    user = 0;
    Configure("[iLo]\nurl=https://ilo\n");
    Register();
    EXPECT_EQ(Check(), 0) << out.str();
}

TEST_F(ConfigCommandTest, CheckWithFilesThatCannotBeDeciphered_IsAnErrorAndTheAccountIsEmptied) {
    Configure("[iLo]\naccount=me\npassword=hunter2\n");
    root.Write("etc/.TARNiLO0", "x");
    EXPECT_EQ(Check(), 2) << "half an account is none";
    EXPECT_THAT(out.str(), StartsWith(file + ":2: warning: the registered account cannot be used"));
    EXPECT_THAT(out.str(), HasSubstr(file + ": error: no usable account: The account file " +
                                     (root / "etc/.TARNiLO1 is missing")));
    EXPECT_THAT(out.str(), Not(HasSubstr("hunter2")));

    Configure("[iLo]\nurl=x\n");
    root.Write("etc/.TARNiLO1", "x");
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(), HasSubstr("error: no usable account: "));
    EXPECT_THAT(out.str(), HasSubstr("cannot be deciphered"));

    Register();
    EXPECT_EQ(Check(), 0);
    commands.result.output = "UUID: ffffffff-4455-6677-8899-aabbccddeeff\n";
    EXPECT_EQ(Check(), 2) << "made on another machine";
    commands.result.output = "";
    EXPECT_EQ(Check(), 2) << "a machine without UUID";
    EXPECT_THAT(out.str(), HasSubstr("error: no usable account: The system UUID"));
}

TEST_F(ConfigCommandTest, CheckByAnotherUser_SaysWhatWasNotLookedAt) {
    user = 1000;
    EXPECT_EQ(Check(), 0);
    EXPECT_EQ(messages.str(), file + ": nothing to complain about\n");
    root.Write("etc/.TARNiLO0", "x");
    root.Write("etc/.TARNiLO1", "x");
    for (const char* const name : {"etc/.TARNiLO0", "etc/.TARNiLO1"}) {
        ASSERT_EQ(chmod((root / name).c_str(), S_IRUSR | S_IWUSR), 0);
    }
    EXPECT_EQ(Check(), 0);
    EXPECT_EQ(messages.str(), "Not checked as this user: the account files; run the command with sudo.\n" +
                                  file + ": nothing to complain about\n");
    EXPECT_TRUE(commands.commands.empty());
    Configure("[iLo]\naccount=me\n");
    EXPECT_EQ(Check(), 1);
    EXPECT_THAT(out.str(), HasSubstr("or emptied when that cannot be deciphered"));
    EXPECT_THAT(Show(ConfigCommand::Format::kTable), HasSubstr("if it can be deciphered"));
}

TEST_F(ConfigCommandTest, CheckOfWhatOthersMayWrite_WarnsWithItsName) {
    root.Write("ca.pem", kCertificate);
    Configure("[iLo]\nca file=/ca.pem\n");
    EXPECT_EQ(Check(), 0);
    for (const char* const place : {"ca.pem", "etc/opt/tarn", "var/log/bayward"}) {
        std::filesystem::permissions(root / place, std::filesystem::perms::others_write,
                                     std::filesystem::perm_options::add);
        EXPECT_EQ(Check(), 1);
        EXPECT_THAT(out.str(), StartsWith((root / place) + ": warning: others than root may write it"));
        std::filesystem::permissions(root / place, std::filesystem::perms::others_write,
                                     std::filesystem::perm_options::remove);
    }
}

// ---- CA file ----

TEST_F(ConfigCommandTest, CheckOfTheCaFile_TakesWhatTheHelperTakes) {
    Configure("[iLo]\nca file=/ca.pem\n");
    root.Write("ca.pem", kCertificate);
    EXPECT_EQ(Check(), 0);
    root.Write("ca.pem", std::string("Issuer: someone\n") + kCertificate + kCertificate);
    EXPECT_EQ(Check(), 0);
}

TEST_F(ConfigCommandTest, CheckOfACaFileOfNoUse_IsAnErrorForItsLine) {
    root.Write("text", "hello\n");
    root.Write("empty", "");
    root.Write("broken", std::string(kCertificate).substr(0, 200));
    std::filesystem::create_directory(root / "folder");
    ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
    for (const auto& [path, reason] :
         {std::pair("ca.pem", "it is no absolute path"), std::pair("/missing", "No such file or directory"),
          std::pair("/folder", "it is no file"), std::pair("/fifo", "it is no file"),
          std::pair("/text", "it holds no certificate in PEM form"),
          std::pair("/empty", "it holds no certificate in PEM form"),
          std::pair("/broken", "it holds no certificate in PEM form")}) {
        Configure(std::string("[iLo]\nca file=") + path + "\n");
        EXPECT_EQ(Check(), 2) << path;
        EXPECT_EQ(out.str(),
                  file + ":2: error: the CA file cannot be used, so no log-in over the network succeeds: " +
                      reason + "\n");
    }
}

TEST_F(ConfigCommandTest, CheckWithAccountAndFiles_SaysThatItIsReplaced) {
    Configure("[iLo]\naccount=me\n");
    Register();
    EXPECT_EQ(Check(), 1);
    EXPECT_THAT(out.str(), StartsWith(file + ":2: warning: the account that is registered replaces"));
    Configure("[iLo]\naccount=\npassword=\n");
    EXPECT_EQ(Check(), 0);
}

TEST_F(ConfigCommandTest, CheckWithoutLocaleFile_IsAnErrorWhereItIsNeeded) {
    std::filesystem::remove(root / "etc/locale.conf");
    root.Write("etc/os-release", "ID=debian\n");
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(),
                StartsWith(root / "etc/default/locale: error: the language is detected from this file"));
    root.Write("etc/default/locale", "");
    EXPECT_EQ(Check(), 0);
}

TEST_F(ConfigCommandTest, CheckOfLogFolder_HasToBeAFolderThatCanBeWritten) {
    std::filesystem::remove_all(root / "var/log/bayward");
    EXPECT_EQ(Check(), 1);
    EXPECT_THAT(out.str(), HasSubstr("drops its trace log lines, unless its systemd unit makes the folder"));
    root.Write("var/log/bayward", "");
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(), HasSubstr("is no folder"));
}

TEST_F(ConfigCommandTest, CheckInColour_ColoursTheLevelAlone) {
    colour = true;
    Configure("[iLo]\ninterval=5\n");
    std::filesystem::remove_all(root / "var/log/bayward");
    root.Write("var/log/bayward", "");
    Check();
    EXPECT_THAT(out.str(), HasSubstr(":2: \033[33mwarning:\033[0m \"interval\""));
    EXPECT_THAT(out.str(), HasSubstr("\033[31merror:\033[0m the log"));
}

// ---- show ----

TEST_F(ConfigCommandTest, ShowAsTable_HasARowForEachSetting) {
    Configure("[iLo]\ninterval=5\nurl=https://ilo\n");
    std::istringstream table(Show(ConfigCommand::Format::kTable));
    std::vector<std::string> rows;
    for (std::string line; std::getline(table, line);) {
        rows.push_back(line);
    }
    ASSERT_EQ(rows.size(), std::size(tova_service::kSettings) + 1);
    EXPECT_THAT(rows[0], testing::ContainsRegex("^SECTION +KEY +VALUE +DEFAULT +UNIT +FROM$"));
    EXPECT_THAT(rows[1], testing::ContainsRegex("^log file +max log size +4096 +4096 +kilobytes +default$"));
    EXPECT_THAT(rows[2],
                testing::ContainsRegex("^iLo +interval +3000 +60000 +milliseconds +" + file + ":2$"));
    EXPECT_THAT(rows[3], testing::ContainsRegex("^iLo +url +https://ilo +- +- +" + file + ":3$"));
    EXPECT_THAT(rows.back(), testing::ContainsRegex("^iLO host +report +true +true +- +default$"));
    for (std::size_t i = 0; i < std::size(tova_service::kSettings); ++i) {
        const Setting& setting = *tova_service::kSettings[i];
        EXPECT_THAT(rows[i + 1],
                    testing::ContainsRegex(std::string("^") + setting.section + " +" + setting.key));
    }
}

TEST(TextTable, Columns_AreAsWideAsTheirWidestText) {
    TextTable table({"A", "LONG TITLE", "C"});
    table.Add({"longer", "x", ""});
    table.Add({"故障", "y", "z"});
    std::ostringstream out;
    table.Write(out, Paint(false));
    EXPECT_EQ(out.str(),
              "A       LONG TITLE  C\n"
              "longer  x\n"
              "故障      y           z\n");
    out.str("");
    table.Write(out, Paint(true));
    EXPECT_THAT(out.str(), StartsWith("\033[1mA       LONG TITLE  C\033[0m\nlonger"));
}

TEST_F(ConfigCommandTest, ShowOfTheAccount_IsWhatTheServiceUses) {
    Configure("[iLo]\naccount=me\npassword=hunter2\n");
    const std::string emptied = Show(ConfigCommand::Format::kTable);
    EXPECT_THAT(emptied,
                testing::ContainsRegex("account +- +- +- +.*:2, emptied: no usable account is registered"));
    EXPECT_THAT(emptied, Not(HasSubstr("hunter2")));
    Register();
    const std::string registered = Show(ConfigCommand::Format::kTable);
    EXPECT_THAT(registered, testing::ContainsRegex("account +\\*\\*\\* +- +- +the registered account"));
    EXPECT_THAT(registered, testing::ContainsRegex("password +\\*\\*\\* +- +- +the registered account"));
}

TEST_F(ConfigCommandTest, ShowAsJson_HasTypedValues) {
    Configure("[iLo]\ninterval=5\nurl=a\"b\\\n[media error]\ncheck=false\n");
    const std::string json = Show(ConfigCommand::Format::kJson);
    EXPECT_THAT(json, HasSubstr("\"file\": \"" + file + "\""));
    EXPECT_THAT(
        json, HasSubstr("{\"section\": \"iLo\", \"key\": \"interval\", \"value\": 3000, \"default\": 60000, "
                        "\"unit\": \"milliseconds\", \"origin\": \"file\", \"line\": 2,"));
    EXPECT_THAT(json, HasSubstr("\"key\": \"url\", \"value\": \"a\\\"b\\\\\", \"default\": \"\""));
    EXPECT_THAT(json, HasSubstr("\"key\": \"check\", \"value\": false, \"default\": true"));
    EXPECT_THAT(json, HasSubstr("\"key\": \"report\", \"value\": true, \"default\": true, \"unit\": \"\", "
                                "\"origin\": \"default\", \"line\": null,"));
}

TEST_F(ConfigCommandTest, ShowWithoutFile_Fails) {
    std::filesystem::remove(file);
    try {
        Show(ConfigCommand::Format::kTable);
        FAIL() << "nothing thrown";
    } catch (const CtlError& failure) {
        EXPECT_THAT(failure.what(),
                    HasSubstr(file + " cannot be read: No such file or directory; check the name"));
        EXPECT_THAT(failure.what(), Not(HasSubstr("sudo")));
    }
    EXPECT_EQ(out.str(), "");
}

// The table says what the settings' users do.
TEST(Settings, PollingInterval_HasTheLimitsOfTheMonitoringThread) {
    EXPECT_EQ(tova_service::kControllerInterval.least, ClampPollingInterval(0));
    EXPECT_EQ(tova_service::kControllerInterval.most, ClampPollingInterval(UINT32_MAX));
}

TEST(Settings, SerialLogInterval_HasTheLimitsOfTheSerialLogThread) {
    EXPECT_EQ(tova_service::kSerialLogInterval.least * 60000, SerialLogPeriod(0));
    EXPECT_EQ(tova_service::kSerialLogInterval.most * 60000, SerialLogPeriod(UINT32_MAX));
}

}  // namespace
