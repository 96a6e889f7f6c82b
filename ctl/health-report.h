// What "baywardctl health" knows about the running service: plain records, which the renderers show.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What a thread's lines in the trace log tell. Times are seconds since the epoch.
struct ThreadTrace {
    std::uint64_t lastAt = 0;  // of its last line of any kind; 0 for none. A healthy thread may be silent.
    // The last line that tells whether its work succeeds; empty when there is none.
    std::string outcome;
    std::uint64_t outcomeAt = 0;
    bool failing = false;   // it tells that it does not
    bool works = false;     // it tells that it does
    bool began = false;     // it tells that it began; without any of the three it is a hint
    bool recurs = false;    // the line comes again in each cycle until one succeeds, which writes nothing
    bool looks = false;     // it has told of drives, as it does at each look at the controller
    bool owesLine = false;  // after its last line another one follows within hours, whatever happens
};

struct ThreadHealth {
    std::string name;
    bool expected = true;  // by the configuration
    bool lives = false;
    ThreadTrace trace;
};

struct HealthReport {
    bool running = false;  // false: only `readAt` and `unknown` have a meaning
    std::string unknown;   // why it cannot be told whether it runs; empty when it can
    std::uint64_t readAt = 0;
    int pid = 0;  // of several instances this is the one that lacks the most threads
    std::vector<int> others;
    bool stopped = false;  // by a signal, until another lets it go on
    std::uint64_t startedAt = 0;
    bool replaced = false;  // its executable is no longer the one on disk
    std::vector<ThreadHealth> threads;
    std::string unreadTrace;  // the trace log that cannot be read, which leaves the threads' lines unknown
    std::uint64_t descriptors = 0;
    std::uint64_t mostDescriptors = 0;  // the limit; 0 for none
    std::uint64_t connections = 0;      // TCP connections, which are sessions with the controller
    std::uint64_t residentBytes = 0;
};

// What it comes to, as exit status and for monitoring systems.
// kDown: the service, or a thread that it should have, is not there, so something is watched by nobody.
enum class HealthLevel : int { kWell = 0, kOff = 1, kDown = 2, kUnknown = 3 };

struct HealthProblem {
    HealthLevel level = HealthLevel::kOff;
    std::string sentence;  // without control characters
};

// A living thread that has been silent for longer than it ever is.
bool IsSilent(const HealthReport& report, const ThreadHealth& thread);

// Empty when all is well.
std::vector<HealthProblem> HealthProblems(const HealthReport& report);
HealthLevel HealthLevelOf(const HealthReport& report);

// ---- Renderers: pure functions to text ----

class Paint;

std::string RenderHealthTable(const HealthReport& report, const Paint& paint);
std::string RenderHealthJson(const HealthReport& report);
std::string RenderHealthPrometheus(const HealthReport& report);
// What a plugin says behind "|"; empty when the service does not run.
std::string HealthPerformanceData(const HealthReport& report);
// One line, performance data behind "|".
std::string RenderHealthNagios(const HealthReport& report);
// Of that line, the name of the plugin.
inline constexpr const char* kHealthPluginName = "BAYWARD SERVICE";
