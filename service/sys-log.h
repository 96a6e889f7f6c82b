// Writer of event sentences to the system log.
#pragma once

#include <string>

namespace tova_service {

// The door to the system's log daemon.
class SystemLogSink {
public:
    virtual ~SystemLogSink() = default;
    virtual void Open(const char* identity, int option, int facility) = 0;
    virtual void Write(int priority, const char* text) = 0;
    virtual void Close() = 0;

    // syslog(3).
    static SystemLogSink& Real();
};

// Any thread may write: nothing is kept between calls.
class SysLog {
public:
    // Opens the system log as "bayward" with LOG_PID and LOG_DAEMON. The sink is borrowed.
    SysLog(const std::string& lang, const std::string& code, SystemLogSink& sink = SystemLogSink::Real());
    ~SysLog();
    SysLog(const SysLog&) = delete;
    SysLog& operator=(const SysLog&) = delete;

    const std::string& GetLang() const { return m_language; }
    const std::string& GetCode() const { return m_codePage; }

    // Writes one UTF-8 sentence, one entry for each of its lines, at the priority of the identifier's top two
    // bits (11 error, 10 warning, 01 information). With code page "eucJP" it is converted to EUC-JP first. An
    // identifier without bit 15 is not written. Throws TOVAExcpt for top bits 00 and for a failed conversion;
    // nothing is written then.
    void Write(unsigned int id, const char* text);

private:
    std::string m_language;
    std::string m_codePage;
    SystemLogSink& m_sink;
};

}  // namespace tova_service
