#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "status-render.h"
#include "status-reports.h"

using testing::HasSubstr;
using testing::Not;

namespace {

const Paint kPlain(false);
const Paint kColoured(true);

TEST(StatusTable, BadServer_IsAligned) {
    EXPECT_EQ(RenderTable(BadReport(), kPlain),
              R"(server01  iLO 5 v2.72 at https://192.0.2.10, connection not verified
read 2026-01-31T23:59:59Z in 1.2 s, 38 resources

HPE Smart Array P408i-a SR Gen10 [Slot 0]  serial number PEYHB0  OK

  Logical drive  RAID   Drives  Health              Reported
  1              RAID1  2       Critical, Disabled  offline

  Drive   Model           Serial        Size        Health    Life  Reported
  1I:1:1  VK000960GWTEST  SERIAL1I:1:1  960 GB SSD  OK        98 %  -
  1I:1:2  VK000960GWTEST  SERIAL1I:1:2  960 GB HDD  Critical  -     failed

What the service reports, once, when such a state begins:

  error    0xC00081B7  A logical drive is offline: LD(1)
  error    0xC0008151  A physical drive has failed: PD(1I:1:2)
                       Replace the drive now.

1 controller, all well; 1 logical drive, 1 critical; 2 drives, 1 critical
)");
}

TEST(StatusTable, Colours_FollowTheLevel) {
    const std::string text = RenderTable(BadReport(), kColoured);
    EXPECT_THAT(text, HasSubstr("\033[31m1I:1:2  VK000960GWTEST"));
    EXPECT_THAT(text, HasSubstr("\n  1I:1:1  VK000960GWTEST"));
    StatusReport report = GoodReport();
    report.systems.front().controllers.front().drives.front().level = Level::kWarning;
    EXPECT_THAT(RenderTable(report, kColoured), HasSubstr("\033[33m1I:1:1  VK000960GWTEST"));
}

TEST(StatusTable, GoodServer_HasNoEvents) {
    EXPECT_THAT(RenderTable(GoodReport(), kPlain), Not(HasSubstr("What the service reports")));
}

TEST(StatusTable, EmptyServer_SaysSo) {
    EXPECT_THAT(RenderTable(EmptyReport(), kPlain),
                HasSubstr("The management controller lists no storage controller."));
    StatusReport report = BadReport();
    report.systems.front().controllers.front().drives.clear();
    report.systems.front().controllers.front().logicalDrives.clear();
    EXPECT_THAT(RenderTable(report, kPlain), HasSubstr("\n  no drives\n"));
}

TEST(StatusTable, SeveralSystems_HaveTheirNames) {
    StatusReport report = GoodReport();
    EXPECT_THAT(RenderTable(report, kPlain), Not(HasSubstr("System ")));
    report.systems.push_back(report.systems.front());
    report.systems.back().id = "/redfish/v1/Systems/2";
    EXPECT_THAT(RenderTable(report, kPlain), HasSubstr("\nSystem /redfish/v1/Systems/2\n"));
}

TEST(StatusTable, HostileTexts_HoldNoControlCharacters) {
    for (const char character : RenderTable(HostileReport(), kPlain)) {
        EXPECT_TRUE(character == '\n' || static_cast<unsigned char>(character) >= ' ');
    }
}

TEST(StatusTable, MegaRaidNames_FitAHundredColumns) {
    StatusReport report = BadReport();
    ControllerStatus& controller = report.systems.front().controllers.front();
    controller.model = "HPE MR416i-o Gen11";
    controller.location = "Slot=14";
    for (DriveStatus& drive : controller.drives) {
        drive.location = "Slot=14:Port=2:Box=1:Bay=8";
        drive.serialNumber = "SIMMR00D0007";
        drive.reported = {
            {tovaevent::kDriveFailed, Level::kCritical, "failed",
             "A physical drive has failed: CTRL(HPE MR416i-o Gen11 [Slot=14]) PD(Slot=14:Port=2:"
             "Box=1:Bay=8) Model: XX000480TEST Size: 480 GB Serial Number: SIMMR00D0007"}};
    }
    std::istringstream lines(RenderTable(report, kPlain));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 100U) << line;
    }
}

}  // namespace
