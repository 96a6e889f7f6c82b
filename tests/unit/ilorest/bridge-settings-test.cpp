// The module's two optional functions: it is given the settings, and says why something failed.
#include <gmock/gmock.h>

#include <memory>

#include "bridge-fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kInit = "init https://bmc admin secret";

// With a bridge whose connections are to be verified.
class BridgeSettings : public BridgeTest {
protected:
    BridgeSettings() {
        m_module.Top("import json").Answers("is_ip_assigned", "None");
        SetConfigure("_note('configure', json.dumps(settings))");
    }
    // The body sees the dict `settings`.
    void SetConfigure(const std::string& body) {
        m_configure = "def configure(settings):\n    " + body + "\n";
    }
    void Install() {
        m_module.Top(m_configure).Install();
        m_verifying.setLogger(&m_log);
    }
    void Init(const char* host = "https://bmc") { m_verifying.init(host, "admin", "secret", 1, 1); }
    void TearDown() override {
        m_verifying.finalize();
        BridgeTest::TearDown();
    }

    std::string m_configure;
    iLoRestHelper m_verifying{m_module.folder(), ConnectionSettings{"/etc/ssl/ilo.pem"}};
};

constexpr const char* kConfigured = R"(configure {"ca file": "/etc/ssl/ilo.pem"})";

TEST_F(BridgeSettings, Import_HandsTheSettingsToTheModuleBeforeAnythingElse) {
    Install();
    Init();
    EXPECT_THAT(m_module.Calls(), ElementsAre(kConfigured, kInit));
    EXPECT_TRUE(m_verifying.isVerified());
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeSettings, EveryImport_HandsThemOverAgain) {
    Install();
    Init();
    m_verifying.reset();
    EXPECT_THAT(m_module.Calls(), ElementsAre(kConfigured, kInit, "close", kConfigured));
    m_verifying.finalize();
    EXPECT_EQ(m_verifying.isvNICAvail("16.1.15.2", 1, 1), "None");
    EXPECT_THAT(m_module.Calls(), ElementsAre(kConfigured, kInit, "close", kConfigured, kConfigured,
                                              "is_ip_assigned 16.1.15.2"));
}

TEST_F(BridgeSettings, NoCaFile_IsHandedOverAsNone) {
    m_module.Top(m_configure);
    Open();
    EXPECT_THAT(m_module.Calls(), ElementsAre(R"(configure {"ca file": ""})", kInit));
    EXPECT_FALSE(m_bridge.isVerified());
}

TEST_F(BridgeSettings, PathThatIsNotUtf8_ReachesTheModuleByteForByte) {
    SetConfigure("import os; _note('configure', os.fsencode(settings['ca file']).hex())");
    m_module.Top(m_configure).Install();
    iLoRestHelper bridge(m_module.folder(), ConnectionSettings{"/\xFF"});
    EXPECT_EQ(TextThrownBy([&] { bridge.init("https://bmc", "admin", "secret", 1, 1); }).kind,
              Thrown::kNothing);
    EXPECT_THAT(m_module.Calls(), ElementsAre("configure 2fff", kInit));
}

TEST_F(BridgeSettings, ConfigureThatRaises_IsOneTraceLineAndChangesNothingElse) {
    SetConfigure("raise KeyboardInterrupt('se\\ncret')");
    Install();
    EXPECT_EQ(TextThrownBy([&] { Init(); }).kind, Thrown::kNothing);
    EXPECT_THAT(
        TraceLines(),
        ElementsAre("<VK0888> [TR] The helper module did not take the settings (KeyboardInterrupt)."));
    const RestBridge::LastCall last = m_verifying.lastCall();
    EXPECT_THAT((std::vector<std::string>{last.fnc, last.para1, last.para2, last.para3}),
                ElementsAre("init", "https://bmc", "admin", "***"));
    EXPECT_TRUE(m_verifying.isiLOInitialized());
    EXPECT_FALSE(m_verifying.isVerified());
    m_verifying.reset();
    EXPECT_EQ(m_verifying.lastCall().fnc, "close") << "as a reset leaves it";
    EXPECT_THAT(TraceLines(), testing::SizeIs(2));
}

TEST_F(BridgeSettings, ModuleWithoutConfigure_WorksAsBeforeAndIsNotTakenForVerifying) {
    for (const char* instead : {"", "configure = 7\n"}) {
        m_configure = instead;
        Install();
        Init();
        EXPECT_TRUE(m_verifying.isiLOInitialized());
        EXPECT_FALSE(m_verifying.isVerified());
        EXPECT_EQ(TraceLines().back(),
                  "<VK0888> [TR] The helper module knows no CA file; connections are not verified.");
        m_verifying.finalize();
    }
    Open();
    EXPECT_THAT(TraceLines(), testing::SizeIs(2)) << "without a CA file there is nothing to say";
}

TEST_F(BridgeSettings, Verified_IsTrueForAnOpenSessionOverHttpsOnly) {
    Install();
    EXPECT_FALSE(m_verifying.isVerified());
    Init();
    EXPECT_TRUE(m_verifying.isVerified());
    m_verifying.close();
    EXPECT_FALSE(m_verifying.isVerified());
    Init(kInBandUrl);
    EXPECT_FALSE(m_verifying.isVerified());
}

// ---- Why something failed ----

class BridgeReport : public BridgeTest {
protected:
    void SetUp() override {
        BridgeTest::SetUp();
        m_module.Top("def take_report():\n    return " + m_report);
    }
    std::string m_report = "'no\\nroute to \\u00e9'";
};

TEST_F(BridgeReport, FailedCalls_WriteTheReasonToTheTraceLog) {
    for (const char* name : {"init", "get", "is_ip_assigned", "get_vnic"}) {
        m_module.Answers(name, "10001");
    }
    m_module.Install();
    m_bridge.setLogger(&m_log);
    ExpectFailure(TextThrownBy([&] { m_bridge.init("https://bmc", "admin", "secret", 1, 1); }),
                  "iLoRestReader initialize failed. result=" + std::string(kOtherResult) +
                      "(fnc=init para1=https://bmc para2=admin para3=***)");
    EXPECT_EQ(TextThrownBy([&] { m_bridge.getValue("/x"); }).kind, Thrown::kBuffer);
    EXPECT_EQ(TextThrownBy([&] { m_bridge.isvNICAvail("h", 1, 1); }).kind, Thrown::kBuffer);
    EXPECT_EQ(TextThrownBy([&] { m_bridge.getProdGen("h", "a", "p", 1, 1); }).kind, Thrown::kBuffer);
    EXPECT_THAT(TraceLines(),
                testing::AllOf(testing::SizeIs(4), testing::Each("<VK0888> [TR] no?route to ??")));
}

TEST_F(BridgeReport, CallsThatSucceed_AskForNoReason) {
    m_bridge.setLogger(&m_log);
    m_module.Answers("get", "'text'");
    Open();
    EXPECT_EQ(m_bridge.getValue("/x"), "text");
    m_bridge.close();
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeReport, ReasonThatCannotBeHad_IsLeftOut) {
    for (const char* body : {"''", "None", "7", "'\\udcff'", "1 // 0"}) {
        FakeModule module;
        module.Top(std::string("def take_report():\n    return ") + body).Answers("init", "401").Install();
        iLoRestHelper bridge(module.folder());
        bridge.setLogger(&m_log);
        const Thrown thrown = TextThrownBy([&] { bridge.init("https://bmc", "admin", "secret", 1, 1); });
        EXPECT_THAT(thrown.text, testing::HasSubstr(kRefusedResult)) << body;
    }
    EXPECT_THAT(TraceLines(), IsEmpty());
}

// The shipped module, over several interpreters' lives.
TEST(BridgeRealModuleReasons, CaFileThatIsMissing_FailsEachLoginWithItsReason) {
    testing::internal::CaptureStderr();
    const TestRoot folder;
    tovaserverutil::TraceLog log(folder / "trace.log", 1 << 20, true);
    iLoRestHelper bridge(BAYWARD_SOURCE_DIR "/ilorest/module", ConnectionSettings{"/nowhere/ca.pem"});
    bridge.setLogger(&log);
    for (int attempt = 0; attempt < 4; ++attempt) {
        const Thrown thrown =
            TextThrownBy([&] { bridge.init("https://127.0.0.1:1", "admin", "secret", 1, 1); });
        EXPECT_THAT(thrown.text, testing::HasSubstr(kOtherResult));
        if (attempt % 2 == 1) {
            bridge.reset();
        }
    }
    testing::internal::GetCapturedStderr();
    std::istringstream text(folder.Read("trace.log"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line.substr(line.find('<')));
    }
    EXPECT_THAT(lines,
                testing::AllOf(testing::SizeIs(4),
                               testing::Each("<VK0888> [TR] The CA file \"/nowhere/ca.pem\" cannot be used: "
                                             "No such file or directory.")));
}

}  // namespace
