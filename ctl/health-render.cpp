// "baywardctl health", as table, as JSON, for Prometheus and for Nagios.
#include <algorithm>
#include <sstream>

#include "colour.h"
#include "health-report.h"
#include "health-text.h"
#include "json-text.h"
#include "nagios-text.h"
#include "prometheus-text.h"
#include "status-report.h"
#include "table-text.h"

namespace {

constexpr int kJsonVersion = 1;

std::string StateOf(const ThreadHealth& thread) {
    if (thread.lives) {
        return "lives";
    }
    return thread.expected ? "ended" : "off";
}

std::string OutcomeOf(const HealthReport& report, const ThreadHealth& thread) {
    if (thread.trace.outcome.empty()) {
        return "-";
    }
    const ThreadTrace& trace = thread.trace;
    const char* const kind = trace.failing ? "fails: "
                             : trace.works ? "works: "
                             : trace.began ? "began: "
                                           : "";
    return kind + thread.trace.outcome + " (" + AgeText(AgeOf(report, thread.trace.outcomeAt)) + " ago)";
}

std::string Flag(bool value) {
    return value ? "true" : "false";
}

std::string ThreadJson(const HealthReport& report, const ThreadHealth& thread) {
    const std::string at =
        thread.trace.outcome.empty() ? "null" : JsonString(TimeText(thread.trace.outcomeAt));
    return "{\"name\":" + JsonString(thread.name) + ",\"expected\":" + Flag(thread.expected) +
           ",\"lives\":" + Flag(thread.lives) + ",\"last_line_at\":" +
           (thread.trace.lastAt == 0 ? "null" : JsonString(TimeText(thread.trace.lastAt))) +
           ",\"silent\":" + Flag(IsSilent(report, thread)) + ",\"failing\":" + Flag(thread.trace.failing) +
           ",\"outcome\":" + (thread.trace.outcome.empty() ? "null" : JsonString(thread.trace.outcome)) +
           ",\"outcome_at\":" + at + "}";
}

std::string Gauge(const char* name, const char* help, const std::string& value) {
    Metric metric(name, help);
    metric.Add({}, value);
    return metric.Text();
}

std::string NagiosLine(HealthLevel level, const std::string& text, const std::string& data) {
    return PluginLine(kHealthPluginName, static_cast<int>(level), PluginText(text), data);
}

std::size_t LivingThreads(const HealthReport& report) {
    return static_cast<std::size_t>(std::count_if(report.threads.begin(), report.threads.end(),
                                                  [](const ThreadHealth& thread) { return thread.lives; }));
}

}  // namespace

std::string RenderHealthTable(const HealthReport& report, const Paint& paint) {
    std::ostringstream out;
    if (report.running) {
        out << paint.Bold("bayward") << " runs as process " << report.pid << " since "
            << TimeText(report.startedAt) << " (" << AgeText(AgeOf(report, report.startedAt)) << ")\n"
            << Counted(report.descriptors, "descriptor");
        if (report.mostDescriptors != 0) {
            out << " of " << report.mostDescriptors;
        }
        out << ", " << Counted(report.connections, "connection") << " to the controller, "
            << report.residentBytes / (1024 * 1024) << " MiB of memory\n\n";
        TextTable table({"THREAD", "STATE", "LAST LINE", "WHAT IT TELLS"});
        for (const ThreadHealth& thread : report.threads) {
            table.Add({thread.name, StateOf(thread),
                       thread.trace.lastAt == 0 ? "-" : AgeText(AgeOf(report, thread.trace.lastAt)) + " ago",
                       OutcomeOf(report, thread)});
        }
        table.Write(out, paint);
        out << '\n';
    }
    const std::vector<HealthProblem> problems = HealthProblems(report);
    for (const HealthProblem& problem : problems) {
        out << paint.Red(problem.sentence) << '\n';
    }
    if (problems.empty()) {
        out << paint.Green("All is well.") << '\n';
    }
    return out.str();
}

std::string RenderHealthJson(const HealthReport& report) {
    std::string text = "{\"version\":" + std::to_string(kJsonVersion) +
                       ",\"read_at\":" + JsonString(TimeText(report.readAt)) +
                       ",\"running\":" + (report.unknown.empty() ? Flag(report.running) : "null");
    if (report.running) {
        text += ",\"pid\":" + std::to_string(report.pid) + ",\"stopped\":" + Flag(report.stopped) +
                ",\"started_at\":" + JsonString(TimeText(report.startedAt)) +
                ",\"uptime_seconds\":" + std::to_string(AgeOf(report, report.startedAt)) +
                ",\"executable_replaced\":" + Flag(report.replaced) +
                ",\"descriptors\":" + std::to_string(report.descriptors) + ",\"descriptor_limit\":" +
                (report.mostDescriptors == 0 ? "null" : std::to_string(report.mostDescriptors)) +
                ",\"connections\":" + std::to_string(report.connections) +
                ",\"resident_bytes\":" + std::to_string(report.residentBytes) + ",\"threads\":[";
        for (const ThreadHealth& thread : report.threads) {
            text += (&thread == &report.threads.front() ? "" : ",") + ThreadJson(report, thread);
        }
        text += "]";
    }
    text += ",\"problems\":[";
    bool first = true;
    for (const HealthProblem& problem : HealthProblems(report)) {
        text += (first ? "" : ",") + JsonString(problem.sentence);
        first = false;
    }
    return text + "]}\n";
}

std::string RenderHealthPrometheus(const HealthReport& report) {
    if (!report.unknown.empty()) {
        // Neither 0 nor 1 is true, and a metric that is absent is what alerts on what is unknown look for.
        return "# " + report.unknown + "\n";
    }
    std::string text = Gauge("bayward_service_up", "Whether the service is running.",
                             report.running && !report.stopped ? "1" : "0");
    if (!report.running) {
        return text;
    }
    Metric lives("bayward_service_thread_up", "Whether the thread of the service lives.");
    Metric expected("bayward_service_thread_expected", "Whether the configuration asks for the thread.");
    Metric failing("bayward_service_thread_failing",
                   "Whether the trace log tells that the thread's work fails.");
    Metric silent("bayward_service_thread_silent",
                  "Whether the thread writes nothing to the trace log though it should.");
    Metric lastLine("bayward_service_thread_last_line_timestamp_seconds",
                    "When the thread last wrote to the trace log; a healthy one may be silent.");
    for (const ThreadHealth& thread : report.threads) {
        const Metric::Labels labels = {{"thread", thread.name}};
        lives.Add(labels, thread.lives ? "1" : "0");
        expected.Add(labels, thread.expected ? "1" : "0");
        failing.Add(labels, thread.trace.failing ? "1" : "0");
        silent.Add(labels, IsSilent(report, thread) ? "1" : "0");
        if (thread.trace.lastAt != 0) {
            lastLine.Add(labels, std::to_string(thread.trace.lastAt));
        }
    }
    text +=
        lives.Text() + expected.Text() + failing.Text() + silent.Text() + lastLine.Text() +
        Gauge("bayward_service_start_time_seconds", "When the service was started.",
              std::to_string(report.startedAt)) +
        Gauge("bayward_service_executable_replaced",
              "Whether the service runs an executable that has been replaced.", report.replaced ? "1" : "0") +
        Gauge("bayward_service_open_fds", "Descriptors that the service has open.",
              std::to_string(report.descriptors));
    if (report.mostDescriptors != 0) {
        text += Gauge("bayward_service_max_fds", "Descriptors that the service may have open.",
                      std::to_string(report.mostDescriptors));
    }
    return text +
           Gauge("bayward_service_controller_connections", "TCP connections to the management controller.",
                 std::to_string(report.connections)) +
           Gauge("bayward_service_resident_memory_bytes", "Memory of the service that is in RAM.",
                 std::to_string(report.residentBytes));
}

std::string HealthPerformanceData(const HealthReport& report) {
    return report.running ? "threads=" + std::to_string(LivingThreads(report)) +
                                ";;;0 descriptors=" + std::to_string(report.descriptors) +
                                ";;;0 connections=" + std::to_string(report.connections) +
                                ";;;0 memory=" + std::to_string(report.residentBytes) +
                                "B;;;0 uptime=" + std::to_string(AgeOf(report, report.startedAt)) + "s;;;0"
                          : "";
}

std::string RenderHealthNagios(const HealthReport& report) {
    std::string text;
    for (const HealthProblem& problem : HealthProblems(report)) {
        text += (text.empty() ? "" : " ") + problem.sentence;
    }
    if (text.empty()) {
        text = "running for " + AgeText(AgeOf(report, report.startedAt)) + ", " +
               Counted(LivingThreads(report), "thread");
    }
    return NagiosLine(HealthLevelOf(report), text, HealthPerformanceData(report));
}
