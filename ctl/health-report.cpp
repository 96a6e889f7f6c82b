#include "health-report.h"

#include <algorithm>
#include <utility>

#include "account-text.h"
#include "health-text.h"

namespace {

// So many of the descriptors in use leave room for nothing but the next failure.
constexpr std::uint64_t kTooFullPercent = 80;

// The longest pause between two looks at the controller is an hour, as is that after a refused log-in.
constexpr std::uint64_t kLongestSilence = 3 * 60 * 60;  // seconds

std::string Named(const ThreadHealth& thread) {
    return "The thread \"" + thread.name + "\"";
}

std::vector<HealthProblem> ThreadProblems(const HealthReport& report, const ThreadHealth& thread) {
    if (thread.expected && !thread.lives) {
        return {{HealthLevel::kDown,
                 Named(thread) + " has ended or never started; see the trace log and restart the service."}};
    }
    if (thread.lives && thread.trace.failing) {
        return {{HealthLevel::kOff, Named(thread) + " fails since " +
                                        AgeText(AgeOf(report, thread.trace.outcomeAt)) + ": " +
                                        thread.trace.outcome}};
    }
    if (IsSilent(report, thread)) {
        return {{HealthLevel::kOff,
                 Named(thread) + " is silent since " + AgeText(AgeOf(report, thread.trace.lastAt)) +
                     "; see whether the trace log can be written, and restart the service."}};
    }
    return {};
}

}  // namespace

bool IsSilent(const HealthReport& report, const ThreadHealth& thread) {
    return thread.lives && !thread.trace.failing && thread.trace.owesLine &&
           AgeOf(report, thread.trace.lastAt) > kLongestSilence;
}

std::string AgeText(std::uint64_t seconds) {
    constexpr std::uint64_t kMinute = 60;
    constexpr std::uint64_t kHour = 60 * kMinute;
    constexpr std::uint64_t kDay = 24 * kHour;
    if (seconds < 2 * kMinute) {
        return std::to_string(seconds) + " s";
    }
    if (seconds < 2 * kHour) {
        return std::to_string(seconds / kMinute) + " min";
    }
    return seconds < 2 * kDay ? std::to_string(seconds / kHour) + " h"
                              : std::to_string(seconds / kDay) + " days";
}

std::uint64_t AgeOf(const HealthReport& report, std::uint64_t time) {
    return report.readAt > time ? report.readAt - time : 0;
}

std::vector<HealthProblem> HealthProblems(const HealthReport& report) {
    if (!report.unknown.empty()) {
        return {{HealthLevel::kUnknown, report.unknown}};
    }
    if (!report.running) {
        return {
            {HealthLevel::kDown, "The service is not running; start it with \"systemctl start bayward\"."}};
    }
    std::vector<HealthProblem> problems;
    if (report.stopped) {
        const std::string pid = std::to_string(report.pid);
        problems.push_back({HealthLevel::kDown, "The service is stopped by a signal (process " + pid +
                                                    "); let it go on with \"kill -CONT " + pid + "\"."});
    }
    if (!report.others.empty()) {
        std::string pids;
        for (const int other : report.others) {
            pids += (pids.empty() ? "" : ", ") + std::to_string(other);
        }
        problems.push_back({HealthLevel::kOff, "The service runs more than once (process " +
                                                   std::to_string(report.pid) + " and " + pids +
                                                   "), which reports everything twice; end all but one."});
    }
    for (const ThreadHealth& thread : report.threads) {
        for (HealthProblem& problem : ThreadProblems(report, thread)) {
            problems.push_back(std::move(problem));
        }
    }
    if (!report.unreadTrace.empty()) {
        problems.push_back({HealthLevel::kOff, "The trace log " + Printable(report.unreadTrace) +
                                                   " cannot be read; what the threads do is unknown."});
    }
    if (report.mostDescriptors != 0 && report.descriptors * 100 >= report.mostDescriptors * kTooFullPercent) {
        problems.push_back({HealthLevel::kOff, "The service has " + std::to_string(report.descriptors) +
                                                   " of " + std::to_string(report.mostDescriptors) +
                                                   " descriptors in use; restart it and report this."});
    }
    if (report.replaced) {
        problems.push_back(
            {HealthLevel::kOff,
             "The service runs an executable that has been replaced; restart it to run the new one."});
    }
    return problems;
}

HealthLevel HealthLevelOf(const HealthReport& report) {
    HealthLevel worst = HealthLevel::kWell;
    for (const HealthProblem& problem : HealthProblems(report)) {
        worst = std::max(worst, problem.level);
    }
    return worst;
}
