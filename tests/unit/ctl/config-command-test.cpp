#include "config-command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <sstream>
#include <vector>

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
        Configure("[iLo]\nurl=https://ilo\n");
        root.Write("etc/locale.conf", "LANG=C\n");
        std::filesystem::create_directories(root / "var/log/bayward");
    }

    void Configure(const std::string& content) { root.Write("etc/opt/tarn/bayward/bayward.conf", content); }
    void Register() {
        root.Write("etc/.TARNiLO0", "x");
        root.Write("etc/.TARNiLO1", "x");
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
    root.Write("other", "[iLo]\nurl=x\n");
    EXPECT_EQ(Check(root / "other"), 0);
}

TEST_F(ConfigCommandTest, CheckWithoutFile_IsAnErrorAndStillLooksAround) {
    std::filesystem::remove(file);
    std::filesystem::remove_all(root / "var/log/bayward");
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(),
                StartsWith(file + ": error: cannot be read: No such file or directory; without its "
                                  "configuration the service does not start\n"));
    EXPECT_THAT(out.str(), HasSubstr(root / "var/log/bayward: error: there is no such folder"));
    EXPECT_EQ(messages.str(), file + ": 2 errors, 0 warnings\n");
}

TEST_F(ConfigCommandTest, CheckOfAFolder_IsAnError) {
    EXPECT_EQ(Check(root / "etc"), 2);
    EXPECT_THAT(out.str(), HasSubstr("it is no regular file"));
}

TEST_F(ConfigCommandTest, CheckWithAccountButWithoutFiles_SaysThatItIsEmptied) {
    Configure("[iLo]\nurl=x\npassword=hunter2\n");
    EXPECT_EQ(Check(), 1);
    EXPECT_THAT(out.str(),
                StartsWith(file + ":3: warning: no account is registered, so the service empties"));
    Configure("[iLo]\naccount=me\npassword=hunter2\n");
    root.Write("etc/.TARNiLO0", "x");
    EXPECT_EQ(Check(), 1) << "half an account is none";
    EXPECT_THAT(out.str(), StartsWith(file + ":2: warning: no account is registered"));
    EXPECT_THAT(out.str(), Not(HasSubstr("hunter2")));
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
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(), HasSubstr("install -d -m 0750 /var/log/bayward"));
    root.Write("var/log/bayward", "");
    EXPECT_EQ(Check(), 2);
    EXPECT_THAT(out.str(), HasSubstr("is no folder"));
}

TEST_F(ConfigCommandTest, CheckInColour_ColoursTheLevelAlone) {
    colour = true;
    Configure("[iLo]\ninterval=5\n");
    std::filesystem::remove_all(root / "var/log/bayward");
    Check();
    EXPECT_THAT(out.str(), HasSubstr(":2: \033[33mwarning:\033[0m \"interval\""));
    EXPECT_THAT(out.str(), HasSubstr("\033[31merror:\033[0m there"));
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
    EXPECT_THAT(emptied, testing::ContainsRegex("account +- +- +- +.*:2, emptied: no account is registered"));
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
        EXPECT_THAT(failure.what(), HasSubstr(file + " cannot be read: No such file or directory"));
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
