#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "status-render.h"
#include "status-reports.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const ServiceFindings kWell{{}, "threads=3;;;0"};
const HealthProblem kNotRunning{HealthLevel::kDown, "The service is not running; start it."};
const HealthProblem kFailing{HealthLevel::kOff, "The thread \"OS log\" fails."};
const HealthProblem kUndetermined{HealthLevel::kUnknown, "Who | knows."};

TEST(StatusNagios, GoodServer_IsOkInOneLine) {
    const StatusReport report = GoodReport();
    EXPECT_EQ(RenderNagios(report, kWell).status, kNagiosOk);
    EXPECT_EQ(RenderNagios(report, kWell).line,
              "BAYWARD OK - 2 drives, 1 logical drive, all well | controllers=1;;;0 "
              "controllers_warning=0;0;;0;1 controllers_critical=0;;0;0;1 logical_drives=1;;;0 "
              "logical_drives_warning=0;0;;0;1 logical_drives_critical=0;;0;0;1 drives=2;;;0 "
              "drives_warning=0;0;;0;2 drives_critical=0;;0;0;2 life_left_min=98%;21:;6:;0;100 "
              "requests=38;;;0 time=1234ms;;;0 threads=3;;;0\n");
}

TEST(StatusNagios, BadServer_IsCriticalAndNamesTheItems) {
    const StatusReport report = BadReport();
    EXPECT_EQ(RenderNagios(report, kWell).status, kNagiosCritical);
    EXPECT_THAT(
        RenderNagios(report, kWell).line,
        StartsWith("BAYWARD CRITICAL - HPE Smart Array P408i-a SR Gen10 [Slot 0] logical drive 1 "
                   "offline; HPE Smart Array P408i-a SR Gen10 [Slot 0] drive 1I:1:2 failed (2 drives, "
                   "1 logical drive) | "));
}

TEST(StatusNagios, WarningWithoutEvent_SaysHealthAndState) {
    StatusReport report = GoodReport();
    LogicalDriveStatus& drive = report.systems.front().controllers.front().logicalDrives.front();
    drive.health = "Warning";
    drive.state = "Degraded";
    drive.level = Level::kWarning;
    EXPECT_EQ(RenderNagios(report, kWell).status, kNagiosWarning);
    EXPECT_THAT(RenderNagios(report, kWell).line,
                HasSubstr("WARNING - HPE Smart Array P408i-a SR Gen10 [Slot 0] logical "
                          "drive 1 Warning, Degraded (2 drives"));
}

TEST(StatusNagios, ManyProblems_ShowTheWorstAndCountTheRest) {
    StatusReport report = BadReport();
    ControllerStatus& controller = report.systems.front().controllers.front();
    controller.logicalDrives.clear();
    controller.drives.front().level = Level::kWarning;
    controller.drives.front().health = "Warning";
    for (int bay = 3; bay < 10; ++bay) {
        controller.drives.push_back(FailedDrive("1I:1:" + std::to_string(bay)));
    }
    const std::string line = RenderNagios(report, kWell).line;
    EXPECT_THAT(line, HasSubstr("drive 1I:1:5 failed; and 5 more (9 drives, 0 logical drives) | "));
    EXPECT_THAT(line, Not(HasSubstr("drive 1I:1:1 ")));
}

TEST(StatusNagios, HostileTexts_StayOneLineWithOneBar) {
    const std::string line = RenderNagios(HostileReport(), kWell).line;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_EQ(std::count(line.begin(), line.end(), '|'), 1);
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
    EXPECT_LT(line.size(), 1500U);
}

TEST(StatusNagios, LongTextOfWideCharacters_IsCutBetweenCharacters) {
    StatusReport report = BadReport();
    std::string wide;
    for (int i = 0; i < 200; ++i) {
        wide += "ド";  // 3 bytes
    }
    report.systems.front().controllers.front().model = wide;
    const std::string line = RenderNagios(report, kWell).line;
    const std::size_t cut = line.find("...");
    ASSERT_NE(cut, std::string::npos);
    EXPECT_EQ(line.substr(cut - 3, 3), "ド");
}

TEST(StatusNagios, ServerWithoutControllers_IsAWarningWithoutLifeLeft) {
    StatusReport systemWithNone = EmptyReport();
    systemWithNone.systems = {{"/redfish/v1/Systems/1", {}}};
    for (const StatusReport& report : {EmptyReport(), systemWithNone}) {
        const NagiosResult result = RenderNagios(report, kWell);
        EXPECT_EQ(result.status, kNagiosWarning);
        EXPECT_THAT(result.line,
                    StartsWith("BAYWARD WARNING - The management controller lists no storage controller "
                               "(0 drives, 0 logical drives) | controllers=0;;;0 "));
        EXPECT_THAT(result.line, Not(HasSubstr("life_left_min")));
    }
}

// ---- The service's part ----

TEST(StatusNagios, ServiceThatIsDown_IsCriticalOnAGoodServer) {
    const NagiosResult result = RenderNagios(GoodReport(), {{kNotRunning}, {}});
    EXPECT_EQ(result.status, kNagiosCritical);
    EXPECT_THAT(result.line,
                StartsWith("BAYWARD CRITICAL - The service is not running; start it (2 drives, 1 "
                           "logical drive) | controllers=1"));
    EXPECT_THAT(result.line, testing::EndsWith(" time=1234ms;;;0\n"));
}

TEST(StatusNagios, ServiceThatIsOff_IsAWarningThatGivesWayToBadDrives) {
    EXPECT_EQ(RenderNagios(GoodReport(), {{kFailing}, {}}).status, kNagiosWarning);
    const NagiosResult result = RenderNagios(BadReport(), {{kFailing}, {}});
    EXPECT_EQ(result.status, kNagiosCritical);
    EXPECT_THAT(result.line, HasSubstr("drive 1I:1:2 failed; The thread \"OS log\" fails (2 drives"));
}

TEST(StatusNagios, UndeterminedHealth_IsWorseThanAWarningAlone) {
    const NagiosResult result = RenderNagios(GoodReport(), {{kFailing, kUndetermined}, {}});
    EXPECT_EQ(result.status, kNagiosUnknown);
    EXPECT_THAT(result.line, StartsWith("BAYWARD UNKNOWN - Who / knows; The thread \"OS log\" fails ("));
    EXPECT_EQ(RenderNagios(BadReport(), {{kUndetermined}, {}}).status, kNagiosCritical);
    EXPECT_EQ(RenderNagios(GoodReport(), {{kUndetermined, kNotRunning}, {}}).status, kNagiosCritical);
}

TEST(StatusNagios, ServiceThatIsDown_IsNotLostBehindManyDrives) {
    StatusReport report = BadReport();
    for (int bay = 3; bay < 10; ++bay) {
        report.systems.front().controllers.front().drives.push_back(
            FailedDrive("1I:1:" + std::to_string(bay)));
    }
    EXPECT_THAT(RenderNagios(report, {{kNotRunning}, {}}).line,
                StartsWith("BAYWARD CRITICAL - The service is not running; start it; "));
}

TEST(StatusNagios, Failure_IsUnknownWithTheServicesData) {
    NagiosResult result = RenderNagiosFailure("It | failed\nbadly.", {});
    EXPECT_EQ(result.status, kNagiosUnknown);
    EXPECT_EQ(result.line, "BAYWARD UNKNOWN - It / failed badly.\n");
    result = RenderNagiosFailure("It failed.", {{kFailing}, "threads=3;;;0"});
    EXPECT_EQ(result.status, kNagiosUnknown);
    EXPECT_EQ(result.line, "BAYWARD UNKNOWN - It failed. The thread \"OS log\" fails. | threads=3;;;0\n");
}

TEST(StatusNagios, FailureWithoutTheService_IsCriticalAndSaysThatFirst) {
    const NagiosResult result = RenderNagiosFailure("It failed.", {{kNotRunning}, {}});
    EXPECT_EQ(result.status, kNagiosCritical);
    EXPECT_EQ(result.line, "BAYWARD CRITICAL - The service is not running; start it. It failed.\n");
}

}  // namespace
