#include "status-report.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

template <typename Visit>
void ForEachController(const StatusReport& report, const Visit& visit) {
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            visit(controller);
        }
    }
}

}  // namespace

const char* LevelName(Level level) {
    switch (level) {
        case Level::kOk:
            return "ok";
        case Level::kWarning:
            return "warning";
        case Level::kCritical:
            break;
    }
    return "critical";
}

void Tally::Add(Level level) {
    ++total;
    warning += level == Level::kWarning ? 1 : 0;
    critical += level == Level::kCritical ? 1 : 0;
}

Tally TallyControllers(const StatusReport& report) {
    Tally tally;
    ForEachController(report, [&](const ControllerStatus& controller) { tally.Add(controller.level); });
    return tally;
}

Tally TallyDrives(const StatusReport& report) {
    Tally tally;
    ForEachController(report, [&](const ControllerStatus& controller) {
        for (const DriveStatus& drive : controller.drives) {
            tally.Add(drive.level);
        }
    });
    return tally;
}

Tally TallyLogicalDrives(const StatusReport& report) {
    Tally tally;
    ForEachController(report, [&](const ControllerStatus& controller) {
        for (const LogicalDriveStatus& drive : controller.logicalDrives) {
            tally.Add(drive.level);
        }
    });
    return tally;
}

Level WorstLevel(const ControllerStatus& controller) {
    Level worst = controller.level;
    for (const LogicalDriveStatus& drive : controller.logicalDrives) {
        worst = std::max(worst, drive.level);
    }
    for (const DriveStatus& drive : controller.drives) {
        worst = std::max(worst, drive.level);
    }
    return worst;
}

Level WorstLevel(const StatusReport& report) {
    Level worst = Level::kOk;
    ForEachController(
        report, [&](const ControllerStatus& controller) { worst = std::max(worst, WorstLevel(controller)); });
    return worst;
}

std::string StatusText(const std::string& health, const std::string& state) {
    const std::string shown = health.empty() ? "-" : health;
    return state.empty() || state == "Enabled" ? shown : shown + ", " + state;
}

std::string Phrases(const std::vector<ReportedState>& reported) {
    std::string phrases;
    for (const ReportedState& state : reported) {
        phrases += (phrases.empty() ? "" : ", ") + state.phrase;
    }
    return phrases;
}

std::string TimeText(std::uint64_t secondsSinceEpoch) {
    const auto seconds = static_cast<std::time_t>(secondsSinceEpoch);
    std::tm parts{};
    char text[32] = {};
    if (gmtime_r(&seconds, &parts) != nullptr) {
        (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    }
    return text;
}

std::string Counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}
