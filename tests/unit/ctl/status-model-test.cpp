#include "status-model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "../monitor/snapshots.h"
#include "test-root.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class StatusModel : public testing::Test {
protected:
    StatusModel() {
        root.Write("bayward.msg",
                   "[default]\nC0008151=Failed: %1 %2%3%nReplace it.\n80008152=Predicted: %2\n"
                   "C0008153=Fatal: %2\n8000815B=Worn 80: %2\n80008154=Worn 90: %2\nC0008155=Worn 95: %2\n"
                   "C00081B7=Offline: %1 %2\n[ja_JP]\nC0008151=故障: %2\n");
        catalogue.Load(root / "bayward.msg");
    }
    std::vector<SystemStatus> Describe(const ServiceRoot& snapshot, const std::string& language = "default") {
        return DescribeSystems(snapshot, catalogue, language);
    }
    ControllerStatus DescribeOne(const Snapshot& snapshot) {
        return Describe(snapshot.root).front().controllers.front();
    }
    static std::vector<std::uint32_t> IdsOf(const std::vector<ReportedState>& reported) {
        std::vector<std::uint32_t> ids;
        for (const ReportedState& state : reported) {
            ids.push_back(state.id);
        }
        return ids;
    }

    TestRoot root;
    tova_service::MessageCatalogue catalogue;
};

TEST_F(StatusModel, FailedDrive_SaysWhatTheServiceSays) {
    Snapshot snapshot(Family::kPlain, kSmart);
    snapshot.Drive() = SampleDrive();
    const DriveStatus drive = DescribeOne(snapshot).drives.front();
    EXPECT_EQ(drive.level, Level::kCritical);
    ASSERT_THAT(IdsOf(drive.reported), ElementsAre(tovaevent::kDriveFailed));
    EXPECT_EQ(drive.reported.front().phrase, "failed");
    EXPECT_EQ(drive.reported.front().sentence,
              "Failed: CTRL(HPE Smart Array P408i-a [Slot 1]) PD(1I:1:1) Model: VK000960GWTTB Size: 999 MB "
              "Serial Number: S1 Firmware Revision: HPG1\nReplace it.");
    EXPECT_THAT(drive.reasons, ElementsAre("Failed"));
    EXPECT_EQ(drive.id, "/redfish/v1/Systems/1/Drives/0");
    EXPECT_EQ(drive.size, "999 MB");
    EXPECT_EQ(
        Describe(snapshot.root, "ja_JP").front().controllers.front().drives.front().reported.front().sentence,
        "故障: PD(1I:1:1)");
}

// Item by item the same events as those of the whole snapshot against an empty one.
TEST_F(StatusModel, Events_AreThoseOfTheWholeComparison) {
    for (const auto& [family, model] : {std::pair{Family::kPlain, kSmart},
                                        {Family::kMirror, kSata},
                                        {Family::kMirror, kBoot},
                                        {Family::kMirror, kMegaRaid},
                                        {Family::kMirror, kOtherMirror}}) {
        Snapshot snapshot(family, model, "Slot=18");
        snapshot.Drive() = SampleDrive();
        snapshot.Drive().failurePredicted = true;
        DiskDrive& worn = snapshot.Drive(kOtherDrive);
        worn.mediaType = "SSD";
        worn.endurance = family == Family::kPlain ? 91 : 9;
        snapshot.Volume().health = "Critical";
        snapshot.Volume().state = "Disabled";
        std::vector<std::uint32_t> expected = Ids(Compare(ServiceRoot(), snapshot.root));
        std::vector<std::uint32_t> found;
        const ControllerStatus controller = DescribeOne(snapshot);
        for (const DriveStatus& drive : controller.drives) {
            const auto ids = IdsOf(drive.reported);
            found.insert(found.end(), ids.begin(), ids.end());
        }
        for (const LogicalDriveStatus& drive : controller.logicalDrives) {
            const auto ids = IdsOf(drive.reported);
            found.insert(found.end(), ids.begin(), ids.end());
        }
        std::sort(expected.begin(), expected.end());
        std::sort(found.begin(), found.end());
        EXPECT_FALSE(expected.empty());
        EXPECT_EQ(found, expected) << model;
    }
}

TEST_F(StatusModel, LifeLeft_IsPercentInBothFamilies) {
    struct Case {
        Family family;
        std::int64_t told;
        std::uint32_t scale;
        int left;
        int wearLevel;
    };
    for (const Case& expected : {Case{Family::kPlain, 3, 1, 97, 0}, Case{Family::kPlain, 8350, 100, 17, 80},
                                 Case{Family::kPlain, 120, 1, 0, 95}, Case{Family::kMirror, 97, 1, 97, 0},
                                 Case{Family::kMirror, 10, 1, 10, 90}, Case{Family::kMirror, -3, 1, 0, 95}}) {
        Snapshot snapshot(expected.family, expected.family == Family::kPlain ? kSmart : kMegaRaid);
        snapshot.Drive().mediaType = "SSD";
        snapshot.Drive().endurance = expected.told;
        snapshot.Drive().enduranceTold = true;
        snapshot.Drive().enduranceScale = expected.scale;
        const DriveStatus drive = DescribeOne(snapshot).drives.front();
        EXPECT_EQ(drive.lifeLeft, expected.left) << expected.told;
        EXPECT_EQ(drive.wearLevel, expected.wearLevel) << expected.told;
    }
}

TEST_F(StatusModel, LifeLeft_IsUnknownOfHardDisksAndOfSilentDrives) {
    Snapshot snapshot(Family::kMirror, kMegaRaid);
    snapshot.Drive().mediaType = "HDD";
    snapshot.Drive().enduranceTold = true;
    snapshot.Drive(kOtherDrive).mediaType = "SSD";
    snapshot.Drive(kOtherDrive).endurance = 100;
    for (const DriveStatus& drive : DescribeOne(snapshot).drives) {
        EXPECT_EQ(drive.lifeLeft, std::nullopt);
    }
}

TEST_F(StatusModel, Capacity_IsInBytesAndUnknownWhenItCannotBe) {
    Snapshot plain(Family::kPlain, kSmart);
    plain.Drive().logicalBlocks = 1000;
    plain.Drive().blockSize = 512;
    EXPECT_EQ(DescribeOne(plain).drives.front().bytes, 512000U);
    plain.Drive().logicalBlocks = INT64_MAX;
    EXPECT_EQ(DescribeOne(plain).drives.front().bytes, std::nullopt);
    Snapshot mirror(Family::kMirror, kMegaRaid);
    mirror.Drive().capacityGB = 12000;
    EXPECT_EQ(DescribeOne(mirror).drives.front().bytes, 12000000000000U);
    EXPECT_EQ(DescribeOne(mirror).drives.front().size, "12 TB");
    mirror.Drive().capacityGB = 0;
    EXPECT_EQ(DescribeOne(mirror).drives.front().bytes, std::nullopt);
}

TEST_F(StatusModel, DegradedVolume_IsAWarningThatTheServiceDoesNotReport) {
    Snapshot snapshot(Family::kMirror, kMegaRaid);
    snapshot.Volume().health = "Warning";
    snapshot.Volume().state = "Enabled";
    const LogicalDriveStatus drive = DescribeOne(snapshot).logicalDrives.front();
    EXPECT_THAT(drive.reported, IsEmpty());
    EXPECT_EQ(drive.level, Level::kWarning);
}

TEST_F(StatusModel, PredictedFailure_IsAWarningOnEveryController) {
    Snapshot snapshot(Family::kMirror, kSata);
    snapshot.Drive().health = "OK";
    snapshot.Drive().failurePredicted = true;
    const DriveStatus drive = DescribeOne(snapshot).drives.front();
    EXPECT_THAT(drive.reported, IsEmpty());
    EXPECT_EQ(drive.level, Level::kWarning);
}

TEST_F(StatusModel, Items_AreInTheOrderOfTheirPlaces) {
    Snapshot snapshot(Family::kPlain, kSmart);
    snapshot.Drive("/1").location = "1I:1:10";
    snapshot.Drive("/2").location = "1I:1:9";
    snapshot.Volume("/1").number = 2;
    snapshot.Volume("/2").number = 1;
    const ControllerStatus controller = DescribeOne(snapshot);
    EXPECT_EQ(controller.drives.front().location, "1I:1:9");
    EXPECT_EQ(controller.logicalDrives.front().number, 1);
}

TEST_F(StatusModel, Texts_LoseControlCharactersAndOuterBlanks) {
    Snapshot snapshot(Family::kPlain, "Model\x1b[31m\n", "Slot 0 ");
    snapshot.At(kController).serialNumber = "PFJHD0 \xff";
    const ControllerStatus controller = DescribeOne(snapshot);
    EXPECT_EQ(controller.Name(), "Model?[31m? [Slot 0]");
    EXPECT_EQ(controller.serialNumber, "PFJHD0 ?");
}

TEST_F(StatusModel, EmptySnapshot_HasNoSystems) {
    EXPECT_THAT(Describe(ServiceRoot()), IsEmpty());
}

TEST(StatusOrder, NumbersInTexts_CountAsNumbers) {
    EXPECT_TRUE(ComesBefore("1I:1:2", "1I:1:10"));
    EXPECT_FALSE(ComesBefore("1I:1:10", "1I:1:2"));
    EXPECT_TRUE(ComesBefore("1I:1:2", "2I:1:1"));
    EXPECT_TRUE(ComesBefore("", "1"));
    EXPECT_FALSE(ComesBefore("a", "a"));
    EXPECT_FALSE(ComesBefore("Bay 07", "Bay 7"));
    EXPECT_TRUE(ComesBefore("Bay 99999999999999999999", "Bay 100000000000000000000"));
}

TEST(StatusLevels, HealthAndState_AreJudgedAsAPersonWould) {
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "OK", "Enabled", {}), Level::kOk);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "", "", {}), Level::kOk);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "OK", "StandbySpare", {}), Level::kOk);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "OK", "StandbyOffline", {}), Level::kOk);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "Warning", "Enabled", {}), Level::kWarning);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "OK", "UnavailableOffline", {}), Level::kWarning);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "Critical", "Enabled", {}), Level::kCritical);
    EXPECT_EQ(ItemLevel(ItemKind::kDrive, "OK", "Enabled", {{1, Level::kCritical, "", ""}}),
              Level::kCritical);
}

TEST(StatusLevels, StandbyOffline_IsAGoodDriveButNoGoodLogicalDrive) {
    for (const char* health : {"", "OK"}) {
        EXPECT_EQ(ItemLevel(ItemKind::kDrive, health, "StandbyOffline", {}), Level::kOk) << health;
        EXPECT_EQ(ItemLevel(ItemKind::kLogicalDrive, health, "StandbyOffline", {}), Level::kWarning)
            << health;
    }
    EXPECT_EQ(ItemLevel(ItemKind::kLogicalDrive, "OK", "Enabled", {}), Level::kOk);
    EXPECT_EQ(ItemLevel(ItemKind::kLogicalDrive, "OK", "Disabled", {}), Level::kWarning);
}

TEST_F(StatusModel, OfflineVolumeWithoutHealth_IsNotWell) {
    Snapshot snapshot(Family::kMirror, kMegaRaid);
    snapshot.Volume().health = "";
    snapshot.Volume().state = "StandbyOffline";
    EXPECT_EQ(DescribeOne(snapshot).logicalDrives.front().level, Level::kWarning);
}

}  // namespace
