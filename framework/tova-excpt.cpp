#include <cstdio>
#include <exception>
#include <new>

#include "server-util.h"

namespace tovabase {

TOVAExcpt::TOVAExcpt(int code, const char* format, ...) : m_code(code), m_text{} {
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_text, sizeof m_text, format, args);
    va_end(args);
}

void ThrowSystemError(const char* unit, int line, int error) {
    throw TOVAExcpt(TOVAExcpt::kSystemCall, "%s %d (Err: %d)", unit, line, error);
}

}  // namespace tovabase

namespace tovaserverutil {

void LogCurrentException(TraceLog& log, const char* unit, int line) {
    constexpr const char* kWithText = "<VK0902> [ER] %s %d (Err: %s)";
    try {
        throw;
    } catch (const tovabase::TOVAExcpt& failure) {
        log.Write(kWithText, unit, line, failure.text());
    } catch (const std::bad_alloc&) {
        log.Write(kWithText, unit, line, "Bad Alloc");
    } catch (const std::exception& failure) {
        log.Write(kWithText, unit, line, failure.what());
    } catch (...) {
        log.Write(kWithText, unit, line, "Unknown");
    }
}

}  // namespace tovaserverutil
