// The serial-log thread's work: one archive per period, the oldest ones removed.
#pragma once

#include <cstdint>

#include "clock.h"
#include "service-param.h"
#include "shell.h"
#include "stop-wait.h"

// Where a failure that ends the thread is said to come from.
inline constexpr const char* kSerialLogFailureUnit = "service";
inline constexpr int kSerialLogFailureLine = 1540;

// What the thread works with; everything is borrowed.
struct SerialLogContext {
    tova_service::ServiceParameter& parameter;
    tovaserverutil::StopWait& wait;
    tovaserverutil::CommandRunner& runner;
    const tovaserverutil::WallClock& clock;
};

// The time between two archives in milliseconds, from an hour to seven days, of a setting in minutes. A
// negative setting, taken as the unsigned number it reads as, gives seven days.
std::uint32_t SerialLogPeriod(std::uint32_t minutes);

// The thread's body, until the stop. The first archive is saved one period after the start. An exception that
// leaves the cycle is traced twice, as it leaves the loop and as the thread's end. Throws nothing but
// failures of the trace log.
void RunSerialLog(const SerialLogContext& context);
