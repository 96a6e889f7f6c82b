// States that began while nobody watched, with "report existing".
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "monitor-rig.h"

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

constexpr const char* kOn = "interval=60000\nurl=https://ilo\nreport existing=true\n";
constexpr const char* kStart = "<VK0900> [TR] Start to monitor.";
constexpr const char* kBreak = "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.";
constexpr const char* kLoggedIn = "<VK0950> [TR] Initializing RaidManager succeed.";
constexpr const char* kNotLoggedIn = "<VK0956> [ER] Failed to initialize RaidManager.";
constexpr const char* kDriveFailed =
    "<VK0337> [EV] 0xc0008151 CTRL(HPE Smart Array P408i-a [Slot 0]) PD(1I:1:1) "
    " Model: M Size: 999 MB Serial Number: S Firmware Revision: F reported.";

void Fail(MonitorRig& rig) {
    ControllerContent::SetDrive(*rig.bridge, "Failed");
}
void Mend(MonitorRig& rig) {
    ControllerContent::SetDrive(*rig.bridge, "None");
}

TEST(ReportExisting, DriveFailedBeforeTheService_IsReportedOnceByTheFirstSnapshot) {
    MonitorRig rig(kOn);
    Fail(rig);
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kDriveFailed, kStart, kBreak));
    EXPECT_THAT(rig.sink.entries, SizeIs(1));
}

TEST(ReportExisting, SeveralStatesOfOneDrive_ComeInTheOrderOfANormalCycle) {
    MonitorRig rig(kOn);
    ControllerContent::SetDrive(*rig.bridge, "Unrecoverable\",\"Failed");
    rig.RunMonitorUntilStop(6);
    const auto trace = rig.Trace();
    ASSERT_THAT(trace, SizeIs(4));
    EXPECT_EQ(trace[0], kDriveFailed);
    EXPECT_THAT(trace[1], testing::StartsWith("<VK0339> [EV] 0xc0008153"));
}

TEST(ReportExisting, DriveFailsBetweenStartUpAndTheFirstCycle_IsReportedOnce) {
    MonitorRig rig(kOn);
    rig.At(3, [&] { Fail(rig); });
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kDriveFailed, kBreak));
}

TEST(ReportExisting, HealthyController_SaysNothing) {
    MonitorRig rig(kOn);
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kBreak));
}

TEST(ReportExisting, StartUpGivesUp_TheFirstCycleThatReadsReports) {
    MonitorRig rig(kOn);
    rig.FailLogins("down");
    Fail(rig);
    rig.At(22, [&] { rig.AcceptLogins(); });
    rig.RunMonitorUntilStop(26);
    auto trace = rig.Trace();
    trace.erase(trace.begin(), trace.begin() + 20);  // start-up's own
    EXPECT_THAT(trace, ElementsAre("<VK0900> [TR] Retry accessing vNIC.", kNotLoggedIn, kLoggedIn,
                                   kDriveFailed, kBreak));
}

TEST(ReportExisting, FirstSnapshotThatCannotBeRead_IsReportedByTheNextOne) {
    MonitorRig rig(kOn);
    Fail(rig);
    rig.At(2, [&] { rig.FailWalks("gone"); });
    rig.At(3, [&] { rig.AllowWalks(); });
    rig.RunMonitorUntilStop(8);
    EXPECT_EQ(rig.Trace().back(), kBreak);
    EXPECT_THAT(rig.Trace(), Contains(kDriveFailed).Times(1));
    EXPECT_THAT(rig.sink.entries, SizeIs(1));
}

TEST(ReportExisting, DriveFailsDuringAnOutage_IsReportedOnceAfterIt) {
    MonitorRig rig(kOn);
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] {
        rig.AllowWalks();
        rig.FailLogins("down");
        Fail(rig);
    });
    rig.At(7, [&] { rig.AcceptLogins(); });
    rig.RunMonitorUntilStop(10);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kNotLoggedIn, kNotLoggedIn, kLoggedIn,
                                         kDriveFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, SizeIs(1));
}

TEST(ReportExisting, DriveThatWasReportedBeforeAnOutage_IsNotReportedAgain) {
    MonitorRig rig(kOn);
    rig.At(4, [&] { Fail(rig); });
    rig.At(5, [&] { rig.FailWalks("gone"); });
    rig.At(6, [&] { rig.AllowWalks(); });
    rig.RunMonitorUntilStop(10);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kDriveFailed, kNotLoggedIn, kLoggedIn, kBreak));
}

TEST(ReportExisting, DriveRecoversDuringAnOutageAndFailsAfterIt_IsReportedAgain) {
    MonitorRig rig(kOn);
    rig.At(4, [&] { Fail(rig); });
    rig.At(5, [&] { rig.FailWalks("gone"); });
    rig.At(6, [&] {
        rig.AllowWalks();
        Mend(rig);
    });
    rig.At(7, [&] { Fail(rig); });
    rig.RunMonitorUntilStop(10);
    EXPECT_THAT(rig.Trace(),
                ElementsAre(kStart, kDriveFailed, kNotLoggedIn, kLoggedIn, kDriveFailed, kBreak));
}

TEST(ReportExisting, AccountChange_ComparesWithTheLastSnapshotOfTheOldSession) {
    MonitorRig rig(kOn);
    rig.At(4, [&] {
        rig.stored = {"other", "secret"};
        Fail(rig);
    });
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kLoggedIn, kDriveFailed, kBreak));
}

TEST(ReportExisting, ExactlyFalse_LeavesTheFirstSnapshotSilent) {
    MonitorRig rig("interval=60000\nurl=https://ilo\nreport existing=false\n");
    Fail(rig);
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kBreak));
}

TEST(ReportExisting, AnyOtherValue_IsOn) {
    MonitorRig rig("interval=60000\nurl=https://ilo\nreport existing=\n");
    Fail(rig);
    rig.RunMonitorUntilStop(8);
    EXPECT_THAT(rig.Trace(), ElementsAre(kDriveFailed, kStart, kBreak));
}

}  // namespace
