#include "serial-log-cycle.h"

#include <algorithm>

#include "log-manager.h"

namespace {

constexpr const char* kSaveCommand =
    "/opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag logs=on file=";  // and the archive's path

constexpr const char* kArchiveName = "serial_log_";
constexpr const char* kArchiveExtension = ".zip";

constexpr std::uint32_t kMinPeriod = 60;     // minutes
constexpr std::uint32_t kMaxPeriod = 10080;  // minutes: seven days
constexpr std::uint32_t kMillisecondsPerMinute = 60000;

constexpr int kCycleFailureLine = 1537;  // where a failure that leaves the loop is said to come from

void RunCycles(const SerialLogDesk& desk) {
    const tova_service::ServiceParameter& parameter = desk.parameter;
    const std::uint32_t period = SerialLogPeriod(parameter.serialLogInterval());
    tovaserverutil::LogManager manager(
        &desk.parameter.Log(),
        {kArchiveName, kArchiveExtension, parameter.logDirectory() + "/", parameter.maxFileCount()},
        desk.runner);
    manager.WriteLog("<VK0900> [TR] Start cyclic serial log saving.");
    try {
        while (!desk.wait.Wait(period)) {
            manager.SaveArchive(kSaveCommand, desk.clock.Now());
            manager.Prune();
        }
        manager.WriteLog("<VK0900> [TR] Break SerialLogRoutine by StopEvent.");
    } catch (...) {
        tovaserverutil::LogCurrentException(desk.parameter.Log(), kSerialLogFailureUnit, kCycleFailureLine);
        throw;
    }
}

}  // namespace

std::uint32_t SerialLogPeriod(std::uint32_t minutes) {
    return std::clamp(minutes, kMinPeriod, kMaxPeriod) * kMillisecondsPerMinute;
}

void RunSerialLog(const SerialLogDesk& desk) {
    try {
        RunCycles(desk);
    } catch (...) {
        tovaserverutil::LogCurrentException(desk.parameter.Log(), kSerialLogFailureUnit,
                                            kSerialLogFailureLine);
    }
}
