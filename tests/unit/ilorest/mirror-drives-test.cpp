#include <ostream>

#include "reader-fixture.h"

namespace {

struct DriveVariant {
    const char* name;
    void (iLoRestReader::*read)(RestBridge& bridge, const Odataid& id, DiskDrive& drive);
    std::size_t attempts;  // fetches of a drive that never is ready

    std::string failure() const { return std::string("iLoRestReader.") + name + " failed."; }

    friend void PrintTo(const DriveVariant& row, std::ostream* out) { *out << row.name; }
};

// Every test of a drive holds for each of the readers.
class MirrorDriveReader : public ReaderTest, public testing::WithParamInterface<DriveVariant> {
protected:
    DiskDrive Drive(const std::string& json) {
        bridge->resources["/d"] = json;
        DiskDrive drive;
        (reader.get()->*GetParam().read)(*bridge, {"/d"}, drive);
        return drive;
    }
    std::string DriveFailure(const std::string& json) {
        return FailureText([&] { Drive(json); });
    }
};

const std::string kStart = "<VK0999> [TR] ilorest-reader N ";

INSTANTIATE_TEST_SUITE_P(
    All, MirrorDriveReader,
    testing::Values(DriveVariant{"readMirrorDiskDrive", &iLoRestReader::readMirrorDiskDrive, 5},
                    DriveVariant{"readBCMDiskDrive", &iLoRestReader::readBCMDiskDrive, 5},
                    DriveVariant{"readMCDiskDrive", &iLoRestReader::readMCDiskDrive, 5},
                    DriveVariant{"readVROCDiskDrive", &iLoRestReader::readVROCDiskDrive, 20}),
    [](const testing::TestParamInfo<DriveVariant>& each) { return std::string(each.param.name); });

}  // namespace

TEST_P(MirrorDriveReader, DriveRead_LogsOneLine) {
    Drive(kMrDrive);
    Drive(With(With(kMrDrive, R"("FailurePredicted":false)", R"("FailurePredicted":true)"),
               R"("Health":"OK")", R"("Health":"Critical")"));
    Drive(With(kMrDrive, R"("Id":)", R"("DiskDriveStatusReasons":["Failed","%s%n"],"Id":)"));
    EXPECT_EQ(Trace(), (std::vector<std::string>{
                           kStart + "statusReasons=None, State=Enabled, failurePredicted=0",
                           kStart + "statusReasons=Critical, State=Enabled, failurePredicted=1",
                           kStart + "statusReasons=Failed,%s%n, State=Enabled, failurePredicted=0"}));
}

TEST_P(MirrorDriveReader, HealthOtherThanOk_BecomesTheReason) {
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

TEST_P(MirrorDriveReader, ListedReasons_ReplaceAndMayBecomeTheHealth) {
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
    // One health stands for all: the gravest, whatever their order.
    for (const char* list : {R"(["Unrecoverable","Critical"])", R"(["Critical","Unrecoverable"])"}) {
        drive = Drive(With(kMrDrive, R"("Id":)", reasons + list + R"(,"Id":)"));
        EXPECT_EQ(drive.health, "Unrecoverable") << list;
        EXPECT_TRUE(drive.isBCMStatusFailed()) << list;
    }
}

TEST_P(MirrorDriveReader, ListThatSaysNothing_LeavesTheHealthsReason) {
    for (const char* list : {"null", "[]", R"(["None"])"}) {
        const std::string member = std::string(R"("DiskDriveStatusReasons":)") + list + R"(,"Id":)";
        const std::string healthy = With(kMrDrive, R"("Id":)", member);
        EXPECT_EQ(Drive(healthy).statusReasons, std::vector<std::string>{"None"}) << list;
        const DiskDrive dead = Drive(With(healthy, R"("Health":"OK")", R"("Health":"Critical")"));
        EXPECT_EQ(dead.statusReasons, std::vector<std::string>{"Critical"}) << list;
        EXPECT_TRUE(dead.isBCMStatusFailed()) << list;
    }
}

// Makers put objects of their own beside the standard members; a null in them says nothing about the drive.
TEST_P(MirrorDriveReader, NullInAnObjectOfTheMakers_HidesNeitherHealthNorReasons) {
    const std::string oem =
        R"("Oem":{"Maker":{"Status":{"Health":null,"State":null},"DiskDriveStatusReasons":null,"Links":null}},"Id":)";
    const DiskDrive drive =
        Drive(With(With(kMrDrive, R"("Id":)", oem), R"("Health":"OK")", R"("Health":"Critical")"));
    EXPECT_EQ(drive.health, "Critical");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_TRUE(drive.isBCMStatusFailed());
    EXPECT_FALSE(drive.volumes.empty());
}

// Old firmware counts wear in hundredths, and the thresholds follow; a drive that tells no wear is not a worn
// one.
TEST_P(MirrorDriveReader, UnknownWear_IsNoneOnAnyScale) {
    bridge->resources["/redfish/v1/Managers/"] = R"({"Members":[{"@odata.id":"/redfish/v1/Managers/1/"}]})";
    bridge->resources["/redfish/v1/Managers/1/"] =
        R"({"Firmware":{"Current":{"MajorVersion":1,"MinorVersion":15,"VersionString":"iLO 5 v1.15"}}})";
    reader->setupiLOVersion();
    const DiskDrive drive = Drive(With(kMrDrive, R"("PredictedMediaLifeLeftPercent":97.9,)", ""));
    EXPECT_EQ(drive.enduranceScale, 100U);
    EXPECT_EQ(drive.getMirrorEnduranceCode(), 0U);
}

TEST_P(MirrorDriveReader, OptionalMemberNullOrMissing_KeepsItsDefaultAndTheRestIsRead) {
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

TEST_P(MirrorDriveReader, NullWithABlankBeforeTheColon_FailsTheDrive) {
    EXPECT_EQ(DriveFailure(With(kMrDrive, R"("Model":"XX000480TEST")", R"("Model" : null)")),
              GetParam().failure());
    EXPECT_EQ(Trace().size(), 1U);
}

TEST_P(MirrorDriveReader, MissingObjects_LeaveTheirDefaults) {
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

TEST_P(MirrorDriveReader, LifeLeft_SaysWhetherTheDriveTellsIt) {
    EXPECT_TRUE(Drive(kMrDrive).enduranceTold);
    EXPECT_TRUE(Drive(With(kMrDrive, "97.9", "100")).enduranceTold);
    EXPECT_FALSE(Drive(With(kMrDrive, "97.9", "null")).enduranceTold);
    EXPECT_FALSE(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")")).enduranceTold);
    EXPECT_FALSE(Drive("{}").enduranceTold);
}

TEST_P(MirrorDriveReader, LifeLeft_IsForSolidStateOnly) {
    EXPECT_EQ(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")")).endurance, 100);
    EXPECT_EQ(Drive(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"NVMe SSD")")).endurance, 97);
    EXPECT_EQ(Drive(With(kMrDrive, "97.9", "5")).getMirrorEnduranceCode(), DiskDrive::kWearHighest);
    EXPECT_EQ(Drive(With(kMrDrive, "97.9", "20.5")).getMirrorEnduranceCode(), DiskDrive::kWearFirst);
    // A hard disk's is not even looked at.
    EXPECT_EQ(Drive(With(With(kMrDrive, R"("MediaType":"SSD")", R"("MediaType":"HDD")"), "97.9", "\"x\""))
                  .endurance,
              100);
}

TEST_P(MirrorDriveReader, Capacity_IsWholeGigabytes) {
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "6401252745216")).capacityGB, 6401);
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "999999999.9")).capacityGB, 0);
    EXPECT_EQ(Drive(With(kMrDrive, "480103981056", "1e300")).capacityGB, 9223372036);
}

TEST_P(MirrorDriveReader, DriveThatIsNeverReady_KeepsItsDefaultsAfterTheLastAttempt) {
    for (const std::string& answer : {kNotReadyText, kMissingText}) {
        bridge->fetched.clear();
        wait.waits.clear();
        const DiskDrive drive = Drive(answer);
        EXPECT_EQ(bridge->fetched, std::vector<std::string>(GetParam().attempts, "/d"));
        EXPECT_EQ(wait.waits, std::vector<unsigned int>(GetParam().attempts, 10000));
        EXPECT_EQ(drive.health, "OK");
        EXPECT_EQ(drive.state, "Enabled");
        EXPECT_EQ(drive.statusReasons, std::vector<std::string>{"None"});
        EXPECT_EQ(drive.endurance, 100);
        EXPECT_FALSE(drive.failurePredicted);
    }
}

TEST_P(MirrorDriveReader, DriveThatBecomesReadyAtTheLastAttempt_IsRead) {
    bridge->firstAnswers["/d"] = std::deque<std::string>(GetParam().attempts - 1, kNotReadyText);
    EXPECT_EQ(Drive(kMrDrive).model, "XX000480TEST");
    EXPECT_EQ(bridge->fetched.size(), GetParam().attempts);
}

TEST_P(MirrorDriveReader, StopWhileADriveIsNotReady_EndsTheWaitingAtOnce) {
    wait.onWait = [](unsigned int milliseconds) { return milliseconds != 0; };
    EXPECT_THROW(Drive(kNotReadyText), iLoRestReader::StopSeen);
    EXPECT_EQ(bridge->fetched.size(), 1U);
    EXPECT_TRUE(Trace().empty());
}

TEST_P(MirrorDriveReader, FailedFetch_IsTheStepsTextAndTheBridges) {
    bridge->failures["/d"] = "get failed. value=10001";
    EXPECT_EQ(DriveFailure("{}"), GetParam().failure() + "get failed. value=10001");
    EXPECT_TRUE(Trace().empty());
}

TEST_P(MirrorDriveReader, MemberOfAnotherType_FailsTheDriveAndIsTraced) {
    const char* const members[][2] = {{R"("Model":"XX000480TEST")", R"("Model":7)"},
                                      {R"("SerialNumber":"INVENTED001")", R"("SerialNumber":{})"},
                                      {R"("MediaType":"SSD")", R"("MediaType":["SSD"])"},
                                      {R"("Revision":"T001")", R"("Revision":true)"},
                                      {R"("Id":"0")", R"("Id":0)"},
                                      {R"("BlockSizeBytes":512)", R"("BlockSizeBytes":"512")"},
                                      {R"("CapacityBytes":480103981056)", R"("CapacityBytes":"480 GB")"},
                                      {R"("FailurePredicted":false)", R"("FailurePredicted":"no")"},
                                      {R"(LifeLeftPercent":97.9)", R"(LifeLeftPercent":"97.9")"},
                                      {R"("Health":"OK")", R"("Health":1)"},
                                      {R"("State":"Enabled")", R"("State":[])"},
                                      {R"("Status":{)", R"("Status":"OK","Other":{)"},
                                      {R"("Volumes":[)", R"("Volumes":["/v",)"},
                                      {R"("LocationOrdinalValue":8)", R"("LocationOrdinalValue":"8")"},
                                      {R"("Id":)", R"("DiskDriveStatusReasons":"Failed","Id":)"},
                                      {R"("Id":)", R"("DiskDriveStatusReasons":[1],"Id":)"}};
    std::size_t failures = 0;
    for (const auto& [good, bad] : members) {
        EXPECT_EQ(DriveFailure(With(kMrDrive, good, bad)), GetParam().failure()) << bad;
        ASSERT_EQ(Trace().size(), ++failures) << bad;
        EXPECT_EQ(Trace().back().find(kStart), 0U) << bad;
    }
}

TEST_P(MirrorDriveReader, TextThatIsNoJson_FailsTheDrive) {
    for (const char* text : {"", "null", "{", "oops", "\"text\""}) {
        EXPECT_EQ(DriveFailure(text), GetParam().failure()) << text;
    }
}

TEST_P(MirrorDriveReader, EnduranceScale_IsOneWithoutOldFirmware) {
    EXPECT_EQ(Drive(kMrDrive).enduranceScale, 1U);
}
