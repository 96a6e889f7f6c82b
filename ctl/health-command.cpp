#include "health-command.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "clock.h"
#include "ctl-error.h"
#include "file-writing.h"
#include "health-process.h"
#include "health-trace.h"
#include "local-time.h"
#include "server-profile.h"
#include "service-param.h"
#include "settings.h"
#include "text.h"
#include "thread-names.h"

namespace {

constexpr const char* kTraceLog = "/bayward.log";
constexpr const char* kBackup = ".bak";

constexpr const char* kHiddenSentence =
    "Whether the service runs cannot be found out: not every process may be looked at here; run this with "
    "all "
    "of root's capabilities (CAP_SYS_PTRACE).";

// What the configuration asks for.
struct Asked {
    std::vector<std::string> threads = {kOsLogThread, kSerialLogThread};
    std::uint64_t serialLogCycle = 0;  // seconds
};

// The service reads its configuration at its start and cannot start without; what has become of it since is
// no matter of its health.
Asked ReadAsked(const std::string& root) {
    using tova_service::kMediaErrorCheck;
    using tova_service::kSerialLogInterval;
    tovaserverutil::Profile profile(root + tova_service::kConfigurationFile);
    bool search = kMediaErrorCheck.absent != 0;
    std::int64_t minutes = kSerialLogInterval.absent;
    try {
        profile.ReadProfile();
        search = ReadFlag(profile, kMediaErrorCheck);
        minutes = EffectiveNumber(kSerialLogInterval,
                                  static_cast<std::int32_t>(ReadUnsigned(profile, kSerialLogInterval)));
    } catch (const tovabase::TOVAExcpt&) {
        // The defaults.
    }
    Asked asked;
    if (search) {
        asked.threads.emplace_back(kMediaErrorThread);
    }
    asked.serialLogCycle = 60 * static_cast<std::uint64_t>(minutes);
    return asked;
}

// How many threads it lacks; one that is stopped does the work of none.
std::size_t Badness(const ServiceProcess& service, const std::vector<std::string>& expected) {
    return service.stopped ? expected.size() + 1
                           : static_cast<std::size_t>(std::count_if(
                                 expected.begin(), expected.end(),
                                 [&](const std::string& name) { return service.threads.count(name) == 0; }));
}

// False when it cannot be read to its end. Regular files alone are opened: at a FIFO a reader would wait.
bool ReadLog(const std::string& file, TraceReading& trace) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        return false;
    }
    std::ifstream lines(file, std::ios::binary);
    if (!lines) {
        return false;
    }
    trace.Read(lines);
    return !lines.bad();
}

// When the log is full, the service makes it the backup a moment before it begins the next one.
bool ReadLogWhenThere(const std::string& file, TraceReading& trace) {
    constexpr std::chrono::milliseconds kMoment{200};
    if (ReadLog(file, trace)) {
        return true;
    }
    std::this_thread::sleep_for(kMoment);
    return ReadLog(file, trace);
}

// The zone without the colon that may stand before it and changes nothing. Nothing for one that names a file
// of its own choice, which this process, as root, would open: what that is (a FIFO, a huge file) nobody
// answers for. The usual one, ":/etc/localtime", is what a process without a zone takes anyway.
std::optional<std::string> HarmlessZone(std::string zone) {
    zone.erase(0, zone.rfind(':', 0) == 0 ? 1 : 0);
    const bool namesFile =
        !zone.empty() && (zone.front() == ':' || zone.front() == '/' || tovaserverutil::Contains(zone, ".."));
    return namesFile ? std::nullopt : std::optional(std::move(zone));
}

// Of this process, which ends soon.
void TakeTimeZone(const std::optional<std::string>& services) {
    if (const std::optional<std::string> zone = services ? HarmlessZone(*services) : std::nullopt) {
        setenv("TZ", zone->c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tovaserverutil::FollowTimeZone();
}

// What the log tells of a run that began then; notes in the report when it cannot be read. A backup need not
// be there.
TraceReading ReadTrace(const std::string& root, HealthReport& report) {
    // A stamp has whole seconds, and so has the time of the start, which is the difference of two others.
    constexpr std::uint64_t kInaccuracy = 2;
    const std::string log = std::string(tova_service::kLogDirectory) + kTraceLog;
    TraceReading trace(report.startedAt - std::min(report.startedAt, kInaccuracy));
    ReadLog(root + log + kBackup, trace);
    if (!ReadLogWhenThere(root + log, trace)) {
        report.unreadTrace = log;
    }
    return trace;
}

}  // namespace

HealthReport ReadHealth(const CtlDoors& doors) {
    if (doors.user != 0) {
        throw CtlError("\"baywardctl health\" needs root; run it with sudo.");
    }
    HealthReport report;
    report.readAt = tovaserverutil::WallClock().Now();
    const ServiceSearch search = FindService(doors.root, doors.programFolder + "/bayward");
    if (search.hidden) {
        report.unknown = kHiddenSentence;
    }
    if (search.instances.empty()) {
        return report;
    }
    const Asked asked = ReadAsked(doors.root);
    const std::vector<std::string>& expected = asked.threads;
    const auto service = std::max_element(search.instances.begin(), search.instances.end(),
                                          [&](const ServiceProcess& a, const ServiceProcess& b) {
                                              return Badness(a, expected) < Badness(b, expected);
                                          });
    for (const ServiceProcess& instance : search.instances) {
        if (instance.pid != service->pid) {
            report.others.push_back(instance.pid);
        }
    }
    report.stopped = service->stopped;
    report.running = true;
    report.pid = service->pid;
    report.startedAt = report.readAt - std::min(report.readAt, service->ageSeconds);
    report.replaced = service->replaced;
    report.descriptors = service->descriptors;
    report.mostDescriptors = service->mostDescriptors;
    report.connections = service->connections;
    report.residentBytes = service->residentBytes;
    TakeTimeZone(service->timeZone);
    const TraceReading trace = ReadTrace(doors.root, report);
    for (const char* name : {kOsLogThread, kSerialLogThread, kMediaErrorThread}) {
        ThreadHealth thread;
        thread.name = name;
        thread.expected = std::count(expected.begin(), expected.end(), name) != 0;
        thread.lives = service->threads.count(name) != 0;
        thread.trace = trace.Of(name);
        ForgetWhatIsOver(thread.trace, report.readAt, asked.serialLogCycle);
        report.threads.push_back(std::move(thread));
    }
    return report;
}

int HealthCommand::Run() {
    try {
        const HealthReport report = ReadHealth(m_doors);
        Put(Render(report));
        return static_cast<int>(HealthLevelOf(report));
    } catch (const CtlError& failure) {
        if (!PutFailure(failure.what()) || m_format != HealthFormat::kNagios) {
            throw;
        }
        return static_cast<int>(HealthLevel::kUnknown);
    }
}

// Whoever collects the results would take the ones before for the present ones.
bool HealthCommand::PutFailure(const std::string& sentence) {
    if (m_format == HealthFormat::kTable && m_file.empty()) {
        return false;  // people read standard error
    }
    HealthReport report;
    report.readAt = tovaserverutil::WallClock().Now();
    report.unknown = sentence;
    try {
        Put(Render(report));
        return true;
    } catch (const CtlError&) {
        return false;
    }
}

std::string HealthCommand::Render(const HealthReport& report) const {
    switch (m_format) {
        case HealthFormat::kTable:
            return RenderHealthTable(report, m_file.empty() ? m_doors.paint : Paint(false));
        case HealthFormat::kJson:
            return RenderHealthJson(report);
        case HealthFormat::kPrometheus:
            return RenderHealthPrometheus(report);
        case HealthFormat::kNagios:
            break;
    }
    return RenderHealthNagios(report);
}

void HealthCommand::Put(const std::string& text) {
    PutResult(text, m_file, m_doors.out);
}
