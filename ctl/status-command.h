// What "baywardctl status" does.
#pragma once

#include <optional>
#include <string>

#include "commands.h"
#include "message-format.h"
#include "request-cutter.h"
#include "status-read.h"
#include "status-render.h"

enum class StatusFormat { kTable, kJson, kPrometheus, kNagios, kHtml };

// Reads the controller once and shows what it says; changes nothing but the file that it is told to write.
class StatusCommand {
public:
    // An empty `file` stands for standard output.
    StatusCommand(const CtlDoors& doors, StatusFormat format, std::string file,
                  RequestCutter::Limits limits = {})
        : m_doors(doors), m_format(format), m_file(std::move(file)), m_limits(limits) {}

    // Returns the exit status: kDone, for Nagios a NagiosStatus, in which the service's health has its part,
    // after a signal 128 and its number. Throws CtlError; in the format for Prometheus the failure is
    // written, too, and in that for Nagios it is a result: no exception then.
    //
    // When a signal has come and the limits do not end the read, the process ends here, with that status.
    int Run();

private:
    int ShowStatus();
    // Nothing when a signal ended the read.
    std::optional<StatusReport> Read();
    // Not complete when a signal ended it; m_stopped tells of that then.
    ControllerRead ReadUntilStopped(const ControllerSettings& settings, const RegisteredAccount& account);
    tova_service::MessageCatalogue LoadCatalogue() const;
    std::string Language() const;
    std::string Render(const StatusReport& report) const;
    std::string ServiceMetrics() const;
    ServiceFindings FindInService() const;
    int PutNagios(const NagiosResult& result);
    void Put(const std::string& text);
    void TellStopped(const char* sentence) const;

    const CtlDoors& m_doors;
    StatusFormat m_format;
    std::string m_file;
    RequestCutter::Limits m_limits;
    int m_signal = 0;
    const char* m_stopped = "";  // the sentence for a read that a signal ended
};
