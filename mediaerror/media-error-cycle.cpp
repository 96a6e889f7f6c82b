#include "media-error-cycle.h"

#include <string>

#include "log-manager.h"
#include "settings.h"
#include "working-files.h"

namespace {

constexpr const char* kUnit = "media-error";

constexpr const char* kReportName = "ADUReport";
constexpr const char* kReportExtension = ".zip";

// What the cycles leave in the working directory, in the order of removal.
constexpr const char* kWorkingFiles[] = {
    kReportFolder, kReportArchive, kControllersFile, kEventsFile, kControllerFile, kDriveFile,
};

void RunCycle(const MediaErrorContext& context, tovaserverutil::LogManager& manager) {
    manager.RunReport(std::string(tovaserverutil::kDiagnosticCommand) + "file=" + kReportArchive);
    context.letReportSettle();
    context.searchSmartArray();
    context.searchMegaRaid();
}

void RunCycles(const MediaErrorContext& context) {
    const tova_service::ServiceParameter& parameter = context.parameter;
    const int wait = tova_service::MediaErrorWait(parameter.mediaErrorInterval());
    tovaserverutil::LogManager manager(
        &context.parameter.Log(),
        {kReportName, kReportExtension, std::string(parameter.tovaDir()) + "/", parameter.maxFileCount()},
        context.runner);
    manager.WriteLog("<VK0900> [TR] Start cyclic Media Error search.");
    do {
        RunCycle(context, manager);
    } while (!context.stop.Poll(wait));
    manager.WriteLog("<VK0900> [TR] Break MediaErrorRoutine by StopEvent.");
}

void RemoveWorkingFiles(tovaserverutil::CommandRunner& runner) {
    for (const char* const file : kWorkingFiles) {
        RemoveWorkingFile(runner, file);
    }
}

}  // namespace

void RunMediaErrorSearch(const MediaErrorContext& context) {
    try {
        RunCycles(context);
    } catch (...) {
        tovaserverutil::LogCurrentException(context.parameter.Log(), kUnit, __LINE__);
    }
    RemoveWorkingFiles(context.runner);
}
