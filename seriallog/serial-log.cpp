#include "serial-log.h"

#include "serial-log-cycle.h"

std::uint64_t SerialLogRoutine(void* stopEvent) {
    try {
        tovaserverutil::StopWait wait(static_cast<tovaserverutil::Event*>(stopEvent));
        tovaserverutil::ShellRunner runner;
        const tovaserverutil::WallClock clock;
        RunSerialLog({*Parameter, wait, runner, clock});
    } catch (...) {
        // RunSerialLog traces its own failures; this is one of what it needs.
        tovaserverutil::LogCurrentException(Parameter->Log(), kSerialLogFailureUnit, kSerialLogFailureLine);
    }
    return 0;
}
