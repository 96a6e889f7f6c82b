#include "reader-fixture.h"

namespace {

class MirrorStorageReader : public ReaderTest {
protected:
    DiskDrive Drive(const std::string& json) {
        bridge->resources["/d"] = json;
        DiskDrive drive;
        reader->readBCMDiskDrive(*bridge, {"/d"}, drive);
        return drive;
    }
    LogicalDrive Volume(const std::string& json) {
        bridge->resources["/v"] = json;
        LogicalDrive drive;
        reader->readBCMVolumeDrive(*bridge, {"/v"}, drive);
        return drive;
    }
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

TEST_F(MirrorStorageReader, OtherFamilies_EnterTheMapWithoutDrivesAndVolumes) {
    for (const char* name : {"HPE NS204i-u Gen11 Boot Controller", "SATA Storage System", "Intel VROC",
                             "NVMe Storage System", "HPE SR932i-p Gen11"}) {
        AddMr();
        bridge->resources[kMr] = With(kMrLinked, "HPE MR416i-o Gen11", name);
        bridge->resources[kMr + "/Controllers/0"] =
            With(kMrController, R"("Model":"HPE MR416i-o Gen11")", R"("Model":"M")");
        const ServiceRoot root = Walk();
        const ArrayController& controller = root.systems.at(kSystem).mirror.controllers.at(kMr);
        EXPECT_EQ(controller.model, "M") << name;
        EXPECT_EQ(controller.location, "Slot=18");
        EXPECT_EQ(controller.serialNumber, "MR0001");
        EXPECT_EQ(controller.health, "Warning");
        EXPECT_TRUE(controller.diskDrives.empty());
        EXPECT_TRUE(controller.logicalDrives.empty());
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

TEST_F(MirrorStorageReader, DriveRead_LogsOneLine) {
    Drive(kMrDrive);
    Drive(With(With(kMrDrive, R"("FailurePredicted":false)", R"("FailurePredicted":true)"),
               R"("Health":"OK")", R"("Health":"Critical")"));
    Drive(With(kMrDrive, R"("Id":)", R"("DiskDriveStatusReasons":["Failed","%s%n"],"Id":)"));
    EXPECT_EQ(Trace(), (std::vector<std::string>{
                           kStart + "statusReasons=None, State=Enabled, failurePredicted=0",
                           kStart + "statusReasons=Critical, State=Enabled, failurePredicted=1",
                           kStart + "statusReasons=Failed,%s%n, State=Enabled, failurePredicted=0"}));
}

TEST_F(MirrorStorageReader, HealthOtherThanOk_BecomesTheReason) {
    const struct {
        const char *health, *state;
        std::string reason;
        bool bcm, mirror;
    } rows[] = {{"OK", "Enabled", "None", false, false},
                {"Warning", "Enabled", "Warning", false, false},
                {"Critical", "Enabled", "Critical", true, true},
                {"OK", "UnavailableOffline", "None", true, false},
                {"OK", "StandbyOffline", "None", false, false}};
    for (const auto& row : rows) {
        const DiskDrive drive =
            Drive(With(With(kMrDrive, R"("Health":"OK")", std::string(R"("Health":")") + row.health + "\""),
                       R"("State":"Enabled")", std::string(R"("State":")") + row.state + "\""));
        EXPECT_EQ(drive.health, row.health);
        EXPECT_EQ(drive.state, row.state);
        EXPECT_EQ(drive.statusReasons, std::vector<std::string>{row.reason});
        EXPECT_EQ(drive.isBCMStatusFailed(), row.bcm) << row.health << row.state;
        EXPECT_EQ(drive.isMirrorStatusFailed(), row.mirror) << row.health << row.state;
    }
}

TEST_F(MirrorStorageReader, ListedReasons_ReplaceAndMayBecomeTheHealth) {
    const std::string reasons = R"("DiskDriveStatusReasons":)";
    DiskDrive drive = Drive(With(kMrDrive, R"("Id":)", reasons + R"(["Rebuilding","Unrecoverable"],"Id":)"));
    EXPECT_EQ(drive.statusReasons, (std::vector<std::string>{"Rebuilding", "Unrecoverable"}));
    EXPECT_EQ(drive.health, "Unrecoverable");
    EXPECT_TRUE(drive.isMirrorStatusFatal());
    for (const char* word : {"Critical", "FailedDueToPredictiveSpareActivation", "CommunicationFailure",
                             "CarrierCommunicationFailure"}) {
        EXPECT_EQ(Drive(With(kMrDrive, R"("Id":)", reasons + "[\"" + word + R"("],"Id":)")).health, word);
    }
    drive = Drive(With(kMrDrive, R"("Id":)", reasons + R"(["Failed"],"Id":)"));
    EXPECT_EQ(drive.health, "OK");
    EXPECT_TRUE(drive.isBCMStatusFailed());
    EXPECT_TRUE(Drive(With(kMrDrive, R"("Id":)", reasons + R"([],"Id":)")).statusReasons.empty());
    EXPECT_EQ(Drive(With(kMrDrive, R"("Id":)", reasons + R"(null,"Id":)")).statusReasons,
              std::vector<std::string>{"None"});
}

TEST_F(MirrorStorageReader, OptionalMemberNullOrMissing_KeepsItsDefaultAndTheRestIsRead) {
    const char* const members[][2] = {{"Model", R"("XX000480TEST")"},
                                      {"CapacityBytes", "480103981056"},
                                      {"SerialNumber", R"("INVENTED001")"},
                                      {"MediaType", R"("SSD")"},
                                      {"Revision", R"("T001")"},
                                      {"Id", R"("0")"},
                                      {"BlockSizeBytes", "512"},
                                      {"FailurePredicted", "false"},
                                      {"PredictedMediaLifeLeftPercent", "97.9"},
                                      {"Health", R"("OK")"},
                                      {"State", R"("Enabled")"}};
    for (const auto& [memberName, value] : members) {
        const std::string name = memberName;
        const std::string member = "\"" + name + "\":";
        for (const std::string& by :
             {member + "null", member + " null", R"("Renamed":)" + std::string(value)}) {
            const DiskDrive drive = Drive(With(kMrDrive, member + value, by));
            EXPECT_EQ(drive.model, name == "Model" ? "" : "XX000480TEST");
            EXPECT_EQ(drive.capacityGB, name == "CapacityBytes" ? 0 : 480);
            EXPECT_EQ(drive.serialNumber, name == "SerialNumber" ? "" : "INVENTED001");
            EXPECT_EQ(drive.firmwareRevision, name == "Revision" ? "" : "T001");
            EXPECT_EQ(drive.Id, name == "Id" ? "" : "0");
            EXPECT_EQ(drive.blockSize, name == "BlockSizeBytes" ? 0 : 512);
            EXPECT_EQ(drive.endurance,
                      name == "PredictedMediaLifeLeftPercent" || name == "MediaType" ? 100 : 97)
                << name;
            EXPECT_EQ(drive.health, "OK");
            EXPECT_EQ(drive.state, "Enabled");
            EXPECT_EQ(drive.location, "Slot=18:Port=2:Box=1:Bay=8");
        }
    }
}

TEST_F(MirrorStorageReader, NullWithABlankBeforeTheColon_FailsTheDrive) {
    EXPECT_EQ(FailureText([&] { Drive(With(kMrDrive, R"("Model":"XX000480TEST")", R"("Model" : null)")); }),
              "iLoRestReader.readBCMDiskDrive failed.");
    EXPECT_EQ(Trace().size(), 1U);
}

TEST_F(MirrorStorageReader, MissingObjects_LeaveTheirDefaults) {
    DiskDrive drive = Drive("{}");
    EXPECT_EQ(drive.health, "OK");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_EQ(drive.statusReasons, std::vector<std::string>{"None"});
    EXPECT_EQ(drive.endurance, 100);
    EXPECT_EQ(drive.location, "");
    EXPECT_TRUE(drive.volumes.empty());
    drive = Drive(R"({"Status":null,"PhysicalLocation":null,"Links":null,"Model":"M"})");
    EXPECT_EQ(drive.health, "OK");
    EXPECT_EQ(drive.model, "M");
    drive = Drive(
        R"({"Links":{"Volumes":null},"PhysicalLocation":{"PartLocation":{"LocationType":"Bay","LocationOrdinalValue":2}}})");
    EXPECT_EQ(drive.location, "Bay 2");
}

TEST_F(MirrorStorageReader, LifeLeft_IsForSolidStateOnly) {
    EXPECT_EQ(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")")).endurance, 100);
    EXPECT_EQ(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"NVMe SSD")")).endurance, 97);
    EXPECT_EQ(Drive(With(kMrDrive, "97.9", "5")).getMirrorEnduranceCode(), DiskDrive::kWearHighest);
    EXPECT_EQ(Drive(With(kMrDrive, "97.9", "20.5")).getMirrorEnduranceCode(), DiskDrive::kWearFirst);
    // A hard disk's is not even looked at.
    EXPECT_EQ(Drive(With(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")"), "97.9", "\"x\""))
                  .endurance,
              100);
}

TEST_F(MirrorStorageReader, Capacity_IsWholeGigabytes) {
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "6401252745216")).capacityGB, 6401);
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "999999999.9")).capacityGB, 0);
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "1e300")).capacityGB, 9223372036);
}

TEST_F(MirrorStorageReader, VolumeNumber_IsItsIdWhenThatIsANumber) {
    const struct {
        const char* id;
        std::int32_t number;
    } rows[] = {
        {"1", 1}, {"0", 0}, {"A1", 0}, {"1A", 0}, {"", 0}, {"99999999999", 0}, {"2147483647", 2147483647}};
    for (const auto& row : rows) {
        const LogicalDrive drive =
            Volume(With(kMrVolume, R"("Id":"239")", std::string(R"("Id":")") + row.id + "\""));
        EXPECT_EQ(drive.number, row.number) << row.id;
        EXPECT_EQ(drive.Id, row.id);
    }
}

TEST_F(MirrorStorageReader, Volume_ToleratesWhatDevicesLeaveOut) {
    LogicalDrive drive = Volume(R"({"Id":"1","Status":{"State":"Enabled","Health":null,"Conditions":[]}})");
    EXPECT_EQ(drive.health, "");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_TRUE(drive.dataDrives.empty());
    drive = Volume(R"({"Id":"1","Status":{"Health":"Warning"},"Links":{"Drives":[]},"RAIDType":null})");
    EXPECT_EQ(drive.health, "Warning");
    EXPECT_EQ(drive.raidType, "");
}

TEST_F(MirrorStorageReader, VolumeWithoutIdOrStatus_Fails) {
    EXPECT_EQ(FailureText([&] { Volume(R"({"Status":{}})"); }), "iLoRestReader.readBCMVolumeDrive failed.");
    EXPECT_EQ(FailureText([&] { Volume(R"({"Id":"1"})"); }), "iLoRestReader.readBCMVolumeDrive failed.");
}

TEST_F(MirrorStorageReader, VolumeCollection_FillsTheController) {
    AddMr();
    ArrayController controller;
    reader->readBCMVolumeDrives(*bridge, {kMr + "/Volumes"}, controller);
    EXPECT_EQ(controller.logicalDrives.size(), 1U);
    bridge->resources[kMr + "/Volumes"] = R"({"Members":[],"Members@odata.count":1})";
    ArrayController none;
    reader->readBCMVolumeDrives(*bridge, {kMr + "/Volumes"}, none);
    EXPECT_TRUE(none.logicalDrives.empty());
}
