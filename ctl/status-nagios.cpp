// "baywardctl status --format nagios".
#include <algorithm>
#include <vector>

#include "nagios-text.h"
#include "status-render.h"

namespace {

// What is wrong with single items or with the service.
struct Problem {
    NagiosStatus status;
    std::string text;
};

constexpr std::size_t kShownProblems = 4;
constexpr std::size_t kMostText = 160;  // bytes of one problem: some schedulers cut the line at 1024

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

std::string WithoutFullStop(const std::string& sentence) {
    return !sentence.empty() && sentence.back() == '.' ? sentence.substr(0, sentence.size() - 1) : sentence;
}

template <typename Item>
std::string WhatIsWrong(const Item& item) {
    return item.reported.empty() ? StatusText(item.health, item.state) : Phrases(item.reported);
}

NagiosStatus StatusOf(Level level) {
    switch (level) {
        case Level::kOk:
            return kNagiosOk;
        case Level::kWarning:
            return kNagiosWarning;
        case Level::kCritical:
            break;
    }
    return kNagiosCritical;
}

// A HealthLevel is a plugin's exit status.
NagiosStatus StatusOf(HealthLevel level) {
    return static_cast<NagiosStatus>(level);
}

bool IsWorse(NagiosStatus left, NagiosStatus right) {
    constexpr int kRanks[] = {0, 1, 3, 2};  // by exit status
    return kRanks[left] > kRanks[right];
}

void AddProblem(std::vector<Problem>& problems, NagiosStatus status, const std::string& text) {
    if (status != kNagiosOk) {
        problems.push_back({status, Shortened(PluginText(text))});
    }
}

void AddProblem(std::vector<Problem>& problems, Level level, const std::string& text) {
    AddProblem(problems, StatusOf(level), text);
}

void PutWorstFirst(std::vector<Problem>& problems) {
    std::stable_sort(problems.begin(), problems.end(), [](const Problem& left, const Problem& right) {
        return IsWorse(left.status, right.status);
    });
}

// Among equals those of the service come first: they are few and must not be lost behind drives.
std::vector<Problem> ProblemsOf(const StatusReport& report, const ServiceFindings& service) {
    std::vector<Problem> problems;
    for (const HealthProblem& problem : service.problems) {
        AddProblem(problems, StatusOf(problem.level), WithoutFullStop(problem.sentence));
    }
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
    if (TallyControllers(report).total == 0) {
        // A server with none is hardly monitored: whatever it had is gone.
        AddProblem(problems, kNagiosWarning, "The management controller lists no storage controller");
    }
    PutWorstFirst(problems);
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

NagiosResult Result(NagiosStatus status, const std::string& text, const std::string& data) {
    return {status, PluginLine(kNagiosName, status, text, data)};
}

}  // namespace

NagiosResult RenderNagios(const StatusReport& report, const ServiceFindings& service) {
    const std::vector<Problem> problems = ProblemsOf(report, service);
    const std::string all = Counted(TallyDrives(report).total, "drive") + ", " +
                            Counted(TallyLogicalDrives(report).total, "logical drive");
    return Result(
        problems.empty() ? kNagiosOk : problems.front().status,
        problems.empty() ? all + ", all well" : Joined(problems) + " (" + all + ")",
        PerformanceData(report) + (service.performanceData.empty() ? "" : " ") + service.performanceData);
}

NagiosResult RenderNagiosFailure(const std::string& sentence, const ServiceFindings& service) {
    std::vector<Problem> problems = {{kNagiosUnknown, PluginText(sentence)}};
    for (const HealthProblem& problem : service.problems) {
        AddProblem(problems, StatusOf(problem.level), problem.sentence);
    }
    PutWorstFirst(problems);
    std::string text;
    for (const Problem& problem : problems) {
        text += (text.empty() ? "" : " ") + problem.text;
    }
    return Result(problems.front().status, text, service.performanceData);
}
