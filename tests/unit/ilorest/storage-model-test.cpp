#include "storage-model.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

DiskDrive WithReasons(const std::vector<std::string>& reasons, const std::string& state = "Enabled") {
    DiskDrive drive;
    drive.statusReasons = reasons;
    drive.state = state;
    return drive;
}

DiskDrive WithHealth(const std::string& health) {
    DiskDrive drive;
    drive.health = health;
    return drive;
}

DiskDrive WithEndurance(std::int64_t endurance, std::uint32_t scale = 1) {
    DiskDrive drive;
    drive.endurance = endurance;
    drive.enduranceScale = scale;
    return drive;
}

DiskDrive WithGB(std::int64_t capacity) {
    DiskDrive drive;
    drive.capacityGB = capacity;
    return drive;
}

// A root with one item of each family under the keys "s", "c"/"m" and "i".
ServiceRoot OneOfEach() {
    DiskDrive drive;
    drive.Id = "drive";
    LogicalDrive volume;
    volume.Id = "volume";
    ArrayController controller;
    controller.addDiskDrive({"i"}, drive);
    controller.addLogicalDrive({"i"}, volume);
    ComputerSystem system;
    system.smartStorage.addController({"c"}, controller);
    system.mirror.addController({"m"}, controller);
    ServiceRoot root;
    root.addComputerSystem({"s"}, system);
    return root;
}

}  // namespace

TEST(DiskDrive, StatusReasons_DecideFailedFatalAndPredicted) {
    const struct {
        const char* reason;
        bool failed, fatal, smart;
    } rows[] = {
        {"None", false, false, false},
        {"Failed", true, false, false},
        {"FailedDueToPredictiveSpareActivation", true, false, false},
        {"CommunicationFailure", false, true, false},
        {"CarrierCommunicationFailure", false, true, false},
        {"Unrecoverable", false, true, false},
        {"PredictiveFail", false, false, true},
        {"failed", false, false, false},
        {"Failed ", false, false, false},
        {"EraseFailed", false, false, false},
        {"Critical", false, false, false},
    };
    for (const auto& row : rows) {
        const DiskDrive drive = WithReasons({"Other", row.reason});
        EXPECT_EQ(drive.isStatusFailed(), row.failed) << row.reason;
        EXPECT_EQ(drive.isStatusFatal(), row.fatal) << row.reason;
        EXPECT_EQ(drive.isStatusSmart(), row.smart) << row.reason;
    }
}

TEST(DiskDrive, NoStatusReason_IsNeitherFailedNorFatalNorPredictedWhateverTheState) {
    for (const char* state : {"Enabled", "Absent", "UnavailableOffline"}) {
        const DiskDrive drive = WithReasons({}, state);
        EXPECT_FALSE(drive.isStatusFailed());
        EXPECT_FALSE(drive.isStatusFatal());
        EXPECT_FALSE(drive.isStatusSmart());
        EXPECT_FALSE(drive.isBCMStatusFailed());
    }
}

TEST(DiskDrive, BcmStatus_FailsOnReasonOrUnavailableOffline) {
    EXPECT_TRUE(WithReasons({"Failed"}).isBCMStatusFailed());
    EXPECT_TRUE(WithReasons({"None", "Critical"}).isBCMStatusFailed());
    EXPECT_TRUE(WithReasons({"None"}, "UnavailableOffline").isBCMStatusFailed());
    EXPECT_FALSE(WithReasons({"None"}).isBCMStatusFailed());
    EXPECT_FALSE(WithReasons({"Warning"}, "StandbyOffline").isBCMStatusFailed());
    EXPECT_FALSE(WithReasons({"FailedDueToPredictiveSpareActivation"}).isBCMStatusFailed());
}

TEST(DiskDrive, MirrorStatus_LooksAtTheHealthOnly) {
    const struct {
        const char* health;
        bool failed, fatal;
    } rows[] = {{"OK", false, false},
                {"Warning", false, false},
                {"Critical", true, false},
                {"critical", false, false},
                {"Failed", false, false},
                {"FailedDueToPredictiveSpareActivation", true, false},
                {"CommunicationFailure", false, true},
                {"CarrierCommunicationFailure", false, true},
                {"Unrecoverable", false, true}};
    for (const auto& row : rows) {
        EXPECT_EQ(WithHealth(row.health).isMirrorStatusFailed(), row.failed) << row.health;
        EXPECT_EQ(WithHealth(row.health).isMirrorStatusFatal(), row.fatal) << row.health;
    }
    EXPECT_FALSE(WithReasons({"Critical", "Unrecoverable"}).isMirrorStatusFailed());
    EXPECT_FALSE(WithReasons({"Critical", "Unrecoverable"}).isMirrorStatusFatal());
}

TEST(DiskDrive, FailurePredicted_IsTheMirrorPrediction) {
    DiskDrive drive = WithReasons({"PredictiveFail"});
    EXPECT_FALSE(drive.isMirrorStatusSmart());
    drive.failurePredicted = true;
    EXPECT_TRUE(drive.isMirrorStatusSmart());
}

TEST(DiskDrive, EnduranceCode_ChangesExactlyAtTheThresholds) {
    const struct {
        std::int64_t used;
        std::uint32_t scale, code;
    } rows[] = {{0, 1, 0},
                {-1, 1, 0},
                {79, 1, 0},
                {80, 1, 0x8000815B},
                {89, 1, 0x8000815B},
                {90, 1, 0x80008154},
                {94, 1, 0x80008154},
                {95, 1, 0xC0008155},
                {100, 1, 0xC0008155},
                {7999, 100, 0},
                {8000, 100, 0x8000815B},
                {8999, 100, 0x8000815B},
                {9000, 100, 0x80008154},
                {9499, 100, 0x80008154},
                {9500, 100, 0xC0008155},
                {95, 100, 0},
                {std::numeric_limits<std::int64_t>::max(), 1, 0xC0008155}};
    for (const auto& row : rows) {
        EXPECT_EQ(WithEndurance(row.used, row.scale).getEnduranceCode(), row.code)
            << row.used << " " << row.scale;
    }
}

TEST(DiskDrive, EnduranceScale_MultipliesInThirtyTwoBits) {
    // 95, 90 and 80 times 2 to the power of 28 leave 0xF0000000, 0xA0000000 and 0 in 32 bits.
    const std::uint32_t scale = 1U << 28;
    EXPECT_EQ(WithEndurance(0, scale).getEnduranceCode(), 0x8000815BU);
    EXPECT_EQ(WithEndurance(0xA0000000, scale).getEnduranceCode(), 0x80008154U);
    EXPECT_EQ(WithEndurance(0xF0000000, scale).getEnduranceCode(), 0xC0008155U);
}

TEST(DiskDrive, MirrorEnduranceCode_ChangesExactlyAtTheThresholds) {
    const struct {
        std::int64_t left;
        std::uint32_t scale, code;
    } rows[] = {{100, 1, 0},           {21, 1, 0},         {20, 1, 0x8000815B},     {11, 1, 0x8000815B},
                {10, 1, 0x80008154},   {6, 1, 0x80008154}, {5, 1, 0xC0008155},      {0, 1, 0xC0008155},
                {-1, 1, 0xC0008155},   {2001, 100, 0},     {2000, 100, 0x8000815B}, {1000, 100, 0x80008154},
                {500, 100, 0xC0008155}};
    for (const auto& row : rows) {
        EXPECT_EQ(WithEndurance(row.left, row.scale).getMirrorEnduranceCode(), row.code)
            << row.left << " " << row.scale;
    }
}

TEST(DiskDrive, SizeOfASmallDrive_IsWholeMegabytes) {
    DiskDrive drive;
    EXPECT_EQ(drive.getSizeString(), "0 MB");
    drive.capacityMiB = 953;
    drive.blockSize = 512;
    drive.logicalBlocks = 1;
    EXPECT_EQ(drive.getSizeString(), "999 MB");
    drive.capacityMiB = 1;
    EXPECT_EQ(drive.getSizeString(), "1 MB");
}

TEST(DiskDrive, SizeAbove953MiB_ComesFromTheBlocks) {
    DiskDrive drive;
    drive.capacityMiB = 954;
    drive.blockSize = 512;
    drive.logicalBlocks = 1953792;
    EXPECT_EQ(drive.getSizeString(), "1 GB");
    drive.logicalBlocks = 1172123568;
    EXPECT_EQ(drive.getSizeString(), "600 GB");
    drive.logicalBlocks = 19531249999;  // 9,999.999 GB
    EXPECT_EQ(drive.getSizeString(), "9999 GB");
    drive.logicalBlocks = 19531250000;
    EXPECT_EQ(drive.getSizeString(), "10 TB");
    drive.logicalBlocks = 37500000000;
    EXPECT_EQ(drive.getSizeString(), "19 TB");
}

TEST(DiskDrive, AbsurdCapacities_GiveSomeTextWithoutHarm) {
    DiskDrive drive;
    drive.capacityMiB = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(drive.getSizeString(), "-9223372036854775808 MB");
    drive.capacityMiB = std::numeric_limits<std::int64_t>::max();
    drive.blockSize = std::numeric_limits<std::int64_t>::max();
    drive.logicalBlocks = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(drive.getSizeString(), "9223372036854775 TB");
    EXPECT_EQ(WithGB(-1).getMirrorSizeString(), "-1 GB");
}

TEST(DiskDrive, MirrorSize_TurnsToTerabytesAbove9999) {
    EXPECT_EQ(WithGB(480).getMirrorSizeString(), "480 GB");
    EXPECT_EQ(WithGB(9999).getMirrorSizeString(), "9999 GB");
    EXPECT_EQ(WithGB(10000).getMirrorSizeString(), "10 TB");
    EXPECT_EQ(WithGB(15999).getMirrorSizeString(), "15 TB");
}

TEST(DiskDrive, MirrorSizeAskedTwice_DividesTwice) {
    DiskDrive drive = WithGB(12000);
    EXPECT_EQ(drive.getMirrorSizeString(), "12 TB");
    EXPECT_EQ(drive.capacityGB, 12);
    EXPECT_EQ(drive.getMirrorSizeString(), "12 GB");
}

TEST(DiskDrive, InfoStrings_NameModelSizeSerialAndFirmware) {
    DiskDrive drive = WithGB(12000);
    drive.model = "M%s";
    drive.serialNumber = "S";
    drive.firmwareRevision = "F";
    EXPECT_EQ(drive.getInfoString(), "Model: M%s Size: 0 MB Serial Number: S Firmware Revision: F");
    EXPECT_EQ(drive.getMirrorInfoString(), "Model: M%s Size: 12 TB Serial Number: S Firmware Revision: F");
    EXPECT_EQ(drive.getMirrorInfoString(), "Model: M%s Size: 12 GB Serial Number: S Firmware Revision: F");
}

TEST(DiskDrive, Copy_IsDeep) {
    DiskDrive drive = WithReasons({"Failed"});
    drive.volumes = {{"/v"}};
    const DiskDrive copy = drive;
    drive.statusReasons[0] = "None";
    drive.volumes.clear();
    EXPECT_EQ(copy.statusReasons, std::vector<std::string>{"Failed"});
    EXPECT_EQ(copy.volumes, std::vector<Odataid>{{"/v"}});
}

TEST(LogicalDrive, Offline_AsTheFamilySaysIt) {
    const struct {
        const char *health, *state;
        bool offline, mirrorOffline;
    } rows[] = {{"OK", "Enabled", false, false},
                {"Critical", "Enabled", true, false},
                {"Critical", "Disabled", true, true},
                {"Critical", "StandbyOffline", true, false},
                {"Warning", "StandbyOffline", false, true},
                {"Warning", "Disabled", false, false},
                {"critical", "Disabled", false, false},
                {"", "", false, false}};
    for (const auto& row : rows) {
        LogicalDrive drive;
        drive.health = row.health;
        drive.state = row.state;
        EXPECT_EQ(drive.isStatusOffline(), row.offline) << row.health << " " << row.state;
        EXPECT_EQ(drive.isMirrorStatusOffline(), row.mirrorOffline) << row.health << " " << row.state;
        EXPECT_FALSE(drive.isStatusCritical());
        EXPECT_FALSE(drive.isMirrorStatusCritical());
    }
}

TEST(ArrayController, InfoString_IsModelAndLocation) {
    ArrayController controller;
    controller.model = "HPE MR416i-o Gen11";
    controller.location = "Slot=18";
    EXPECT_EQ(controller.getInfoString(), "HPE MR416i-o Gen11 [Slot=18]");
    EXPECT_EQ(controller.generation, 101);
}

TEST(ServiceRoot, Lookups_FindWhatTheirFamilyHolds) {
    const ServiceRoot root = OneOfEach();
    ServiceRoot::DiskDriveIterator drive;
    ServiceRoot::LogicalDriveIterator volume;
    ASSERT_TRUE(root.containsDiskDrive("s", "c", "i", drive));
    EXPECT_EQ(drive->second.Id, "drive");
    ASSERT_TRUE(root.containsLogicalDrive("s", "c", "i", volume));
    EXPECT_EQ(volume->second.Id, "volume");
    ASSERT_TRUE(root.containsMirrorDiskDrive("s", "m", "i", drive));
    EXPECT_EQ(drive->first, "i");
    ASSERT_TRUE(root.containsMirrorLogicalDrive("s", "m", "i", volume));
    EXPECT_EQ(volume->first, "i");
}

TEST(ServiceRoot, Lookups_FailAtEachUnknownLevel) {
    const ServiceRoot root = OneOfEach();
    ServiceRoot::DiskDriveIterator drive;
    ServiceRoot::LogicalDriveIterator volume;
    const char* const keys[][3] = {{"?", "c", "i"}, {"s", "m", "i"}, {"s", "c", "?"}, {"", "", ""}};
    for (const auto& key : keys) {
        EXPECT_FALSE(root.containsDiskDrive(key[0], key[1], key[2], drive));
        EXPECT_FALSE(root.containsLogicalDrive(key[0], key[1], key[2], volume));
    }
    const char* const mirrorKeys[][3] = {{"?", "m", "i"}, {"s", "c", "i"}, {"s", "m", "?"}};
    for (const auto& key : mirrorKeys) {
        EXPECT_FALSE(root.containsMirrorDiskDrive(key[0], key[1], key[2], drive));
        EXPECT_FALSE(root.containsMirrorLogicalDrive(key[0], key[1], key[2], volume));
    }
}

TEST(ServiceRoot, FindController_LooksInOneFamilyOfOneSystem) {
    const ServiceRoot root = OneOfEach();
    EXPECT_EQ(root.findController("s", &ComputerSystem::smartStorage, "c"),
              &root.systems.at("s").smartStorage.controllers.at("c"));
    EXPECT_EQ(root.findController("s", &ComputerSystem::mirror, "m"),
              &root.systems.at("s").mirror.controllers.at("m"));
    EXPECT_EQ(root.findController("?", &ComputerSystem::mirror, "m"), nullptr);
    EXPECT_EQ(root.findController("s", &ComputerSystem::mirror, "c"), nullptr);
    EXPECT_EQ(root.findController("s", &ComputerSystem::smartStorage, "?"), nullptr);
}

TEST(ServiceRoot, KnownKey_IsNotReplaced) {
    ArrayController controller;
    DiskDrive drive;
    drive.Id = "first";
    controller.addDiskDrive({"k"}, drive);
    drive.Id = "second";
    controller.addDiskDrive({"k"}, drive);
    EXPECT_EQ(controller.diskDrives.at("k").Id, "first");

    LogicalDrive volume;
    volume.number = 1;
    controller.addLogicalDrive({"k"}, volume);
    volume.number = 2;
    controller.addLogicalDrive({"k"}, volume);
    EXPECT_EQ(controller.logicalDrives.at("k").number, 1);

    SmartStorage storage;
    storage.addController({"k"}, controller);
    storage.addController({"k"}, {});
    EXPECT_EQ(storage.controllers.at("k").diskDrives.size(), 1U);

    ServiceRoot root;
    ComputerSystem system;
    system.mirror = storage;
    root.addComputerSystem({"k"}, system);
    root.addComputerSystem({"k"}, {});
    EXPECT_EQ(root.systems.at("k").mirror.controllers.size(), 1U);
}

TEST(ServiceRoot, Copy_HoldsTheWholeTreeAfterTheOriginalIsCleared) {
    ServiceRoot root = OneOfEach();
    const ServiceRoot copy = root;
    root.clear();
    EXPECT_TRUE(root.systems.empty());
    ServiceRoot::DiskDriveIterator drive;
    EXPECT_FALSE(root.containsDiskDrive("s", "c", "i", drive));
    EXPECT_TRUE(copy.containsDiskDrive("s", "c", "i", drive));
}
