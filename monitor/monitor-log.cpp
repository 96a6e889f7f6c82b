#include "monitor-log.h"

#include <memory>

#include "ilo-account.h"
#include "monitor-loop.h"

std::uint64_t MonitorLogRoutine(void* stopEvent) {
    try {
        tovaserverutil::StopWait wait(static_cast<tovaserverutil::Event*>(stopEvent));
        const tovaserverutil::Clock clock;
        tovaserverutil::ShellRunner shell;
        StoredAccount account(shell);
        RunMonitor(*Parameter, *LocalSystemInfo,
                   std::make_unique<iLoRestManager>(
                       &Parameter->Log(),
                       ConnectionSettings{.caFile = Parameter->caFile(), .expand = Parameter->expand()}),
                   wait, clock, [&account](int record, unsigned char* buffer, std::size_t length) {
                       return account.Read(record, buffer, length);
                   });
    } catch (...) {
        // RunMonitor traces its own failures; this is one of what it needs.
        tovaserverutil::LogCurrentException(Parameter->Log(), kFailureUnit, kThreadFailureLine);
    }
    return 0;
}
