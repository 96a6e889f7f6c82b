// One snapshot of the server's storage: systems, controllers, logical drives, physical drives.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "rest-records.h"

// Every map is keyed by the resource's "@odata.id" text and owns its items by value; copying a ServiceRoot
// copies the whole tree. A snapshot belongs to the thread that built it. Nothing here throws but
// std::bad_alloc.
//
// Two families of controller live side by side in a system: those of the SmartStorage resources, and those of
// the standard Redfish Storage resources, called "mirror" throughout. The Mirror operations test Redfish
// vocabulary.

// A physical drive.
class DiskDrive {
public:
    // SSD wear levels, as event identifiers; 0 means nothing to report.
    static constexpr std::uint32_t kWearFirst = 0x8000815B;
    static constexpr std::uint32_t kWearSecond = 0x80008154;
    static constexpr std::uint32_t kWearHighest = 0xC0008155;

    std::string Id;
    std::string model;
    std::int64_t capacityGB = 0;
    std::int64_t capacityMiB = 0;
    std::int64_t blockSize = 0;  // bytes
    std::int64_t logicalBlocks = 0;
    std::string serialNumber;
    std::string location;
    std::string mediaType;        // "SSD" or "HDD" as reported
    std::string health;           // of a Redfish drive also a reason word that the Mirror predicates test
    std::string statusIndicator;  // Redfish drives only
    std::string state;
    std::vector<std::string> statusReasons;
    std::int64_t endurance = 0;  // percent used (Smart Storage) or percent of life left (Redfish)
    bool enduranceTold = false;  // false: the drive is silent about it, and the value says "not worn"
    std::string firmwareRevision;
    std::uint32_t enduranceScale = 1;
    bool failurePredicted = false;
    std::vector<Odataid> volumes;  // Redfish: the volumes that use the drive
    // Redfish: the controller lists it, but its own resource was not ready, or was gone by then. All else is
    // as by default.
    bool untold = false;

    bool isStatusFailed() const;
    bool isStatusFatal() const;
    bool isStatusSmart() const;
    // An empty reason list gives false, whatever the state.
    bool isBCMStatusFailed() const;
    bool isMirrorStatusFailed() const;
    bool isMirrorStatusFatal() const;
    bool isMirrorStatusSmart() const;

    // Event identifier of the wear level, 0 for none; from percent used.
    std::uint32_t getEnduranceCode() const;
    // The same from percent of life left.
    std::uint32_t getMirrorEnduranceCode() const;

    std::string getSizeString() const;
    // Overwrites the capacity of a drive above 9999 GB, so a second call divides again: call it once per
    // drive and snapshot, or on a copy.
    std::string getMirrorSizeString();
    std::string getInfoString() const;
    // As getMirrorSizeString.
    std::string getMirrorInfoString();
};

// A logical drive or volume.
class LogicalDrive {
public:
    std::int32_t number = 0;
    std::string Id;
    std::string health;
    std::string raidType;  // Redfish volumes only
    std::string state;
    std::vector<Odataid> dataDrives;   // member drives
    std::vector<Odataid> spareDrives;  // Redfish: dedicated spares

    bool isStatusOffline() const;
    // Deliberately false, always: the rules that ask it stay in place, and event 0x800081BB is switched on by
    // this alone.
    bool isStatusCritical() const;
    bool isMirrorStatusOffline() const;
    // Deliberately false, always, as isStatusCritical.
    bool isMirrorStatusCritical() const;
};

class ArrayController {
public:
    std::string Id;
    std::string model;
    std::string location;
    std::map<std::string, DiskDrive> diskDrives;
    std::map<std::string, LogicalDrive> logicalDrives;
    std::string serialNumber;
    std::string health;
    std::string state;
    std::int32_t generation = 101;  // Redfish Storage controllers: 110 for a "Gen11" one

    // An existing key is not replaced.
    void addDiskDrive(const Odataid& id, const DiskDrive& drive);
    void addLogicalDrive(const Odataid& id, const LogicalDrive& drive);
    // MODEL [LOCATION]
    std::string getInfoString() const;
};

class SmartStorage {
public:
    std::map<std::string, ArrayController> controllers;

    // An existing key is not replaced.
    void addController(const Odataid& id, const ArrayController& controller);
};

class ComputerSystem {
public:
    SmartStorage smartStorage;
    SmartStorage mirror;
};

class ServiceRoot {
public:
    using DiskDriveIterator = std::map<std::string, DiskDrive>::const_iterator;
    using LogicalDriveIterator = std::map<std::string, LogicalDrive>::const_iterator;

    std::map<std::string, ComputerSystem> systems;

    // An existing key is not replaced.
    void addComputerSystem(const Odataid& id, const ComputerSystem& system);
    void clear() { systems.clear(); }

    // The controller by the "@odata.id" texts of its system and itself, in the family that `family` names.
    // Null when there is no such system, or no such controller in it.
    const ArrayController* findController(const std::string& system, SmartStorage ComputerSystem::*family,
                                          const std::string& controller) const;

    // Look-ups by the "@odata.id" texts of system, controller and item. True when all three are found;
    // `found` then points at the item, otherwise it has no meaning.
    bool containsDiskDrive(const std::string& system, const std::string& controller, const std::string& drive,
                           DiskDriveIterator& found) const;
    bool containsLogicalDrive(const std::string& system, const std::string& controller,
                              const std::string& drive, LogicalDriveIterator& found) const;
    bool containsMirrorDiskDrive(const std::string& system, const std::string& controller,
                                 const std::string& drive, DiskDriveIterator& found) const;
    bool containsMirrorLogicalDrive(const std::string& system, const std::string& controller,
                                    const std::string& drive, LogicalDriveIterator& found) const;
};
