#include "service-param.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "secret.h"
#include "settings.h"

tova_service::ServiceParameter* Parameter = nullptr;

namespace {

constexpr const char* kExecutableLink = "/proc/self/exe";
constexpr const char* kTraceLogName = "bayward.log";
constexpr std::size_t kLogDirectoryBytes = 4084;  // what the trace-log path takes of the folder's name

}  // namespace

namespace tova_service {

ServiceParameter::ServiceParameter(std::string root) : m_root(std::move(root)) {
    const std::string link = m_root + kExecutableLink;
    if (readlink(link.c_str(), m_TovaDir, sizeof m_TovaDir - 1) < 0) {
        throw static_cast<int>(errno);
    }
    char* const slash = std::strrchr(m_TovaDir, '/');
    if (slash == nullptr) {
        throw "m_TovaDir empty";
    }
    *slash = '\0';
    if (chdir(m_TovaDir) != 0) {
        throw static_cast<int>(errno);
    }
}

ServiceParameter::~ServiceParameter() {
    Finalize();
    tovaserverutil::Wipe(m_password);
}

void ServiceParameter::Initialize() {
    tovaserverutil::Profile profile(m_root + kConfigurationFile);
    profile.ReadProfile();

    const std::string logDirectory = m_root + kLogDirectory;
    const std::string tracePath = logDirectory.substr(0, kLogDirectoryBytes) + "/" + kTraceLogName;
    std::snprintf(m_traceLogPath, sizeof m_traceLogPath, "%s", tracePath.c_str());

    m_maxLogSize = ReadSigned(profile, kMaxLogSize);
    m_controllerInterval = ReadUnsigned(profile, kControllerInterval);
    m_url = ReadText(profile, kControllerUrl);
    m_account = ReadText(profile, kAccount);
    m_password = ReadText(profile, kPassword);
    m_maxTrials = ReadSigned(profile, kMaxTrials);
    m_trialInterval = ReadSigned(profile, kTrialInterval);
    m_caFile = ReadText(profile, kCaFile);
    m_expand = ReadFlag(profile, kExpand);
    m_reportExisting = ReadFlag(profile, kReportExisting);
    m_serialLogInterval = ReadUnsigned(profile, kSerialLogInterval);
    m_logDirectory = logDirectory;
    m_maxFileCount = ReadUnsigned(profile, kMaxFileCount);
    m_mediaErrorCheck = ReadFlag(profile, kMediaErrorCheck);
    m_mediaErrorInterval = ReadUnsigned(profile, kMediaErrorInterval);
    m_reportControllerFailures = ReadFlag(profile, kReportControllerFailures);

    // A negative size becomes a limit that no file reaches.
    const auto limit = static_cast<std::uint64_t>(static_cast<std::int64_t>(m_maxLogSize) * 1024);
    m_traceLog = std::make_unique<tovaserverutil::TraceLog>(m_traceLogPath, limit, true);
    m_traceLog->Write("<VK0900> [TR] Initialize succeeded.");
}

void ServiceParameter::Finalize() {
    m_traceLog.reset();
    m_sysLog.reset();
}

void ServiceParameter::PrepareSysLog(system_info& info, SystemLogSink& sink) {
    m_sysLog.reset();  // closes the system log before it is opened anew
    m_sysLog = std::make_unique<SysLog>(info.get_country_region(), info.get_code_page(), sink);
    m_traceLog->Write("<VK0900> [TR] PrepareSysLog succeeded.");
}

void ServiceParameter::SetCredentials(const std::string& account, const std::string& password) {
    m_account = account;
    std::string replaced = password;
    m_password.swap(replaced);
    tovaserverutil::Wipe(replaced);
}

}  // namespace tova_service
