// The ways to show a StatusReport: pure functions to text, one source each. Texts of the report are made
// harmless for the format, whatever they hold.
#pragma once

#include <string>
#include <vector>

#include "colour.h"
#include "ctl-error.h"
#include "health-report.h"
#include "status-report.h"

// For a person at a terminal.
std::string RenderTable(const StatusReport& report, const Paint& paint);

// One JSON document; docs/status-json.md describes it.
std::string RenderJson(const StatusReport& report);

// Prometheus text format, for the node exporter's textfile collector.
std::string RenderPrometheus(const StatusReport& report);
// When the controller could not be read.
std::string RenderPrometheusFailure();

inline constexpr const char* kNagiosName = "BAYWARD";  // of the plugin, in front of its line
enum NagiosStatus : int { kNagiosOk = 0, kNagiosWarning = 1, kNagiosCritical = 2, kNagiosUnknown = 3 };

// What a plugin for Nagios and its kin ends with, and its one line, performance data behind "|".
struct NagiosResult {
    NagiosStatus status = kNagiosUnknown;
    std::string line;
};

// Of the service, beside the state of the storage.
struct ServiceFindings {
    std::vector<HealthProblem> problems;
    std::string performanceData;  // may be empty
};

// The worst of both; what could not be found out is worse than a warning.
NagiosResult RenderNagios(const StatusReport& report, const ServiceFindings& service);
// The same when the controller could not be read, which is unknown; `sentence` says why.
NagiosResult RenderNagiosFailure(const std::string& sentence, const ServiceFindings& service);

// One self-contained HTML page.
std::string RenderHtml(const StatusReport& report);
