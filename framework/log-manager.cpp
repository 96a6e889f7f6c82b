#include "log-manager.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "local-time.h"

namespace {

constexpr const char* kUnit = "log-manager";
// Where each failure is said to come from.
constexpr int kSaveLine = 98;
constexpr int kReportLine = 118;
constexpr int kTimeLine = 215;
constexpr int kRemoveLine = 237;
constexpr int kStatusLine = 324;
constexpr int kReadFolderLine = 333;
constexpr int kPruneLine = 340;
constexpr int kOpenFolderLine = 346;

constexpr std::uint32_t kMinFiles = 10;
constexpr std::uint32_t kMaxFiles = 200;

constexpr const char* kErrorLine = "<VK0902> [ER] %s %d";
constexpr const char* kErrorNumberLine = "<VK0902> [ER] %s %d (Err: %d)";
constexpr const char* kCommandErrorLine = "<VK0902> [ER] %s %d (command: %s)";

// "20240131_235959": of fixed width and most significant first, so that names sort in the order of time.
// Empty when the time cannot be broken down.
std::string ArchiveStamp(std::uint64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    tovaserverutil::FollowTimeZone();
    if (localtime_r(&time, &local) == nullptr) {
        return {};
    }
    char text[80];  // six numbers of any size
    std::snprintf(text, sizeof text, "%04d%02d%02d_%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

namespace tovaserverutil {

LogManager::LogManager(TraceLog* log, LogFileSet files, CommandRunner& runner)
    : m_log(log), m_files(std::move(files)), m_runner(runner) {
    m_files.maxFileCount = std::clamp(m_files.maxFileCount, kMinFiles, kMaxFiles);
}

void LogManager::WriteLog(const char* format, ...) {
    if (m_log == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    m_log->vWrite(format, args);
    va_end(args);
}

void LogManager::SaveArchive(const std::string& command, std::uint64_t now) {
    const std::string stamp = ArchiveStamp(now);
    if (stamp.empty()) {
        WriteLog(kErrorLine, kUnit, kTimeLine);
        return;
    }
    const std::string whole = command + m_files.folder + m_files.baseName + stamp + m_files.extension;
    if (!m_runner.Execute(whole, kDiagnosticDeadline).Succeeded()) {
        WriteLog(kCommandErrorLine, kUnit, kSaveLine, whole.c_str());
    }
}

void LogManager::RunReport(const std::string& command) {
    if (!m_runner.Execute(command, kDiagnosticDeadline).Succeeded() && !m_reportErrorLogged) {
        WriteLog(kCommandErrorLine, kUnit, kReportLine, command.c_str());
        m_reportErrorLogged = true;
    }
}

void LogManager::Prune() {
    try {
        RemoveOldest(ListFiles());
    } catch (...) {
        WriteLog(kErrorLine, kUnit, kPruneLine);
    }
}

// Names that were found before a failure count: what is removed on their account is never one of the
// youngest.
std::vector<std::string> LogManager::ListFiles() {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(m_files.folder.c_str()));
    if (folder == nullptr) {
        WriteLog(kErrorNumberLine, kUnit, kOpenFolderLine, errno);
        return names;
    }
    for (;;) {
        errno = 0;  // tells the end of the folder from a failure
        const dirent* const entry = readdir(folder.get());
        if (entry == nullptr) {
            if (errno != 0) {
                WriteLog(kErrorNumberLine, kUnit, kReadFolderLine, errno);
            }
            return names;
        }
        const std::string name = entry->d_name;
        if (name.compare(0, m_files.baseName.size(), m_files.baseName) != 0) {
            continue;
        }
        struct stat status {};
        if (stat((m_files.folder + name).c_str(), &status) != 0) {
            WriteLog(kErrorNumberLine, kUnit, kStatusLine, errno);
        } else if (S_ISREG(status.st_mode)) {
            names.push_back(name);
        }
    }
}

void LogManager::RemoveOldest(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    const std::size_t surplus = names.size() - std::min<std::size_t>(names.size(), m_files.maxFileCount);
    for (std::size_t index = 0; index < surplus; ++index) {
        if (unlink((m_files.folder + names[index]).c_str()) != 0) {
            WriteLog(kErrorNumberLine, kUnit, kRemoveLine, errno);
        }
    }
}

}  // namespace tovaserverutil
