// The walks over snapshots, which go along both in step, beside looking up every item by itself.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "snapshots.h"
#include "state-rules.h"

namespace {

// A drive or volume that is failed or sound, with its key as its location.
DiskDrive RandomDrive(const std::string& key, std::mt19937& random) {
    DiskDrive drive;
    drive.location = key;
    drive.statusReasons = {random() % 2 == 0 ? "Failed" : "None"};
    drive.endurance = 100;
    drive.volumes = {{"V" + std::to_string(random() % 4)}};
    return drive;
}

LogicalDrive RandomVolume(std::mt19937& random) {
    LogicalDrive volume;
    volume.health = random() % 2 == 0 ? "Critical" : "OK";
    volume.state = "Disabled";
    volume.dataDrives = {{"D" + std::to_string(random() % 8)}};
    return volume;
}

// Few systems, controllers and items, each there or not, so that two snapshots share some of everything.
ServiceRoot RandomSnapshot(std::mt19937& random) {
    ServiceRoot root;
    for (const char* const system : {"S1", "S2"}) {
        if (random() % 8 == 0) {
            continue;
        }
        for (const auto family : {&ComputerSystem::smartStorage, &ComputerSystem::mirror}) {
            for (const char* const key : {"A", "Slot A", "Z"}) {
                if (random() % 4 == 0) {
                    continue;
                }
                ArrayController& controller = (root.systems[system].*family).controllers[key];
                controller.model = kMegaRaid;
                controller.location = key;
                for (unsigned int number = 0; number < 8; ++number) {
                    if (const std::string drive = "D" + std::to_string(number); random() % 3 != 0) {
                        controller.diskDrives[drive] = RandomDrive(drive, random);
                    }
                    if (number < 4 && random() % 3 != 0) {
                        LogicalDrive& volume = controller.logicalDrives["V" + std::to_string(number)];
                        volume = RandomVolume(random);
                        volume.number = static_cast<std::int32_t>(number);
                    }
                }
            }
        }
    }
    return root;
}

// The walks over plain items, each of them looked up by itself.
EventList PlainEvents(const ServiceRoot& previous, const ServiceRoot& current) {
    EventList events;
    for (const auto& [systemKey, system] : current.systems) {
        for (const auto& [key, controller] : system.smartStorage.controllers) {
            for (const auto& [driveKey, drive] : controller.diskDrives) {
                ServiceRoot::DiskDriveIterator old;
                const bool found = previous.containsDiskDrive(systemKey, key, driveKey, old);
                checkPdStatusFailed(controller, drive, found, old, events);
            }
        }
    }
    for (const auto& [systemKey, system] : current.systems) {
        for (const auto& [key, controller] : system.smartStorage.controllers) {
            for (const auto& [driveKey, drive] : controller.logicalDrives) {
                ServiceRoot::LogicalDriveIterator old;
                const bool found = previous.containsLogicalDrive(systemKey, key, driveKey, old);
                checkLdStatusOffline(controller, drive, found, old, events);
            }
        }
    }
    return events;
}

// The walks over Mirror items.
EventList MirrorEvents(const ServiceRoot& previous, const ServiceRoot& current) {
    const auto cut = [](const std::string& key) { return key.starts_with("Slot ") ? key.substr(5) : key; };
    EventList events;
    for (const auto& [systemKey, system] : current.systems) {
        for (const auto& [key, controller] : system.mirror.controllers) {
            for (const auto& [driveKey, drive] : controller.diskDrives) {
                ServiceRoot::DiskDriveIterator old;
                const bool found = previous.containsMirrorDiskDrive(systemKey, cut(key), driveKey, old);
                checkBCMPdStatusFailed(controller, drive, found, old, events);
            }
        }
    }
    for (const auto& [systemKey, system] : current.systems) {
        for (const auto& [key, controller] : system.mirror.controllers) {
            for (const auto& [driveKey, drive] : controller.logicalDrives) {
                ServiceRoot::LogicalDriveIterator old;
                const bool found = previous.containsMirrorLogicalDrive(systemKey, cut(key), driveKey, old);
                checkMirrorLdStatusOffline(controller, drive, found, old, events);
            }
        }
    }
    return events;
}

// The walks over what has vanished from one system.
EventList VanishedEvents(const ServiceRoot& previous, const ServiceRoot& current, const std::string& system) {
    EventList events;
    const auto before = previous.systems.find(system);
    if (before == previous.systems.end()) {
        return events;
    }
    ServiceRoot::DiskDriveIterator anyDrive;
    ServiceRoot::LogicalDriveIterator anyVolume;
    for (const auto& [key, controller] : before->second.mirror.controllers) {
        for (const auto& [driveKey, drive] : controller.diskDrives) {
            const std::string& volume = drive.volumes.front().id;
            if (!current.containsMirrorDiskDrive(system, key, driveKey, anyDrive) &&
                (current.containsMirrorLogicalDrive(system, key, volume, anyVolume) ||
                 previous.containsMirrorLogicalDrive(system, key, volume, anyVolume))) {
                raiseEvent(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
            }
        }
    }
    for (const auto& [key, controller] : before->second.mirror.controllers) {
        for (const auto& [volumeKey, volume] : controller.logicalDrives) {
            const std::string& member = volume.dataDrives.front().id;
            if (!current.containsMirrorLogicalDrive(system, key, volumeKey, anyVolume) &&
                !current.containsMirrorDiskDrive(system, key, member, anyDrive)) {
                raiseEvent(tovaevent::kLogicalDriveOffline, getMirrorLdMessageParam, controller, volume,
                           events);
            }
        }
    }
    return events;
}

std::vector<std::string> Texts(const EventList& events) {
    std::vector<std::string> texts;
    for (const tovaevent::EvtData& event : events) {
        std::string text = std::to_string(event.Id());
        for (const std::string& parameter : event.Parameters()) {
            text += "|" + parameter;
        }
        texts.push_back(text);
    }
    return texts;
}

TEST(StateWalks, RandomSnapshots_RaiseWhatLookingUpEachItemRaises) {
    std::mt19937 random(20261121);
    std::size_t raised = 0;
    for (int round = 0; round < 500; ++round) {
        const ServiceRoot previous = RandomSnapshot(random);
        const ServiceRoot current = RandomSnapshot(random);
        EventList expected = MirrorEvents(previous, current);
        for (const auto& [key, system] : current.systems) {
            const EventList vanished = VanishedEvents(previous, current, key);
            expected.insert(expected.end(), vanished.begin(), vanished.end());
        }
        const EventList plain = PlainEvents(previous, current);
        expected.insert(expected.end(), plain.begin(), plain.end());
        ASSERT_EQ(Texts(Compare(previous, current)), Texts(expected)) << round;
        raised += expected.size();
    }
    EXPECT_GT(raised, 500u);
}

}  // namespace
