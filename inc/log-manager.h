// What the diagnostic-log and media-error threads share: their door to the trace log.
#pragma once

#include "server-util.h"

namespace tovaserverutil {

class LogManager {
public:
    // The trace log is borrowed and may be null.
    explicit LogManager(TraceLog* log) : m_log(log) {}

    // Forwards to the trace log when there is one; otherwise does nothing.
    void WriteLog(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    TraceLog* m_log;
};

}  // namespace tovaserverutil
