#include "log-manager.h"

namespace tovaserverutil {

void LogManager::WriteLog(const char* format, ...) {
    if (m_log == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    m_log->vWrite(format, args);
    va_end(args);
}

}  // namespace tovaserverutil
