#include "status-command.h"

#include <unistd.h>

#include "account-text.h"
#include "clock.h"
#include "controller-access.h"
#include "file-writing.h"
#include "health-command.h"
#include "status-model.h"
#include "status-progress.h"
#include "status-read.h"
#include "status-signals.h"
#include "system-info.h"

using tova_service::MessageCatalogue;

namespace {

constexpr int kSignalStatus = 128;  // the exit status after a signal is this and its number

// What a signal came to.
constexpr const char* kStoppedInOrder = "Stopped before the controller was read; its session is closed.";
constexpr const char* kStoppedAtFailure = "Stopped before the controller was read.";
constexpr const char* kStoppedAtHang =
    "Stopped before the controller was read; the request that it did not answer was given up.";
constexpr const char* kStoppedForGood =
    "Stopped before the controller was read; it does not answer, so a session may stay there until it "
    "expires.";

const char* StoppedSentence(bool failed, RequestCutter::Cut cut) {
    if (cut == RequestCutter::Cut::kLogOut) {
        return kStoppedForGood;
    }
    if (!failed) {
        return kStoppedInOrder;
    }
    return cut == RequestCutter::Cut::kRequest ? kStoppedAtHang : kStoppedAtFailure;
}

std::string HostName() {
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? Printable(name) : std::string();
}

}  // namespace

int StatusCommand::Run() {
    std::string sentence;
    try {
        return ShowStatus();
    } catch (const CtlError& failure) {
        sentence = failure.what();
    } catch (const tovabase::TOVAExcpt& failure) {
        sentence = std::string("The system refused a call (") + failure.text() + "); try again.";
    }
    if (m_format == StatusFormat::kNagios) {
        return PutNagios(RenderNagiosFailure(sentence, FindInService()));
    }
    if (m_format == StatusFormat::kPrometheus) {
        Put(ServiceMetrics() + RenderPrometheusFailure());
    }
    throw CtlError(sentence);
}

int StatusCommand::ShowStatus() {
    if (m_doors.user != 0) {
        throw CtlError("\"baywardctl status\" needs root; run it with sudo.");
    }
    const std::optional<StatusReport> report = Read();
    if (!report) {
        return kSignalStatus + m_signal;
    }
    if (m_format == StatusFormat::kNagios) {
        return PutNagios(RenderNagios(*report, FindInService()));
    }
    Put(Render(*report));
    return kDone;
}

std::optional<StatusReport> StatusCommand::Read() {
    const ControllerSettings settings = ReadControllerSettings(m_doors.root);
    const MessageCatalogue catalogue = LoadCatalogue();
    RegisteredAccount account;
    ReadRegisteredAccount(m_doors.root, m_doors.commands, account);

    StatusReport report;
    report.readAt = tovaserverutil::WallClock().Now();
    const ControllerRead read = ReadUntilStopped(settings, account);
    if (!read.complete) {
        TellStopped(m_stopped);
        return std::nullopt;
    }
    report.host = HostName();
    report.url = Printable(read.url);
    report.version = Printable(read.version);
    report.connectionVerified = read.verified;
    report.duration = read.duration;
    report.requests = read.requests;
    report.systems = DescribeSystems(read.snapshot, catalogue, Language());
    return report;
}

// The signals' way ends with the read: its limit must not take the results away that are shown later.
ControllerRead StatusCommand::ReadUntilStopped(const ControllerSettings& settings,
                                               const RegisteredAccount& account) {
    Progress progress(m_doors.progress);
    SignalStop stop(m_limits, [&](int signal) {
        progress.Clear();
        TellStopped(kStoppedForGood);
        _exit(kSignalStatus + signal);
    });
    ControllerRead read;
    bool failed = false;
    try {
        read =
            ReadController(m_doors.makeBridge(), m_doors.commands, settings, account,
                           {stop.wait(), stop.cutter(), [&](unsigned requests) { progress.Show(requests); }});
    } catch (const CtlError&) {
        // A request that failed or was cut after the signal has not failed by itself.
        if (stop.signal() == 0) {
            throw;
        }
        failed = true;
    }
    m_signal = stop.signal();
    m_stopped = StoppedSentence(failed, stop.cutter().WhatWasCut());
    return read;
}

MessageCatalogue StatusCommand::LoadCatalogue() const {
    const std::string path = m_doors.programFolder + "/" + tova_service::kMessageFile;
    MessageCatalogue catalogue;
    try {
        catalogue.Load(path);
    } catch (const tovabase::TOVAExcpt&) {
        throw CtlError("The message catalogue " + Printable(path) +
                       " cannot be read; install bayward again.");
    }
    return catalogue;
}

// The service does not start without a locale file; a look at the controller does.
std::string StatusCommand::Language() const {
    try {
        return tova_service::system_info(m_doors.root).get_country_region();
    } catch (const tovabase::TOVAExcpt&) {
        return tova_service::kDefaultLanguage;
    }
}

std::string StatusCommand::Render(const StatusReport& report) const {
    switch (m_format) {
        case StatusFormat::kTable:
            return RenderTable(report, m_file.empty() ? m_doors.paint : Paint(false));
        case StatusFormat::kJson:
            return RenderJson(report);
        case StatusFormat::kPrometheus:
            return ServiceMetrics() + RenderPrometheus(report);
        case StatusFormat::kNagios:  // has an exit status beside its text
        case StatusFormat::kHtml:
            break;
    }
    return RenderHtml(report);
}

// A service that has ended sees no drive fail, so who collects the drives' states is told. Others than root
// cannot find out.
std::string StatusCommand::ServiceMetrics() const {
    return m_doors.user == 0 ? RenderHealthPrometheus(ReadHealth(m_doors)) : std::string();
}

ServiceFindings StatusCommand::FindInService() const {
    if (m_doors.user != 0) {
        return {};
    }
    try {
        const HealthReport health = ReadHealth(m_doors);
        return {HealthProblems(health), HealthPerformanceData(health)};
    } catch (const std::exception& failure) {
        return {{{HealthLevel::kUnknown,
                  std::string("How the service is cannot be found out: ") + failure.what()}},
                {}};
    }
}

int StatusCommand::PutNagios(const NagiosResult& result) {
    Put(result.line);
    return result.status;
}

void StatusCommand::TellStopped(const char* sentence) const {
    m_doors.messages << "baywardctl: " << sentence << std::endl;  // flushed: the process may end behind it
}

void StatusCommand::Put(const std::string& text) {
    PutResult(text, m_file, m_doors.out);
}
