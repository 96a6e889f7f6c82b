// The parts of the controller's REST resources that several of them share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Plain records, owned by whoever holds them. The text of a member that a resource lacks stays empty, its
// number 0.

// A link to a resource: its path on the controller, byte for byte as the controller wrote it. The same text
// is the key of every map of the storage model.
struct Odataid {
    std::string id;

    // The path of a resource below this one: exactly one "/" between the two.
    Odataid below(const std::string& name) const;
    bool operator==(const Odataid&) const = default;
};

// A drive's or volume's "Status".
struct Status {
    std::string Health;
    std::string
        Reason;  // not in the JSON: why the health is what it is, in the one word the drive's rules test
    std::string State;
};

// The status of a whole storage subsystem. Devices that answer for themselves know only "HealthRollup"; it
// stands in then.
struct MStatus {
    std::string Health;
    std::string State;
};

// A "PhysicalLocation" or "Location" object.
struct PLocation {
    struct PartLocation2 {
        std::int64_t LocationOrdinalValue = 0;
        std::string LocationType;
        std::string ServiceLabel;
    };
    PartLocation2 PartLocation;

    // The service label; without one the type and the ordinal ("Bay 3"); empty when there is neither.
    std::string text() const;
};

// One controller of a storage subsystem: an entry of its "StorageControllers" array or a member of the
// collection that its "Controllers" link names.
struct StorageController {
    std::string Name;
    std::string Model;
    std::string SerialNumber;
    PLocation Location;
};

// A storage subsystem (one member of a system's "Storage" collection).
struct Storage {
    std::int32_t generation = 101;  // 110 when name or controller model says "Gen11"
    std::string Id;
    std::string Name;
    std::string Health;
    std::string HealthRollup;
    std::string State;
    Odataid Controllers;  // links, empty for none
    Odataid Volumes;
    std::string Model;  // these three are its controller's
    std::string SerialNumber;
    std::string ServiceLabel;
    std::vector<Odataid> Drives;

    MStatus status() const { return {Health.empty() ? HealthRollup : Health, State}; }
};

// The text without the blanks around it: devices pad their serial numbers.
std::string Trimmed(const std::string& text);

// The management controller's firmware version.
struct iLOVersion {
    std::int32_t major = 0;
    std::int32_t minor = 0;
};
