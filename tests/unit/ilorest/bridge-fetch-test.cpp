// Fetching a resource: iLoRestHelper::getValue.
#include <gmock/gmock.h>

#include "bridge-fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string GetFailure(const std::string& result) {
    return "iLoRestReader get failed.result=" + result + "(fnc=getValue para1=/redfish/v1/)";
}

}  // namespace

class BridgeFetch : public BridgeTest {
protected:
    Thrown Fetch() {
        return TextThrownBy([&] { m_value = m_bridge.getValue("/redfish/v1/"); });
    }
    std::string m_value = "untouched";
};

TEST_F(BridgeFetch, Text_IsReturned) {
    m_module.Answers("get", R"('{"Name":"' + arguments[0] + '"}')");
    Open();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, R"({"Name":"/redfish/v1/"})");
    EXPECT_EQ(m_module.Calls().back(), "get /redfish/v1/");
    EXPECT_THAT(TraceLines(), IsEmpty());
    const RestBridge::LastCall last = m_bridge.lastCall();
    EXPECT_EQ(last.fnc, "getValue");
    EXPECT_EQ(last.para1, "/redfish/v1/");
    EXPECT_EQ(last.para2 + last.para3, "");
}

TEST_F(BridgeFetch, Bytes_AreAcceptedLikeText) {
    m_module.Answers("get", "b'{}'");
    Open();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "{}");
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeFetch, BytesThatAreNotUtf8_AreCopiedAsTheyAre) {
    m_module.Answers("get", "b'\\xff\\x80'");
    Open();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "\xff\x80");
}

TEST_F(BridgeFetch, TextBeyondAscii_ArrivesAsUtf8) {
    m_module.Answers("get", "'\\u65e5\\U0001f600'");
    Open();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "\xe6\x97\xa5\xf0\x9f\x98\x80");
}

TEST_F(BridgeFetch, EmptyText_IsASuccess) {
    m_module.Answers("get", "''");
    Open();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "");
}

TEST_F(BridgeFetch, TextWithANul_EndsThere) {
    m_module.Answers("get", "'ab\\0' + 'c' * 30000");
    Open();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "ab");
}

TEST_F(BridgeFetch, LongestTextThatFits_IsReturnedWhole) {
    m_module.Answers("get", "'x' * 18195");
    Open();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, std::string(18195, 'x'));
}

class BridgeFetchOversize : public BridgeFetch, public ::testing::WithParamInterface<const char*> {};

TEST_P(BridgeFetchOversize, Result_IsRefusedNotCut) {
    m_module.Answers("get", GetParam());
    Open();
    ExpectFailure(Fetch(), GetFailure(kOtherResult));
    EXPECT_EQ(m_value, "untouched");
    EXPECT_TRUE(m_bridge.isiLOInitialized());
}

INSTANTIATE_TEST_SUITE_P(Results, BridgeFetchOversize,
                         ::testing::Values("'x' * 18196", "b'x' * 18196", "'x' * 5000000",
                                           "'\\u65e5' * 6066"));

TEST_F(BridgeFetch, Answer401_NamesTheCredentialErrors) {
    m_module.Answers("get", "401");
    Open();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Fetch(), GetFailure(kRefusedResult));
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_TRUE(m_bridge.isiLOInitialized());
}

TEST_F(BridgeFetch, Answer10001_IsAnotherError) {
    m_module.Answers("get", "10001");
    Open();
    ExpectFailure(Fetch(), GetFailure(kOtherResult));
}

TEST_F(BridgeFetch, Failure_IsNotRetried) {
    m_module.Answers("get", "10001");
    Open(5);
    EXPECT_EQ(Fetch().kind, Thrown::kBuffer);
    EXPECT_EQ(m_module.Calls().size(), 2U);  // init and one get
}

TEST_F(BridgeFetch, RetryCountZero_FailsWithoutCallingTheModule) {
    m_module.Answers("get", "'text'");
    Open();
    m_bridge.init("https://bmc", "admin", "secret", 0, 1);  // the session is open: only the counts change
    ExpectFailure(Fetch(), GetFailure(""));
    EXPECT_EQ(m_module.Calls().size(), 1U);
}

// Results that are neither text nor bytes nor a known error, and functions that raise.
class BridgeFetchOdd : public BridgeFetch, public ::testing::WithParamInterface<const char*> {};

TEST_P(BridgeFetchOdd, Result_FailsWithEmptyResultTextAndOneLine) {
    m_module.Does("get", GetParam());
    Open();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Fetch(), GetFailure(""));
    ExpectOneErrorLine();
    // The bridge still works.
    m_bridge.close();
    EXPECT_EQ(m_module.Calls().back(), "close");
}

INSTANTIATE_TEST_SUITE_P(
    Results, BridgeFetchOdd,
    ::testing::Values(
        "return None", "return 200", "return True", "return 1 << 100", "return ['text']",
        "return bytearray(b'text')", "return '\\ud800'", "return object()",
        "class Hostile:\n    def __str__(self): raise KeyboardInterrupt\n"
        "    def __index__(self): raise SystemExit\n    def __del__(self): raise ValueError('late')\n"
        "return Hostile()",
        "raise ValueError", "raise KeyboardInterrupt", "raise SystemExit(2)", "import sys\nsys.exit()",
        "raise GeneratorExit", "class Own(BaseException): pass\nraise Own()",
        "class Own(Exception):\n    def __str__(self): raise ValueError\nraise Own()",
        "import warnings\nwarnings.warn('loud')\nraise ValueError", "raise"));

// The one thing that may reach the terminal: why a controller cannot be reached.
TEST_F(BridgeFetch, WhatAModuleLogs_ReachesTheErrorStreamAsOneLine) {
    m_module.Does("get",
                  "import logging\nlogging.getLogger('baywardilorest').warning('install it')\nreturn 10001");
    Open();
    ExpectFailure(Fetch(), GetFailure(kOtherResult));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "install it\n");
    testing::internal::CaptureStderr();  // for the common check
}

TEST_F(BridgeFetch, PathThatIsNotUtf8_FailsTheAttempt) {
    Open();
    m_bridge.setLogger(&m_log);
    const Thrown thrown = TextThrownBy([&] { m_bridge.getValue("/\x80"); });
    ExpectFailure(thrown, "iLoRestReader get failed.result=(fnc=getValue para1=/\x80)");
    ExpectOneErrorLine();
    EXPECT_EQ(m_module.Calls().size(), 1U);
}

TEST_F(BridgeFetch, FormatCharactersInAPath_AreTextOnly) {
    m_module.Answers("get", "401");
    Open();
    const Thrown thrown = TextThrownBy([&] { m_bridge.getValue("/%s%n%u"); });
    ExpectFailure(thrown, "iLoRestReader get failed.result=" + std::string(kRefusedResult) +
                              "(fnc=getValue para1=/%s%n%u)");
}

TEST_F(BridgeFetch, WithoutInit_ImportsTheModuleItself) {
    m_module.Answers("get", "'text'").Install();
    // The retry count is still 0, so the module is loaded but not called.
    ExpectFailure(Fetch(), GetFailure(""));
    EXPECT_TRUE(m_bridge.isPyInitialized());
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    EXPECT_THAT(m_module.Calls(), IsEmpty());
}

TEST_F(BridgeFetch, AfterFinalize_StartsTheInterpreterAgain) {
    m_module.Answers("get", "'text'");
    Open();
    m_bridge.finalize();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "text");
}

TEST_F(BridgeFetch, NoModule_IsReportedAsAMissingFunction) {
    ExpectLiteral(Fetch(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeFetch, NoGetFunction_ClosesTheSessionAndTearsDown) {
    m_module.Lacks("get");
    Open();
    ExpectLiteral(Fetch(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    EXPECT_THAT(m_module.Calls(), ElementsAre("init https://bmc admin secret", "close"));
    // The next call starts with a fresh import.
    m_module.Answers("get", "'text'").Install();
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "text");
}

TEST_F(BridgeFetch, GetThatIsNoFunction_CountsAsMissing) {
    m_module.Lacks("get").Top("get = 'text'");
    Open();
    ExpectLiteral(Fetch(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeFetch, NoGetAndAFailingClose_PassesTheCloseFailureOn) {
    m_module.Lacks("get").Does("close", "raise OSError");
    Open(2);
    ExpectFailure(Fetch(), "iLoRestReader close failed.(fnc=close)");
    EXPECT_FALSE(m_bridge.isPyInitialized());
    EXPECT_FALSE(m_bridge.isiLOInitialized());
}

TEST_F(BridgeFetch, HundredsOfCalls_UseNoDescriptors) {
    m_module.Answers("get", "'x' * 18000");
    Open();
    const auto count = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    EXPECT_EQ(Fetch().kind, Thrown::kNothing);
    const auto before = count();
    for (int i = 0; i < 300; ++i) {
        m_bridge.getValue("/redfish/v1/");
    }
    EXPECT_EQ(count(), before);
}
