// One subsystem of each family, in the shapes that its device firmware gives it.
#include "reader-fixture.h"

namespace {

const std::string kDevice = "/redfish/v1/Systems/1/Storage/DE0BB000";
const std::string kDirect = "/redfish/v1/Systems/1/Storage/DA0000BB";
const std::string kManagers = "/redfish/v1/Managers/";
const std::string kManager = "/redfish/v1/Managers/1";

const std::string kIlo5 = "iLO 5 v2.55";
const std::string kIlo6 = "iLO 6 v1.66";
const std::string kIlo7 = "1.14.00 May 28 2025";

// Boot devices: a mirrored pair.
const std::string kBootEmbedded =
    R"({"Id":"DE0BB000","Name":"HPE NS204i-r Gen10+ Boot Controller",)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Drives/1"},)"
    R"({"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Drives/2"}],"Drives@odata.count":2,)"
    R"("Status":{"HealthRollup":"OK","State":"Enabled"},"StorageControllers":[)"
    R"({"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000#/StorageControllers/0","MemberId":"0",)"
    R"("Model":"HPE NS204i-r Gen10+ Boot Controller","SerialNumber":"BOOT0001","Manufacturer":"HPE",)"
    R"("FirmwareVersion":"1.0.1","Location":{"PartLocation":{"LocationOrdinalValue":13,"LocationType":"Slot",)"
    R"("ServiceLabel":"Slot 13"}},"Status":{"Health":"OK","State":"Enabled"}}],)"
    R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Volumes"}})";
const std::string kBootLinked =
    R"({"Id":"DE0BB000","Name":"HPE NS204i-u Gen11 Boot Controller",)"
    R"("Status":{"State":"Enabled","HealthRollup":"OK"},)"
    R"("Controllers":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Controllers"},)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Drives/1"},)"
    R"({"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Drives/2"}],)"
    R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Volumes"}})";
const std::string kBootController =
    R"({"Id":"0","Name":"HPE NS204i-u Gen11 Boot Controller","Model":"HPE NS204i-u Gen11 Boot Controller",)"
    R"("SerialNumber":"BOOT0002","Location":{"PartLocation":{"ServiceLabel":"Slot=29"}}})";
const std::string kBootVolume =
    R"({"Id":"1","Name":"NS Volume 1","RAIDType":"RAID1","LogicalUnitNumber":1,)"
    R"("Status":{"Health":"OK","State":"Enabled","Conditions":[{"MessageArgs":[],"Severity":"OK"}]},)"
    R"("Links":{"DedicatedSpareDrives":[],"Drives":[)"
    R"({"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Drives/1"},)"
    R"({"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Drives/2"}]}})";
const std::string kBootDrive =
    R"({"Id":"1","Model":"XX000480BOOT","SerialNumber":"BOOTDRIVE1","CapacityBytes":480103981056,)"
    R"("BlockSizeBytes":512,"MediaType":"SSD","Revision":"B001","FailurePredicted":false,)"
    R"("PredictedMediaLifeLeftPercent":99,"StatusIndicator":"OK",)"
    R"("Status":{"Health":"OK","State":"Enabled","Conditions":[{"MessageArgs":[],"Severity":"OK"}]},)"
    R"("Links":{"Volumes":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Volumes/1"}]},)"
    R"("PhysicalLocation":{"PartLocation":{"LocationOrdinalValue":1,"LocationType":"Bay",)"
    R"("ServiceLabel":"Slot=13:Bay=1"}}})";

// A RAID controller without a family of its own, drives below its chassis.
const std::string kSr =
    R"({"Id":"DE0BB000","Name":"HPE SR932i-p Gen10+","Status":{"State":"Enabled","HealthRollup":"OK"},)"
    R"("Controllers":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Controllers"},)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Chassis/DE0BB000/Drives/3581"}],)"
    R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Volumes"}})";
const std::string kSrController =
    R"({"Id":"0","Name":"HPE SR932i-p Gen10+","Model":"HPE SR932i-p Gen10+","SerialNumber":"SR000001 ",)"
    R"("Location":{"PartLocation":{"ServiceLabel":"Slot=1","LocationType":"Slot","LocationOrdinalValue":1}}})";
const std::string kSrVolume =
    R"({"Id":"1","Name":"Logical Drive 1","RAIDType":"RAID5","Status":{"Health":"OK","State":"Enabled"},)"
    R"("Links":{"Drives":[{"@odata.id":"/redfish/v1/Chassis/DE0BB000/Drives/3581"}],)"
    R"("DedicatedSpareDrives":[{"@odata.id":"/redfish/v1/Chassis/DE0BB000/Drives/3582"}]}})";
const std::string kSrDrive =
    R"({"Id":"3581","Model":"XX001600SAS","SerialNumber":"SRDRIVE1","CapacityBytes":1600321314816,)"
    R"("BlockSizeBytes":512,"MediaType":"SSD","Revision":"S001","FailurePredicted":false,)"
    R"("PredictedMediaLifeLeftPercent":98.5,"StatusIndicator":"OK",)"
    R"("Status":{"Health":"OK","State":"Enabled","Conditions":[]},)"
    R"("Links":{"Volumes":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0BB000/Volumes/1"}]},)"
    R"("PhysicalLocation":{"PartLocation":{"ServiceLabel":"Slot=1:Port=4I:Box=1:Bay=2"}}})";

// A drive of its own: the management controller speaks for it, in both shapes.
const std::string kNvme =
    R"({"Id":"DA0000BB","Name":"NVMe Storage System","Status":{"Health":"Warning","State":"Enabled"},)"
    R"("Controllers":{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Controllers"},)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Drives/DA0000BB/"}],)"
    R"("StorageControllers":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB#/StorageControllers/0/",)"
    R"("MemberId":"0","Model":"XX006400NVME","Name":"NVMe Storage Controller","SerialNumber":"NVME0001",)"
    R"("Manufacturer":"","Location":{"PartLocation":{"LocationOrdinalValue":2,"LocationType":"Bay",)"
    R"("ServiceLabel":"Box 2 Bay 1"}},"Status":{"Health":"OK","State":"Enabled"}}]})";
const std::string kNvmeDrive =
    R"({"Id":"DA0000BB","Model":"XX006400NVME","SerialNumber":"NVME0001","CapacityBytes":6401252745216,)"
    R"("MediaType":"SSD","Revision":"N001","FailurePredicted":true,"PredictedMediaLifeLeftPercent":100,)"
    R"("Status":{"Health":"Critical","State":"Enabled"},"Location":[{"Info":"Box 2:Bay 1"}],)"
    R"("PhysicalLocation":{"PartLocation":{"LocationOrdinalValue":1,"LocationType":"Bay",)"
    R"("ServiceLabel":"Box 2:Bay 1"}}})";

const std::string kSata =
    R"({"Id":"DA0000BB","Name":"SATA Storage System","Status":{"State":"Enabled","HealthRollup":"OK"},)"
    R"("Controllers":{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Controllers"},)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Drives/CAE9137A/"}],)"
    R"("StorageControllers":[{"MemberId":"0","Model":"Embedded SATA Controller #2","SerialNumber":"",)"
    R"("FirmwareVersion":null,"Location":{"PartLocation":{"ServiceLabel":"System Board"}},)"
    R"("Status":{"Health":null,"State":null}}]})";
const std::string kSataDrive =
    R"({"Id":"CAE9137A","Model":"XX000240SATA","SerialNumber":"SATA0001","CapacityBytes":240057409536,)"
    R"("MediaType":"SSD","Revision":"A001","Status":{"Health":"OK","State":"Enabled"},)"
    R"("PhysicalLocation":{"PartLocation":{"LocationOrdinalValue":4,"LocationType":"Bay",)"
    R"("ServiceLabel":"SATA Drive Box 3 Bay 4"}}})";

const std::string kVroc =
    R"({"Id":"DA0000BB","Name":"Intel VROC Storage System","Status":{"Health":"OK","State":"Enabled"},)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Drives/CAE9137A/"}],)"
    R"("StorageControllers":[{"MemberId":"0","Model":"Volume management device","SerialNumber":"VMD1"},)"
    R"({"MemberId":"1","Model":"Intel VROC SATA Gen11","SerialNumber":"VROC0001",)"
    R"("Location":{"PartLocation":{"ServiceLabel":"System Board"}}}],)"
    R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Volumes"}})";

class MirrorFamily : public ReaderTest {
protected:
    // A snapshot of a server with this one subsystem, read as the service does it: version, then walk.
    ArrayController Read(const std::string& version, const std::string& path, const std::string& subsystem) {
        auto& all = bridge->resources;
        all[kManagers] = Collection({kManager});
        all[kManager] = R"({"Oem":{"Hpe":{"Firmware":{"Current":{"VersionString":")" + version +
                        R"(","MajorVersion":1,"MinorVersion":66}}}}})";
        all[kStorage] = Collection({path});
        all[path] = subsystem;
        reader->setupiLOVersion();
        bridge->fetched.clear();
        const ServiceRoot root = Walk();
        return root.systems.at(kSystem).mirror.controllers.at(path);
    }
    // The failure of the subsystem when that path fails.
    std::string FailureAt(const std::string& subsystem, const std::string& path) {
        bridge->failures = {{path, "get failed."}};
        ArrayController controller;
        std::string failure =
            FailureText([&] { reader->readMirrorController(*bridge, {subsystem}, controller); });
        bridge->failures.clear();
        return failure;
    }
    void AddBoot() {
        auto& all = bridge->resources;
        all[kDevice + "/Controllers"] = Collection({kDevice + "/Controllers/0"});
        all[kDevice + "/Controllers/0"] = kBootController;
        all[kDevice + "/Volumes"] = Collection({kDevice + "/Volumes/1"});
        all[kDevice + "/Volumes/1"] = kBootVolume;
        all[kDevice + "/Drives/1"] = kBootDrive;
        all[kDevice + "/Drives/2"] = With(kBootDrive, ":99,", ":98.0,");
    }
    void AddSr() {
        auto& all = bridge->resources;
        all[kDevice + "/Controllers"] = Collection({kDevice + "/Controllers/0"});
        all[kDevice + "/Controllers/0"] = kSrController;
        all[kDevice + "/Volumes"] = Collection({kDevice + "/Volumes/1"});
        all[kDevice + "/Volumes/1"] = kSrVolume;
        all["/redfish/v1/Chassis/DE0BB000/Drives/3581"] = kSrDrive;
    }
};

const std::string kTop = "iLoRestReader.readMirrorController failed.";
const std::string kVolumesStep = kTop + "iLoRestReader.readController 6 failed.";
const std::string kDrivesStep = kTop + "iLoRestReader.readController 7 failed.";
const std::string kDirectDrive = kDirect + "/Drives/DA0000BB/";
const std::string kSataPath = kDirect + "/Drives/CAE9137A/";
const std::string kHealthy =
    "<VK0999> [TR] ilorest-reader N statusReasons=None, State=Enabled, failurePredicted=0";

}  // namespace

TEST_F(MirrorFamily, BootDeviceWithEmbeddedController_IsReadWhole) {
    AddBoot();
    const ArrayController controller = Read(kIlo5, kDevice, kBootEmbedded);
    EXPECT_EQ(controller.Id, "DE0BB000");
    EXPECT_EQ(controller.model, "HPE NS204i-r Gen10+ Boot Controller");
    EXPECT_EQ(controller.location, "Slot 13");
    EXPECT_EQ(controller.serialNumber, "BOOT0001");
    EXPECT_EQ(controller.health, "OK");
    EXPECT_EQ(controller.state, "Enabled");
    EXPECT_EQ(controller.generation, 101);
    ASSERT_EQ(controller.diskDrives.size(), 2U);
    const DiskDrive& drive = controller.diskDrives.at(kDevice + "/Drives/1");
    EXPECT_EQ(drive.model, "XX000480BOOT");
    EXPECT_EQ(drive.location, "Slot=13:Bay=1");
    EXPECT_EQ(drive.endurance, 99);
    EXPECT_EQ(drive.volumes, std::vector<Odataid>{{kDevice + "/Volumes/1"}});
    EXPECT_EQ(controller.diskDrives.at(kDevice + "/Drives/2").endurance, 98);
    const LogicalDrive& volume = controller.logicalDrives.at(kDevice + "/Volumes/1");
    EXPECT_EQ(volume.number, 1);
    EXPECT_EQ(volume.health, "OK");
    EXPECT_EQ(volume.state, "Enabled");
    EXPECT_EQ(volume.dataDrives, (std::vector<Odataid>{{kDevice + "/Drives/1"}, {kDevice + "/Drives/2"}}));
    EXPECT_EQ(bridge->fetched,
              (std::vector<std::string>{kSystemsPath, kStorage, kDevice, kDevice + "/Volumes",
                                        kDevice + "/Volumes/1", kDevice + "/Drives/1", kDevice + "/Drives/2",
                                        kArray}));
    EXPECT_EQ(Trace().back(), kHealthy);
}

TEST_F(MirrorFamily, BootDeviceWithLinkedController_IsReadWhole) {
    for (const std::string& version : {kIlo6, kIlo7}) {
        AddBoot();
        const ArrayController controller = Read(version, kDevice, kBootLinked);
        EXPECT_EQ(controller.model, "HPE NS204i-u Gen11 Boot Controller");
        EXPECT_EQ(controller.location, "Slot=29");
        EXPECT_EQ(controller.serialNumber, "BOOT0002");
        EXPECT_EQ(controller.generation, 110);
        EXPECT_EQ(controller.diskDrives.size(), 2U);
        EXPECT_EQ(controller.logicalDrives.at(kDevice + "/Volumes/1").dataDrives.size(), 2U);
    }
}

TEST_F(MirrorFamily, VolumesOfABootDevice_AreReadByVersionAndShape) {
    AddBoot();
    const struct {
        std::string version, subsystem, reader;
    } rows[] = {{kIlo5, kBootEmbedded, "readVolumeDrive"},  {kIlo5, kBootLinked, "readVolumeDrive"},
                {kIlo6, kBootEmbedded, "readUVolumeDrive"}, {kIlo6, kBootLinked, "readUVolumeDrive"},
                {kIlo7, kBootEmbedded, "readVolumeDrive"},  {kIlo7, kBootLinked, "readUVolumeDrive"}};
    for (const auto& row : rows) {
        Read(row.version, kDevice, row.subsystem);
        const std::string all = kVolumesStep + "iLoRestReader." + row.reader + "s failed.";
        EXPECT_EQ(FailureAt(kDevice, kDevice + "/Volumes"), all + "get failed.");
        EXPECT_EQ(FailureAt(kDevice, kDevice + "/Volumes/1"),
                  all + "iLoRestReader." + row.reader + " failed.get failed.");
        EXPECT_EQ(FailureAt(kDevice, kDevice + "/Drives/2"),
                  kDrivesStep + "iLoRestReader.readMirrorDiskDrive failed.get failed.");
    }
}

TEST_F(MirrorFamily, OtherRaidController_IsReadWhole) {
    for (const std::string& version : {kIlo5, kIlo6, kIlo7}) {
        AddSr();
        const ArrayController controller = Read(version, kDevice, kSr);
        EXPECT_EQ(controller.model, "HPE SR932i-p Gen10+");
        EXPECT_EQ(controller.location, "Slot=1");
        EXPECT_EQ(controller.serialNumber, "SR000001");
        EXPECT_EQ(controller.generation, 101);
        const DiskDrive& drive = controller.diskDrives.at("/redfish/v1/Chassis/DE0BB000/Drives/3581");
        EXPECT_EQ(drive.location, "Slot=1:Port=4I:Box=1:Bay=2");
        EXPECT_EQ(drive.capacityGB, 1600);
        EXPECT_EQ(drive.endurance, 98);
        const LogicalDrive& volume = controller.logicalDrives.at(kDevice + "/Volumes/1");
        EXPECT_EQ(volume.raidType, "RAID5");
        EXPECT_EQ(volume.spareDrives, std::vector<Odataid>{{"/redfish/v1/Chassis/DE0BB000/Drives/3582"}});
    }
    EXPECT_EQ(FailureAt(kDevice, "/redfish/v1/Chassis/DE0BB000/Drives/3581"),
              kDrivesStep + "iLoRestReader.readMCDiskDrive failed.get failed.");
    EXPECT_EQ(FailureAt(kDevice, kDevice + "/Volumes/1"),
              kVolumesStep + "iLoRestReader.readBCMVolumeDrives failed." +
                  "iLoRestReader.readBCMVolumeDrive failed.get failed.");
}

TEST_F(MirrorFamily, Gen11OfOtherRaidControllers_IsGeneration110) {
    AddSr();
    bridge->resources[kDevice + "/Controllers/0"] =
        With(kSrController, R"("Model":"HPE SR932i-p Gen10+")", R"("Model":"HPE SR932i-p Gen11")");
    EXPECT_EQ(Read(kIlo6, kDevice, kSr).generation, 110);
    EXPECT_EQ(Read(kIlo6, kDevice, With(kSr, "Gen10+", "Gen11")).generation, 110);
}

TEST_F(MirrorFamily, OtherRaidControllerOfBothFamilies_IsReadOnceThroughSmartStorage) {
    AddSmartStorage();
    AddSr();
    bridge->resources[kDevice] = kSr;
    bridge->resources[kStorage] = Collection({kDevice});
    bridge->resources[kSmart] = With(kSmartController, "SMART001 ", "SR000001");
    const ServiceRoot root = Walk();
    EXPECT_TRUE(root.systems.at(kSystem).mirror.controllers.empty());
    EXPECT_EQ(root.systems.at(kSystem).smartStorage.controllers.at(kSmart).diskDrives.size(), 1U);
}

TEST_F(MirrorFamily, DirectNvme_IsOneFailingDriveWithoutVolumes) {
    for (const std::string& version : {kIlo5, kIlo6, kIlo7}) {
        bridge->resources[kDirectDrive] = kNvmeDrive;
        const ArrayController controller = Read(version, kDirect, kNvme);
        EXPECT_EQ(controller.model, "XX006400NVME");
        EXPECT_EQ(controller.location, "Box 2 Bay 1");
        EXPECT_EQ(controller.serialNumber, "NVME0001");
        EXPECT_EQ(controller.health, "Warning");
        EXPECT_TRUE(controller.logicalDrives.empty());
        const DiskDrive& drive = controller.diskDrives.at(kDirectDrive);
        EXPECT_EQ(drive.capacityGB, 6401);
        EXPECT_EQ(drive.blockSize, 0);
        EXPECT_EQ(drive.location, "Box 2:Bay 1");
        EXPECT_EQ(drive.health, "Critical");
        EXPECT_EQ(drive.endurance, 100);
        EXPECT_TRUE(drive.volumes.empty());
        EXPECT_TRUE(drive.isBCMStatusFailed());
        EXPECT_TRUE(drive.isMirrorStatusFailed());
        EXPECT_TRUE(drive.isMirrorStatusSmart());
        // The controller is in the answer itself.
        EXPECT_EQ(bridge->fetched,
                  (std::vector<std::string>{kSystemsPath, kStorage, kDirect, kDirectDrive, kArray}));
    }
    EXPECT_EQ(Trace().back(),
              "<VK0999> [TR] ilorest-reader N statusReasons=Critical, State=Enabled, failurePredicted=1");
    EXPECT_EQ(FailureAt(kDirect, kDirectDrive),
              kDrivesStep + "iLoRestReader.readMirrorDiskDrive failed.get failed.");
}

TEST_F(MirrorFamily, DirectNvmeWithAVolumesLink_LeavesItAlone) {
    bridge->resources[kDirectDrive] = kNvmeDrive;
    const ArrayController controller =
        Read(kIlo6, kDirect,
             With(kNvme, R"("Drives":)",
                  R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DA0000BB/Volumes"},"Drives":)"));
    EXPECT_EQ(controller.diskDrives.size(), 1U);
    EXPECT_TRUE(controller.logicalDrives.empty());
}

TEST_F(MirrorFamily, EmbeddedSata_TellsLittleAndIsHealthy) {
    bridge->resources[kSataPath] = kSataDrive;
    const ArrayController controller = Read(kIlo6, kDirect, kSata);
    EXPECT_EQ(controller.model, "Embedded SATA Controller #2");
    EXPECT_EQ(controller.location, "System Board");
    EXPECT_EQ(controller.serialNumber, "");
    EXPECT_TRUE(controller.logicalDrives.empty());
    const DiskDrive& drive = controller.diskDrives.at(kSataPath);
    EXPECT_EQ(drive.model, "XX000240SATA");
    EXPECT_EQ(drive.location, "SATA Drive Box 3 Bay 4");
    EXPECT_EQ(drive.endurance, 100);
    EXPECT_EQ(drive.getMirrorEnduranceCode(), 0U);
    EXPECT_FALSE(drive.failurePredicted);
    EXPECT_EQ(Trace().back(), kHealthy);
    EXPECT_EQ(FailureAt(kDirect, kSataPath),
              kDrivesStep + "iLoRestReader.readVROCDiskDrive failed.get failed.");
}

TEST_F(MirrorFamily, EmbeddedSataDriveThatIsNotReady_IsAskedTwentyTimes) {
    bridge->resources[kSataPath] = kNotReadyText;
    const ArrayController controller = Read(kIlo6, kDirect, kSata);
    EXPECT_EQ(std::count(bridge->fetched.begin(), bridge->fetched.end(), kSataPath), 20);
    EXPECT_EQ(controller.diskDrives.at(kSataPath).health, "OK");
}

TEST_F(MirrorFamily, Vroc_IsFoundByScanningAndHasVolumes) {
    const struct {
        std::string version, reader;
    } rows[] = {{kIlo5, "readVolumeDrive"}, {kIlo6, "readUVolumeDrive"}, {kIlo7, "readVolumeDrive"}};
    for (const auto& row : rows) {
        bridge->resources[kSataPath] = kSataDrive;
        bridge->resources[kDirect + "/Volumes"] = Collection({kDirect + "/Volumes/0"});
        bridge->resources[kDirect + "/Volumes/0"] = With(kBootVolume, R"("Id":"1")", R"("Id":"Volume0")");
        const ArrayController controller = Read(row.version, kDirect, kVroc);
        EXPECT_EQ(controller.model, "Intel VROC SATA Gen11");
        EXPECT_EQ(controller.serialNumber, "VROC0001");
        EXPECT_EQ(controller.generation, 110);
        EXPECT_EQ(controller.diskDrives.size(), 1U);
        const LogicalDrive& volume = controller.logicalDrives.at(kDirect + "/Volumes/0");
        EXPECT_EQ(volume.Id, "Volume0");
        EXPECT_EQ(volume.number, 0);
        EXPECT_EQ(FailureAt(kDirect, kDirect + "/Volumes/0"), kVolumesStep + "iLoRestReader." + row.reader +
                                                                  "s failed.iLoRestReader." + row.reader +
                                                                  " failed.get failed.");
        EXPECT_EQ(FailureAt(kDirect, kSataPath),
                  kDrivesStep + "iLoRestReader.readVROCDiskDrive failed.get failed.");
    }
}

TEST_F(MirrorFamily, LinkedEmbeddedSata_TakesTheLinkedController) {
    const std::string linked =
        R"({"Name":"SATA Storage System","Controllers":{"@odata.id":")" + kDirect + R"(/Controllers"}})";
    bridge->resources[kDirect + "/Controllers"] = Collection({kDirect + "/Controllers/0"});
    bridge->resources[kDirect + "/Controllers/0"] = R"({"Id":"0","Model":"Embedded SATA Controller #1"})";
    EXPECT_EQ(Read(kIlo7, kDirect, linked).model, "Embedded SATA Controller #1");
}

TEST_F(MirrorFamily, SubsystemsOfAllFamilies_StandSideBySide) {
    AddMr();
    AddSmartStorage();
    AddBoot();
    auto& all = bridge->resources;
    all[kStorage] = Collection({kMr, kDevice, kDirect});
    all[kDevice] = kBootLinked;
    all[kDirect] = kNvme;
    all[kDirectDrive] = kNvmeDrive;
    const ServiceRoot root = Walk();
    const auto& mirror = root.systems.at(kSystem).mirror.controllers;
    EXPECT_EQ(mirror.size(), 3U);
    EXPECT_EQ(mirror.at(kMr).diskDrives.size(), 2U);
    EXPECT_EQ(mirror.at(kDevice).diskDrives.size(), 2U);
    EXPECT_EQ(mirror.at(kDirect).diskDrives.size(), 1U);
    EXPECT_EQ(root.systems.at(kSystem).smartStorage.controllers.size(), 1U);
}

TEST_F(MirrorFamily, MembersInAnotherOrder_GiveTheSameSnapshot) {
    AddMr();
    AddBoot();
    auto& all = bridge->resources;
    all[kDevice] = kBootLinked;
    const auto keys = [](const auto& map) {
        std::vector<std::string> found;
        for (const auto& entry : map) {
            found.push_back(entry.first);
        }
        return found;
    };
    std::vector<std::vector<std::string>> seen;
    for (const bool reversed : {false, true}) {
        all[kStorage] = reversed ? Collection({kDevice, kMr}) : Collection({kMr, kDevice});
        if (reversed) {
            all[kMr] = With(With(With(kMrLinked, "Drives/0", "Drives/X"), "Drives/64519", "Drives/0"),
                            "Drives/X", "Drives/64519");
        }
        const ServiceRoot root = Walk();
        const auto& mirror = root.systems.at(kSystem).mirror.controllers;
        seen.push_back(keys(mirror));
        seen.push_back(keys(mirror.at(kMr).diskDrives));
    }
    EXPECT_EQ(seen[0], seen[2]);
    EXPECT_EQ(seen[1], seen[3]);
    EXPECT_EQ(seen[1].size(), 2U);
}
