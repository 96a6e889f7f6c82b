#include <ostream>

#include "reader-fixture.h"

namespace {

struct VolumeVariant {
    const char* name;  // of the reader of one volume; the collection's ends in "Drives"
    void (iLoRestReader::*readAll)(RestBridge& bridge, const Odataid& collection,
                                   ArrayController& controller);
    void (iLoRestReader::*read)(RestBridge& bridge, const Odataid& id, LogicalDrive& drive);
    bool spares;

    std::string failure() const { return std::string("iLoRestReader.") + name + " failed."; }
    std::string collectionFailure() const { return std::string("iLoRestReader.") + name + "s failed."; }

    friend void PrintTo(const VolumeVariant& row, std::ostream* out) { *out << row.name; }
};

// Every test of a volume holds for each of the readers.
class MirrorVolumeReader : public ReaderTest, public testing::WithParamInterface<VolumeVariant> {
protected:
    LogicalDrive Volume(const std::string& json) {
        bridge->resources["/v"] = json;
        LogicalDrive drive;
        (reader.get()->*GetParam().read)(*bridge, {"/v"}, drive);
        return drive;
    }
    std::string VolumeFailure(const std::string& json) {
        return FailureText([&] { Volume(json); });
    }
    ArrayController Volumes() {
        ArrayController controller;
        (reader.get()->*GetParam().readAll)(*bridge, {kMr + "/Volumes"}, controller);
        return controller;
    }
};

const std::string kStart = "<VK0999> [TR] ilorest-reader N ";

INSTANTIATE_TEST_SUITE_P(
    All, MirrorVolumeReader,
    testing::Values(VolumeVariant{"readVolumeDrive", &iLoRestReader::readVolumeDrives,
                                  &iLoRestReader::readVolumeDrive, false},
                    VolumeVariant{"readUVolumeDrive", &iLoRestReader::readUVolumeDrives,
                                  &iLoRestReader::readUVolumeDrive, false},
                    VolumeVariant{"readBCMVolumeDrive", &iLoRestReader::readBCMVolumeDrives,
                                  &iLoRestReader::readBCMVolumeDrive, true}),
    [](const testing::TestParamInfo<VolumeVariant>& each) { return std::string(each.param.name); });

}  // namespace

TEST_P(MirrorVolumeReader, VolumeNumber_IsItsIdWhenThatIsANumber) {
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

TEST_P(MirrorVolumeReader, Volume_ToleratesWhatDevicesLeaveOut) {
    LogicalDrive drive = Volume(R"({"Id":"1","Status":{"State":"Enabled","Health":null,"Conditions":[]}})");
    EXPECT_EQ(drive.health, "");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_TRUE(drive.dataDrives.empty());
    drive = Volume(R"({"Id":"1","Status":{"Health":"Warning"},"Links":{"Drives":[]},"RAIDType":null})");
    EXPECT_EQ(drive.health, "Warning");
    EXPECT_EQ(drive.raidType, "");
}

TEST_P(MirrorVolumeReader, Volume_IsReadWhole) {
    const LogicalDrive drive = Volume(kMrVolume);
    EXPECT_EQ(drive.Id, "239");
    EXPECT_EQ(drive.number, 239);
    EXPECT_EQ(drive.health, "OK");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_EQ(drive.raidType, "RAID1");
    EXPECT_EQ(drive.dataDrives, std::vector<Odataid>{{kMrDrives + "0"}});
    EXPECT_EQ(drive.spareDrives,
              GetParam().spares ? std::vector<Odataid>{{kMrDrives + "64519"}} : std::vector<Odataid>{});
    EXPECT_TRUE(Trace().empty());
}

TEST_P(MirrorVolumeReader, VolumeOffline_IsWhatHealthAndStateSay) {
    const LogicalDrive failed =
        Volume(With(With(kMrVolume, R"("OK")", R"("Critical")"), R"("Enabled")", R"("Disabled")"));
    EXPECT_TRUE(failed.isStatusOffline());
    EXPECT_TRUE(failed.isMirrorStatusOffline());
    EXPECT_TRUE(
        Volume(With(With(kMrVolume, R"("OK")", R"("Warning")"), R"("Enabled")", R"("StandbyOffline")"))
            .isMirrorStatusOffline());
    EXPECT_FALSE(Volume(With(kMrVolume, R"("OK")", R"("Warning")")).isMirrorStatusOffline());
}

TEST_P(MirrorVolumeReader, VolumeWithoutIdOrStatus_Fails) {
    EXPECT_EQ(VolumeFailure(R"({"Status":{}})"), GetParam().failure());
    EXPECT_EQ(Trace().back(), kStart + "JSON Parsing failed - provided NVP (Id) not found");
    EXPECT_EQ(VolumeFailure(R"({"Id":"1"})"), GetParam().failure());
    EXPECT_EQ(Trace().back(), kStart + "JSON Parsing failed - provided NVP (Status) not found");
}

TEST_P(MirrorVolumeReader, VolumeMemberOfAnotherType_Fails) {
    const char* const members[][2] = {{R"("Id":"239")", R"("Id":239)"},
                                      {R"("Status":{)", R"("Status":null,"Other":{)"},
                                      {R"("Health":"OK")", R"("Health":0)"},
                                      {R"("State":"Enabled")", R"("State":{})"},
                                      {R"("RAIDType":"RAID1")", R"("RAIDType":1)"},
                                      {R"("Drives":[)", R"("Drives":["/d",)"},
                                      {R"("Drives":[)", R"("Drives":[{},)"}};
    for (const auto& [good, bad] : members) {
        EXPECT_EQ(VolumeFailure(With(kMrVolume, good, bad)), GetParam().failure()) << bad;
    }
    EXPECT_EQ(Trace().size(), std::size(members));
}

TEST_P(MirrorVolumeReader, CollectionFailures_CarryTheStepsTexts) {
    AddMr();
    bridge->failures[kMr + "/Volumes/239"] = "get failed.";
    EXPECT_EQ(FailureText([&] { Volumes(); }),
              GetParam().collectionFailure() + GetParam().failure() + "get failed.");
    bridge->failures = {{kMr + "/Volumes", "get failed."}};
    EXPECT_EQ(FailureText([&] { Volumes(); }), GetParam().collectionFailure() + "get failed.");
    bridge->failures.clear();
    bridge->resources[kMr + "/Volumes"] = R"({"Name":"no members"})";
    EXPECT_EQ(FailureText([&] { Volumes(); }), GetParam().collectionFailure());
    EXPECT_EQ(Trace().back(), kStart + "JSON Parsing failed - provided NVP (Members) not found");
}

TEST_P(MirrorVolumeReader, CollectionThatIsNeverReady_Fails) {
    bridge->resources[kMr + "/Volumes"] = kNotReadyText;
    EXPECT_EQ(FailureText([&] { Volumes(); }), GetParam().collectionFailure());
    EXPECT_EQ(bridge->fetched.size(), 5U);
    EXPECT_EQ(wait.waits, std::vector<unsigned int>(5, 10000));
}

TEST_P(MirrorVolumeReader, VolumeCollection_FillsTheController) {
    AddMr();
    EXPECT_EQ(Volumes().logicalDrives.at(kMr + "/Volumes/239").number, 239);
    bridge->resources[kMr + "/Volumes"] = R"({"Members":[],"Members@odata.count":1})";
    EXPECT_TRUE(Volumes().logicalDrives.empty());
}
