#include "account-command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <sstream>

#include "account-file.h"
#include "ctl-error.h"
#include "fake-bridge.h"
#include "fake-commands.h"
#include "ilo-account.h"
#include "test-root.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class FakeTerminal : public Terminal {
public:
    bool interactive = true;
    std::deque<std::string> lines;  // what is typed, or what standard input holds
    std::vector<std::string> prompts;
    std::size_t hidden = 0;

    bool IsInteractive() override { return interactive; }
    std::optional<std::string> ReadLine(const std::string& prompt) override {
        prompts.push_back(prompt);
        if (lines.empty()) {
            return std::nullopt;
        }
        std::string line = lines.front();
        lines.pop_front();
        return line;
    }
    std::optional<std::string> ReadHidden(const std::string& prompt) override {
        ++hidden;
        return ReadLine(prompt);
    }
};

class AccountCommandTest : public testing::Test {
protected:
    AccountCommandTest() {
        std::filesystem::create_directories(root / "etc");
        std::filesystem::create_directories(root / "run");
        commands.result = {.started = true,
                           .timedOut = false,
                           .exitStatus = 0,
                           .output = "UUID: 00112233-4455-6677-8899-aabbccddeeff\n"};
        Configure("url=https://ilo\n");
    }

    void Configure(const std::string& settings) {
        root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\n" + settings);
    }
    AccountCommand Command() {
        return AccountCommand({.root = root.path(),
                               .user = user,
                               .commands = commands,
                               .terminal = terminal,
                               .out = out,
                               .messages = messages,
                               .makeBridge = [this] { return std::make_unique<LentBridge>(bridge); }});
    }
    // Runs the command and returns the sentence that it fails with.
    template <typename Failure, typename Run>
    std::string FailureOf(const Run& run) {
        try {
            run();
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), Not(HasSubstr("secret")));
            EXPECT_THAT(failure.what(), Not(HasSubstr("\n")));
            return failure.what();
        }
        ADD_FAILURE() << "did not fail";
        return {};
    }
    void Register(const std::string& account, const std::string& password) {
        terminal.lines = {password, password};
        Command().Set(account);
        out.str("");
        terminal.prompts.clear();
    }
    std::string Record(int record) {
        std::string text(kMaxAccountText, 'x');
        const bool done = DecryptAccount(record, reinterpret_cast<unsigned char*>(text.data()), text.size(),
                                         commands, root.path());
        return done ? std::string(text.c_str()) : std::string("(none)");
    }

    TestRoot root;
    FakeCommands commands;
    FakeTerminal terminal;
    FakeBridge bridge;
    std::ostringstream out;
    std::ostringstream messages;
    uid_t user = 0;
};

// ---- set ----

TEST_F(AccountCommandTest, SetByAPerson_AsksTwiceWithoutEcho) {
    terminal.lines = {"secret", "secret"};
    Command().Set("monitor");
    EXPECT_EQ(Record(0), "monitor");
    EXPECT_EQ(Record(1), "secret");
    EXPECT_EQ(terminal.hidden, 2U);
    EXPECT_THAT(out.str(), HasSubstr("Account \"monitor\" is registered"));
    EXPECT_THAT(out.str(), Not(HasSubstr("secret")));
}

TEST_F(AccountCommandTest, SetWithoutAccount_AsksAPersonForIt) {
    terminal.lines = {"asked", "secret", "secret"};
    Command().Set(std::nullopt);
    EXPECT_EQ(Record(0), "asked");
    EXPECT_EQ(terminal.prompts.size(), 3U);
    EXPECT_EQ(terminal.hidden, 2U) << "the account is typed visibly";
}

TEST_F(AccountCommandTest, SetByAProgram_TakesTheFirstLineOnce) {
    terminal.interactive = false;
    terminal.lines = {"secret", "another line"};
    Command().Set("monitor");
    EXPECT_EQ(Record(1), "secret");
    EXPECT_EQ(terminal.lines.size(), 1U);
}

TEST_F(AccountCommandTest, SetByAProgramWithoutAccount_IsWrongUsage) {
    terminal.interactive = false;
    terminal.lines = {"secret"};
    EXPECT_THAT(FailureOf<UsageError>([&] { Command().Set(std::nullopt); }), HasSubstr("set ACCOUNT"));
    EXPECT_EQ(Record(0), "(none)");
}

TEST_F(AccountCommandTest, PasswordsThatDiffer_ChangeNothing) {
    Register("old", "oldpassword");
    terminal.lines = {"secret", "secret2"};
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Set("monitor"); }), HasSubstr("differ"));
    EXPECT_EQ(Record(0), "old");
    EXPECT_EQ(Record(1), "oldpassword");
}

TEST_F(AccountCommandTest, EndOfInput_ChangesNothing) {
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Set("monitor"); }), HasSubstr("No password was given"));
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Set(std::nullopt); }), HasSubstr("No account was given"));
    EXPECT_EQ(Record(0), "(none)");
}

TEST_F(AccountCommandTest, TextsThatCannotBeRegistered_AreWrongUsage) {
    FailureOf<UsageError>([&] { Command().Set(""); });
    FailureOf<UsageError>([&] { Command().Set(std::string(41, 'x')); });
    EXPECT_TRUE(terminal.prompts.empty()) << "the password is not even asked for";
    terminal.lines = {std::string(41, 'x'), std::string(41, 'x')};
    FailureOf<UsageError>([&] { Command().Set("monitor"); });
    terminal.lines = {"", ""};
    FailureOf<UsageError>([&] { Command().Set("monitor"); });
    EXPECT_EQ(Record(0), "(none)");
}

TEST_F(AccountCommandTest, SetReplacesTheRegisteredAccount) {
    Register("old", "oldpassword");
    Register("new", "newpassword");
    EXPECT_EQ(Record(0), "new");
    EXPECT_EQ(Record(1), "newpassword");
}

TEST_F(AccountCommandTest, NoUsableUuid_FailsBeforeAsking) {
    for (const auto& result :
         {tovaserverutil::CommandResult{},
          tovaserverutil::CommandResult{.started = true, .timedOut = true, .exitStatus = -1, .output = {}},
          tovaserverutil::CommandResult{
              .started = true, .timedOut = false, .exitStatus = 127, .output = {}}}) {
        commands.result = result;
        EXPECT_THAT(FailureOf<CtlError>([&] { Command().Set("monitor"); }), HasSubstr("dmidecode"));
    }
    EXPECT_TRUE(terminal.prompts.empty());
}

TEST_F(AccountCommandTest, AnyoneButRoot_IsToldToUseSudo) {
    user = 1000;
    for (const std::function<void()>& run : {std::function<void()>([&] { Command().Set("monitor"); }),
                                             std::function<void()>([&] { Command().Check(false); }),
                                             std::function<void()>([&] { Command().Remove(); })}) {
        EXPECT_THAT(FailureOf<CtlError>(run), HasSubstr("needs root"));
    }
    EXPECT_TRUE(commands.commands.empty());
}

// ---- check ----

TEST_F(AccountCommandTest, Check_ShowsTheNameAndNeverThePassword) {
    Register("monitor", "secret");
    Command().Check(false);
    EXPECT_EQ(out.str(), "Account \"monitor\" is registered.\n");
    EXPECT_TRUE(bridge.calls.empty());
}

TEST_F(AccountCommandTest, CheckOfTextsOfFullLength_ShowsThemWhole) {
    Register(std::string(40, 'n'), std::string(40, 'p'));
    Command().Check(true);
    EXPECT_THAT(out.str(), HasSubstr("\"" + std::string(40, 'n') + "\""));
    EXPECT_EQ(bridge.calls.at(0),
              "init https://ilo " + std::string(40, 'n') + " " + std::string(40, 'p') + " 100 10");
}

TEST_F(AccountCommandTest, CheckWithoutAccount_SaysHowToRegisterOne) {
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Check(false); }), HasSubstr("No account is registered"));
}

TEST_F(AccountCommandTest, CheckWithOneFileMissing_NamesIt) {
    Register("monitor", "secret");
    std::filesystem::remove(root / "etc/.TARNiLO1");
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Check(false); }), HasSubstr(".TARNiLO1 is missing"));
}

TEST_F(AccountCommandTest, CheckOfFilesOfAnotherMachine_SaysSo) {
    Register("monitor", "secret");
    commands.result.output = "UUID: 10112233-4455-6677-8899-aabbccddeeff\n";
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Check(false); }), HasSubstr("cannot be deciphered"));
    EXPECT_EQ(out.str(), "");
}

// One foreign file in 256 passes the padding.
TEST_F(AccountCommandTest, CheckOfWhatDeciphersToNoName_SaysTheSameAndShowsNothingOfIt) {
    const std::string kUuid = "00112233445566778899aabbccddeeff";
    for (const std::string& name :
         {std::string("a\x1B[2J"), std::string("\xFF\xFEx"), std::string("a\xC2\x9B"), std::string("a\0b", 3),
          std::string("\0b", 2), std::string()}) {
        WriteAccountFiles(root.path(), kUuid, name, "secret");
        EXPECT_THAT(
            FailureOf<CtlError>([&] { Command().Check(true); }),
            HasSubstr(".TARNiLO0 cannot be deciphered, it is damaged or was made on another machine"));
        EXPECT_EQ(out.str(), "");
        EXPECT_TRUE(bridge.calls.empty());
    }
}

TEST_F(AccountCommandTest, CheckOfANameInUtf8_ShowsItAsItIs) {
    Register("m\xC3\xBCller", "secret");
    Command().Check(false);
    EXPECT_EQ(out.str(), "Account \"m\xC3\xBCller\" is registered.\n");
}

TEST_F(AccountCommandTest, CheckWithoutAPlaceForTheLock_WorksAllTheSame) {
    Register("monitor", "secret");
    std::filesystem::remove_all(root / "run");
    Command().Check(false);
    EXPECT_EQ(out.str(), "Account \"monitor\" is registered.\n");
}

TEST_F(AccountCommandTest, CheckLogin_AcceptedAccountIs200AndLogsOut) {
    Register("monitor", "secret");
    Command().Check(true);
    EXPECT_THAT(out.str(), HasSubstr("The controller at https://ilo accepted the account (200).\n"));
    EXPECT_THAT(bridge.calls, ElementsAre("init https://ilo monitor secret 100 10", "close"));
    EXPECT_THAT(out.str(), Not(HasSubstr("verified")));
}

TEST_F(AccountCommandTest, CheckLoginOverAVerifiedConnection_SaysSo) {
    Register("monitor", "secret");
    bridge.verified = true;
    Command().Check(true);
    EXPECT_THAT(out.str(), HasSubstr("accepted the account (200).\nIts certificate is verified.\n"));
}

TEST_F(AccountCommandTest, ConnectionSettings_AreTheServices) {
    root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\nca file=/etc/ssl/ilo.pem\n");
    EXPECT_EQ(ReadConnectionSettings(root.path()).caFile, "/etc/ssl/ilo.pem");
    root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\nurl=https://ilo\n");
    EXPECT_EQ(ReadConnectionSettings(root.path()).caFile, "");
    EXPECT_TRUE(ReadConnectionSettings(root.path()).expand);
    root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\nexpand=false\n");
    EXPECT_FALSE(ReadConnectionSettings(root.path()).expand);
    std::filesystem::remove(root / "etc/opt/tarn/bayward/bayward.conf");
    EXPECT_THAT(FailureOf<CtlError>([&] { ReadConnectionSettings(root.path()); }), HasSubstr("bayward.conf"));
}

TEST_F(AccountCommandTest, CheckLogin_UsesTheConfiguredTrialsAndTheInBandChannel) {
    Register("monitor", "secret");
    Configure("max trials=3\ntrial interval=20\n");
    Command().Check(true);
    EXPECT_EQ(bridge.calls.at(0), "init blobstore://. monitor secret 3 20");
}

TEST_F(AccountCommandTest, CheckLogin_BoundsAbsurdTrials) {
    Register("monitor", "secret");
    for (const auto& [settings, expected] :
         {std::pair("max trials=-1\ntrial interval=-5\n", "100 1000"),
          std::pair("max trials=2000000000\ntrial interval=2000000000\n", "100 1000"),
          std::pair("max trials=0\ntrial interval=0\n", "0 0")}) {
        Configure(settings);
        bridge.calls.clear();
        Command().Check(true);
        EXPECT_EQ(bridge.calls.at(0), std::string("init blobstore://. monitor secret ") + expected);
    }
}

TEST_F(AccountCommandTest, CheckLogin_RefusedAccountIs401AndLogsOut) {
    Register("monitor", "secret");
    bridge.failures["init"] =
        "ilorest-helper 9 iLoRestReader initialize failed. result=value=InvalidCredentialsError, "
        "SecurityStateError, "
        "HpIloInitialError(fnc=init para1=https://ilo para2=monitor para3=***)";
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Check(true); }), HasSubstr("refused the account (401)"));
    EXPECT_EQ(bridge.calls.back(), "close");
}

TEST_F(AccountCommandTest, CheckLogin_AnyOtherFailureIsNeither) {
    Register("monitor", "secret");
    bridge.failures["init"] = "result=value=etc\x1B error \x9B\xC2\x9B m\xC3\xBCller";
    bridge.failures["close"] = "close failed as well";
    const std::string sentence = FailureOf<CtlError>([&] { Command().Check(true); });
    EXPECT_THAT(sentence, HasSubstr("could not be asked (result=value=etc? error ?? m\xC3\xBCller)"));
    EXPECT_THAT(sentence, Not(HasSubstr("401")));
    EXPECT_EQ(bridge.calls.back(), "close");
}

TEST_F(AccountCommandTest, CheckLoginWithoutConfiguration_NamesTheFile) {
    Register("monitor", "secret");
    std::filesystem::remove(root / "etc/opt/tarn/bayward/bayward.conf");
    EXPECT_THAT(FailureOf<CtlError>([&] { Command().Check(true); }), HasSubstr("bayward.conf"));
    EXPECT_TRUE(bridge.calls.empty());
}

// ---- remove ----

TEST_F(AccountCommandTest, Remove_TakesTheAccountAwayOnce) {
    Register("monitor", "secret");
    Command().Remove();
    EXPECT_EQ(out.str(), "The account is removed.\n");
    EXPECT_EQ(Record(0), "(none)");
    out.str("");
    Command().Remove();
    EXPECT_EQ(out.str(), "No account was registered.\n");
}

}  // namespace
