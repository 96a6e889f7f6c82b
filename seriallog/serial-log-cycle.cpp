#include "serial-log-cycle.h"

#include <algorithm>
#include <string>

#include "log-manager.h"

namespace {

constexpr const char* kSaveOptions = "logs=on file=";  // and the archive's path

constexpr const char* kArchiveName = "serial_log_";
constexpr const char* kArchiveExtension = ".zip";

constexpr std::uint32_t kMinPeriod = 60;     // minutes
constexpr std::uint32_t kMaxPeriod = 10080;  // minutes: seven days

constexpr int kCycleFailureLine = 1537;  // where a failure that leaves the loop is said to come from

void RunCycles(const SerialLogContext& context) {
    const tova_service::ServiceParameter& parameter = context.parameter;
    const std::uint32_t period = SerialLogPeriod(parameter.serialLogInterval());
    tovaserverutil::LogManager manager(
        &context.parameter.Log(),
        {kArchiveName, kArchiveExtension, parameter.logDirectory() + "/", parameter.maxFileCount()},
        context.runner);
    const std::string command = std::string(tovaserverutil::kDiagnosticCommand) + kSaveOptions;
    manager.WriteLog("<VK0900> [TR] Start cyclic serial log saving.");
    try {
        while (!context.wait.Wait(period)) {
            manager.SaveArchive(command, context.clock.Now());
            manager.Prune();
        }
        manager.WriteLog("<VK0900> [TR] Break SerialLogRoutine by StopEvent.");
    } catch (...) {
        tovaserverutil::LogCurrentException(context.parameter.Log(), kSerialLogFailureUnit,
                                            kCycleFailureLine);
        throw;
    }
}

}  // namespace

std::uint32_t SerialLogPeriod(std::uint32_t minutes) {
    return std::clamp(minutes, kMinPeriod, kMaxPeriod) * tovaserverutil::kMillisecondsPerMinute;
}

void RunSerialLog(const SerialLogContext& context) {
    try {
        RunCycles(context);
    } catch (...) {
        tovaserverutil::LogCurrentException(context.parameter.Log(), kSerialLogFailureUnit,
                                            kSerialLogFailureLine);
    }
}
