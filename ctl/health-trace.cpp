#include "health-trace.h"

#include <ctime>
#include <string_view>

#include "account-text.h"
#include "thread-names.h"

namespace {

constexpr std::string_view kRunBegins = "<VK0900> [TR] MainRoutine started.";
constexpr std::string_view kReason = "<VK0888> [TR] ";

// What is told is the line's own sentence, or the mark's.
enum class Tells {
    kCreated,  // by who starts the thread, which says so itself at once
    kBegin,    // nothing has succeeded or failed yet
    kSuccess,
    kFailure,
    kCycleFailure,  // comes again in each cycle until one succeeds, which writes nothing
    kHint,          // may be a failure: hosts without a Smart Array controller need no diagnostic tool
    kCycleHint,     // the same, in each cycle
    kActivity,
};

constexpr const char* kToolFails = "the diagnostic tool fails";
constexpr const char* kNoArchive = "the diagnostic archive could not be saved";
constexpr const char* kNoPruning = "old archives cannot be listed or removed; see the trace log";

// Which thread writes the lines that begin so, and what they tell. Success and failure are told by lines that
// undo each other alone: a failed look at the controller, say, is followed by none when the next one
// succeeds.
struct Mark {
    std::string_view start;
    const char* thread;
    Tells tells;
    const char* says = nullptr;
};

constexpr Mark kMarks[] = {
    {"<VK0900> [TR] Create thread for OS log.", kOsLogThread, Tells::kCreated},
    {"<VK0900> [TR] Create thread for Serial log.", kSerialLogThread, Tells::kCreated},
    {"<VK0900> [TR] Create thread for Media Error.", kMediaErrorThread, Tells::kCreated},
    {"<VK0900> [TR] Start to monitor.", kOsLogThread, Tells::kBegin},
    {"<VK0900> [TR] Retry accessing vNIC.", kOsLogThread, Tells::kFailure},
    {"<VK0900> [TR] Break MonitorLogRoutine", kOsLogThread, Tells::kActivity},
    {"<VK0900> [ER] Failed to build RAID information.", kOsLogThread, Tells::kFailure},
    {"<VK0902> [ER] service 1450 ", kOsLogThread, Tells::kFailure},
    {"<VK0902> [ER] service 1454 ", kOsLogThread, Tells::kFailure},
    {"<VK0910> ", kOsLogThread, Tells::kFailure},
    {"<VK0911> ", kOsLogThread, Tells::kFailure},
    {"<VK0912> ", kOsLogThread, Tells::kFailure},
    {"<VK0913> ", kOsLogThread, Tells::kFailure},
    {"<VK0914> ", kOsLogThread, Tells::kFailure},
    {"<VK0950> ", kOsLogThread, Tells::kSuccess},
    {"<VK0954> ", kOsLogThread, Tells::kFailure},
    {"<VK0956> ", kOsLogThread, Tells::kFailure},
    {"<VK0999> ", kOsLogThread, Tells::kActivity},
    {"<VK0900> [TR] Start cyclic serial log saving.", kSerialLogThread, Tells::kBegin},
    {"<VK0900> [TR] Break SerialLogRoutine", kSerialLogThread, Tells::kActivity},
    {"<VK0902> [ER] service 1537 ", kSerialLogThread, Tells::kFailure},
    {"<VK0902> [ER] service 1540 ", kSerialLogThread, Tells::kFailure},
    {"<VK0902> [ER] log-manager 98 ", kSerialLogThread, Tells::kCycleHint, kNoArchive},
    {"<VK0902> [ER] log-manager 215", kSerialLogThread, Tells::kCycleFailure, kNoArchive},
    {"<VK0902> [ER] log-manager 237 ", kSerialLogThread, Tells::kCycleFailure, kNoPruning},
    {"<VK0902> [ER] log-manager 324 ", kSerialLogThread, Tells::kCycleFailure, kNoPruning},
    {"<VK0902> [ER] log-manager 333 ", kSerialLogThread, Tells::kCycleFailure, kNoPruning},
    {"<VK0902> [ER] log-manager 340", kSerialLogThread, Tells::kCycleFailure, kNoPruning},
    {"<VK0902> [ER] log-manager 346 ", kSerialLogThread, Tells::kCycleFailure, kNoPruning},
    {"<VK0900> [TR] Start cyclic Media Error search.", kMediaErrorThread, Tells::kBegin},
    {"<VK0900> [TR] Break MediaErrorRoutine", kMediaErrorThread, Tells::kActivity},
    {"<VK0902> [ER] media-error ", kMediaErrorThread, Tells::kFailure},
    {"<VK0902> [ER] log-manager 118 ", kMediaErrorThread, Tells::kHint, kToolFails},
    {"[EV] (", kMediaErrorThread, Tells::kActivity},
};

// "YYYY/MM/DD HH:MM:SS.mmm ", local time; 0 for anything else.
constexpr std::size_t kStampBytes = 24;

std::uint64_t TimeOf(const std::string& line) {
    std::tm local{};
    const char* rest =
        line.size() > kStampBytes ? strptime(line.c_str(), "%Y/%m/%d %H:%M:%S.", &local) : nullptr;
    if (rest == nullptr || line[kStampBytes - 1] != ' ') {
        return 0;
    }
    local.tm_isdst = -1;
    const std::time_t time = std::mktime(&local);
    return time < 0 ? 0 : static_cast<std::uint64_t>(time);
}

// The text without "<VK0956> [ER] ".
std::string Sentence(std::string_view line) {
    const std::size_t kind = line.find("] ");
    return Printable(std::string(kind == std::string_view::npos ? line : line.substr(kind + 2)));
}

// Each look at the controller writes such lines about every drive.
bool IsAboutDrive(std::string_view text) {
    for (const char* about : {"statusReasons=", "ssdEnduranceUtilizationPercentage="}) {
        if (text.find(about) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

bool IsOutcome(Tells tells) {
    return tells != Tells::kActivity && tells != Tells::kCreated;
}

void Take(const Mark& mark, std::string_view text, std::uint64_t time, ThreadTrace& thread) {
    const bool isFirst = thread.lastAt == 0;  // the thread itself may be faster than who starts it
    thread.lastAt = time;
    thread.looks = thread.looks || IsAboutDrive(text);
    thread.owesLine = mark.tells == Tells::kCreated ? isFirst : thread.looks;
    if (IsOutcome(mark.tells)) {
        thread.outcomeAt = time;
        thread.outcome = mark.says != nullptr ? mark.says : Sentence(text);
        thread.began = mark.tells == Tells::kBegin;
        thread.works = mark.tells == Tells::kSuccess;
        thread.failing = mark.tells == Tells::kFailure || mark.tells == Tells::kCycleFailure;
        thread.recurs = mark.tells == Tells::kCycleFailure || mark.tells == Tells::kCycleHint;
    }
}

}  // namespace

void ForgetWhatIsOver(ThreadTrace& trace, std::uint64_t now, std::uint64_t cycle) {
    constexpr std::uint64_t kToolTime = 60 * 60;  // what the cycle's tool takes is half of it at most
    if (trace.recurs && now > trace.outcomeAt + cycle + kToolTime) {
        trace.outcome.clear();
        trace.failing = trace.recurs = false;
    }
}

void TraceReading::Read(std::istream& lines) {
    for (std::string line; std::getline(lines, line);) {
        TakeLine(line);
    }
}

ThreadTrace TraceReading::Of(const std::string& thread) const {
    const auto found = m_threads.find(thread);
    return found == m_threads.end() ? ThreadTrace{} : found->second;
}

void TraceReading::TakeLine(const std::string& line) {
    const std::uint64_t time = TimeOf(line);
    if (time == 0 || time < m_since) {
        return;
    }
    const std::string_view text = std::string_view(line).substr(kStampBytes);
    if (text.substr(0, kRunBegins.size()) == kRunBegins) {
        m_threads.clear();
        m_reason.clear();
        return;
    }
    if (text.substr(0, kReason.size()) == kReason) {
        m_threads[kOsLogThread].lastAt = time;
        m_reason = Sentence(text);
        return;
    }
    for (const Mark& mark : kMarks) {
        if (text.substr(0, mark.start.size()) != mark.start) {
            continue;
        }
        ThreadTrace& thread = m_threads[mark.thread];
        Take(mark, text, time, thread);
        if (mark.thread == kOsLogThread && IsOutcome(mark.tells)) {
            thread.outcome += thread.failing && !m_reason.empty() ? " (" + m_reason + ")" : "";
            m_reason.clear();
        }
        return;
    }
}
