#include "serial-log.h"

#include "log-manager.h"
#include "service-param.h"
#include "stop-wait.h"

namespace {

// The one place where this thread's failures are written.
constexpr const char* kUnit = "service";
constexpr int kLine = 1540;

constexpr unsigned int kPeriodMs = 10080u * 60000u;  // seven days

void Run(tovaserverutil::Event* stopEvent, tovaserverutil::LogManager& log) {
    tovaserverutil::StopWait stop(stopEvent);
    log.WriteLog("<VK0900> [TR] Start cyclic serial log saving.");
    while (!stop.Wait(kPeriodMs)) {
    }
    log.WriteLog("<VK0900> [TR] Break SerialLogRoutine by StopEvent.");
}

}  // namespace

std::uint64_t SerialLogRoutine(void* stopEvent) {
    tovaserverutil::TraceLog& trace = Parameter->Log();
    try {
        tovaserverutil::LogManager log(&trace);
        Run(static_cast<tovaserverutil::Event*>(stopEvent), log);
    } catch (...) {
        tovaserverutil::LogCurrentException(trace, kUnit, kLine);
    }
    return 0;
}
