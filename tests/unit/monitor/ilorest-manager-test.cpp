#include "ilorest-manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>

#include "monitor-rig.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kVnicRoot = R"({"Oem":{"Hpe":{"Moniker":{"PRODGEN":"iLO 6"}}}})";

class ManagerTest : public testing::Test {
protected:
    bool Init(const std::string& url = "https://ilo", const std::string& account = "user",
              const std::string& password = "secret") {
        return rig.manager->init(url, account, password, 3, 20);
    }
    void HaveVnicAddress() { rig.commands.result.exitStatus = 0; }

    MonitorRig rig;
    iLoRestManager& manager = *rig.manager;
    FakeBridge& bridge = *rig.bridge;
};

TEST_F(ManagerTest, Init_LogsInWithTheValuesGiven) {
    EXPECT_TRUE(Init());
    EXPECT_THAT(bridge.calls, ElementsAre("init https://ilo user secret 3 20"));
    EXPECT_TRUE(manager.isiLOInitialized());
    EXPECT_FALSE(manager.isVNICEverEnabled());
}

TEST_F(ManagerTest, InitWithEmptyValues_UsesTheInBandChannelAndNone) {
    EXPECT_TRUE(Init("", "", ""));
    EXPECT_THAT(bridge.calls, ElementsAre("init blobstore://. None None 3 20"));
}

TEST_F(ManagerTest, Init_AsksForTheVnicAddressWithTheOneCommand) {
    Init();
    EXPECT_THAT(rig.commands.commands, ElementsAre("ip addr show | grep 16.1.15.2"));
    EXPECT_EQ(rig.commands.deadline, tovaserverutil::kProbeDeadline);
}

TEST_F(ManagerTest, InitGivesTheBridgeTheTraceLog) {
    Init();
    EXPECT_EQ(bridge.logger, &rig.parameter->Log());
}

TEST_F(ManagerTest, InitWithVnicAddress_UsesTheVnicInPlaceOfTheUrl) {
    HaveVnicAddress();
    bridge.vnicAnswer = kVnicRoot;
    EXPECT_TRUE(Init());
    EXPECT_TRUE(manager.isVNICEverEnabled());
    EXPECT_THAT(bridge.calls, ElementsAre("getValue_vNIC https://16.1.15.1 user secret 3 20",
                                          "init https://16.1.15.1 user secret 3 20"));
}

TEST_F(ManagerTest, InitWithVnicOfUnknownGeneration_UsesItAllTheSame) {
    HaveVnicAddress();
    bridge.vnicAnswer = R"({"Oem":{"Hpe":{"Moniker":{"PRODGEN":"iLO 7"}}}})";
    EXPECT_TRUE(Init());
    EXPECT_TRUE(manager.isVNICEverEnabled());
    EXPECT_THAT(bridge.calls, Contains("init https://16.1.15.1 user secret 3 20"));
}

TEST_F(ManagerTest, InitWithFailingVnic_IsTracedAndGoesOnWithTheUrl) {
    HaveVnicAddress();
    bridge.failures["vnic"] = "no answer there";
    EXPECT_TRUE(Init());
    EXPECT_FALSE(manager.isVNICEverEnabled());
    EXPECT_THAT(bridge.calls.back(), "init https://ilo user secret 3 20");
    EXPECT_TRUE(rig.TraceHolds("<VK0999> [TR] "));
    EXPECT_TRUE(rig.TraceHolds("no answer there"));
}

TEST_F(ManagerTest, InitThatFails_ThrowsTheText) {
    rig.RefuseLogins();
    try {
        Init();
        FAIL();
    } catch (const std::string& text) {
        EXPECT_THAT(text, HasSubstr("InvalidCredentialsError"));
    }
}

// The door to the addresses of this host fails with a C string.
class ThrowingCommands : public FakeCommands {
    tovaserverutil::CommandResult Capture(const std::string&, std::chrono::milliseconds) override {
        throw "a C string";
    }
};

TEST_F(ManagerTest, CStringOnTheWay_BecomesASystemCallFailureWithTheSameText) {
    ThrowingCommands throwing;
    iLoRestManager other(nullptr, std::make_unique<iLoRestReader>(std::make_unique<FakeBridge>()), throwing);
    try {
        other.init("", "", "", 1, 1);
        FAIL();
    } catch (const tovabase::TOVAExcpt& failure) {
        EXPECT_EQ(failure.code(), 0x10001);
        EXPECT_STREQ(failure.text(), "a C string");
    }
}

TEST_F(ManagerTest, StopDuringALogIn_IsSeen) {
    manager.setEvt(&rig.wait);
    rig.RequestStop();
    EXPECT_THROW(Init(), iLoRestReader::StopSeen);
}

TEST_F(ManagerTest, IpExists_FollowsTheExitStatusAlone) {
    auto& result = rig.commands.result;
    result = {.started = true, .timedOut = false, .exitStatus = 0, .output = {}};
    EXPECT_TRUE(manager.ipExists("16.1.15.2"));
    result.exitStatus = 1;
    EXPECT_FALSE(manager.ipExists("16.1.15.2"));
    result = {.started = true, .timedOut = true, .exitStatus = 0, .output = "16.1.15.2"};
    EXPECT_FALSE(manager.ipExists("16.1.15.2"));
    result = {};
    EXPECT_FALSE(manager.ipExists("16.1.15.2"));
}

TEST_F(ManagerTest, IsVnicAvail_SetsUpUnlessDenied) {
    bridge.vnicAnswer = kVnicRoot;
    for (const auto& [answer, expected] :
         {std::pair("True", true), std::pair("None", true), std::pair("False", false)}) {
        bridge.vnicAvail = answer;
        bridge.calls.clear();
        EXPECT_EQ(manager.isVNICAvail("https://ilo", "", "", 4, 30), expected) << answer;
        EXPECT_EQ(bridge.calls.front(), "isvNICAvail 16.1.15.2 4 30");
        EXPECT_EQ(rig.CountCalls("getValue_vNIC https://16.1.15.1 None None 4 30"), expected ? 1U : 0U);
    }
}

TEST_F(ManagerTest, IsVnicAvailWithFailingSetUp_IsFalse) {
    bridge.vnicAvail = "True";
    bridge.failures["vnic"] = "no answer there";
    EXPECT_FALSE(manager.isVNICAvail("https://ilo", "user", "secret", 4, 30));
}

// ---- Snapshots ----

TEST_F(ManagerTest, Build_ThenCheckOfTheSameContent_RaisesNothing) {
    Init();
    ControllerContent::SetDrive(bridge, "Failed");
    EXPECT_TRUE(manager.build());
    EventList events;
    EXPECT_TRUE(manager.check(events));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ManagerTest, Check_MakesTheNewSnapshotThePreviousOne) {
    Init();
    EXPECT_TRUE(manager.build());
    EventList events;
    for (const char* reason : {"Failed", "Failed", "None", "Failed"}) {
        ControllerContent::SetDrive(bridge, reason);
        EXPECT_TRUE(manager.check(events));
    }
    ASSERT_EQ(events.size(), 2U) << "failed, stayed failed, recovered, failed again";
    EXPECT_EQ(events[1].Id(), tovaevent::kDriveFailed);
}

TEST_F(ManagerTest, CheckThatFails_LosesAndDoublesNoTransition) {
    Init();
    EXPECT_TRUE(manager.build());
    ControllerContent::SetDrive(bridge, "Failed");
    rig.FailWalks("gone");
    EventList events;
    EXPECT_THROW(manager.check(events), std::string);
    EXPECT_THAT(events, IsEmpty());
    rig.AllowWalks();
    EXPECT_TRUE(manager.check(events));
    EXPECT_TRUE(manager.check(events));
    EXPECT_EQ(events.size(), 1U);
}

// A server with one MR drive besides, whose resource is this text.
void SetMegaRaidDrive(FakeBridge& bridge, const std::string& text) {
    const std::string device = "/redfish/v1/Systems/1/Storage/DE00A000/";
    bridge.resources["/redfish/v1/Systems/1/Storage/"] = Collection({device});
    bridge.resources[device] =
        R"({"Id":"DE00A000","Name":"HPE MR416i-o Gen11","Status":{"Health":"OK","State":"Enabled"},)"
        R"("StorageControllers":[{"Name":"HPE MR416i-o Gen11","Model":"HPE MR416i-o Gen11","SerialNumber":"X"}],)"
        R"("Drives":[{"@odata.id":"/drive"}]})";
    bridge.resources["/drive"] = text;
}

constexpr const char* kGoodDrive =
    R"({"Id":"0","Model":"M","SerialNumber":"S","MediaType":"HDD","Status":{"Health":"OK","State":"Enabled"}})";
constexpr const char* kFailedDrive =
    R"({"Id":"0","Model":"M","SerialNumber":"S","MediaType":"HDD","Status":{"Health":"Critical","State":"Enabled"}})";

TEST_F(ManagerTest, DriveThatIsNotReadyForAWalk_IsTakenAsItWas) {
    Init();
    SetMegaRaidDrive(bridge, kGoodDrive);
    EXPECT_TRUE(manager.build());
    EventList events;
    for (const char* text :
         {kFailedDrive, R"({"error":{"code":"iLO.2.30.ResourceNotReadyRetry"}})", kFailedDrive,
          R"({"error":{"code":"Base.1.18.ResourceMissingAtURI"}})", kFailedDrive}) {
        SetMegaRaidDrive(bridge, text);
        EXPECT_TRUE(manager.check(events));
    }
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(ManagerTest, DriveThatTellsItsStatusAlone_IsTakenAsItTells) {
    Init();
    SetMegaRaidDrive(bridge, kGoodDrive);
    EXPECT_TRUE(manager.build());
    EventList events;
    SetMegaRaidDrive(bridge, R"({"Name":"Drive","Model":null,"SerialNumber":null,)"
                             R"("Status":{"State":"UnavailableOffline","Health":"Critical"}})");
    EXPECT_TRUE(manager.check(events));
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(ManagerTest, TextFailureOfAWalk_ResetsAndIsThrownOn) {
    Init();
    rig.FailWalks("SecurityStateError");
    try {
        manager.build();
        FAIL();
    } catch (const std::string& text) {
        EXPECT_EQ(text, "iLoRestReader.readSystems failed.SecurityStateError");
    }
    EXPECT_EQ(bridge.calls.back(), "reset");
    EXPECT_THAT(rig.Trace(), IsEmpty());
}

TEST_F(ManagerTest, StandardFailureOfAWalk_IsWrittenAsTheReadersTextAndGivesFalse) {
    Init();
    bridge.onFetch = [](const std::string&) { throw std::runtime_error("odd"); };
    EXPECT_FALSE(manager.build());
    ASSERT_EQ(rig.Trace().size(), 1U);
    EXPECT_THAT(rig.Trace()[0],
                testing::MatchesRegex("<VK0902> \\[ER\\] ilorest-reader [0-9]+ iLoRestReader "
                                      "failed\\.\\(fnc=get para1=/redfish/v1/Systems/ para2= para3=\\)"));
    EXPECT_EQ(bridge.calls.back(), "reset");
}

TEST_F(ManagerTest, OtherFailureOfAWalk_IsWrittenWithUnitAndLineAndGivesFalse) {
    Init();
    bridge.onFetch = [](const std::string&) { throw 5; };
    EXPECT_FALSE(manager.build());
    ASSERT_EQ(rig.Trace().size(), 1U);
    EXPECT_THAT(rig.Trace()[0],
                testing::MatchesRegex("<VK0902> \\[ER\\] ilorest-manager [0-9]+ iLoRestReader failed\\."));
    EXPECT_EQ(bridge.calls.back(), "reset");
}

TEST_F(ManagerTest, BuildThatFails_LeavesNoSnapshotBehind) {
    Init();
    ControllerContent::SetDrive(bridge, "Failed");
    EXPECT_TRUE(manager.build());
    rig.FailWalks("gone");
    EXPECT_THROW(manager.build(), std::string);
    rig.AllowWalks();
    EventList events;
    EXPECT_TRUE(manager.check(events));
    EXPECT_EQ(events.size(), 1U) << "compared with an empty snapshot the failed drive is new";
}

TEST_F(ManagerTest, CheckThatCannotRead_GivesFalseAndKeepsThePreviousSnapshot) {
    Init();
    ControllerContent::SetDrive(bridge, "Failed");
    EXPECT_TRUE(manager.build());
    bridge.onFetch = [](const std::string&) { throw 5; };
    EventList events;
    EXPECT_FALSE(manager.check(events));
    bridge.onFetch = nullptr;
    EXPECT_TRUE(manager.check(events));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ManagerTest, StopDuringAWalk_GivesFalseWithoutALine) {
    Init();
    EXPECT_TRUE(manager.build());
    manager.setEvt(&rig.wait);
    rig.RequestStop();
    EventList events;
    ControllerContent::SetDrive(bridge, "Failed");
    EXPECT_FALSE(manager.check(events));
    EXPECT_THAT(events, IsEmpty());
    EXPECT_THAT(rig.Trace(), IsEmpty());
}

TEST_F(ManagerTest, ResetCloseAndFlag_AreTheReaders) {
    Init();
    manager.close();
    EXPECT_FALSE(manager.isiLOInitialized());
    manager.reset();
    EXPECT_THAT(bridge.calls, ElementsAre("init https://ilo user secret 3 20", "close", "reset"));
}

TEST_F(ManagerTest, WriteLog_PutsTheErrorTagBeforeTheText) {
    manager.writeLog("100% %s text");
    EXPECT_THAT(rig.Trace(), ElementsAre("<VK0902> [ER] 100% %s text"));
}

TEST(Manager, WithoutDoors_StartsEmptyAndWritesNowhere) {
    iLoRestManager manager;
    manager.writeLog("nowhere");
    EXPECT_FALSE(manager.isiLOInitialized());
    EXPECT_FALSE(manager.isVNICEverEnabled());
    EXPECT_FALSE(manager.getiLOLoginFailed());
    manager.setiLOLoginFailed(true);
    manager.setVNICEverEnabled(true);
    EXPECT_TRUE(manager.getiLOLoginFailed());
    EXPECT_TRUE(manager.isVNICEverEnabled());
}

}  // namespace
