#include "reader-fixture.h"

namespace {

class MirrorDriveReader : public ReaderTest {
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
};

const std::string kStart = "<VK0999> [TR] ilorest-reader N ";

}  // namespace

TEST_F(MirrorDriveReader, DriveRead_LogsOneLine) {
    Drive(kMrDrive);
    Drive(With(With(kMrDrive, R"("FailurePredicted":false)", R"("FailurePredicted":true)"),
               R"("Health":"OK")", R"("Health":"Critical")"));
    Drive(With(kMrDrive, R"("Id":)", R"("DiskDriveStatusReasons":["Failed","%s%n"],"Id":)"));
    EXPECT_EQ(Trace(), (std::vector<std::string>{
                           kStart + "statusReasons=None, State=Enabled, failurePredicted=0",
                           kStart + "statusReasons=Critical, State=Enabled, failurePredicted=1",
                           kStart + "statusReasons=Failed,%s%n, State=Enabled, failurePredicted=0"}));
}

TEST_F(MirrorDriveReader, HealthOtherThanOk_BecomesTheReason) {
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

TEST_F(MirrorDriveReader, ListedReasons_ReplaceAndMayBecomeTheHealth) {
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

TEST_F(MirrorDriveReader, OptionalMemberNullOrMissing_KeepsItsDefaultAndTheRestIsRead) {
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

TEST_F(MirrorDriveReader, NullWithABlankBeforeTheColon_FailsTheDrive) {
    EXPECT_EQ(FailureText([&] { Drive(With(kMrDrive, R"("Model":"XX000480TEST")", R"("Model" : null)")); }),
              "iLoRestReader.readBCMDiskDrive failed.");
    EXPECT_EQ(Trace().size(), 1U);
}

TEST_F(MirrorDriveReader, MissingObjects_LeaveTheirDefaults) {
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

TEST_F(MirrorDriveReader, LifeLeft_IsForSolidStateOnly) {
    EXPECT_EQ(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")")).endurance, 100);
    EXPECT_EQ(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"NVMe SSD")")).endurance, 97);
    EXPECT_EQ(Drive(With(kMrDrive, "97.9", "5")).getMirrorEnduranceCode(), DiskDrive::kWearHighest);
    EXPECT_EQ(Drive(With(kMrDrive, "97.9", "20.5")).getMirrorEnduranceCode(), DiskDrive::kWearFirst);
    // A hard disk's is not even looked at.
    EXPECT_EQ(Drive(With(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")"), "97.9", "\"x\""))
                  .endurance,
              100);
}

TEST_F(MirrorDriveReader, Capacity_IsWholeGigabytes) {
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "6401252745216")).capacityGB, 6401);
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "999999999.9")).capacityGB, 0);
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "1e300")).capacityGB, 9223372036);
}

TEST_F(MirrorDriveReader, VolumeNumber_IsItsIdWhenThatIsANumber) {
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

TEST_F(MirrorDriveReader, Volume_ToleratesWhatDevicesLeaveOut) {
    LogicalDrive drive = Volume(R"({"Id":"1","Status":{"State":"Enabled","Health":null,"Conditions":[]}})");
    EXPECT_EQ(drive.health, "");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_TRUE(drive.dataDrives.empty());
    drive = Volume(R"({"Id":"1","Status":{"Health":"Warning"},"Links":{"Drives":[]},"RAIDType":null})");
    EXPECT_EQ(drive.health, "Warning");
    EXPECT_EQ(drive.raidType, "");
}

TEST_F(MirrorDriveReader, VolumeWithoutIdOrStatus_Fails) {
    EXPECT_EQ(FailureText([&] { Volume(R"({"Status":{}})"); }), "iLoRestReader.readBCMVolumeDrive failed.");
    EXPECT_EQ(FailureText([&] { Volume(R"({"Id":"1"})"); }), "iLoRestReader.readBCMVolumeDrive failed.");
}

TEST_F(MirrorDriveReader, VolumeCollection_FillsTheController) {
    AddMr();
    ArrayController controller;
    reader->readBCMVolumeDrives(*bridge, {kMr + "/Volumes"}, controller);
    EXPECT_EQ(controller.logicalDrives.size(), 1U);
    bridge->resources[kMr + "/Volumes"] = R"({"Members":[],"Members@odata.count":1})";
    ArrayController none;
    reader->readBCMVolumeDrives(*bridge, {kMr + "/Volumes"}, none);
    EXPECT_TRUE(none.logicalDrives.empty());
}
