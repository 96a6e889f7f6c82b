// Opening a session: iLoRestHelper::init.
#include <gmock/gmock.h>

#include <functional>

#include "bridge-fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string InitFailure(const std::string& result, const std::string& password = "***") {
    return "iLoRestReader initialize failed. result=" + result +
           "(fnc=init para1=https://bmc para2=admin para3=" + password + ")";
}

}  // namespace

class BridgeInit : public BridgeTest {
protected:
    Thrown Init(std::uint32_t retryCount = 3, const char* password = "secret",
                const char* host = "https://bmc") {
        return TextThrownBy([&] { m_bridge.init(host, "admin", password, retryCount, 1); });
    }
};

TEST_F(BridgeInit, NewBridge_HoldsNothing) {
    EXPECT_FALSE(m_bridge.isPyInitialized());
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    EXPECT_FALSE(m_bridge.get_vNIC());
    const RestBridge::LastCall last = m_bridge.lastCall();
    EXPECT_EQ(last.fnc + last.para1 + last.para2 + last.para3, "");
}

TEST_F(BridgeInit, Answer200_OpensTheSessionWithTheRealPassword) {
    m_module.Install();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Init().kind, Thrown::kNothing);
    EXPECT_TRUE(m_bridge.isiLOInitialized());
    EXPECT_TRUE(m_bridge.isPyInitialized());
    EXPECT_THAT(m_module.Calls(), ElementsAre("init https://bmc admin secret"));
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeInit, OpeningASession_SetsTheVnicFlagByTheHost) {
    m_module.Install();
    EXPECT_EQ(Init(3, "secret", kVnicUrl).kind, Thrown::kNothing);
    EXPECT_TRUE(m_bridge.get_vNIC());
    m_bridge.close();
    m_bridge.init("https://bmc", "admin", "secret", 3, 1);
    EXPECT_FALSE(m_bridge.get_vNIC());
}

TEST_F(BridgeInit, FailingToOpenASession_SetsTheVnicFlagAllTheSame) {
    m_module.Answers("init", "401").Install();
    EXPECT_EQ(Init(3, "secret", kVnicUrl).kind, Thrown::kBuffer);
    EXPECT_TRUE(m_bridge.get_vNIC());
}

TEST_F(BridgeInit, LastFailuresText_IsClearedByTheNextCall) {
    m_module.Does("init", "return 401 if calls == 1 else 200")
        .Answers("get", "10001 if calls == 1 else 'text'");
    m_module.Install();
    const char* text = nullptr;
    const auto keep = [&text](const std::function<void()>& call) {
        text = nullptr;
        try {
            call();
        } catch (char* thrown) {
            text = thrown;
        }
    };
    keep([this] { m_bridge.init("https://bmc", "admin", "secret", 3, 1); });
    ASSERT_NE(text, nullptr);
    EXPECT_STRNE(text, "");
    m_bridge.init("https://bmc", "admin", "secret", 3, 1);
    EXPECT_STREQ(text, "");
    keep([this] { m_bridge.getValue("/path"); });
    ASSERT_NE(text, nullptr);
    EXPECT_STRNE(text, "");
    m_bridge.getValue("/path");
    EXPECT_STREQ(text, "");
}

TEST_F(BridgeInit, Arguments_ArePythonStrings) {
    m_module.Does("init", "_note(*[type(argument).__name__ for argument in arguments])\nreturn 200");
    m_module.Install();
    EXPECT_EQ(Init().kind, Thrown::kNothing);
    EXPECT_EQ(m_module.Calls().back(), "str str str");
}

TEST_F(BridgeInit, SecondCallWithTheSessionOpen_OnlyUpdatesTheVnicFlag) {
    Open();
    EXPECT_FALSE(m_bridge.get_vNIC());
    EXPECT_EQ(Init(3, "secret", kVnicUrl).kind, Thrown::kNothing);
    EXPECT_TRUE(m_bridge.get_vNIC());
    EXPECT_EQ(Init(3, "secret", "https://16.1.15.1/").kind, Thrown::kNothing);
    EXPECT_FALSE(m_bridge.get_vNIC());
    EXPECT_EQ(m_module.Calls().size(), 1U);
}

TEST_F(BridgeInit, VnicFlag_KeepsItsValueAcrossCloseAndReset) {
    Open();
    m_bridge.set_vNIC(true);
    m_bridge.close();
    EXPECT_TRUE(m_bridge.get_vNIC());
    m_bridge.reset();
    EXPECT_TRUE(m_bridge.get_vNIC());
}

TEST_F(BridgeInit, Answer401_NamesTheCredentialErrors) {
    m_module.Answers("init", "401").Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Init(), InitFailure(kRefusedResult));
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    EXPECT_TRUE(m_bridge.isPyInitialized());
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeInit, FailureThenSuccess_NeedsNoFreshImport) {
    m_module.Does("init", "return 401 if calls == 1 else 200").Install();
    EXPECT_EQ(Init().kind, Thrown::kBuffer);
    EXPECT_EQ(Init().kind, Thrown::kNothing);
    EXPECT_TRUE(m_bridge.isiLOInitialized());
    EXPECT_EQ(m_module.Calls().size(), 2U);
}

TEST_F(BridgeInit, RetryCountZero_FailsWithoutCallingTheModule) {
    m_module.Install();
    ExpectFailure(Init(0), InitFailure(""));
    EXPECT_THAT(m_module.Calls(), IsEmpty());
    EXPECT_TRUE(m_bridge.isPyInitialized());
}

TEST_F(BridgeInit, Failure_IsNotRetried) {
    m_module.Answers("init", "10001").Install();
    ExpectFailure(Init(5), InitFailure(kOtherResult));
    EXPECT_EQ(m_module.Calls().size(), 1U);
}

TEST_F(BridgeInit, PasswordNone_IsShown) {
    m_module.Answers("init", "401").Install();
    ExpectFailure(Init(3, "None"), InitFailure(kRefusedResult, "None"));
    EXPECT_EQ(m_bridge.lastCall().para3, "None");
}

TEST_F(BridgeInit, EmptyPassword_IsShownEmpty) {
    m_module.Answers("init", "401").Install();
    ExpectFailure(Init(3, ""), InitFailure(kRefusedResult, ""));
}

TEST_F(BridgeInit, LastCall_NeverHoldsThePassword) {
    Open();
    const RestBridge::LastCall last = m_bridge.lastCall();
    EXPECT_EQ(last.fnc, "init");
    EXPECT_EQ(last.para1, "https://bmc");
    EXPECT_EQ(last.para2, "admin");
    EXPECT_EQ(last.para3, "***");
}

TEST_F(BridgeInit, LongArguments_AreCutAtTheMessageBuffer) {
    m_module.Answers("init", "401").Install();
    const std::string host(3000, 'h');
    const Thrown thrown = Init(3, "secret", host.c_str());
    EXPECT_EQ(thrown.kind, Thrown::kBuffer);
    EXPECT_EQ(thrown.text.size(), 1023U);
    EXPECT_EQ(m_bridge.lastCall().para1, host);
}

TEST_F(BridgeInit, ArgumentThatIsNotUtf8_FailsTheAttemptAndLeavesOneLine) {
    m_module.Install();
    m_bridge.setLogger(&m_log);
    const Thrown thrown = Init(3, "secret", "https://\xff");
    ExpectFailure(
        thrown,
        "iLoRestReader initialize failed. result=(fnc=init para1=https://\xff para2=admin para3=***)");
    EXPECT_THAT(m_module.Calls(), IsEmpty());
    ExpectOneErrorLine();
}

TEST_F(BridgeInit, NoModule_FailsTheImportAndLeavesNoInterpreter) {
    ExpectLiteral(Init(), "Python Module import failed.");
    EXPECT_FALSE(m_bridge.isPyInitialized());
    m_module.Install();
    EXPECT_EQ(Init().kind, Thrown::kNothing);
}

class BridgeInitBrokenModule : public BridgeInit, public ::testing::WithParamInterface<const char*> {};

TEST_P(BridgeInitBrokenModule, Import_FailsWithItsText) {
    m_module.InstallText(GetParam());
    ExpectLiteral(Init(), "Python Module import failed.");
    EXPECT_FALSE(m_bridge.isPyInitialized());
    // The file was mended.
    m_module.Install();
    EXPECT_EQ(Init().kind, Thrown::kNothing);
}

INSTANTIATE_TEST_SUITE_P(Modules, BridgeInitBrokenModule,
                         ::testing::Values("def init(:\n", "raise RuntimeError('no')\n",
                                           "raise SystemExit(3)\n", "raise KeyboardInterrupt\n",
                                           "import no_such_module_anywhere\n",
                                           "import sys\nsys.exit('bye')\n", "\xff\xfe not utf-8\n"));

// Results that are no plain 200 or 401.
struct OddResult {
    const char* body;
    const char* resultText;
    bool raises;

    friend void PrintTo(const OddResult& result, std::ostream* out) { *out << result.body; }
};

class BridgeInitOddResult : public BridgeInit, public ::testing::WithParamInterface<OddResult> {};

TEST_P(BridgeInitOddResult, Init_FailsCleanly) {
    m_module.Does("init", GetParam().body).Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Init(), InitFailure(GetParam().resultText));
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    if (GetParam().raises) {
        ExpectOneErrorLine();
    } else {
        EXPECT_THAT(TraceLines(), IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Results, BridgeInitOddResult,
    ::testing::Values(
        OddResult{"return '200'", kOtherResult, false}, OddResult{"return True", kOtherResult, false},
        OddResult{"return None", kOtherResult, false}, OddResult{"return 200.0", kOtherResult, false},
        OddResult{"return 1 << 200", kOtherResult, false},
        OddResult{"return -(1 << 200)", kOtherResult, false}, OddResult{"return b'200'", kOtherResult, false},
        OddResult{"return 500", kOtherResult, false}, OddResult{"raise ValueError('x')", "", true},
        OddResult{"raise KeyboardInterrupt", "", true}, OddResult{"raise SystemExit(1)", "", true},
        OddResult{"raise MemoryError", "", true}, OddResult{"def again(): again()\nagain()", "", true}));

TEST_F(BridgeInit, ErrorWithoutALogger_IsForgottenSilently) {
    m_module.Does("init", "raise ValueError('x')").Install();
    ExpectFailure(Init(), InitFailure(""));
}

TEST_F(BridgeInit, AnswerOfAnIntSubclass_IsAnInteger) {
    m_module.Does("init", "import http\nreturn http.HTTPStatus.OK").Install();
    EXPECT_EQ(Init().kind, Thrown::kNothing);
}

TEST_F(BridgeInit, NoInitFunction_ClosesAndTearsDown) {
    m_module.Lacks("init").Install();
    ExpectLiteral(Init(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
    EXPECT_THAT(m_module.Calls(), ElementsAre("close"));
    m_module.Answers("init", "200").Install();
    EXPECT_EQ(Init().kind, Thrown::kNothing);
}

TEST_F(BridgeInit, InitThatIsNoFunction_CountsAsMissing) {
    m_module.Lacks("init").Top("init = 5").Install();
    ExpectLiteral(Init(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeInit, LookUpThatRaises_CountsAsMissing) {
    m_module.Lacks("init").Top("def __getattr__(name): raise KeyboardInterrupt").Install();
    ExpectLiteral(Init(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeInit, NeitherInitNorClose_GivesTheFunctionText) {
    m_module.Lacks("init").Lacks("close").Install();
    ExpectLiteral(Init(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeInit, NoInitAndAFailingClose_PassesTheCloseFailureOnAndTearsDown) {
    m_module.Lacks("init").Does("close", "raise OSError").Install();
    ExpectFailure(Init(2), "iLoRestReader close failed.(fnc=close)");
    EXPECT_EQ(m_module.Calls().size(), 2U);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

// The module that is shipped, against a port where nobody listens.
TEST(BridgeRealModule, NobodyListening_IsAnotherError) {
    iLoRestHelper bridge(BAYWARD_SOURCE_DIR "/ilorest/module");
    const Thrown init = TextThrownBy([&] { bridge.init("https://127.0.0.1:1", "admin", "secret", 1, 1); });
    ExpectFailure(init, "iLoRestReader initialize failed. result=" + std::string(kOtherResult) +
                            "(fnc=init para1=https://127.0.0.1:1 para2=admin para3=***)");
    ExpectFailure(
        TextThrownBy([&] { bridge.getValue("/redfish/v1/"); }),
        "iLoRestReader get failed.result=" + std::string(kOtherResult) + "(fnc=getValue para1=/redfish/v1/)");
    EXPECT_EQ(TextThrownBy([&] { bridge.close(); }).kind, Thrown::kNothing);
}
