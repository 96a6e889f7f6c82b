// Snapshots for the state rules, and what their comparison raises.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "state-rules.h"

inline constexpr const char* kSystem = "/redfish/v1/Systems/1/";
inline constexpr const char* kController = "/redfish/v1/Systems/1/Storage/C1/";
inline constexpr const char* kOtherController = "/redfish/v1/Systems/1/Storage/C2/";
inline constexpr const char* kDrive = "/redfish/v1/Systems/1/Drives/0/";
inline constexpr const char* kOtherDrive = "/redfish/v1/Systems/1/Drives/1/";
inline constexpr const char* kVolume = "/redfish/v1/Systems/1/Volumes/0/";
inline constexpr const char* kOtherVolume = "/redfish/v1/Systems/1/Volumes/1/";

enum class Family { kPlain, kMirror };

// A snapshot of one system with controllers of one family.
struct Snapshot {
    ServiceRoot root;
    Family family;

    Snapshot(Family ofFamily, const std::string& model, const std::string& location = "Slot 1")
        : family(ofFamily) {
        Controllers()[kController].model = model;
        At(kController).location = location;
    }
    std::map<std::string, ArrayController>& Controllers() {
        ComputerSystem& system = root.systems[kSystem];
        return family == Family::kPlain ? system.smartStorage.controllers : system.mirror.controllers;
    }
    ArrayController& At(const std::string& key) { return Controllers().at(key); }
    DiskDrive& Drive(const std::string& key = kDrive) { return At(kController).diskDrives[key]; }
    LogicalDrive& Volume(const std::string& key = kVolume) { return At(kController).logicalDrives[key]; }
};

inline std::vector<std::uint32_t> Ids(const EventList& events) {
    std::vector<std::uint32_t> ids;
    for (const auto& event : events) {
        ids.push_back(event.Id());
    }
    return ids;
}

// What a comparison of the two snapshots raises.
inline EventList Compare(const ServiceRoot& previous, const ServiceRoot& current) {
    EventList events;
    const StateRules rules([](const std::string& text) { ADD_FAILURE() << "unexpected line: " << text; });
    rules.checkAll(previous, current, events);
    return events;
}
inline EventList Compare(const Snapshot& previous, const Snapshot& current) {
    return Compare(previous.root, current.root);
}

inline constexpr const char* kSmart = "HPE Smart Array P408i-a";
inline constexpr const char* kSata = "Intel Embedded SATA Controller #1";
inline constexpr const char* kBoot = "HPE NS204i-p Gen10+";
inline constexpr const char* kMegaRaid = "HPE MR416i-p Gen10+";
inline constexpr const char* kOtherMirror = "HPE SR932i-p Gen10+";

inline DiskDrive SampleDrive() {
    DiskDrive drive;
    drive.model = "VK000960GWTTB";
    drive.serialNumber = "S1";
    drive.firmwareRevision = "HPG1";
    drive.location = "1I:1:1";
    drive.capacityMiB = 953;
    drive.capacityGB = 12000;
    drive.statusReasons = {"Failed"};
    drive.health = "Critical";
    return drive;
}
