// What "baywardctl status" knows when it has read the controller: plain records, which the renderers show.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// How bad something is; the worse, the greater.
enum class Level { kOk, kWarning, kCritical };

// "ok", "warning", "critical".
const char* LevelName(Level level);

// An event that the service reports once when the item enters the state that it is in.
struct ReportedState {
    std::uint32_t id = 0;
    Level level = Level::kWarning;  // of an error event: critical
    std::string phrase;             // a word or two, for tables
    std::string sentence;           // as the system log gets it; may have several lines
};

// Texts that the controller does not tell are empty. Identifiers are resource paths without the last slash;
// they stay the same from read to read.

struct DriveStatus {
    std::string id;
    std::string location;
    std::string model;
    std::string serialNumber;
    std::string firmware;
    std::string mediaType;
    std::string size;                    // as messages show it
    std::optional<std::uint64_t> bytes;  // of controllers of the Redfish family a multiple of a gigabyte
    std::string health;
    std::string state;
    std::vector<std::string> reasons;  // of its health; empty when there are none
    bool failurePredicted = false;
    std::optional<int> lifeLeft;  // percent; nothing for hard disks and for drives that do not tell it
    int wearLevel = 0;            // percent of the rated life that is used at least: 80, 90, 95; 0 for less
    std::vector<ReportedState> reported;
    Level level = Level::kOk;
};

struct LogicalDriveStatus {
    std::string id;
    std::int32_t number = 0;
    std::string raid;
    std::string health;
    std::string state;
    std::size_t memberDrives = 0;
    std::vector<ReportedState> reported;
    Level level = Level::kOk;
};

struct ControllerStatus {
    std::string id;
    std::string model;
    std::string location;
    std::string serialNumber;
    std::string health;
    std::string state;
    std::vector<DriveStatus> drives;                // in the order of their places
    std::vector<LogicalDriveStatus> logicalDrives;  // in the order of their numbers
    Level level = Level::kOk;                       // of the controller alone

    // As messages show it: "MODEL [LOCATION]".
    std::string Name() const { return model + " [" + location + "]"; }
};

struct SystemStatus {
    std::string id;
    std::vector<ControllerStatus> controllers;
};

struct StatusReport {
    std::string host;
    std::string url;                  // of the management controller
    std::string version;              // of its firmware
    bool connectionVerified = false;  // the certificate, with the configured CA file
    std::uint64_t readAt = 0;         // seconds since the epoch
    std::chrono::milliseconds duration{};
    unsigned requests = 0;  // resources that were read; some come several to a request
    std::vector<SystemStatus> systems;
};

// ---- Summing up ----

struct Tally {
    std::size_t total = 0;
    std::size_t warning = 0;
    std::size_t critical = 0;

    void Add(Level level);
};

Tally TallyControllers(const StatusReport& report);
Tally TallyDrives(const StatusReport& report);
Tally TallyLogicalDrives(const StatusReport& report);
// Of the controller and everything on it.
Level WorstLevel(const ControllerStatus& controller);
Level WorstLevel(const StatusReport& report);

// Of a drive or logical drive, for people: the health, and the state where it is not the usual one.
std::string StatusText(const std::string& health, const std::string& state);
// The phrases of what is reported, separated by commas.
std::string Phrases(const std::vector<ReportedState>& reported);
// UTC, "2026-01-31T23:59:59Z".
std::string TimeText(std::uint64_t secondsSinceEpoch);
// "3 drives", "1 drive".
std::string Counted(std::size_t count, const std::string& what);
