// The one object that the service's threads share: settings, folders, trace log, system log, message
// catalogue.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "evt-data.h"
#include "message-format.h"
#include "server-profile.h"
#include "server-util.h"
#include "sys-log.h"
#include "system-info.h"

namespace tova_service {

inline constexpr const char* kConfigurationFile = "/etc/opt/tarn/bayward/bayward.conf";
inline constexpr const char* kLogDirectory = "/var/log/bayward";

// Filled before the threads start and read-only from then on, but for the controller's URL, account and
// password, which the monitoring thread alone reads and rewrites. The trace log locks itself.
class ServiceParameter {
public:
    // Finds the executable's folder through ROOT/proc/self/exe and makes it the working directory. Throws an
    // int (errno) when the link cannot be read or the folder cannot be entered, and the C string "m_TovaDir
    // empty" when the link text holds no "/". `root` goes before every absolute path that is named here
    // (empty in production), not before the link's text.
    explicit ServiceParameter(std::string root = {});
    ~ServiceParameter();
    ServiceParameter(const ServiceParameter&) = delete;
    ServiceParameter& operator=(const ServiceParameter&) = delete;

    // Reads the configuration, opens the trace log and writes "<VK0900> [TR] Initialize succeeded." to it.
    // Throws TOVAExcpt of code kFileOpen when there is no configuration file; there is no trace log then.
    void Initialize();
    // Drops the trace log and the system log.
    void Finalize();

    // The operations below need Initialize(), EventToLog needs PrepareSysLog(), too.
    // Loads the message catalogue. Throws TOVAExcpt of code kFileOpen when the file is missing.
    void PrepareMessage();
    // Opens the system log for the system's language. The sink is borrowed.
    void PrepareSysLog(system_info& info, SystemLogSink& sink = SystemLogSink::Real());

    // As ExpandMessage.
    void Format(std::string& out, std::string& text, std::vector<std::string>& params);
    // Replaces `out` by the trace-log form of an event. Returns true.
    bool FormatLog(std::string& out, unsigned long id, std::vector<std::string>& params);
    // Reports one event: the sentence of the given language (else of "default") to the system log, a line to
    // the trace log. Identifiers outside the reported ones and identifiers without any text are dropped.
    // Throws std::out_of_range when the event carries fewer parameters than its kind reads.
    void EventToLog(const std::string& language, const tovaevent::EvtData& event);

    tovaserverutil::TraceLog& Log() { return *m_traceLog; }  // only after Initialize()
    bool HasLog() const { return m_traceLog != nullptr; }

    // Settings as the configuration gives them, no range applied.
    std::uint32_t controllerInterval() const { return m_controllerInterval; }  // milliseconds
    const std::string& url() const { return m_url; }
    const std::string& account() const { return m_account; }
    const std::string& password() const { return m_password; }
    std::int32_t maxTrials() const { return m_maxTrials; }
    std::int32_t trialInterval() const { return m_trialInterval; }  // milliseconds
    const std::string& caFile() const { return m_caFile; }  // an absolute path that no root goes before
    bool expand() const { return m_expand; }
    bool reportExisting() const { return m_reportExisting; }
    bool reportControllerFailures() const { return m_reportControllerFailures; }
    std::uint32_t serialLogInterval() const { return m_serialLogInterval; }  // minutes
    // With the root in front, ready for use.
    const std::string& logDirectory() const { return m_logDirectory; }
    std::uint32_t maxFileCount() const { return m_maxFileCount; }
    bool mediaErrorCheck() const { return m_mediaErrorCheck; }
    std::uint32_t mediaErrorInterval() const { return m_mediaErrorInterval; }  // minutes
    const char* tovaDir() const { return m_TovaDir; }
    const std::string& root() const { return m_root; }

    // For the monitoring thread alone. The replaced password is wiped.
    void SetUrl(const std::string& url) { m_url = url; }
    void SetCredentials(const std::string& account, const std::string& password);

private:
    std::unique_ptr<tovaserverutil::TraceLog> m_traceLog;
    std::uint32_t m_controllerInterval = 0;
    std::string m_url;
    std::string m_account;
    std::string m_password;
    std::int32_t m_maxTrials = 0;
    std::int32_t m_trialInterval = 0;
    std::string m_caFile;
    bool m_expand = true;
    bool m_reportExisting = false;
    bool m_reportControllerFailures = false;
    std::uint32_t m_serialLogInterval = 0;
    std::string m_logDirectory;
    std::uint32_t m_maxFileCount = 0;
    bool m_mediaErrorCheck = false;
    std::uint32_t m_mediaErrorInterval = 0;
    MessageCatalogue m_catalogue;
    char m_traceLogPath[4096] = {};
    std::int32_t m_maxLogSize = 0;  // kilobytes
    std::unique_ptr<SysLog> m_sysLog;
    char m_TovaDir[4097] = {};
    std::string m_root;
};

}  // namespace tova_service

// The parameters of the running service; set by the service body before any thread starts.
extern tova_service::ServiceParameter* Parameter;
