// close, reset, finalize, the log line, and the bridge's states.
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>
#include <type_traits>

#include "bridge-fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

static_assert(!std::is_copy_constructible_v<iLoRestHelper> && !std::is_copy_assignable_v<iLoRestHelper>);
static_assert(std::is_default_constructible_v<iLoRestHelper>);

class BridgeClose : public BridgeTest {
protected:
    Thrown Close() {
        return TextThrownBy([&] { m_bridge.close(); });
    }
};

TEST_F(BridgeClose, FirstCallThatSucceeds_EndsTheSessionAndKeepsTheModule) {
    Open();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Close().kind, Thrown::kNothing);
    EXPECT_THAT(m_module.Calls(), ElementsAre("init https://bmc admin secret", "close"));
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    EXPECT_TRUE(m_bridge.isPyInitialized());
    const RestBridge::LastCall last = m_bridge.lastCall();
    EXPECT_EQ(last.fnc, "close");
    EXPECT_EQ(last.para1 + last.para2 + last.para3, "");
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeClose, AnyResult_IsASuccess) {
    for (const char* result : {"None", "401", "10001", "'x'", "False"}) {
        m_module.Answers("close", result);
        Open();
        EXPECT_EQ(Close().kind, Thrown::kNothing) << result;
        m_bridge.finalize();
    }
}

TEST_F(BridgeClose, FailuresThenSuccess_PausesAfterEachFailure) {
    m_module.Does("close", "if calls < 3: raise OSError");
    m_module.Install();
    m_bridge.init("https://bmc", "admin", "secret", 5, 40);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Close().kind, Thrown::kNothing);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(80));
    EXPECT_THAT(m_module.Calls(), SizeIs(1 + 3));
}

TEST_F(BridgeClose, RetriesUsedUp_FailsAfterAPauseForEachAttempt) {
    m_module.Does("close", "raise KeyboardInterrupt");
    m_module.Install();
    m_bridge.init("https://bmc", "admin", "secret", 3, 30);
    m_bridge.setLogger(&m_log);
    const auto start = std::chrono::steady_clock::now();
    ExpectFailure(Close(), "iLoRestReader close failed.(fnc=close)");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(90));
    EXPECT_THAT(m_module.Calls(), SizeIs(1 + 3));
    EXPECT_FALSE(m_bridge.isiLOInitialized());
    EXPECT_TRUE(m_bridge.isPyInitialized());
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeClose, RetryCountZero_FailsAtOnce) {
    Open();
    m_bridge.init("https://bmc", "admin", "secret", 0, 60000);
    const auto start = std::chrono::steady_clock::now();
    ExpectFailure(Close(), "iLoRestReader close failed.(fnc=close)");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_THAT(m_module.Calls(), SizeIs(1));
}

TEST_F(BridgeClose, WithoutAModule_DoesNothing) {
    EXPECT_EQ(Close().kind, Thrown::kNothing);
    EXPECT_EQ(m_bridge.lastCall().fnc, "close");
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeClose, NoCloseFunction_TearsDown) {
    m_module.Lacks("close");
    Open();
    ExpectLiteral(Close(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
    EXPECT_FALSE(m_bridge.isiLOInitialized());
}

TEST_F(BridgeClose, NoCloseFunctionAndRetryCountZero_StillTearsDown) {
    m_module.Lacks("close");
    Open();
    m_bridge.init("https://bmc", "admin", "secret", 0, 1);
    ExpectLiteral(Close(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeClose, CloseThatIsNoFunction_CountsAsMissing) {
    m_module.Lacks("close").Top("close = None");
    Open();
    ExpectLiteral(Close(), kNotFound);
    EXPECT_FALSE(m_bridge.isPyInitialized());
}

TEST_F(BridgeClose, NewSessionAfterIt_CallsInitAgain) {
    Open();
    m_bridge.close();
    m_bridge.init("https://bmc", "admin", "secret", 3, 1);
    EXPECT_TRUE(m_bridge.isiLOInitialized());
    EXPECT_THAT(m_module.Calls(), SizeIs(3));
}

TEST_F(BridgeClose, FailureText_LastsUntilTheNextCall) {
    m_module.Answers("get", "401").Does("close", "raise OSError");
    Open();
    char* text = nullptr;
    try {
        m_bridge.getValue("/redfish/v1/");
    } catch (char* thrown) {
        text = thrown;
    }
    ASSERT_NE(text, nullptr);
    EXPECT_NE(std::string(text).find("get failed"), std::string::npos);
    EXPECT_EQ(Close().kind, Thrown::kBuffer);
    EXPECT_NE(std::string(text).find("close failed"), std::string::npos);  // the same buffer
}

TEST_F(BridgeClose, WriteLog_WritesOneTaggedLineAndNothingWithoutALogger) {
    m_bridge.writeLog("before");
    m_bridge.setLogger(&m_log);
    m_bridge.writeLog("one %s %n");
    m_bridge.writeLog(std::string("two"));
    m_bridge.setLogger(nullptr);
    m_bridge.writeLog("after");
    EXPECT_THAT(TraceLines(), ElementsAre("<VK0888> [TR] one %s %n", "<VK0888> [TR] two"));
}

TEST_F(BridgeClose, ClearError_IsHarmlessInEveryState) {
    m_bridge.clearError();
    Open();
    m_bridge.clearError();
    m_bridge.finalize();
    m_bridge.clearError();
}

// What must hold although the interpreter itself is kept.
class BridgeLife : public ::testing::Test {
protected:
    void SetUp() override {
        m_module.Answers("get", "str(calls)").Install();
        m_bridge = std::make_unique<iLoRestHelper>(m_module.folder());
    }
    void Init() { m_bridge->init("https://bmc", "admin", "secret", 2, 1); }
    std::string Get() { return m_bridge->getValue("/"); }

    FakeModule m_module;
    std::unique_ptr<iLoRestHelper> m_bridge;
};

TEST_F(BridgeLife, Finalize_ForgetsTheModuleAndItsSession) {
    Init();
    EXPECT_EQ(Get(), "1");
    EXPECT_EQ(Get(), "2");
    m_bridge->finalize();
    EXPECT_FALSE(m_bridge->isPyInitialized());
    EXPECT_FALSE(m_bridge->isiLOInitialized());
    m_bridge->finalize();  // a second time changes nothing
    Init();
    EXPECT_EQ(Get(), "1");  // the module's state is new
}

TEST_F(BridgeLife, Reset_ClosesAndImportsAfresh) {
    Init();
    EXPECT_EQ(Get(), "1");
    m_bridge->reset();
    EXPECT_TRUE(m_bridge->isPyInitialized());
    EXPECT_FALSE(m_bridge->isiLOInitialized());
    EXPECT_EQ(m_module.Calls().back(), "close");
    Init();
    EXPECT_TRUE(m_bridge->isiLOInitialized());
    EXPECT_EQ(Get(), "1");
}

TEST_F(BridgeLife, ResetWithoutAModule_LoadsOne) {
    m_bridge->reset();
    EXPECT_TRUE(m_bridge->isPyInitialized());
    EXPECT_FALSE(m_bridge->isiLOInitialized());
    EXPECT_THAT(m_module.Calls(), IsEmpty());
}

TEST_F(BridgeLife, ResetWhenTheModuleIsGone_DoesNotThrow) {
    Init();
    m_module.Uninstall();
    EXPECT_NO_THROW(m_bridge->reset());
    EXPECT_FALSE(m_bridge->isPyInitialized());
    EXPECT_NO_THROW(m_bridge->reset());
    m_module.Install();
    Init();
    EXPECT_TRUE(m_bridge->isiLOInitialized());
}

TEST_F(BridgeLife, ResetWithAFailingOrMissingClose_DoesNotThrow) {
    m_module.Does("close", "raise SystemExit").Install();
    Init();
    EXPECT_NO_THROW(m_bridge->reset());
    EXPECT_TRUE(m_bridge->isPyInitialized());
    m_module.Lacks("close").Install();
    m_bridge->reset();
    EXPECT_NO_THROW(m_bridge->reset());
    EXPECT_TRUE(m_bridge->isPyInitialized());
}

TEST_F(BridgeLife, BrokenImportBetweenTwoGoodOnes_LeavesNothingBehind) {
    Init();
    m_bridge->finalize();
    m_module.InstallText("raise RuntimeError('no')\n");
    ExpectLiteral(TextThrownBy([&] { Init(); }), "Python Module import failed.");
    EXPECT_FALSE(m_bridge->isPyInitialized());
    m_module.Install();
    Init();
    EXPECT_EQ(Get(), "1");
}

TEST_F(BridgeLife, SecondBridge_IsRefusedWhileTheFirstHoldsAModule) {
    Init();
    iLoRestHelper second(m_module.folder());
    const Thrown init = TextThrownBy([&] { second.init("https://bmc", "admin", "secret", 2, 1); });
    ExpectLiteral(init, "Python already initialized.");
    ExpectLiteral(TextThrownBy([&] { second.getValue("/"); }), "Python already initialized.");
    EXPECT_NO_THROW(second.reset());
    EXPECT_FALSE(second.isPyInitialized());
    second.finalize();
    EXPECT_EQ(Get(), "1");  // the first one did not notice
}

TEST_F(BridgeLife, BridgeOnAnotherThread_LivesAndDiesThere) {
    std::string values;
    std::thread worker([&] {
        iLoRestHelper bridge(m_module.folder());
        for (int i = 0; i < 3; ++i) {
            bridge.init("https://bmc", "admin", "secret", 2, 1);
            values += bridge.getValue("/");
            bridge.reset();
        }
    });
    worker.join();
    EXPECT_EQ(values, "111");
    // And then a new one on this thread.
    Init();
    EXPECT_EQ(Get(), "1");
}

TEST_F(BridgeLife, DestructionWithTheSessionOpen_IsClean) {
    Init();
    m_bridge.reset();
    m_bridge = std::make_unique<iLoRestHelper>(m_module.folder());
    Init();
    EXPECT_EQ(Get(), "1");
}

TEST_F(BridgeLife, DefaultFolder_IsTheWorkingDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_module.folder());
    {
        iLoRestHelper bridge;
        bridge.init("https://bmc", "admin", "secret", 2, 1);
        std::filesystem::current_path("/");
        EXPECT_EQ(bridge.getValue("/"), "1");
    }
    std::filesystem::current_path(before);
}
