#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>

#include "snapshots.h"
#include "state-rules.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(StateWalks, Walks_GoInOrderAndEachItemInKeyOrder) {
    Snapshot plain(Family::kPlain, kSmart);
    plain.Drive(kOtherDrive).statusReasons = {"Unrecoverable"};
    plain.Drive(kDrive).statusReasons = {"Failed"};
    plain.Volume().health = "Critical";
    Snapshot mirror(Family::kMirror, kBoot);
    mirror.Drive().failurePredicted = true;
    mirror.Volume().health = "Critical";
    plain.root.systems[kSystem].mirror = mirror.root.systems[kSystem].mirror;

    EXPECT_THAT(Ids(Compare(ServiceRoot{}, plain.root)),
                ElementsAre(0x80008152, 0xC00081B7, 0xC0008151, 0xC0008153, 0xC00081B7));
}

TEST(StateWalks, SameDriveOnAnotherController_IsNew) {
    Snapshot previous(Family::kPlain, kSmart);
    previous.Drive().statusReasons = {"Failed"};
    Snapshot current(Family::kPlain, kSmart);
    current.Controllers()[kOtherController] = previous.At(kController);

    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0xC0008151));
}

struct SlotCase {
    const char* name;
    const char* location;
    const char* currentKey;
    const char* previousKey;
    bool known;

    friend void PrintTo(const SlotCase& row, std::ostream* out) { *out << row.name; }
};

class SlotKeys : public testing::TestWithParam<SlotCase> {};

// A key with the word "Slot" on a controller in a slot is looked up without its first five characters.
TEST_P(SlotKeys, LookUpInPreviousSnapshot_UsesTheCutKey) {
    Snapshot current(Family::kMirror, kBoot, GetParam().location);
    current.Drive().failurePredicted = true;
    current.Volume().health = "Critical";
    Snapshot previous = current;
    auto rename = [](Snapshot& snapshot, const char* key) {
        auto node = snapshot.Controllers().extract(kController);
        node.key() = key;
        snapshot.Controllers().insert(std::move(node));
    };
    rename(current, GetParam().currentKey);
    rename(previous, GetParam().previousKey);

    EXPECT_EQ(Compare(previous, current).empty(), GetParam().known);
}

INSTANTIATE_TEST_SUITE_P(
    Cut, SlotKeys,
    testing::Values(SlotCase{"SlotInBoth", "Slot 3", "Slot /C1", "/C1", true},
                    SlotCase{"UncutKeyIsUnknown", "Slot 3", "Slot /C1", "Slot /C1", false},
                    SlotCase{"OnlyTheWord", "Slot 3", "Slot", "", true},
                    SlotCase{"WordFurtherBack", "Slot 3", "/C1/Slot", "lot", true},
                    SlotCase{"LocationWithoutSlot", "Bay 3", "Slot /C1", "Slot /C1", true},
                    SlotCase{"KeyWithoutSlot", "Slot 3", "/C1", "/C1", true}),
    [](const auto& given) { return given.param.name; });

// ---- Vanished items ----

// An "HPE MR" controller with two drives, both members of one volume.
Snapshot MegaRaid() {
    Snapshot snapshot(Family::kMirror, kMegaRaid);
    for (const char* key : {kDrive, kOtherDrive}) {
        DiskDrive& drive = snapshot.Drive(key);
        drive = SampleDrive();
        drive.location = key == kDrive ? "Bay 1" : "Bay 2";
        drive.statusReasons = {"None"};
        drive.health = "OK";
        drive.volumes = {Odataid{kVolume}};
    }
    snapshot.Volume().number = 7;
    snapshot.Volume().dataDrives = {Odataid{kDrive}, Odataid{kOtherDrive}};
    return snapshot;
}

TEST(StateWalks, DriveVanishesWhileItsVolumeRemains_RaisesFailedOnceWithPreviousTexts) {
    const Snapshot previous = MegaRaid();
    Snapshot current = MegaRaid();
    current.At(kController).diskDrives.erase(kDrive);

    const EventList events = Compare(previous, current);
    ASSERT_THAT(Ids(events), ElementsAre(0xC0008151));
    EXPECT_THAT(events[0].Parameters(),
                ElementsAre("HPE MR416i-p Gen10+ [Slot 1]", "Bay 1",
                            "Model: VK000960GWTTB Size: 12 TB Serial Number: S1 Firmware Revision: HPG1"));
    EXPECT_THAT(Compare(current, current), IsEmpty());
}

TEST(StateWalks, DriveVanishesTogetherWithItsVolume_IsStillKnownFromThePreviousSnapshot) {
    const Snapshot previous = MegaRaid();
    Snapshot current = MegaRaid();
    current.At(kController).diskDrives.erase(kDrive);
    current.At(kController).logicalDrives.clear();

    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0xC0008151))
        << "the other member is still there";
}

TEST(StateWalks, DriveOfSeveralVolumesVanishes_RaisesOneEvent) {
    Snapshot previous = MegaRaid();
    previous.Volume(kOtherVolume).dataDrives = {Odataid{kOtherDrive}};
    previous.Drive().volumes = {Odataid{"/unknown/"}, Odataid{kOtherVolume}, Odataid{kVolume}};
    Snapshot current = previous;
    current.At(kController).diskDrives.erase(kDrive);

    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0xC0008151));
}

TEST(StateWalks, UnassignedDriveVanishes_RaisesNothing) {
    Snapshot previous = MegaRaid();
    previous.Drive().volumes.clear();
    Snapshot current = previous;
    current.At(kController).diskDrives.erase(kDrive);
    EXPECT_THAT(Compare(previous, current), IsEmpty());

    previous.Drive().volumes = {Odataid{"/unknown/"}};
    EXPECT_THAT(Compare(previous, current), IsEmpty());
}

TEST(StateWalks, VolumeVanishesWithAllItsDrives_RaisesOffline) {
    const Snapshot previous = MegaRaid();
    Snapshot current(Family::kMirror, kMegaRaid);

    const EventList events = Compare(previous, current);
    ASSERT_THAT(Ids(events), ElementsAre(0xC0008151, 0xC0008151, 0xC00081B7));
    EXPECT_THAT(events[2].Parameters(), ElementsAre("HPE MR416i-p Gen10+ [Slot 1]", "7"));
}

TEST(StateWalks, VolumeDeletedWhileADriveRemains_RaisesNothing) {
    const Snapshot previous = MegaRaid();
    Snapshot current = MegaRaid();
    current.At(kController).logicalDrives.clear();
    EXPECT_THAT(Compare(previous, current), IsEmpty());
}

TEST(StateWalks, SpareOfAVanishedVolumeRemains_DoesNotCountAsMember) {
    Snapshot previous = MegaRaid();
    previous.Volume().dataDrives = {Odataid{kDrive}};
    previous.Volume().spareDrives = {Odataid{kOtherDrive}};
    previous.Drive(kOtherDrive).volumes.clear();
    Snapshot current = previous;
    current.At(kController).diskDrives.erase(kDrive);
    current.At(kController).logicalDrives.clear();

    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0xC0008151, 0xC00081B7));
}

TEST(StateWalks, OnlyMegaRaidControllerVanishes_RaisesNothing) {
    const Snapshot previous = MegaRaid();
    Snapshot current = MegaRaid();
    current.Controllers().clear();
    EXPECT_THAT(Compare(previous, current), IsEmpty());
}

TEST(StateWalks, MegaRaidControllerVanishesBesideAnother_RaisesItsItems) {
    const Snapshot previous = MegaRaid();
    Snapshot current(Family::kMirror, kMegaRaid);
    current.Controllers()[kOtherController].model = kMegaRaid;
    current.Controllers().erase(kController);

    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0xC0008151, 0xC0008151, 0xC00081B7));
}

TEST(StateWalks, ItemsOfOtherControllersVanish_RaiseNothing) {
    for (const char* model : {kBoot, kSata, kOtherMirror}) {
        Snapshot previous = MegaRaid();
        previous.At(kController).model = model;
        Snapshot current(Family::kMirror, model);
        current.Controllers()[kOtherController].model = kMegaRaid;
        EXPECT_THAT(Compare(previous, current), IsEmpty()) << model;
    }
}

// The one controller of the Redfish family is gone, but the server still shows an "HPE MR" one in the other.
TEST(StateWalks, MegaRaidInTheSmartStorageHalfOnly_StartsTheSearchForVanishedItems) {
    const Snapshot previous = MegaRaid();
    Snapshot current(Family::kPlain, kMegaRaid);
    EXPECT_THAT(Ids(Compare(previous, current)), ElementsAre(0xC0008151, 0xC0008151, 0xC00081B7));

    current.At(kController).model = kSmart;
    EXPECT_THAT(Compare(previous, current), IsEmpty());
}

TEST(StateWalks, TwoSystemsWithMegaRaid_EachRaisesItsOwnOnly) {
    Snapshot previous = MegaRaid();
    Snapshot current(Family::kMirror, kMegaRaid);
    const char* const kSecond = "/redfish/v1/Systems/2/";
    previous.root.systems[kSecond] = previous.root.systems[kSystem];
    current.root.systems[kSecond] = previous.root.systems[kSystem];

    EXPECT_EQ(Compare(previous, current).size(), 3U);
}

TEST(StateWalks, SystemWithoutMegaRaidNow_IsNotSearchedForVanishedItems) {
    Snapshot previous = MegaRaid();
    Snapshot current = MegaRaid();
    const char* const kSecond = "/redfish/v1/Systems/2/";
    previous.root.systems[kSecond] = previous.root.systems[kSystem];
    current.root.systems[kSecond] = {};
    EXPECT_THAT(Compare(previous, current), IsEmpty());
}

TEST(StateWalks, EmptyWalks_AddNothing) {
    Snapshot current(Family::kPlain, kSmart);
    current.Drive().statusReasons = {"Failed"};
    EventList events;
    const StateRules rules([](const std::string&) { FAIL(); });
    rules.checkMediumError(ServiceRoot{}, current.root, events);
    rules.checkRebuildFaild(ServiceRoot{}, current.root, events);
    EXPECT_THAT(events, IsEmpty());
}

TEST(StateWalks, WalkThatThrows_IsWrittenAndKeepsItsEvents) {
    std::vector<std::string> lines;
    const StateRules rules([&](const std::string& text) { lines.push_back(text); });
    EventList events;
    rules.guard([&] {
        events.emplace_back(tovaevent::kDriveFailed);
        throw "the text";
    });
    rules.guard([] { throw std::runtime_error("not shown"); });
    rules.guard([] { throw std::string("not shown either"); });
    rules.guard([] { throw 5; });

    EXPECT_THAT(lines, ElementsAre("the text", "Fatal error.", "Fatal error.", "Fatal error."));
    EXPECT_THAT(Ids(events), ElementsAre(tovaevent::kDriveFailed));
}

}  // namespace
