// The virtual-NIC family: isvNICAvail, getValue_vNIC and getProdGen.
#include <gmock/gmock.h>

#include <chrono>

#include "bridge-fixture.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class BridgePresence : public BridgeTest {
protected:
    Thrown Ask(std::uint32_t retryCount = 3, std::uint32_t interval = 1) {
        return TextThrownBy([&] { m_value = m_bridge.isvNICAvail("https://bmc", retryCount, interval); });
    }
    static std::string Failure(const std::string& result) {
        return "iLoRestReader get failed.result=" + result + "(fnc=__isvNICAvail para1=https://bmc)";
    }
    std::string m_value = "untouched";
};

// An expression that answers, and the text that comes back.
class BridgePresenceAnswer : public BridgePresence,
                             public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(BridgePresenceAnswer, Text_IsReturnedAfterOneCall) {
    m_module.Answers("is_ip_assigned", GetParam().first).Install();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Ask(5).kind, Thrown::kNothing);
    EXPECT_EQ(m_value, GetParam().second);
    EXPECT_THAT(m_module.Calls(), ElementsAre("is_ip_assigned https://bmc"));
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_EQ(m_bridge.lastCall().fnc, "__isvNICAvail");
    EXPECT_EQ(m_bridge.lastCall().para1, "https://bmc");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, BridgePresenceAnswer,
    ::testing::Values(std::pair{"True", "True"}, std::pair{"False", "False"}, std::pair{"None", "None"},
                      std::pair{"'True'", "True"}, std::pair{"'None'", "None"},
                      std::pair{"type('Own', (), {'__str__': lambda s: 'False'})()", "False"}));

TEST_F(BridgePresence, Answer401_EndsTheLoop) {
    m_module.Answers("is_ip_assigned", "401").Install();
    ExpectFailure(Ask(), Failure(kRefusedResult));
    EXPECT_THAT(m_module.Calls(), SizeIs(1));
}

TEST_F(BridgePresence, Answer10001_EndsTheLoop) {
    m_module.Answers("is_ip_assigned", "10001").Install();
    ExpectFailure(Ask(), Failure(kOtherResult));
    EXPECT_THAT(m_module.Calls(), SizeIs(1));
}

TEST_F(BridgePresence, AnythingElse_IsTriedAsOftenAsTheCountSaysWithoutPauses) {
    m_module.Answers("is_ip_assigned", "'perhaps'").Install();
    m_bridge.setLogger(&m_log);
    const auto start = std::chrono::steady_clock::now();
    ExpectFailure(Ask(4, 20000), Failure(""));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_THAT(m_module.Calls(), SizeIs(4));
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgePresence, FailedAttemptsBeforeAnAnswer_AreForgotten) {
    m_module.Does("is_ip_assigned", "if calls < 3: raise SystemExit\nreturn True").Install();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Ask(3).kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "True");
    EXPECT_THAT(m_module.Calls(), SizeIs(3));
    EXPECT_THAT(TraceLines(), IsEmpty());
}

class BridgePresenceHostile : public BridgePresence, public ::testing::WithParamInterface<const char*> {};

TEST_P(BridgePresenceHostile, Answer_FailsEachAttemptAndLeavesOneLine) {
    m_module.Does("is_ip_assigned", GetParam()).Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Ask(3), Failure(""));
    EXPECT_THAT(m_module.Calls(), SizeIs(3));
    ExpectOneErrorLine();
}

INSTANTIATE_TEST_SUITE_P(
    Answers, BridgePresenceHostile,
    ::testing::Values("raise OSError", "raise KeyboardInterrupt",
                      "class Own:\n    def __str__(self): raise SystemExit\nreturn Own()",
                      "class Own:\n    def __str__(self): return 5\nreturn Own()", "return '\\udcff'"));

TEST_F(BridgePresence, RetryCountZero_FailsWithoutCallingTheModule) {
    m_module.Answers("is_ip_assigned", "True").Install();
    ExpectFailure(Ask(0), Failure(""));
    EXPECT_THAT(m_module.Calls(), IsEmpty());
}

TEST_F(BridgePresence, NoModule_IsReportedAsAMissingFunction) {
    ExpectLiteral(Ask(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgePresence, NoFunction_ClosesAndTearsDown) {
    m_module.Lacks("is_ip_assigned").Install();
    ExpectLiteral(Ask(), kNotFound);
    EXPECT_THAT(m_module.Calls(), ElementsAre("close"));
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgePresence, Counts_StayForTheNextCalls) {
    m_module.Answers("is_ip_assigned", "True").Does("close", "raise OSError").Install();
    EXPECT_EQ(Ask(4).kind, Thrown::kNothing);
    EXPECT_EQ(TextThrownBy([&] { m_bridge.close(); }).kind, Thrown::kBuffer);
    EXPECT_THAT(m_module.Calls(), SizeIs(1 + 4));
}

// The two operations that open a session first and fetch something through it.
struct SessionOperation {
    std::string (iLoRestHelper::*operation)(const char*, const char*, const char*, std::uint32_t,
                                            std::uint32_t);
    const char* function;
    bool takesBytes;

    friend void PrintTo(const SessionOperation& row, std::ostream* out) { *out << row.function; }
};

class BridgeSession : public BridgeTest, public ::testing::WithParamInterface<SessionOperation> {
protected:
    Thrown Ask(std::uint32_t retryCount = 3, const char* password = "secret") {
        return TextThrownBy([&] {
            m_value = (m_bridge.*GetParam().operation)("https://bmc", "admin", password, retryCount, 1);
        });
    }
    std::string Second() const { return GetParam().function; }
    static std::string Failure(const std::string& function, const std::string& result) {
        return "iLoRestReader get failed.result=" + result + "(fnc=" + function + " para1=https://bmc)";
    }
    std::string m_value = "untouched";
};

TEST_P(BridgeSession, Answer200_LeadsToTheSecondCall) {
    m_module.Answers(Second(), "'iLO 5'").Install();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Ask().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "iLO 5");
    EXPECT_THAT(m_module.Calls(),
                ElementsAre("get_vnic https://bmc admin secret", Second() + " https://bmc admin secret"));
    EXPECT_THAT(TraceLines(), IsEmpty());
    const RestBridge::LastCall last = m_bridge.lastCall();
    EXPECT_EQ(last.fnc, Second());
    EXPECT_EQ(last.para1, "https://bmc");
    EXPECT_EQ(last.para2, "admin");
    EXPECT_EQ(last.para3, "***");
}

TEST_P(BridgeSession, AnswerWhoseTextFormIsNot200_GivesAnEmptyStringWithoutTheSecondCall) {
    m_module.Top("class Own(int):\n    def __str__(self): return 'OK'");
    m_module.Answers("get_vnic", "Own(200)").Answers(Second(), "'never'").Install();
    EXPECT_EQ(Ask().kind, Thrown::kNothing);
    EXPECT_EQ(m_value, "");
    EXPECT_THAT(m_module.Calls(), SizeIs(1));
}

TEST_P(BridgeSession, SessionRefused_NamesTheCredentialErrors) {
    m_module.Answers("get_vnic", "401").Install();
    ExpectFailure(Ask(), Failure("get_vnic", kRefusedResult));
    EXPECT_THAT(m_module.Calls(), SizeIs(1));
    EXPECT_EQ(m_bridge.lastCall().para3, "***");
}

TEST_P(BridgeSession, SessionFailed_IsAnotherError) {
    m_module.Answers("get_vnic", "10001").Install();
    ExpectFailure(Ask(), Failure("get_vnic", kOtherResult));
    EXPECT_THAT(m_module.Calls(), SizeIs(1));
}

TEST_P(BridgeSession, OtherIntegers_GiveAnEmptyStringWithoutTheSecondCall) {
    for (const char* answer : {"500", "0", "-1", "201", "True", "1 << 99"}) {
        m_module.Answers("get_vnic", answer).Install();
        m_value = "untouched";
        EXPECT_EQ(Ask().kind, Thrown::kNothing) << answer;
        EXPECT_EQ(m_value, "") << answer;
        m_bridge.finalize();
    }
    EXPECT_THAT(m_module.Calls(), Each("get_vnic https://bmc admin secret"));
}

TEST_P(BridgeSession, AnswersThatAreNoIntegers_FailWithoutTheSecondCall) {
    for (const char* answer : {"'200'", "b'200'", "None", "200.0", "[]"}) {
        m_module.Answers("get_vnic", answer).Install();
        ExpectFailure(Ask(), Failure("get_vnic", ""));
        m_bridge.finalize();
    }
    EXPECT_THAT(m_module.Calls(), Each("get_vnic https://bmc admin secret"));
}

TEST_P(BridgeSession, SessionThatRaises_LeavesOneLine) {
    m_module.Does("get_vnic", "raise KeyboardInterrupt").Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Ask(), Failure("get_vnic", ""));
    ExpectOneErrorLine();
}

TEST_P(BridgeSession, SessionWithoutATextForm_LeavesOneLine) {
    m_module.Top("class Own(int):\n    def __str__(self): raise SystemExit");
    m_module.Answers("get_vnic", "Own(200)").Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Ask(), Failure("get_vnic", ""));
    ExpectOneErrorLine();
}

TEST_P(BridgeSession, SecondCallRefused_NamesTheCredentialErrors) {
    m_module.Answers(Second(), "401").Install();
    ExpectFailure(Ask(), Failure(Second(), kRefusedResult));
}

TEST_P(BridgeSession, SecondCallFailed_IsAnotherError) {
    m_module.Answers(Second(), "10001").Install();
    ExpectFailure(Ask(), Failure(Second(), kOtherResult));
}

TEST_P(BridgeSession, SecondCallThatRaises_LeavesOneLine) {
    m_module.Does(Second(), "raise SystemExit").Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(Ask(), Failure(Second(), ""));
    ExpectOneErrorLine();
}

TEST_P(BridgeSession, UnusableSecondAnswer_Fails) {
    m_module.Answers(Second(), "None").Install();
    ExpectFailure(Ask(), Failure(Second(), ""));
}

TEST_P(BridgeSession, OversizeSecondAnswer_IsRefusedNotCut) {
    m_module.Answers(Second(), "'x' * 18196").Install();
    ExpectFailure(Ask(), Failure(Second(), kOtherResult));
}

TEST_P(BridgeSession, BytesAsSecondAnswer_AreForTheProductGenerationOnly) {
    m_module.Answers(Second(), "b'iLO 6'").Install();
    if (GetParam().takesBytes) {
        EXPECT_EQ(Ask().kind, Thrown::kNothing);
        EXPECT_EQ(m_value, "iLO 6");
    } else {
        ExpectFailure(Ask(), Failure(Second(), ""));
    }
}

TEST_P(BridgeSession, RetryCountZero_FailsWithoutCallingTheModule) {
    m_module.Install();
    ExpectFailure(Ask(0), Failure("get_vnic", ""));
    EXPECT_THAT(m_module.Calls(), IsEmpty());
}

TEST_P(BridgeSession, PasswordNone_IsRecordedAsItIs) {
    m_module.Answers(Second(), "'x'").Install();
    EXPECT_EQ(Ask(3, "None").kind, Thrown::kNothing);
    EXPECT_EQ(m_bridge.lastCall().para3, "None");
}

TEST_P(BridgeSession, NoSessionFunction_ClosesAndTearsDown) {
    m_module.Lacks("get_vnic").Install();
    ExpectLiteral(Ask(), kNotFound);
    EXPECT_THAT(m_module.Calls(), ElementsAre("close"));
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_P(BridgeSession, NoSecondFunction_ClosesAndTearsDown) {
    m_module.Lacks(Second()).Install();
    ExpectLiteral(Ask(), kNotFound);
    EXPECT_THAT(m_module.Calls(), ElementsAre("get_vnic https://bmc admin secret", "close"));
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_P(BridgeSession, SecondFunctionThatCannotBeCalled_CountsAsMissing) {
    m_module.Lacks(Second()).Top(Second() + " = 'text'").Install();
    ExpectLiteral(Ask(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_P(BridgeSession, NoModule_IsReportedAsAMissingFunction) {
    ExpectLiteral(Ask(), kNotFound);
}

INSTANTIATE_TEST_SUITE_P(Operations, BridgeSession,
                         ::testing::Values(SessionOperation{&iLoRestHelper::getValue_vNIC, "get_v1", false},
                                           SessionOperation{&iLoRestHelper::getProdGen, "get_prodgen", true}),
                         [](const auto& test) { return std::string(test.param.function); });
