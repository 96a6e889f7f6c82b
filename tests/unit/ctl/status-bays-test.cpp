#include "status-bays.h"

#include <gtest/gtest.h>

#include "status-reports.h"

namespace {

std::string Bays(const std::vector<std::string>& locations) {
    ControllerStatus controller;
    for (const std::string& location : locations) {
        controller.drives.push_back(GoodDrive(location));
    }
    std::string text;
    for (const BayRow& row : ArrangeBays(controller)) {
        text += "[" + row.box + ":";
        for (const BayRow::Place& place : row.places) {
            text += " " + (place.number ? std::to_string(*place.number) : place.drive->location);
            text += place.drive == nullptr ? "-" : "";
        }
        text += "]";
    }
    return text;
}

TEST(StatusBays, Locations_AreUnderstoodInAllForms) {
    struct Case {
        const char* location;
        const char* box;
        int bay;
    };
    constexpr Case kCases[] = {
        {"1I:1:4", "1", 4},
        {"2E:3:12", "3 (external)", 12},
        {"Slot=14:Port=2:Box=1:Bay=8", "1", 8},
        {"Port=1I:Box=1:Bay=3", "1", 3},
        {"Slot=29:Bay=1", "", 1},
        {"Box 2:Bay 1", "2", 1},
        {"Embedded:Port=5A:Box=1:Bay=1", "1", 1},
        {"SATA Drive Box 3 Bay 4", "3", 4},
    };
    for (const Case& expected : kCases) {
        const auto bay = ParseBay(expected.location);
        ASSERT_TRUE(bay) << expected.location;
        EXPECT_EQ(bay->box, expected.box) << expected.location;
        EXPECT_EQ(bay->number, expected.bay) << expected.location;
    }
}

TEST(StatusBays, OtherTexts_TellNoBay) {
    for (const char* location : {"", ":", "::", "1I:1", "1I:1:", "1I::4", ":1:4", "1I:1:x", "1I:1:4:5",
                                 "1I:1:99999999999", "Bay", "Bay=", "Bay=x", "Bayonne", "1I:1:-4"}) {
        EXPECT_FALSE(ParseBay(location)) << location;
    }
}

TEST(StatusBays, Boxes_AreSortedWithGapsBetweenTheirDrives) {
    EXPECT_EQ(Bays({"2I:1:5", "1I:1:2", "1I:10:1", "1I:2:1", "1E:1:1"}),
              "[1: 2 3- 4- 5][1 (external): 1][2: 1][10: 1]");
}

TEST(StatusBays, HugeGap_IsNone) {
    EXPECT_EQ(Bays({"1I:1:1", "1I:1:900"}), "[1: 1 900]");
}

TEST(StatusBays, DrivesWithoutBay_ComeLast) {
    EXPECT_EQ(Bays({"M.2 slot", "1I:1:1"}), "[1: 1][: M.2 slot]");
}

TEST(StatusBays, TwoDrivesInOneBay_AreBothShown) {
    EXPECT_EQ(Bays({"1I:1:1", "2I:1:1"}), "[1: 1 1]");
}

}  // namespace
