// What the serial-log and media-error threads share: their door to the trace log and to the diagnostic tool,
// and the archives that the tool leaves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "server-util.h"
#include "shell.h"

namespace tovaserverutil {

// The diagnostic tool's command; its options follow.
inline constexpr const char* kDiagnosticCommand = "/opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag ";

// The archives that a thread keeps: FOLDER BASENAME TIME EXTENSION. Such a path reaches the shell unquoted:
// the parts are fixed texts without blanks and without characters that mean something to the shell.
struct LogFileSet {
    std::string baseName;
    std::string extension;
    std::string folder;  // with "/" at its end
    std::uint32_t maxFileCount = 0;
};

// Used by one thread. Every failure is a line in the trace log and nothing more; what is thrown is
// std::bad_alloc, and TOVAExcpt when the trace log's lock fails.
class LogManager {
public:
    // The trace log is borrowed and may be null; the runner is borrowed. `maxFileCount` is the configured
    // one: fewer than 10 files become 10, more than 200 become 200.
    LogManager(TraceLog* log, LogFileSet files, CommandRunner& runner);

    // Forwards to the trace log when there is one; otherwise does nothing.
    void WriteLog(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Runs the command, which the shell gets as it is, with the path of a new archive behind it, named for
    // `now` (seconds since the epoch) in local time: BASENAME yyyymmdd_hhmmss EXTENSION. Whatever the command
    // wrote is kept, also when it fails.
    void SaveArchive(const std::string& command, std::uint64_t now);

    // Removes the files with the smallest names until no more than the maximum are left. Regular files whose
    // names begin with the base name count, whatever their extension. A file that cannot be removed is given
    // up; no younger one goes in its place.
    void Prune();

    // Runs the command, which the shell gets as it is and which writes a report into the working directory.
    // Only the first failure in this object's life is traced.
    void RunReport(const std::string& command);

private:
    std::vector<std::string> ListFiles();
    void RemoveOldest(std::vector<std::string> names);

    TraceLog* m_log;
    LogFileSet m_files;
    CommandRunner& m_runner;
    bool m_reportErrorLogged = false;
};

}  // namespace tovaserverutil
