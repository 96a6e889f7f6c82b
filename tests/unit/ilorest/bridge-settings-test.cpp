// The module's two optional functions: it is given the settings, and says why something failed.
#include <gmock/gmock.h>

#include <memory>

#include "bridge-fixture.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

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

TEST_F(BridgeSettings, QuietBridge_TellsTheModule) {
    m_module.Top(m_configure).Install();
    iLoRestHelper bridge(m_module.folder(), ConnectionSettings{.caFile = {}, .quiet = true});
    bridge.init("https://bmc", "admin", "secret", 1, 1);
    EXPECT_THAT(m_module.Calls(), ElementsAre(R"(configure {"ca file": "", "quiet": true})", kInit));
}

TEST_F(BridgeSettings, ExpansionThatIsSwitchedOff_IsToldToTheModule) {
    m_module.Top(m_configure).Install();
    iLoRestHelper bridge(m_module.folder(), ConnectionSettings{.caFile = {}, .expand = false});
    bridge.init("https://bmc", "admin", "secret", 1, 1);
    EXPECT_THAT(m_module.Calls(), ElementsAre(R"(configure {"ca file": "", "expand": false})", kInit));
}

TEST_F(BridgeSettings, PathThatIsNotUtf8_ReachesTheModuleByteForByte) {
    SetConfigure("import os; _note('configure', os.fsencode(settings['ca file']).hex())");
    m_module.Top(m_configure).Install();
    iLoRestHelper bridge(m_module.folder(), ConnectionSettings{"/\xFF"});
    EXPECT_EQ(TextThrownBy([&] { bridge.init("https://bmc", "admin", "secret", 1, 1); }).kind,
              Thrown::kNothing);
    EXPECT_THAT(m_module.Calls(), ElementsAre("configure 2fff", kInit));
}

TEST_F(BridgeSettings, ConfigureThatRaises_LetsNobodyLogInUnverified) {
    SetConfigure("raise KeyboardInterrupt('se\\ncret')");
    Install();
    const std::string reason =
        "The helper module did not take the settings (KeyboardInterrupt). Connections would not be verified, "
        "so nobody logs in.";
    for (int attempt = 0; attempt < 2; ++attempt) {
        ExpectFailure(TextThrownBy([&] { Init(); }),
                      "iLoRestReader initialize failed. result=" + std::string(kOtherResult) +
                          "(fnc=init para1=https://bmc para2=admin para3=***)");
        EXPECT_EQ(m_verifying.lastReason(), reason);
    }
    const auto overVnic = [&] { m_verifying.getValue_vNIC(kVnicUrl, "admin", "secret", 1, 1); };
    ExpectLiteral(TextThrownBy(overVnic), kNotFound);
    EXPECT_FALSE(m_verifying.isiLOInitialized());
    EXPECT_FALSE(m_verifying.isVerified());
    EXPECT_THAT(m_module.Calls(), IsEmpty());
    EXPECT_THAT(TraceLines(), AllOf(SizeIs(3), Each("<VK0888> [TR] " + reason)));
}

TEST_F(BridgeSettings, ConfigureThatWorksAgain_LetsLogIn) {
    SetConfigure("1 // os.path.exists(os.path.join(os.path.dirname(__file__), 'mended'))");
    Install();
    EXPECT_EQ(TextThrownBy([&] { Init(); }).kind, Thrown::kBuffer);
    m_module.AddFile("mended", "");
    Init();
    EXPECT_TRUE(m_verifying.isVerified());
}

TEST_F(BridgeSettings, ConfigureThatRaisesWithoutCaFile_IsOneTraceLineAndChangesNothingElse) {
    SetConfigure("raise KeyboardInterrupt('se\\ncret')");
    m_module.Top(m_configure);
    m_bridge.setLogger(&m_log);
    Open();
    EXPECT_THAT(
        TraceLines(),
        ElementsAre("<VK0888> [TR] The helper module did not take the settings (KeyboardInterrupt)."));
    const RestBridge::LastCall last = m_bridge.lastCall();
    EXPECT_THAT((std::vector<std::string>{last.fnc, last.para1, last.para2, last.para3}),
                ElementsAre("init", "https://bmc", "admin", "***"));
    EXPECT_TRUE(m_bridge.isiLOInitialized());
    EXPECT_FALSE(m_bridge.isVerified());
    m_bridge.reset();
    EXPECT_EQ(m_bridge.lastCall().fnc, "close") << "as a reset leaves it";
    EXPECT_THAT(TraceLines(), SizeIs(2));
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
}

TEST_F(BridgeSettings, ModuleWithoutConfigureOrCaFile_SaysNothing) {
    m_configure = "";
    Install();
    m_bridge.setLogger(&m_log);
    Open();
    EXPECT_TRUE(m_bridge.isiLOInitialized());
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeSettings, Verified_IsTrueForAnOpenSessionOverHttpsOnly) {
    Install();
    EXPECT_FALSE(m_verifying.isVerified());
    Init();
    EXPECT_TRUE(m_verifying.isVerified());
    m_verifying.close();
    EXPECT_FALSE(m_verifying.isVerified());
    for (const char* url : {kInBandUrl, "Blobstore://.", " BLOBSTORE://"}) {
        Init(url);
        EXPECT_TRUE(m_verifying.isiLOInitialized());
        EXPECT_FALSE(m_verifying.isVerified()) << url;
        m_verifying.close();
    }
}

// ---- Why something failed ----

// The module notes each time it is asked.
class BridgeReport : public BridgeTest {
protected:
    void Install(const std::string& answer = "'no\\nroute to \\u00e9'") {
        for (const char* name : {"init", "get", "is_ip_assigned", "get_vnic"}) {
            m_module.Answers(name, "10001");
        }
        m_module.Top("def take_report():\n    _note('take_report')\n    return " + answer).Install();
        m_verifying.setLogger(&m_log);
    }
    static Thrown Init(iLoRestHelper& bridge, const char* host = "https://bmc", std::uint32_t count = 1) {
        return TextThrownBy([&] { bridge.init(host, "admin", "secret", count, 1); });
    }
    void TearDown() override {
        m_verifying.finalize();
        BridgeTest::TearDown();
    }

    iLoRestHelper m_verifying{m_module.folder(), ConnectionSettings{"/etc/ssl/ilo.pem"}};
};

TEST_F(BridgeReport, FailedCalls_WriteTheReasonToTheTraceLog) {
    Install();
    ExpectFailure(Init(m_verifying), "iLoRestReader initialize failed. result=" + std::string(kOtherResult) +
                                         "(fnc=init para1=https://bmc para2=admin para3=***)");
    EXPECT_EQ(TextThrownBy([&] { m_verifying.getValue("/x"); }).kind, Thrown::kBuffer);
    EXPECT_EQ(TextThrownBy([&] { m_verifying.isvNICAvail("h", 1, 1); }).kind, Thrown::kBuffer);
    EXPECT_EQ(TextThrownBy([&] { m_verifying.getProdGen("h", "a", "p", 1, 1); }).kind, Thrown::kBuffer);
    EXPECT_THAT(TraceLines(), AllOf(SizeIs(5), Contains(HasSubstr("knows no CA file"))));
    EXPECT_THAT(TraceLines(), Contains("<VK0888> [TR] no?route to ??").Times(4));
    EXPECT_EQ(m_verifying.lastReason(), "no?route to ??");
}

TEST_F(BridgeReport, WithoutCaFile_TheModuleIsNotAskedForTheTraceLog) {
    Install();
    m_bridge.setLogger(&m_log);
    EXPECT_EQ(Init(m_bridge).kind, Thrown::kBuffer);
    EXPECT_EQ(TextThrownBy([&] { m_bridge.getValue("/x"); }).kind, Thrown::kBuffer);
    EXPECT_THAT(m_module.Calls(), ElementsAre(kInit, "get /x"));
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(BridgeReport, WithoutTraceLog_TheReasonIsKeptForAPerson) {
    Install();
    EXPECT_EQ(Init(m_bridge, kInBandUrl).kind, Thrown::kBuffer);
    EXPECT_EQ(m_bridge.lastReason(), "no?route to ??");
}

TEST_F(BridgeReport, InBandSessionsAndCallsThatAreNotMade_HaveNoReason) {
    Install();
    EXPECT_EQ(Init(m_verifying, "Blobstore://.").kind, Thrown::kBuffer);
    EXPECT_EQ(Init(m_verifying, "https://bmc", 0).kind, Thrown::kBuffer);
    EXPECT_EQ(TextThrownBy([&] { m_verifying.isvNICAvail("h", 0, 1); }).kind, Thrown::kBuffer);
    EXPECT_THAT(m_module.Calls(), ElementsAre("init Blobstore://. admin secret"));
    EXPECT_THAT(TraceLines(), ElementsAre(HasSubstr("knows no CA file")));
}

TEST_F(BridgeReport, CallsThatSucceed_AskForNoReason) {
    Install();
    m_module.Answers("init", "200").Answers("get", "'text'").Install();
    EXPECT_EQ(Init(m_verifying).kind, Thrown::kNothing);
    EXPECT_EQ(m_verifying.getValue("/x"), "text");
    m_verifying.close();
    EXPECT_THAT(m_module.Calls(), ElementsAre(kInit, "get /x", "close"));
}

TEST_F(BridgeReport, ReasonThatCannotBeHad_IsLeftOut) {
    for (const char* answer : {"''", "None", "7", "'\\udcff'", "1 // 0"}) {
        Install(answer);
        EXPECT_THAT(Init(m_verifying).text, HasSubstr(kOtherResult)) << answer;
        EXPECT_EQ(m_verifying.lastReason(), "");
        EXPECT_EQ(m_module.Calls().back(), "take_report");
        m_verifying.finalize();
    }
    EXPECT_THAT(TraceLines(), AllOf(SizeIs(5), Each(HasSubstr("knows no CA file"))));
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
        EXPECT_THAT(thrown.text, HasSubstr(kOtherResult));
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
    EXPECT_THAT(lines, AllOf(SizeIs(4), Each("<VK0888> [TR] The CA file \"/nowhere/ca.pem\" cannot be used: "
                                             "No such file or directory.")));
}

}  // namespace
