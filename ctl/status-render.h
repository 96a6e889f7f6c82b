// The ways to show a StatusReport: pure functions to text, one source each. Texts of the report are made
// harmless for the format, whatever they hold.
#pragma once

#include <string>

#include "colour.h"
#include "ctl-error.h"
#include "status-report.h"

// For a person at a terminal.
std::string RenderTable(const StatusReport& report, const Paint& paint);

// One JSON document; docs/status-json.md describes it.
std::string RenderJson(const StatusReport& report);

// Prometheus text format, for the node exporter's textfile collector.
std::string RenderPrometheus(const StatusReport& report);
// When the controller could not be read.
std::string RenderPrometheusFailure();

// What a plugin for Nagios and its kin says: one line, performance data behind "|".
std::string RenderNagios(const StatusReport& report);
// The same when the controller could not be read; `sentence` says why.
std::string RenderNagiosFailure(const std::string& sentence);
enum NagiosStatus : int { kNagiosOk = 0, kNagiosWarning = 1, kNagiosCritical = 2, kNagiosUnknown = 3 };
NagiosStatus NagiosStatusOf(const StatusReport& report);

// One self-contained HTML page.
std::string RenderHtml(const StatusReport& report);
