#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>

#include "monitor-rig.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* kStart = "<VK0900> [TR] Start to monitor.";
constexpr const char* kRetryVnic = "<VK0900> [TR] Retry accessing vNIC.";
constexpr const char* kBreak = "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.";
constexpr const char* kLoggedIn = "<VK0950> [TR] Initializing RaidManager succeed.";
constexpr const char* kNotLoggedIn = "<VK0956> [ER] Failed to initialize RaidManager.";
constexpr const char* kLoginFailed =
    "<VK0954> [ER] Login to iLO was failed. Please input an account of iLO using iLO account registration "
    "tool.";
constexpr const char* kReported = "<VK0465> [EV] 0xc00081d1 reported.";
constexpr const char* kDriveFailed =
    "<VK0337> [EV] 0xc0008151 CTRL(HPE Smart Array P408i-a [Slot 0]) PD(1I:1:1) "
    " Model: M Size: 999 MB Serial Number: S Firmware Revision: F reported.";

// The waits of a rig whose controller answers: 1 and 2 are start-up, 3 begins the cycle that takes the
// baseline, 4 and those after it begin cycles that compare.
constexpr std::size_t kBaseline = 3;
constexpr std::size_t kFirstCheck = 4;

std::string Drive(const char* identifier, const char* number) {
    std::string line = kDriveFailed;
    line.replace(1, 6, number);
    return line.replace(line.find("0xc0008151"), 10, identifier);
}

TEST(Cycle, HealthyController_WritesStartAndBreakOnly) {
    MonitorRig rig;
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kBreak));
    EXPECT_THAT(rig.sink.entries, IsEmpty());
}

TEST(Cycle, DriveFails_RaisesOneEventWhileItStaysFailed) {
    MonitorRig rig;
    rig.At(kFirstCheck, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed"); });
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kDriveFailed, kBreak));
    ASSERT_THAT(rig.sink.entries, SizeIs(1));
    EXPECT_THAT(rig.sink.entries[0],
                testing::StartsWith("drive failed CTRL(HPE Smart Array P408i-a [Slot 0])"));
}

TEST(Cycle, DriveRecoversAndFailsAgain_RaisesASecondEvent) {
    MonitorRig rig;
    rig.At(kFirstCheck, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed"); });
    rig.At(kFirstCheck + 1, [&] { ControllerContent::SetDrive(*rig.bridge, "None"); });
    rig.At(kFirstCheck + 2, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed"); });
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kDriveFailed, kDriveFailed, kBreak));
}

TEST(Cycle, DriveFailedInTheBaseline_RaisesNothing) {
    MonitorRig rig;
    rig.At(kBaseline, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed"); });
    rig.RunMonitorUntilStop(6);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kBreak)) << "start-up's snapshot is no baseline";
}

TEST(Cycle, SeveralEventsOfOneCycle_AreReportedInTheirOrder) {
    MonitorRig rig;
    rig.At(kFirstCheck, [&] { ControllerContent::SetDrive(*rig.bridge, "Unrecoverable\",\"Failed"); });
    rig.RunMonitorUntilStop(6);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kDriveFailed, Drive("0xc0008153", "VK0339"), kBreak));
}

class PollingInterval : public testing::TestWithParam<std::pair<const char*, unsigned int>> {};

TEST_P(PollingInterval, IsTakenAsUnsignedAndClamped) {
    MonitorRig rig(GetParam().first);
    rig.RunMonitorUntilStop(4);
    EXPECT_THAT(rig.wait.waits, ElementsAre(10000U, 10000U, GetParam().second, GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(
    Settings, PollingInterval,
    testing::Values(std::pair("interval=1000\n", 3000U), std::pair("interval=0\n", 3000U),
                    std::pair("interval=3000\n", 3000U), std::pair("interval=3001\n", 3001U),
                    std::pair("interval=3600000\n", 3600000U), std::pair("interval=7200000\n", 3600000U),
                    std::pair("interval=-1\n", 3600000U), std::pair("", 60000U)));

// ---- Start-up that never succeeds ----

TEST(Cycle, StartUpGivesUp_MonitoringGoesOnWithTheVnicUrl) {
    MonitorRig rig;
    rig.FailLogins("down");
    rig.At(22, [&] { rig.AcceptLogins(); });
    rig.At(23, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed"); });
    rig.RunMonitorUntilStop(24);
    auto trace = rig.Trace();
    trace.erase(trace.begin(), trace.begin() + 20);  // start-up's own
    EXPECT_THAT(trace, ElementsAre(kRetryVnic, kNotLoggedIn, kLoggedIn, kDriveFailed, kBreak));
    EXPECT_EQ(rig.parameter->url(), "https://16.1.15.1");
}

TEST(Cycle, StartUpGivesUp_CredentialFailureIsReportedAtOnce) {
    MonitorRig rig;
    rig.FailLogins("down");
    rig.At(21, [&] { rig.RefuseLogins(); });
    rig.RunMonitorUntilStop(22);
    auto trace = rig.Trace();
    trace.erase(trace.begin(), trace.begin() + 20);
    EXPECT_THAT(trace, ElementsAre(kRetryVnic, kReported, kLoginFailed, kBreak));
}

// The last pass logs in and has no time left for a snapshot.
TEST(Cycle, StartUpGivesUpWithASessionOpen_LogsInOverTheVnicAllTheSame) {
    MonitorRig rig;
    rig.FailLogins("down");
    rig.At(20, [&] { rig.AcceptLogins(); });
    rig.At(21, [&] { EXPECT_EQ(rig.bridge->sessionHost, "") << "closed before the cycles start"; });
    rig.At(22, [&] { EXPECT_EQ(rig.bridge->sessionHost, "https://16.1.15.1"); });
    rig.RunMonitorUntilStop(22);
    EXPECT_EQ(rig.CountCalls("init ignored"), 0U);
    auto trace = rig.Trace();
    trace.erase(trace.begin(), trace.begin() + 19);
    EXPECT_THAT(trace, ElementsAre(kRetryVnic, kLoggedIn, kBreak));
}

TEST(Cycle, StartUpGivesUpAndTheAccountChanges_LogsInWithTheNewOne) {
    MonitorRig rig;
    rig.FailLogins("down");
    rig.At(20, [&] { rig.AcceptLogins(); });
    rig.At(21, [&] { rig.stored = {"other", "word"}; });
    rig.RunMonitorUntilStop(22);
    EXPECT_EQ(rig.CountCalls("init https://16.1.15.1 other word 100 10"), 1U);
}

// ---- Failures in a cycle ----

TEST(Cycle, TextFailureOfASnapshot_LogsInAgainAndTakesANewSilentBaseline) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] {
        rig.AllowWalks();
        ControllerContent::SetDrive(*rig.bridge, "Failed");
    });
    rig.RunMonitorUntilStop(7);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kLoggedIn, kBreak));
}

TEST(Cycle, LogInThatSucceeds_GoesOnToTheSnapshotInTheSameCycle) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] { rig.AllowWalks(); });
    rig.At(6, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed"); });
    rig.RunMonitorUntilStop(7);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kLoggedIn, kDriveFailed, kBreak));
}

TEST(Cycle, SnapshotThatCannotBeRead_IsComparedWithTheLastGoodOneLater) {
    MonitorRig rig;
    rig.At(4, [&] {
        ControllerContent::SetDrive(*rig.bridge, "Failed");
        rig.bridge->onFetch = [](const std::string&) { throw 5; };
    });
    rig.At(5, [&] { rig.bridge->onFetch = nullptr; });
    rig.RunMonitorUntilStop(7);
    const auto trace = rig.Trace();
    ASSERT_THAT(trace, SizeIs(4));
    EXPECT_THAT(trace[1], testing::HasSubstr("iLoRestReader failed."));
    EXPECT_EQ(trace[2], kDriveFailed);
}

TEST(Cycle, BaselineThatCannotBeRead_IsTakenInTheNextCycle) {
    MonitorRig rig;
    rig.At(kBaseline, [&] { rig.bridge->onFetch = [](const std::string&) { throw 5; }; });
    rig.At(4, [&] {
        rig.bridge->onFetch = nullptr;
        ControllerContent::SetDrive(*rig.bridge, "Failed");
    });
    rig.At(5, [&] { ControllerContent::SetDrive(*rig.bridge, "Failed\",\"Unrecoverable"); });
    rig.RunMonitorUntilStop(6);
    const auto trace = rig.Trace();
    ASSERT_THAT(trace, SizeIs(4));
    EXPECT_EQ(trace[2], Drive("0xc0008153", "VK0339"));
}

TEST(Cycle, CredentialFailureOfANormalRetry_IsReportedAtOnceAndOnlyTracedLater) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] { rig.RefuseLogins(); });
    rig.RunMonitorUntilStop(66);  // an hour of one-minute cycles after cycle 5 and one more
    EXPECT_THAT(rig.Trace(),
                ElementsAre(kStart, kNotLoggedIn, kReported, kLoginFailed, kLoginFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, ElementsAre("login failed"));
}

// Cycles come every minute; the failure is that of cycle 5.
TEST(Cycle, AfterAReportedCredentialFailure_LogInsPauseForSixtyWholeMinutes) {
    for (const auto& [stopAt, logIns] : {std::pair(65U, 2U), std::pair(66U, 3U)}) {
        MonitorRig rig;
        rig.At(4, [&] { rig.FailWalks("gone"); });
        rig.At(5, [&] { rig.RefuseLogins(); });
        rig.RunMonitorUntilStop(stopAt);
        EXPECT_EQ(rig.CountCalls("init"), logIns) << stopAt;
    }
}

TEST(Cycle, AccountChangeDuringThePause_LogsInAtOnceAndClearsTheLatch) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] { rig.RefuseLogins(); });
    rig.At(9, [&] {
        rig.stored = {"user", "better"};
        rig.AcceptLogins();
        rig.AllowWalks();
    });
    rig.At(11, [&] { rig.FailWalks("gone"); });
    rig.At(12, [&] { rig.RefuseLogins(); });
    rig.RunMonitorUntilStop(13);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kReported, kLoginFailed, kLoggedIn,
                                         kNotLoggedIn, kReported, kLoginFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, SizeIs(2));
}

TEST(Cycle, FirstFailureAfterAnAccountChange_WritesNothingAndTheNextTheEvent) {
    MonitorRig rig;
    rig.At(4, [&] {
        rig.stored = {"user", "wrong"};
        rig.RefuseLogins();
    });
    rig.At(5, [&] { EXPECT_THAT(rig.Trace(), ElementsAre(kStart)); });
    rig.RunMonitorUntilStop(6);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kReported, kLoginFailed, kBreak));
}

TEST(Cycle, AccountChange_ClosesTheSessionAndTakesANewSilentBaseline) {
    MonitorRig rig;
    std::vector<std::string> calls;
    rig.At(4, [&] {
        rig.stored = {"other", "word"};
        ControllerContent::SetDrive(*rig.bridge, "Failed");
    });
    rig.At(6, [&] { calls = rig.bridge->calls; });
    rig.RunMonitorUntilStop(6);
    EXPECT_THAT(calls, ElementsAre("init https://ilo user secret 100 10", "close",
                                   "init https://ilo other word 100 10"));
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kLoggedIn, kBreak));
}

TEST(Cycle, SessionThatCannotBeClosedOnAnAccountChange_DoesNotEndTheThread) {
    MonitorRig rig;
    rig.At(4, [&] {
        rig.stored = {"other", "word"};
        rig.bridge->failures["close"] = "close failed";
    });
    rig.RunMonitorUntilStop(6);
    EXPECT_EQ(rig.CountCalls("init https://ilo other word 100 10"), 1U);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kLoggedIn, kBreak));
}

TEST(Cycle, AccountFilesNoLongerReadable_LogInIsMadeWithNone) {
    MonitorRig rig;
    std::vector<std::string> calls;
    rig.At(4, [&] { rig.stored.reset(); });
    rig.At(6, [&] { calls = rig.bridge->calls; });
    rig.RunMonitorUntilStop(6);
    EXPECT_EQ(calls.back(), "init https://ilo None None 100 10");
    EXPECT_EQ(rig.parameter->account(), "");
    EXPECT_EQ(rig.parameter->password(), "");
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kLoggedIn, kBreak)) << "one log-in, not one per cycle";
}

TEST(Cycle, ReportSwitchedOff_WritesTheTraceLineOnly) {
    MonitorRig rig("url=https://ilo\n", "report=false\n");
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] { rig.RefuseLogins(); });
    rig.RunMonitorUntilStop(6);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kLoginFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, IsEmpty());
}

TEST(Cycle, AdministratorAndSecurityStateTexts_AreCredentialErrors) {
    for (const char* text : {"root/Administrator", "SecurityStateError", "InvalidCredentialsError"}) {
        MonitorRig rig;
        rig.At(4, [&] { rig.FailWalks("gone"); });
        rig.At(5, [&] { rig.FailLogins(text); });
        rig.RunMonitorUntilStop(6);
        EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kReported, kLoginFailed, kBreak)) << text;
    }
}

TEST(Cycle, LostChannel_IsNeitherCredentialErrorNorTraced) {
    for (const char* text :
         {"HpIloChifPacketExchangeError", "HpIloChifPacketExchangeError InvalidCredentialsError"}) {
        MonitorRig rig;
        rig.At(4, [&] { rig.FailWalks(text); });
        rig.At(5, [&] { rig.FailLogins(text); });
        rig.At(7, [&] {
            rig.AcceptLogins();
            rig.AllowWalks();
        });
        rig.RunMonitorUntilStop(8);
        EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kLoggedIn, kBreak)) << text;
        EXPECT_THAT(rig.sink.entries, IsEmpty());
    }
}

TEST(Cycle, OtherFailuresOfALogIn_AreTracedAndTriedAgainEachCycle) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] { rig.FailLogins("down"); });
    rig.At(6, [&] {
        rig.AcceptLogins();
        rig.bridge->onFetch = [](const std::string&) { throw tovabase::TOVAExcpt(0x10001, "text"); };
    });
    rig.At(7, [&] { rig.bridge->onFetch = [](const std::string&) { throw 5; }; });
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(),
                ElementsAre(kStart, kNotLoggedIn, kNotLoggedIn, kNotLoggedIn, kNotLoggedIn, kBreak));
}

TEST(Cycle, CredentialErrorOfASnapshot_WritesNothingUntilTheLogInFailsToo) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("InvalidCredentialsError"); });
    rig.At(5, [&] {
        EXPECT_THAT(rig.Trace(), ElementsAre(kStart));
        rig.RefuseLogins();
    });
    rig.RunMonitorUntilStop(7);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kReported, kLoginFailed, kBreak));
}

TEST(Cycle, CredentialErrorsOfSnapshotsWithLogInsBetween_AreNeverReported) {
    for (const char* text : {"InvalidCredentialsError", "SecurityStateError", "root/Administrator"}) {
        MonitorRig rig;
        rig.At(4, [&] { rig.FailWalks(text); });
        rig.RunMonitorUntilStop(8);
        EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kLoggedIn, kLoggedIn, kLoggedIn, kBreak)) << text;
        EXPECT_THAT(rig.sink.entries, IsEmpty());
    }
}

TEST(Cycle, Run_ForgetsThatTheVnicWasOnceUsed) {
    MonitorRig rig;
    const iLoRestManager& manager = *rig.manager;
    rig.manager->setVNICEverEnabled(true);
    rig.At(1, [&] { EXPECT_FALSE(manager.isVNICEverEnabled()); });
    rig.At(2, [&] { EXPECT_FALSE(manager.isVNICEverEnabled()) << "logged in without it"; });
    rig.RunMonitorUntilStop(2);
    EXPECT_THAT(rig.wait.waits, SizeIs(2));
}

}  // namespace
