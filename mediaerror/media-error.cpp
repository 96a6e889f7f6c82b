#include "media-error.h"

#include "log-manager.h"
#include "service-param.h"
#include "stop-wait.h"

namespace {

constexpr const char* kUnit = "media-error";

constexpr unsigned int kPeriodMs = 60u * 60000u;  // one hour

void Run(tovaserverutil::Event* stopEvent, tovaserverutil::LogManager& log) {
    tovaserverutil::StopWait stop(stopEvent);
    log.WriteLog("<VK0900> [TR] Start cyclic Media Error search.");
    while (!stop.Wait(kPeriodMs)) {
    }
    log.WriteLog("<VK0900> [TR] Break MediaErrorRoutine by StopEvent.");
}

}  // namespace

std::uint64_t MediaErrorRoutine(void* stopEvent) {
    tovaserverutil::TraceLog& trace = Parameter->Log();
    try {
        tovaserverutil::LogManager log(&trace);
        Run(static_cast<tovaserverutil::Event*>(stopEvent), log);
    } catch (...) {
        tovaserverutil::LogCurrentException(trace, kUnit, __LINE__);
    }
    return 0;
}
