#include "state-rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "snapshots.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A drive state that a family's rules look for, per controller model.
struct DriveCase {
    const char* name;
    Family family;
    const char* model;
    void (*enter)(DiskDrive&);
    std::vector<std::uint32_t> events;

    friend void PrintTo(const DriveCase& row, std::ostream* out) { *out << row.name; }
};

void Failed(DiskDrive& drive) {
    drive.statusReasons = {"Failed"};
}
void SpareActivation(DiskDrive& drive) {
    drive.statusReasons = {"FailedDueToPredictiveSpareActivation"};
}
void Communication(DiskDrive& drive) {
    drive.statusReasons = {"CommunicationFailure"};
}
void Predictive(DiskDrive& drive) {
    drive.statusReasons = {"PredictiveFail"};
}
void CriticalReason(DiskDrive& drive) {
    drive.statusReasons = {"Critical"};
}
void OfflineState(DiskDrive& drive) {
    drive.statusReasons = {"None"};
    drive.state = "UnavailableOffline";
}
void OfflineStateNoReason(DiskDrive& drive) {
    drive.state = "UnavailableOffline";
}
void HealthCritical(DiskDrive& drive) {
    drive.health = "Critical";
}
void HealthUnrecoverable(DiskDrive& drive) {
    drive.health = "Unrecoverable";
}
void PredictedFlag(DiskDrive& drive) {
    drive.failurePredicted = true;
}
void WornSsd(DiskDrive& drive) {
    drive.mediaType = "SSD";
    drive.endurance = 95;
}
void WornMirrorSsd(DiskDrive& drive) {
    drive.mediaType = "SSD";
    drive.endurance = 5;
}
void WornHardDisk(DiskDrive& drive) {
    drive.mediaType = "HDD";
    drive.endurance = 99;
}
void WornMirrorHardDisk(DiskDrive& drive) {
    drive.mediaType = "HDD";
    drive.endurance = 1;
}
void Everything(DiskDrive& drive) {
    drive.statusReasons = {"Failed", "Unrecoverable", "PredictiveFail"};
    WornSsd(drive);
}
void EveryMirrorThing(DiskDrive& drive) {
    drive.statusReasons = {"Failed"};
    drive.health = "Unrecoverable";
    drive.failurePredicted = true;
    WornMirrorSsd(drive);
}

const DriveCase kDriveCases[] = {
    {"PlainFailed", Family::kPlain, kSmart, Failed, {0xC0008151}},
    {"PlainSpareActivation", Family::kPlain, kSmart, SpareActivation, {0xC0008151}},
    {"PlainFatal", Family::kPlain, kSmart, Communication, {0xC0008153}},
    {"PlainSmart", Family::kPlain, kSmart, Predictive, {0x80008152}},
    {"PlainIgnoresHealth", Family::kPlain, kSmart, HealthCritical, {}},
    {"PlainIgnoresPredictedFlag", Family::kPlain, kSmart, PredictedFlag, {}},
    {"PlainWornSsd", Family::kPlain, kSmart, WornSsd, {0xC0008155}},
    {"PlainWornHardDisk", Family::kPlain, kSmart, WornHardDisk, {}},
    {"PlainAllInOrder", Family::kPlain, kSmart, Everything, {0xC0008151, 0xC0008153, 0x80008152, 0xC0008155}},
    {"OtherFailedReason", Family::kMirror, kOtherMirror, Failed, {0xC0008151}},
    {"OtherCriticalReason", Family::kMirror, kOtherMirror, CriticalReason, {0xC0008151}},
    {"OtherOfflineState", Family::kMirror, kOtherMirror, OfflineState, {0xC0008151}},
    {"OtherOfflineStateWithoutReason", Family::kMirror, kOtherMirror, OfflineStateNoReason, {}},
    {"OtherIgnoresCriticalHealth", Family::kMirror, kOtherMirror, HealthCritical, {}},
    {"OtherFatal", Family::kMirror, kOtherMirror, HealthUnrecoverable, {0xC0008153}},
    {"OtherPredicted", Family::kMirror, kOtherMirror, PredictedFlag, {0x80008152}},
    {"OtherWornSsd", Family::kMirror, kOtherMirror, WornMirrorSsd, {0xC0008155}},
    {"OtherWornHardDisk", Family::kMirror, kOtherMirror, WornMirrorHardDisk, {}},
    {"MegaRaidAllInOrder",
     Family::kMirror,
     kMegaRaid,
     EveryMirrorThing,
     {0xC0008151, 0xC0008153, 0x80008152, 0xC0008155}},
    {"BootFailedHealth", Family::kMirror, kBoot, HealthCritical, {0xC0008151}},
    {"BootIgnoresFailedReason", Family::kMirror, kBoot, Failed, {}},
    {"BootFatal", Family::kMirror, kBoot, HealthUnrecoverable, {0xC0008153}},
    {"BootPredicted", Family::kMirror, kBoot, PredictedFlag, {0x80008152}},
    {"BootWornSsd", Family::kMirror, kBoot, WornMirrorSsd, {0xC0008155}},
    {"SataOnlyWear", Family::kMirror, kSata, EveryMirrorThing, {0xC0008155}},
    {"SataFailed", Family::kMirror, kSata, Failed, {}},
    {"SataWornHardDisk", Family::kMirror, kSata, WornMirrorHardDisk, {}},
};

class DriveRules : public testing::TestWithParam<DriveCase> {
protected:
    Snapshot Make() const {
        Snapshot snapshot(GetParam().family, GetParam().model);
        snapshot.Drive().endurance = GetParam().family == Family::kPlain ? 0 : 100;
        return snapshot;
    }
};

TEST_P(DriveRules, StateEntered_RaisesItsEventsOnce) {
    const Snapshot healthy = Make();
    Snapshot sick = Make();
    GetParam().enter(sick.Drive());

    EXPECT_EQ(Ids(Compare(healthy, sick)), GetParam().events);
    EXPECT_THAT(Compare(sick, sick), IsEmpty()) << "a state that persists";
    EXPECT_THAT(Compare(sick, healthy), IsEmpty()) << "recovery";
    EXPECT_EQ(Ids(Compare(healthy, sick)), GetParam().events) << "the same state again after a recovery";
}

TEST_P(DriveRules, NewDriveInThatState_RaisesItsEvents) {
    const Snapshot empty(GetParam().family, GetParam().model);
    Snapshot sick = Make();
    GetParam().enter(sick.Drive());

    EXPECT_EQ(Ids(Compare(empty, sick)), GetParam().events);
}

INSTANTIATE_TEST_SUITE_P(States, DriveRules, testing::ValuesIn(kDriveCases),
                         [](const auto& state) { return state.param.name; });

struct VolumeCase {
    const char* name;
    Family family;
    const char* model;
    const char* health;
    const char* state;
    bool offline;

    friend void PrintTo(const VolumeCase& row, std::ostream* out) { *out << row.name; }
};

class VolumeRules : public testing::TestWithParam<VolumeCase> {};

TEST_P(VolumeRules, StateEntered_RaisesOfflineOnceOrNothing) {
    const VolumeCase& given = GetParam();
    Snapshot healthy(given.family, given.model);
    healthy.Volume().health = "OK";
    Snapshot sick = healthy;
    sick.Volume().health = given.health;
    sick.Volume().state = given.state;

    const std::vector<std::uint32_t> expected =
        given.offline ? std::vector<std::uint32_t>{0xC00081B7} : std::vector<std::uint32_t>{};
    EXPECT_EQ(Ids(Compare(healthy, sick)), expected);
    EXPECT_THAT(Compare(sick, sick), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    States, VolumeRules,
    testing::Values(
        VolumeCase{"PlainCritical", Family::kPlain, kSmart, "Critical", "Enabled", true},
        VolumeCase{"PlainDegraded", Family::kPlain, kSmart, "Warning", "Enabled", false},
        VolumeCase{"PlainStandby", Family::kPlain, kSmart, "Warning", "StandbyOffline", false},
        VolumeCase{"OtherCriticalEnabled", Family::kMirror, kMegaRaid, "Critical", "Enabled", false},
        VolumeCase{"OtherDisabled", Family::kMirror, kMegaRaid, "Critical", "Disabled", true},
        VolumeCase{"OtherStandby", Family::kMirror, kOtherMirror, "Warning", "StandbyOffline", true},
        VolumeCase{"OtherDegraded", Family::kMirror, kMegaRaid, "Warning", "Enabled", false},
        VolumeCase{"BootCritical", Family::kMirror, kBoot, "Critical", "Enabled", true},
        VolumeCase{"BootStandby", Family::kMirror, kBoot, "Warning", "StandbyOffline", false},
        VolumeCase{"SataCritical", Family::kMirror, kSata, "Critical", "Enabled", true}),
    [](const auto& state) { return state.param.name; });

TEST(StateRules, CriticalRules_NeverFireWhateverTheState) {
    const ArrayController controller;
    for (const char* health : {"OK", "Warning", "Critical"}) {
        for (const char* state : {"Enabled", "Disabled", "StandbyOffline", "Quiesced"}) {
            LogicalDrive drive;
            drive.health = health;
            drive.state = state;
            EventList events;
            checkLdStatusCritical(controller, drive, false, {}, events);
            checkMirrorLdStatusCritical(controller, drive, false, {}, events);
            EXPECT_THAT(events, IsEmpty()) << health << " " << state;
        }
    }
}

struct WearStep {
    std::int64_t endurance;
    std::vector<std::uint32_t> events;
};

void ExpectWear(Family family, std::int64_t start, const std::vector<WearStep>& steps) {
    Snapshot previous(family, family == Family::kPlain ? kSmart : kOtherMirror);
    previous.Drive().mediaType = "SSD";
    previous.Drive().endurance = start;
    for (const WearStep& step : steps) {
        Snapshot current = previous;
        current.Drive().endurance = step.endurance;
        EXPECT_EQ(Ids(Compare(previous, current)), step.events) << step.endurance;
        previous = current;
    }
}

TEST(StateRules, WearOfPlainSsd_RaisesOneEventPerLevelReached) {
    ExpectWear(Family::kPlain, 0,
               {{79, {}},
                {80, {0x8000815B}},
                {80, {}},
                {89, {}},
                {90, {0x80008154}},
                {94, {}},
                {95, {0xC0008155}},
                {100, {}},
                {10, {}},
                {80, {0x8000815B}}});
}

TEST(StateRules, WearOfMirrorSsd_RaisesOneEventPerLevelReached) {
    ExpectWear(Family::kMirror, 100,
               {{21, {}},
                {20, {0x8000815B}},
                {20, {}},
                {11, {}},
                {10, {0x80008154}},
                {6, {}},
                {5, {0xC0008155}},
                {0, {}}});
}

TEST(StateRules, WearOnOldFirmware_IsScaled) {
    Snapshot previous(Family::kPlain, kSmart);
    previous.Drive().mediaType = "SSD";
    previous.Drive().enduranceScale = 100;
    Snapshot current = previous;
    current.Drive().endurance = 7999;
    EXPECT_THAT(Compare(previous, current), IsEmpty());
    current.Drive().endurance = 8000;
    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0x8000815B));
}

TEST(StateRules, MediaTypeOtherThanExactlySsd_RaisesNoWear) {
    for (const char* type : {"HDD", "ssd", "SSD ", "", "SMR"}) {
        Snapshot current(Family::kPlain, kSmart);
        current.Drive().mediaType = type;
        current.Drive().endurance = 100;
        EXPECT_THAT(Compare(Snapshot(Family::kPlain, kSmart), current), IsEmpty()) << type;
    }
}

// ---- Message parameters ----

TEST(StateRules, PlainDriveEvent_CarriesControllerLocationAndDriveText) {
    Snapshot current(Family::kPlain, kSmart, "Slot 0");
    current.Drive() = SampleDrive();
    const EventList events = Compare(Snapshot(Family::kPlain, kSmart), current);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_THAT(events[0].Parameters(),
                ElementsAre("HPE Smart Array P408i-a [Slot 0]", "1I:1:1",
                            "Model: VK000960GWTTB Size: 999 MB Serial Number: S1 Firmware Revision: HPG1"));
}

TEST(StateRules, SeveralEventsOfOneLargeMirrorDrive_AllShowTheSameSize) {
    Snapshot current(Family::kMirror, kBoot, "Slot 9");
    current.Drive() = SampleDrive();
    current.Drive().failurePredicted = true;
    const EventList events = Compare(Snapshot(Family::kMirror, kBoot), current);
    ASSERT_THAT(Ids(events), ElementsAre(0xC0008151, 0x80008152));
    for (const auto& event : events) {
        EXPECT_THAT(
            event.Parameters(),
            ElementsAre("HPE NS204i-p Gen10+ [Slot 9]", "1I:1:1",
                        "Model: VK000960GWTTB Size: 12 TB Serial Number: S1 Firmware Revision: HPG1"));
    }
    EXPECT_EQ(current.Drive().capacityGB, 12000) << "the snapshot itself stays as it is";
}

TEST(StateRules, BcmRule_UsesTheMirrorDriveText) {
    Snapshot current(Family::kMirror, kMegaRaid);
    current.Drive() = SampleDrive();
    const EventList events = Compare(Snapshot(Family::kMirror, kMegaRaid), current);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_THAT(events[0].Parameters().at(2), testing::HasSubstr("Size: 12 TB"));
}

TEST(StateRules, LogicalDriveEvents_CarryControllerAndSignedNumber) {
    for (const Family family : {Family::kPlain, Family::kMirror}) {
        Snapshot current(family, family == Family::kPlain ? kSmart : kMegaRaid);
        current.Volume().number = -1;
        current.Volume().health = "Critical";
        current.Volume().state = "Disabled";
        Snapshot previous(family, current.At(kController).model);
        const EventList events = Compare(previous, current);
        ASSERT_EQ(events.size(), 1U);
        EXPECT_THAT(events[0].Parameters(), ElementsAre(current.At(kController).model + " [Slot 1]", "-1"));
    }
}

}  // namespace
