#include "reader-fixture.h"

namespace {

class MirrorStorageReader : public ReaderTest {
protected:
    ArrayController Controller(const std::string& json) {
        bridge->resources[kMr] = json;
        ArrayController controller;
        reader->readMirrorController(*bridge, {kMr}, controller);
        return controller;
    }
    std::string ControllerFailure(const std::string& json) {
        return FailureText([&] { Controller(json); });
    }
};

const std::string kStart = "<VK0999> [TR] ilorest-reader N ";
const std::string kTop = "iLoRestReader.readMirrorController failed.";

}  // namespace

TEST_F(MirrorStorageReader, LinkedMegaRaid_ReachesTheMirrorMapWithDrivesUnderChassis) {
    AddMr();
    const ServiceRoot root = Walk();
    const ComputerSystem& system = root.systems.at(kSystem);
    EXPECT_TRUE(system.smartStorage.controllers.empty());
    const ArrayController& controller = system.mirror.controllers.at(kMr);
    EXPECT_EQ(controller.Id, "DE0AA000");
    EXPECT_EQ(controller.model, "HPE MR416i-o Gen11");
    EXPECT_EQ(controller.location, "Slot=18");
    EXPECT_EQ(controller.serialNumber, "MR0001");
    EXPECT_EQ(controller.health, "Warning");  // the roll-up stands in
    EXPECT_EQ(controller.state, "Enabled");
    EXPECT_EQ(controller.generation, 110);

    const LogicalDrive& volume = controller.logicalDrives.at(kMr + "/Volumes/239");
    EXPECT_EQ(volume.Id, "239");
    EXPECT_EQ(volume.number, 239);
    EXPECT_EQ(volume.health, "OK");
    EXPECT_EQ(volume.state, "Enabled");
    EXPECT_EQ(volume.raidType, "RAID1");
    EXPECT_EQ(volume.dataDrives, std::vector<Odataid>{{kMrDrives + "0"}});
    EXPECT_EQ(volume.spareDrives, std::vector<Odataid>{{kMrDrives + "64519"}});

    ASSERT_EQ(controller.diskDrives.size(), 2U);
    const DiskDrive& drive = controller.diskDrives.at(kMrDrives + "0");
    EXPECT_EQ(drive.Id, "0");
    EXPECT_EQ(drive.model, "XX000480TEST");
    EXPECT_EQ(drive.capacityGB, 480);
    EXPECT_EQ(drive.blockSize, 512);
    EXPECT_EQ(drive.serialNumber, "INVENTED001");
    EXPECT_EQ(drive.location, "Slot=18:Port=2:Box=1:Bay=8");
    EXPECT_EQ(drive.mediaType, "SSD");
    EXPECT_EQ(drive.health, "OK");
    EXPECT_EQ(drive.statusIndicator, "OK");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_EQ(drive.statusReasons, std::vector<std::string>{"None"});
    EXPECT_EQ(drive.endurance, 97);
    EXPECT_EQ(drive.firmwareRevision, "T001");
    EXPECT_FALSE(drive.failurePredicted);
    EXPECT_EQ(drive.volumes, std::vector<Odataid>{{kMr + "/Volumes/239"}});
}

TEST_F(MirrorStorageReader, LinkedMegaRaid_IsFetchedInThisOrder) {
    AddMr();
    Walk();
    EXPECT_EQ(bridge->fetched,
              (std::vector<std::string>{kSystemsPath, kStorage, kMr, kMr + "/Controllers",
                                        kMr + "/Controllers/0", kMr + "/Volumes", kMr + "/Volumes/239",
                                        kMrDrives + "0", kMrDrives + "64519", kArray}));
}

TEST_F(MirrorStorageReader, EmbeddedMegaRaid_NeedsNoFetchForItsController) {
    AddMr();
    const ArrayController controller = Controller(kMrEmbedded);
    EXPECT_EQ(controller.model, "HPE MR416i-p Gen10+");
    EXPECT_EQ(controller.location, "Slot 1");
    EXPECT_EQ(controller.serialNumber, "MR0001");
    EXPECT_EQ(controller.health, "OK");
    EXPECT_EQ(controller.generation, 101);
    EXPECT_EQ(controller.diskDrives.size(), 1U);
    EXPECT_EQ(controller.logicalDrives.size(), 1U);
    EXPECT_EQ(bridge->fetched,
              (std::vector<std::string>{kMr, kMr + "/Volumes", kMr + "/Volumes/239", kMrDrives + "0"}));
}

TEST_F(MirrorStorageReader, BothShapes_PreferTheEmbeddedController) {
    AddMr();
    const ArrayController controller = Controller(With(
        kMrEmbedded, R"("Drives":)",
        R"("Controllers":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0AA000/Controllers"},"Drives":)"));
    EXPECT_EQ(controller.location, "Slot 1");
    EXPECT_EQ(std::count(bridge->fetched.begin(), bridge->fetched.end(), kMr + "/Controllers"), 0);
}

TEST_F(MirrorStorageReader, EmptyOrNullEmbeddedArray_CountsAsNone) {
    AddMr();
    for (const char* none : {R"("StorageControllers":[],"Id":)", R"("StorageControllers":null,"Id":)"}) {
        EXPECT_EQ(Controller(With(kMrLinked, R"("Id":)", none)).location, "Slot=18") << none;
    }
}

TEST_F(MirrorStorageReader, NoControllerAnywhere_TakesTheNameAsModel) {
    AddMr();
    const std::string bare =
        R"({"Name":"HPE MR216i-p Gen11","Drives":[{"@odata.id":")" + kMrDrives + R"(0"}]})";
    ArrayController controller = Controller(bare);
    EXPECT_EQ(controller.Id, "");
    EXPECT_EQ(controller.model, "HPE MR216i-p Gen11");
    EXPECT_EQ(controller.location, "");
    EXPECT_EQ(controller.serialNumber, "");
    EXPECT_EQ(controller.health, "");
    EXPECT_EQ(controller.diskDrives.size(), 1U);

    bridge->resources[kMr + "/Controllers"] = Collection({});
    controller = Controller(kMrLinked);
    EXPECT_EQ(controller.model, "HPE MR416i-o Gen11");
    EXPECT_EQ(controller.location, "");
}

TEST_F(MirrorStorageReader, OddControllerRecords_AreTolerated) {
    AddMr();
    bridge->resources[kMr + "/Controllers/0"] =
        R"({"Model":null,"SerialNumber": null,"Location":{"PartLocation":{"LocationType":"Slot","LocationOrdinalValue":4}}})";
    ArrayController controller = Controller(kMrLinked);
    EXPECT_EQ(controller.model, "HPE MR416i-o Gen11");
    EXPECT_EQ(controller.location, "Slot 4");
    bridge->resources[kMr + "/Controllers/0"] = R"({"Model":"HPE MR1","Location":[]})";
    controller = Controller(kMrLinked);
    EXPECT_EQ(controller.model, "HPE MR1");
    EXPECT_EQ(controller.location, "");
}

TEST_F(MirrorStorageReader, Gen11InTheModelAlone_IsGeneration110) {
    AddMr();
    EXPECT_EQ(Controller(With(kMrLinked, "HPE MR416i-o Gen11", "Storage")).generation, 110);
    bridge->resources[kMr + "/Controllers/0"] =
        With(kMrController, R"("Model":"HPE MR416i-o Gen11")", R"("Model":"x")");
    EXPECT_EQ(Controller(With(kMrLinked, "HPE MR416i-o Gen11", "Storage")).generation, 101);
    EXPECT_EQ(Controller(kMrLinked).generation, 110);
}

TEST_F(MirrorStorageReader, MembersThatTheTextLacks_AreNotLoaded) {
    AddMr();
    const ArrayController controller =
        Controller(R"({"Name":"HPE MR","Volumes":null,"Drives": null,"Status":null})");
    EXPECT_TRUE(controller.diskDrives.empty());
    EXPECT_TRUE(controller.logicalDrives.empty());
    EXPECT_EQ(Controller(R"({"Name":"HPE MR","Links":{"Drives":[{"@odata.id":"/x"}]}})").diskDrives.size(),
              0U);
}

TEST_F(MirrorStorageReader, DriveListAndCount_TheListDecides) {
    AddMr();
    EXPECT_EQ(Controller(kMrLinked).diskDrives.size(), 2U);  // the count says 9
}

TEST_F(MirrorStorageReader, EmptyBay_IsLeftOut) {
    AddMr();
    bridge->resources[kMrDrives + "64519"] = kEmptyBay;
    const ArrayController controller = Controller(kMrLinked);
    EXPECT_EQ(controller.diskDrives.size(), 1U);
    EXPECT_EQ(controller.diskDrives.count(kMrDrives + "64519"), 0U);
    EXPECT_EQ(Trace().back(), kStart + "statusReasons=None, State=Absent, failurePredicted=0");
}

TEST_F(MirrorStorageReader, AbsentDriveWithModelOrSerial_StaysADrive) {
    AddMr();
    for (const char* identity : {R"("Model":"M","Id":)", R"("SerialNumber":"S","Id":)"}) {
        bridge->resources[kMrDrives + "64519"] = With(kEmptyBay, R"("Id":)", identity);
        EXPECT_EQ(Controller(kMrLinked).diskDrives.count(kMrDrives + "64519"), 1U) << identity;
    }
    bridge->resources[kMrDrives + "64519"] = With(kEmptyBay, "Absent", "Enabled");
    EXPECT_EQ(Controller(kMrLinked).diskDrives.count(kMrDrives + "64519"), 1U);
}

TEST_F(MirrorStorageReader, ControllerWithoutDrivesAndVolumes_EntersTheMapAllTheSame) {
    for (const char* name :
         {"HPE MR416i-o Gen11", "HPE NS204i-u Gen11 Boot Controller", "SATA Storage System", "Intel VROC",
          "NVMe Storage System", "HPE SR932i-p Gen11", ""}) {
        bridge->resources[kStorage] = Collection({kMr});
        for (const char* rest :
             {R"(,"Drives":[]})", "}", R"(,"Drives":null,"Volumes": null,"Controllers":null})"}) {
            bridge->resources[kMr] = std::string(R"({"Name":")") + name + "\"" + rest;
            const ServiceRoot root = Walk();
            const ArrayController& controller = root.systems.at(kSystem).mirror.controllers.at(kMr);
            EXPECT_EQ(controller.model, name);
            EXPECT_TRUE(controller.diskDrives.empty());
            EXPECT_TRUE(controller.logicalDrives.empty());
        }
    }
    EXPECT_TRUE(Trace().empty());
}

TEST_F(MirrorStorageReader, EmbeddedSata_IsFoundByScanningTheArray) {
    const std::string json =
        R"({"Name":"SATA Storage System","StorageControllers":[{"Model":"AHCI","SerialNumber":"A"},)"
        R"({"Model":"Embedded SATA Controller #2","SerialNumber":"B",)"
        R"("Location":{"PartLocation":{"ServiceLabel":"System Board"}}},{"Model":"VROC","SerialNumber":"C"}]})";
    ArrayController controller = Controller(json);
    EXPECT_EQ(controller.model, "Embedded SATA Controller #2");
    EXPECT_EQ(controller.serialNumber, "B");
    EXPECT_EQ(controller.location, "System Board");
    controller = Controller(With(json, "Embedded SATA Controller #2", "Another"));
    EXPECT_EQ(controller.serialNumber, "C");
    controller = Controller(With(json, "SATA Storage System", "HPE MR"));  // no scan: the first
    EXPECT_EQ(controller.serialNumber, "A");
}

TEST_F(MirrorStorageReader, ControllerOfBothFamilies_StaysInSmartStorageOnly) {
    AddSmartStorage();
    AddMr();
    bridge->resources[kMr + "/Controllers/0"] = With(kMrController, "MR0001", " SMART001");
    const ServiceRoot root = Walk();
    EXPECT_TRUE(root.systems.at(kSystem).mirror.controllers.empty());
    EXPECT_EQ(root.systems.at(kSystem).smartStorage.controllers.size(), 1U);
}

TEST_F(MirrorStorageReader, DifferentOrBlankSerialNumbers_KeepBothControllers) {
    AddSmartStorage();
    AddMr();
    EXPECT_EQ(Walk().systems.at(kSystem).mirror.controllers.size(), 1U);
    bridge->resources[kMr + "/Controllers/0"] = With(kMrController, "MR0001", "  ");
    bridge->resources[kSmart] = With(kSmartController, "SMART001 ", " ");
    EXPECT_EQ(Walk().systems.at(kSystem).mirror.controllers.size(), 1U);
}

TEST_F(MirrorStorageReader, NumberedFailures_TellWhereTheControllerFailed) {
    AddMr();
    const std::string bcm = "iLoRestReader.readBCMVolumeDrives failed.";
    const struct {
        std::string path, failure;
    } rows[] = {{kMr, kTop},
                {kMr + "/Controllers", kTop + "iLoRestReader.readController 3 failed."},
                {kMr + "/Controllers/0", kTop + "iLoRestReader.readController 4 failed."},
                {kMr + "/Volumes", kTop + "iLoRestReader.readController 6 failed." + bcm},
                {kMr + "/Volumes/239", kTop + "iLoRestReader.readController 6 failed." + bcm +
                                           "iLoRestReader.readBCMVolumeDrive failed."},
                {kMrDrives + "64519",
                 kTop + "iLoRestReader.readController 7 failed.iLoRestReader.readBCMDiskDrive failed."}};
    const std::string top =
        "iLoRestReader.readSystems failed.iLoRestReader.readComputerSystem failed."
        "iLoRestReader.readMirrorControllers failed.";
    for (const auto& row : rows) {
        bridge->failures = {{row.path, "get failed."}};
        EXPECT_EQ(WalkFailure(), top + row.failure + "get failed.");
        bridge->failures.clear();
        const std::string good = bridge->resources[row.path];
        bridge->resources[row.path] = "{\"";
        EXPECT_EQ(WalkFailure(), top + row.failure);
        bridge->resources[row.path] = good;
    }
}

TEST_F(MirrorStorageReader, BadShapes_FailUnderTheirNumber) {
    AddMr();
    EXPECT_EQ(ControllerFailure(With(kMrEmbedded, R"([{"MemberId")", R"([7,{"MemberId")")),
              kTop + "iLoRestReader.readController 2 failed.");
    EXPECT_EQ(ControllerFailure(With(kMrEmbedded, R"("Model":"HPE MR416i-p Gen10+")", R"("Model":7)")),
              kTop + "iLoRestReader.readController 2 failed.");
    EXPECT_EQ(ControllerFailure(R"({"Name":"x","Controllers":"/link"})"),
              kTop + "iLoRestReader.readController 3 failed.");
    EXPECT_EQ(ControllerFailure(R"({"Name":"HPE MR","Drives":{"@odata.id":"/x"}})"),
              kTop + "iLoRestReader.readController 5 failed.");
    EXPECT_EQ(ControllerFailure(With(kMrEmbedded, R"("Drives":[)", R"("Drives":["/x",)")),
              kTop + "iLoRestReader.readController 5 failed.");
    EXPECT_EQ(ControllerFailure(With(kMrEmbedded, R"("Volumes":{)", R"("Volumes":[],"Other":{)")),
              kTop + "iLoRestReader.readController 6 failed.");
    EXPECT_EQ(ControllerFailure(R"({"Id":"DE"})"), kTop);
    EXPECT_EQ(Trace().back(), kStart + "JSON Parsing failed - provided NVP (Name) not found");
}
