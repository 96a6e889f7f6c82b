// "baywardctl status --format nagios".
#include <algorithm>
#include <vector>

#include "status-render.h"

namespace {

// What is wrong with single items, worst first.
struct Problem {
    Level level;
    std::string text;
};

constexpr std::size_t kShownProblems = 4;
constexpr std::size_t kMostText = 160;  // bytes of one problem: some schedulers cut the line at 1024

// A plugin's text is one line, and "|" ends it.
std::string PluginText(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < ' ' || character == '\x7f') {
            character = ' ';
        } else if (character == '|') {
            character = '/';
        }
    }
    return text;
}

// At most kMostText bytes, whole characters.
std::string Shortened(std::string text) {
    if (text.size() <= kMostText) {
        return text;
    }
    std::size_t end = kMostText;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end) + "...";
}

template <typename Item>
std::string WhatIsWrong(const Item& item) {
    return item.reported.empty() ? StatusText(item.health, item.state) : Phrases(item.reported);
}

void AddProblem(std::vector<Problem>& problems, Level level, const std::string& text) {
    if (level != Level::kOk) {
        problems.push_back({level, Shortened(PluginText(text))});
    }
}

std::vector<Problem> ProblemsOf(const StatusReport& report) {
    std::vector<Problem> problems;
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            const std::string name = controller.Name();
            for (const LogicalDriveStatus& drive : controller.logicalDrives) {
                AddProblem(
                    problems, drive.level,
                    name + " logical drive " + std::to_string(drive.number) + " " + WhatIsWrong(drive));
            }
            for (const DriveStatus& drive : controller.drives) {
                AddProblem(problems, drive.level,
                           name + " drive " + drive.location + " " + WhatIsWrong(drive));
            }
            AddProblem(problems, controller.level,
                       name + " " + StatusText(controller.health, controller.state));
        }
    }
    std::stable_sort(problems.begin(), problems.end(),
                     [](const Problem& left, const Problem& right) { return left.level > right.level; });
    return problems;
}

std::string Joined(const std::vector<Problem>& problems) {
    std::string text;
    for (std::size_t i = 0; i < std::min(problems.size(), kShownProblems); ++i) {
        text += (i == 0 ? "" : "; ") + problems[i].text;
    }
    if (problems.size() > kShownProblems) {
        text += "; and " + std::to_string(problems.size() - kShownProblems) + " more";
    }
    return text;
}

// Label=value;warning;critical;least;most. One item that is in the state is too many.
std::string TallyData(const std::string& label, const Tally& tally) {
    const std::string most = ";0;" + std::to_string(tally.total);
    return label + "=" + std::to_string(tally.total) + ";;;0 " + label +
           "_warning=" + std::to_string(tally.warning) + ";0;" + most + " " + label +
           "_critical=" + std::to_string(tally.critical) + ";;0" + most;
}

std::string PerformanceData(const StatusReport& report) {
    std::string data = TallyData("controllers", TallyControllers(report)) + " " +
                       TallyData("logical_drives", TallyLogicalDrives(report)) + " " +
                       TallyData("drives", TallyDrives(report));
    std::optional<int> least;
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            for (const DriveStatus& drive : controller.drives) {
                if (drive.lifeLeft) {
                    least = std::min(least.value_or(100), *drive.lifeLeft);
                }
            }
        }
    }
    if (least) {
        // The service warns from 20 percent on downwards, and calls it an error from 5 on.
        data += " life_left_min=" + std::to_string(*least) + "%;21:;6:;0;100";
    }
    return data + " requests=" + std::to_string(report.requests) +
           ";;;0 time=" + std::to_string(report.duration.count()) + "ms;;;0";
}

const char* StatusWord(NagiosStatus status) {
    constexpr const char* kWords[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return kWords[status];
}

std::string Line(NagiosStatus status, const std::string& text, const std::string& data) {
    return std::string("BAYWARD ") + StatusWord(status) + " - " + text + (data.empty() ? "" : " | ") + data +
           "\n";
}

}  // namespace

NagiosStatus NagiosStatusOf(const StatusReport& report) {
    switch (WorstLevel(report)) {
        case Level::kOk:
            return kNagiosOk;
        case Level::kWarning:
            return kNagiosWarning;
        case Level::kCritical:
            break;
    }
    return kNagiosCritical;
}

std::string RenderNagios(const StatusReport& report) {
    const std::vector<Problem> problems = ProblemsOf(report);
    const std::string all = Counted(TallyDrives(report).total, "drive") + ", " +
                            Counted(TallyLogicalDrives(report).total, "logical drive");
    return Line(NagiosStatusOf(report),
                problems.empty() ? all + ", all well" : Joined(problems) + " (" + all + ")",
                PerformanceData(report));
}

std::string RenderNagiosFailure(const std::string& sentence) {
    return Line(kNagiosUnknown, PluginText(sentence), {});
}
