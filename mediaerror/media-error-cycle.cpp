#include "media-error-cycle.h"

#include <algorithm>
#include <climits>
#include <string>

#include "log-manager.h"

namespace {

constexpr const char* kUnit = "media-error";

constexpr const char* kReportCommand =
    "/opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag file=ADUReport.zip";
constexpr const char* kReportName = "ADUReport";
constexpr const char* kReportExtension = ".zip";

// What the cycles leave in the working directory, in the order of removal.
constexpr const char* kWorkingFiles[] = {
    "ADUReport",
    "ADUReport.zip",
    "storcli_show_all.log",
    "storcli_show_events.log",
    "storcli_cx_show.log",
    "storcli_device_show_all.log",
};

constexpr std::uint32_t kMillisecondsPerMinute = 60000;

void RunCycle(const MediaErrorDesk& desk, tovaserverutil::LogManager& manager) {
    manager.RunReport(kReportCommand);
    desk.letReportSettle();
    desk.searchSmartArray();
    desk.searchMegaRaid();
}

void RunCycles(const MediaErrorDesk& desk) {
    const tova_service::ServiceParameter& parameter = desk.parameter;
    const int wait = MediaErrorWait(parameter.mediaErrorInterval());
    tovaserverutil::LogManager manager(
        &desk.parameter.Log(),
        {kReportName, kReportExtension, std::string(parameter.tovaDir()) + "/", parameter.maxFileCount()},
        desk.runner);
    manager.WriteLog("<VK0900> [TR] Start cyclic Media Error search.");
    do {
        RunCycle(desk, manager);
    } while (!desk.stop.Poll(wait));
    manager.WriteLog("<VK0900> [TR] Break MediaErrorRoutine by StopEvent.");
}

void RemoveWorkingFiles(tovaserverutil::CommandRunner& runner) {
    for (const char* const file : kWorkingFiles) {
        runner.Execute(std::string("rm -rf \"") + file + "\"", tovaserverutil::kListingDeadline);
    }
}

}  // namespace

int MediaErrorWait(std::uint32_t minutes) {
    return static_cast<int>(std::min<std::uint32_t>(minutes * kMillisecondsPerMinute, INT_MAX));
}

void RunMediaErrorSearch(const MediaErrorDesk& desk) {
    try {
        RunCycles(desk);
    } catch (...) {
        tovaserverutil::LogCurrentException(desk.parameter.Log(), kUnit, __LINE__);
    }
    RemoveWorkingFiles(desk.runner);
}
