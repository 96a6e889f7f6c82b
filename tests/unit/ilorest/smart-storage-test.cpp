#include "reader-fixture.h"

namespace {

using SmartStorageReader = ReaderTest;

const char* const kArchive = "<VK0999> [TR] ilorest-reader N JSON Parsing failed - provided NVP (";

}  // namespace

TEST_F(SmartStorageReader, WholeFamily_ReachesTheSnapshotUnderItsIds) {
    AddSmartStorage();
    const ServiceRoot root = Walk();
    ASSERT_EQ(root.systems.size(), 1U);
    const ComputerSystem& system = root.systems.at(kSystem);
    EXPECT_TRUE(system.mirror.controllers.empty());
    const ArrayController& controller = system.smartStorage.controllers.at(kSmart);
    EXPECT_EQ(controller.Id, "2");
    EXPECT_EQ(controller.model, "HPE Smart Array P408i-a SR Gen10");
    EXPECT_EQ(controller.location, "Slot 0");
    EXPECT_EQ(controller.serialNumber, "SMART001 ");
    EXPECT_EQ(controller.health, "OK");
    EXPECT_EQ(controller.state, "Enabled");

    const LogicalDrive& volume = controller.logicalDrives.at(kSmart + "LogicalDrives/1/");
    EXPECT_EQ(volume.number, 7);
    EXPECT_EQ(volume.Id, "1");
    EXPECT_EQ(volume.health, "Warning");
    EXPECT_EQ(volume.state, "Enabled");
    EXPECT_EQ(volume.dataDrives, std::vector<Odataid>{{kSmart + "DiskDrives/0/"}});
    EXPECT_TRUE(volume.spareDrives.empty());

    const DiskDrive& drive = controller.diskDrives.at(kSmart + "DiskDrives/0/");
    EXPECT_EQ(drive.Id, "0");
    EXPECT_EQ(drive.model, "EG000600TEST");
    EXPECT_EQ(drive.capacityGB, 600);
    EXPECT_EQ(drive.capacityMiB, 572325);
    EXPECT_EQ(drive.blockSize, 512);
    EXPECT_EQ(drive.logicalBlocks, 1172123568);
    EXPECT_EQ(drive.serialNumber, "DRIVE001");
    EXPECT_EQ(drive.location, "1I:3:1");
    EXPECT_EQ(drive.mediaType, "SSD");
    EXPECT_EQ(drive.health, "OK");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_EQ(drive.endurance, 3);
    EXPECT_EQ(drive.enduranceScale, 1U);
    EXPECT_EQ(drive.statusReasons, std::vector<std::string>{"None"});
    EXPECT_EQ(drive.firmwareRevision, "HPD1");
}

TEST_F(SmartStorageReader, Walk_FetchesInThisOrder) {
    AddSmartStorage();
    Walk();
    EXPECT_EQ(bridge->fetched,
              (std::vector<std::string>{kSystemsPath, kStorage, kArray, kSmart, kSmart + "LogicalDrives/",
                                        kSmart + "LogicalDrives/1/", kSmart + "LogicalDrives/1/DataDrives/",
                                        kSmart + "DiskDrives/", kSmart + "DiskDrives/0/"}));
}

TEST_F(SmartStorageReader, IdsWithoutSlash_AreJoinedWithExactlyOne) {
    AddSmartStorage();
    auto& all = bridge->resources;
    all[kSystemsPath] = Collection({"/redfish/v1/Systems/1"});
    all[kArray] = Collection({kArray + "2"});
    all[kArray + "2"] = kSmartController;
    all[kSmart + "LogicalDrives/"] = Collection({kSmart + "LogicalDrives/1"});
    all[kSmart + "LogicalDrives/1"] = kSmartVolume;
    const ServiceRoot root = Walk();
    const auto& controllers = root.systems.at("/redfish/v1/Systems/1").smartStorage.controllers;
    EXPECT_EQ(controllers.at(kArray + "2").logicalDrives.count(kSmart + "LogicalDrives/1"), 1U);
}

TEST_F(SmartStorageReader, NoController_IsNoFailure) {
    const ServiceRoot root = Walk();
    EXPECT_TRUE(root.systems.at(kSystem).smartStorage.controllers.empty());
    EXPECT_TRUE(Trace().empty());
}

TEST_F(SmartStorageReader, SeveralMembers_AreAllRead) {
    AddSmartStorage();
    auto& all = bridge->resources;
    all[kSmart + "DiskDrives/"] = Collection({kSmart + "DiskDrives/0/", kSmart + "DiskDrives/1/"});
    all[kSmart + "DiskDrives/1/"] = With(kSmartDrive, "DRIVE001", "DRIVE002");
    all[kSystemsPath] = Collection({kSystem, "/redfish/v1/Systems/2/"});
    all["/redfish/v1/Systems/2/Storage/"] = Collection({});
    all["/redfish/v1/Systems/2/SmartStorage/ArrayControllers/"] = Collection({});
    const ServiceRoot root = Walk();
    EXPECT_EQ(root.systems.size(), 2U);
    const auto& drives = root.systems.at(kSystem).smartStorage.controllers.at(kSmart).diskDrives;
    ASSERT_EQ(drives.size(), 2U);
    EXPECT_EQ(drives.at(kSmart + "DiskDrives/1/").serialNumber, "DRIVE002");
}

TEST_F(SmartStorageReader, CollectionWithoutItsCount_IsReadByItsArray) {
    AddSmartStorage();
    bridge->resources[kArray] = R"({"Members":[{"@odata.id":")" + kSmart + R"("}]})";
    EXPECT_EQ(Walk().systems.at(kSystem).smartStorage.controllers.size(), 1U);
}

TEST_F(SmartStorageReader, DriveRead_LogsWearAndTheReasonsThatMatter) {
    DiskDrive drive;
    const std::string drivePath = kSmart + "DiskDrives/0/";
    bridge->resources[drivePath] =
        With(kSmartDrive, R"(["None"])",
             R"(["None","Failed","FailedDueToPredictiveSpareActivation","CommunicationFailure",)"
             R"("CarrierCommunicationFailure","Unrecoverable","PredictiveFail","Rebuilding","failed"])");
    reader->readDiskDrive(*bridge, {drivePath}, drive);
    const std::string start = "<VK0999> [TR] ilorest-reader N ";
    EXPECT_EQ(Trace(), (std::vector<std::string>{
                           start + "ssdEnduranceUtilizationPercentage=3", start + "statusReasons=Failed",
                           start + "statusReasons=FailedDueToPredictiveSpareActivation",
                           start + "statusReasons=CommunicationFailure",
                           start + "statusReasons=CarrierCommunicationFailure",
                           start + "statusReasons=Unrecoverable", start + "statusReasons=PredictiveFail"}));
    EXPECT_EQ(drive.statusReasons.size(), 9U);
}

TEST_F(SmartStorageReader, LogLines_CarryALineNumber) {
    AddSmartStorage();
    Walk();
    EXPECT_TRUE(
        std::regex_search(files.Read("trace"), std::regex(" <VK0999> \\[TR\\] ilorest-reader [1-9][0-9]* "
                                                          "ssdEnduranceUtilizationPercentage=3\n")));
}

TEST_F(SmartStorageReader, NullMemberOfADrive_KeepsItsDefault) {
    const char* const members[][2] = {
        {"Model", R"("EG000600TEST")"},
        {"CapacityGB", "600"},
        {"CapacityMiB", "572325"},
        {"BlockSizeBytes", "512"},
        {"SerialNumber", R"("DRIVE001")"},
        {"CapacityLogicalBlocks", "1172123568"},
        {"Location", R"("1I:3:1")"},
        {"MediaType", R"("SSD")"},
        {"Health", R"("OK")"},
        {"State", R"("Enabled")"},
        {"Id", R"("0")"},
        {"SSDEnduranceUtilizationPercentage", "3"},
        {"VersionString", R"("HPD1")"},
        {"DiskDriveStatusReasons", R"(["None"])"},
    };
    for (const auto& [name, value] : members) {
        for (const char* null : {"null", " null"}) {
            const std::string member = std::string("\"") + name + "\":";
            bridge->resources["/d"] = With(kSmartDrive, member + value, member + null);
            DiskDrive drive;
            EXPECT_EQ(FailureText([&] { reader->readDiskDrive(*bridge, {"/d"}, drive); }), "(no failure)")
                << name;
            EXPECT_EQ(drive.model.empty(), member == "\"Model\":");
            EXPECT_EQ(drive.endurance, member == "\"SSDEnduranceUtilizationPercentage\":" ? 0 : 3) << name;
            EXPECT_EQ(drive.statusReasons.empty(), member == "\"DiskDriveStatusReasons\":");
            EXPECT_EQ(drive.firmwareRevision.empty(), member == "\"VersionString\":");
            EXPECT_EQ(drive.health.empty(), member == "\"Health\":");
            EXPECT_EQ(drive.logicalBlocks == 0, member == "\"CapacityLogicalBlocks\":");
        }
    }
}

TEST_F(SmartStorageReader, NullObjectOfADrive_KeepsTheDefaultsInside) {
    bridge->resources["/d"] = With(kSmartDrive, R"({"Current":{"VersionString":"HPD1"}})", "null");
    DiskDrive drive;
    reader->readDiskDrive(*bridge, {"/d"}, drive);
    EXPECT_EQ(drive.firmwareRevision, "");
    bridge->resources["/d"] = With(kSmartDrive, R"({"VersionString":"HPD1"})", "null");
    reader->readDiskDrive(*bridge, {"/d"}, drive);
    bridge->resources["/d"] = With(kSmartDrive, R"({"Health":"OK","State":"Enabled"})", "null");
    DiskDrive other;
    reader->readDiskDrive(*bridge, {"/d"}, other);
    EXPECT_EQ(other.state, "");
    EXPECT_EQ(other.firmwareRevision, "HPD1");
}

TEST_F(SmartStorageReader, DriveWithoutWear_IsRead) {
    bridge->resources["/d"] = With(kSmartDrive, R"("SSDEnduranceUtilizationPercentage":3,)", "");
    DiskDrive drive;
    reader->readDiskDrive(*bridge, {"/d"}, drive);
    EXPECT_EQ(drive.endurance, 0);
    EXPECT_FALSE(drive.enduranceTold);
    EXPECT_EQ(drive.firmwareRevision, "HPD1");
    EXPECT_EQ(Trace().front(), "<VK0999> [TR] ilorest-reader N ssdEnduranceUtilizationPercentage=0");
}

TEST_F(SmartStorageReader, RealNumbers_AreCut) {
    bridge->resources["/d"] = With(With(kSmartDrive, "600,", "600.9,"), ":3,", ":96.7,");
    DiskDrive drive;
    reader->readDiskDrive(*bridge, {"/d"}, drive);
    EXPECT_EQ(drive.capacityGB, 600);
    EXPECT_EQ(drive.endurance, 96);
    EXPECT_TRUE(drive.enduranceTold);
}

TEST_F(SmartStorageReader, AnyOtherMemberMissing_FailsTheDrive) {
    const char* const members[] = {R"("Model":)",           R"("CapacityGB":)",
                                   R"("CapacityMiB":)",     R"("BlockSizeBytes":)",
                                   R"("SerialNumber":)",    R"("CapacityLogicalBlocks":)",
                                   R"("Location":)",        R"("MediaType":)",
                                   R"("Status":)",          R"("Health":)",
                                   R"("State":)",           R"("DiskDriveStatusReasons":)",
                                   R"("FirmwareVersion":)", R"("Current":)",
                                   R"("VersionString":)",   R"("Id":)"};
    for (const std::string member : members) {
        bridge->resources["/d"] = With(kSmartDrive, member, R"("Renamed":)");
        DiskDrive drive;
        EXPECT_EQ(FailureText([&] { reader->readDiskDrive(*bridge, {"/d"}, drive); }),
                  "iLoRestReader.readDiskDrive failed.");
        EXPECT_EQ(Trace().back(), kArchive + member.substr(1, member.size() - 3) + ") not found");
    }
}

TEST_F(SmartStorageReader, MalformedDrive_FailsTheWalkWithTheWholeChain) {
    AddSmartStorage();
    bridge->resources[kSmart + "DiskDrives/0/"] = R"({"Id":"0")";
    EXPECT_EQ(WalkFailure(),
              "iLoRestReader.readSystems failed.iLoRestReader.readComputerSystem failed."
              "iLoRestReader.readSmartStorage failed.iLoRestReader.readArrayControllers failed."
              "iLoRestReader.readController failed.iLoRestReader.readDiskDrives failed."
              "iLoRestReader.readDiskDrive failed.");
    ASSERT_EQ(Trace().size(), 1U);
    EXPECT_EQ(Trace()[0].find("<VK0999> [TR] ilorest-reader N rapidjson internal assertion failure"), 0U);
}

TEST_F(SmartStorageReader, FailureOfEachFetch_IsNamedStepByStep) {
    AddSmartStorage();
    const std::string top = "iLoRestReader.readSystems failed.";
    const std::string system = top + "iLoRestReader.readComputerSystem failed.";
    const std::string array =
        system + "iLoRestReader.readSmartStorage failed.iLoRestReader.readArrayControllers failed.";
    const std::string controller = array + "iLoRestReader.readController failed.";
    const std::string volumes = controller + "iLoRestReader.readLogicalDrives failed.";
    const std::string volume = volumes + "iLoRestReader.readLogicalDrive failed.";
    const std::string data = volume + "iLoRestReader.readLogicalDriveDataDrives failed.";
    const std::string drives = controller + "iLoRestReader.readDiskDrives failed.";
    const struct {
        std::string path, failure;
    } rows[] = {{kSystemsPath, top},
                {kStorage, system + "iLoRestReader.readMirrorControllers failed."},
                {kArray, array},
                {kSmart, controller},
                {kSmart + "LogicalDrives/", volumes},
                {kSmart + "LogicalDrives/1/", volume},
                {kSmart + "LogicalDrives/1/DataDrives/", data},
                {kSmart + "DiskDrives/", drives},
                {kSmart + "DiskDrives/0/", drives + "iLoRestReader.readDiskDrive failed."}};
    for (const auto& row : rows) {
        bridge->failures = {{row.path, "get failed. %s%n"}};
        EXPECT_EQ(WalkFailure(), row.failure + "get failed. %s%n");
        EXPECT_EQ(iLoRestReader::lastFailure(), row.failure + "get failed. %s%n");
        bridge->failures.clear();
        const std::string good = bridge->resources[row.path];
        bridge->resources[row.path] = "{}";
        EXPECT_EQ(WalkFailure(), row.failure);
        bridge->resources[row.path] = good;
    }
}

TEST_F(SmartStorageReader, ControllerAndVolumeMembers_AreRequired) {
    for (const std::string member : {R"("Model":)", R"("Location":)", R"("SerialNumber":)", R"("Id":)"}) {
        AddSmartStorage();
        bridge->resources[kSmart] = With(kSmartController, member, R"("Renamed":)");
        ArrayController controller;
        EXPECT_EQ(FailureText([&] { reader->readController(*bridge, {kSmart}, controller); }),
                  "iLoRestReader.readController failed.");
        EXPECT_EQ(Trace().back(), kArchive + member.substr(1, member.size() - 3) + ") not found");
    }
    for (const std::string member :
         {R"("LogicalDriveNumber":)", R"("Id":)", R"("Status":)", R"("Health":)"}) {
        AddSmartStorage();
        bridge->resources["/v"] = With(kSmartVolume, member, R"("Renamed":)");
        LogicalDrive drive;
        EXPECT_EQ(FailureText([&] { reader->readLogicalDrive(*bridge, {"/v"}, drive); }),
                  "iLoRestReader.readLogicalDrive failed.");
        EXPECT_EQ(Trace().back(), kArchive + member.substr(1, member.size() - 3) + ") not found");
    }
}

TEST_F(SmartStorageReader, FormatCharactersInTexts_StayText) {
    AddSmartStorage();
    bridge->resources[kSmart + "DiskDrives/0/"] =
        With(With(kSmartDrive, "EG000600TEST", "%s%n%p"), R"(["None"])", R"(["Failed","%s%n"])");
    const ServiceRoot root = Walk();
    EXPECT_EQ(root.systems.at(kSystem)
                  .smartStorage.controllers.at(kSmart)
                  .diskDrives.at(kSmart + "DiskDrives/0/")
                  .model,
              "%s%n%p");
    EXPECT_EQ(Trace().back(), "<VK0999> [TR] ilorest-reader N statusReasons=Failed");
}
