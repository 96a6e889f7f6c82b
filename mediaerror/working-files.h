// The files that a search leaves in the working directory while it is under way.
#pragma once

#include <string>

#include "shell.h"

inline constexpr const char* kReportArchive = "ADUReport.zip";  // the diagnostic report, packed
inline constexpr const char* kReportFolder = "ADUReport";       // unpacked
inline constexpr const char* kControllersFile = "storcli_show_all.log";
inline constexpr const char* kControllerFile = "storcli_cx_show.log";
inline constexpr const char* kDriveFile = "storcli_device_show_all.log";
inline constexpr const char* kEventsFile = "storcli_show_events.log";
inline constexpr const char* kStorcliOwnFile = "storcli.log";  // the tool's own

// Removes one of them, or a folder with what is in it. What is not there, or cannot be removed, is left at
// that.
inline void RemoveWorkingFile(tovaserverutil::CommandRunner& runner, const char* name) {
    runner.Execute(std::string("rm -rf \"") + name + "\"", tovaserverutil::kListingDeadline);
}
