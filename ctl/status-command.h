// What "baywardctl status" does.
#pragma once

#include <optional>
#include <string>

#include "commands.h"
#include "message-format.h"
#include "status-render.h"

enum class StatusFormat { kTable, kJson, kPrometheus, kNagios, kHtml };

// Reads the controller once and shows what it says; changes nothing but the file that it is told to write.
class StatusCommand {
public:
    // An empty `file` stands for standard output.
    StatusCommand(const CtlDoors& doors, StatusFormat format, std::string file)
        : m_doors(doors), m_format(format), m_file(std::move(file)) {}

    // Returns the exit status: kDone, for Nagios a NagiosStatus, in which the service's health has its part,
    // after a signal 128 and its number. Throws CtlError; in the format for Prometheus the failure is
    // written, too, and in that for Nagios it is a result: no exception then.
    int Run();

private:
    int ShowStatus();
    // Nothing when a signal ended the read.
    std::optional<StatusReport> Read();
    tova_service::MessageCatalogue LoadCatalogue() const;
    std::string Language() const;
    std::string Render(const StatusReport& report) const;
    std::string ServiceMetrics() const;
    ServiceFindings FindInService() const;
    int PutResult(const NagiosResult& result);
    void Put(const std::string& text);

    const CtlDoors& m_doors;
    StatusFormat m_format;
    std::string m_file;
    int m_signal = 0;
    std::string m_stopped;  // what a signal came to
};
