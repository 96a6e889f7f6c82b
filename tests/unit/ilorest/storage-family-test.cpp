#include "storage-family.h"

#include <gtest/gtest.h>

TEST(StorageFamily, NameAndModel_DecideTheReaders) {
    using Volumes = StorageFamily::Volumes;
    const struct {
        const char *name, *model;
        bool scans;
        DriveReader drives;
        Volumes volumes;
    } rows[] = {
        {"HPE NS204i-u Gen11 Boot Controller", "HPE NS204i-u Gen11 Boot Controller", false,
         DriveReader::Mirror, Volumes::ByShape},
        {"HPE NS204i-p Gen10+ Boot Controller", "HPE MR416i-p", false, DriveReader::Mirror, Volumes::ByShape},
        {"SATA Storage System", "Embedded SATA Controller #1", true, DriveReader::Vroc, Volumes::ByShape},
        {"My SATA Storage System", "", false, DriveReader::Mc, Volumes::Bcm},
        {"Intel VROC", "", true, DriveReader::Vroc, Volumes::ByShape},
        {"VROC NVMe Storage System", "", true, DriveReader::Vroc, Volumes::ByShape},
        {"NVMe Storage System", "XX006400TEST", false, DriveReader::Mirror, Volumes::None},
        {"NVMe Storage System", "HPE MR416i-p Gen10+", false, DriveReader::Mirror, Volumes::None},
        {"HPE MR416i-o Gen11", "HPE MR416i-o Gen11", false, DriveReader::Bcm, Volumes::Bcm},
        {"Storage", "HPE MR216i-p Gen11", false, DriveReader::Bcm, Volumes::Bcm},
        {"HPE MR416i-o Gen11", "MR416i-o", false, DriveReader::Mc, Volumes::Bcm},
        {"HPE SR932i-p Gen11", "HPE SR932i-p Gen11", false, DriveReader::Mc, Volumes::Bcm},
        {"HPE NS204", "", false, DriveReader::Mc, Volumes::Bcm},
        {"", "", false, DriveReader::Mc, Volumes::Bcm},
    };
    for (const auto& row : rows) {
        const StorageFamily& family = ClassifyStorage(row.name, row.model);
        EXPECT_EQ(family.scansControllers, row.scans) << row.name;
        EXPECT_EQ(family.drives, row.drives) << row.name;
        EXPECT_EQ(family.volumes, row.volumes) << row.name;
    }
}

TEST(StorageFamily, VersionAndShape_DecideTheVolumeReaderOfABootDevice) {
    const StorageFamily& boot = ClassifyStorage("HPE NS204i-u Gen11", "");
    EXPECT_EQ(ChooseVolumeReader(boot, "iLO 5 v2.55", false), VolumeReader::Volume);
    EXPECT_EQ(ChooseVolumeReader(boot, "iLO 5 v2.55", true), VolumeReader::Volume);
    EXPECT_EQ(ChooseVolumeReader(boot, "iLO 6 v1.66", true), VolumeReader::UVolume);
    EXPECT_EQ(ChooseVolumeReader(boot, "iLO 6 v1.66", false), VolumeReader::UVolume);
    EXPECT_EQ(ChooseVolumeReader(boot, "1.14.00 May 28 2025", false), VolumeReader::UVolume);
    EXPECT_EQ(ChooseVolumeReader(boot, "1.14.00 May 28 2025", true), VolumeReader::Volume);
    EXPECT_EQ(ChooseVolumeReader(ClassifyStorage("SATA Storage System", ""), "", true), VolumeReader::Volume);
    EXPECT_EQ(ChooseVolumeReader(ClassifyStorage("NVMe Storage System", ""), "iLO 5", true),
              VolumeReader::None);
    EXPECT_EQ(ChooseVolumeReader(ClassifyStorage("", "HPE MR"), "iLO 5", true), VolumeReader::Bcm);
    EXPECT_EQ(ChooseVolumeReader(ClassifyStorage("", ""), "iLO 6", false), VolumeReader::Bcm);
}

TEST(StorageFamily, Gen11InNameOrModel_IsGeneration110) {
    EXPECT_EQ(StorageGeneration("HPE MR416i-o Gen11", ""), 110);
    EXPECT_EQ(StorageGeneration("Storage", "HPE MR416i-o Gen11"), 110);
    EXPECT_EQ(StorageGeneration("HPE MR416i-p Gen10+", "HPE MR416i-p Gen10+"), 101);
    EXPECT_EQ(StorageGeneration("gen11", "Gen12"), 101);
}

TEST(StorageFamily, EmbeddedSataOrVrocInAnyText_EndsTheScan) {
    EXPECT_TRUE(IsEmbeddedSata("", "Embedded SATA Controller #2"));
    EXPECT_TRUE(IsEmbeddedSata("Embedded SATA Controller", ""));
    EXPECT_TRUE(IsEmbeddedSata("VROC", ""));
    EXPECT_TRUE(IsEmbeddedSata("", "Intel VROC SATA"));
    EXPECT_FALSE(IsEmbeddedSata("SATA Controller", "AHCI"));
}

TEST(StorageFamily, DriveReaders_AreTheVariantsThatTheirTextsName) {
    const struct {
        DriveReader variant;
        std::string name;
        std::int32_t attempts;
    } rows[] = {{DriveReader::Mirror, "readMirrorDiskDrive", 0},
                {DriveReader::Bcm, "readBCMDiskDrive", 0},
                {DriveReader::Mc, "readMCDiskDrive", 0},
                {DriveReader::Vroc, "readVROCDiskDrive", 20}};
    for (const auto& row : rows) {
        const RedfishDriveReader& reader = FindDriveReader(row.variant);
        EXPECT_EQ(reader.variant, row.variant);
        EXPECT_EQ(reader.failure, "iLoRestReader." + row.name + " failed.");
        EXPECT_EQ(reader.attempts, row.attempts);
    }
}

TEST(StorageFamily, VolumeReaders_AreTheVariantsThatTheirTextsName) {
    const struct {
        VolumeReader variant;
        std::string name;
        bool spares;
    } rows[] = {{VolumeReader::Volume, "readVolumeDrive", false},
                {VolumeReader::UVolume, "readUVolumeDrive", false},
                {VolumeReader::Bcm, "readBCMVolumeDrive", true}};
    for (const auto& row : rows) {
        const RedfishVolumeReader& reader = FindVolumeReader(row.variant);
        EXPECT_EQ(reader.variant, row.variant);
        EXPECT_EQ(reader.collectionFailure, "iLoRestReader." + row.name + "s failed.");
        EXPECT_EQ(reader.failure, "iLoRestReader." + row.name + " failed.");
        EXPECT_EQ(reader.spares, row.spares);
    }
}
