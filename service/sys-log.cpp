#include "sys-log.h"

#include <iconv.h>
#include <syslog.h>

#include <cerrno>
#include <sstream>

#include "server-util.h"

namespace {

constexpr const char* kUnit = "sys-log";
constexpr const char* kIdentity = "bayward";
constexpr const char* kEucCodePage = "eucJP";
constexpr unsigned int kReportable = 0x8000;
constexpr unsigned int kSeverityShift = 30;

class RealSystemLog : public tova_service::SystemLogSink {
public:
    void Open(const char* identity, int option, int facility) override {
        openlog(identity, option, facility);
    }
    void Write(int priority, const char* text) override { syslog(priority, "%s", text); }
    void Close() override { closelog(); }
};

int PriorityOf(unsigned int id) {
    switch (id >> kSeverityShift) {
        case 3:
            return LOG_ERR;
        case 2:
            return LOG_WARNING;
        case 1:
            return LOG_INFO;
        default:
            throw tovabase::TOVAExcpt(tovabase::TOVAExcpt::kSystemCall, "%s %d (EventID: 0x%08X)", kUnit,
                                      __LINE__, id);
    }
}

class Converter {
public:
    Converter(const char* to, const char* from) : m_handle(iconv_open(to, from)) {
        if (m_handle == reinterpret_cast<iconv_t>(-1)) {
            tovabase::ThrowSystemError(kUnit, __LINE__, errno);
        }
    }
    ~Converter() { iconv_close(m_handle); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // The result is never longer than the text: a text that would grow fails with E2BIG, so no character is
    // ever cut.
    std::string Convert(std::string text) {
        std::string result(text.size() + 1, '\0');
        char* in = text.data();
        char* out = result.data();
        std::size_t inLeft = text.size() + 1;  // with the NUL, so that it takes its place in the result
        std::size_t outLeft = result.size();
        if (iconv(m_handle, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1)) {
            tovabase::ThrowSystemError(kUnit, __LINE__, errno);
        }
        return result.c_str();
    }

private:
    iconv_t m_handle;
};

}  // namespace

namespace tova_service {

SystemLogSink& SystemLogSink::Real() {
    static RealSystemLog real;
    return real;
}

SysLog::SysLog(const std::string& lang, const std::string& code, SystemLogSink& sink)
    : m_language(lang), m_codePage(code), m_sink(sink) {
    m_sink.Open(kIdentity, LOG_PID, LOG_DAEMON);
}

SysLog::~SysLog() {
    m_sink.Close();
}

void SysLog::Write(unsigned int id, const char* text) {
    if ((id & kReportable) == 0) {
        return;
    }
    const int priority = PriorityOf(id);
    std::string sentence = text;
    if (m_codePage == kEucCodePage) {
        sentence = Converter("EUC-JP", "UTF-8").Convert(std::move(sentence));
    }
    std::istringstream lines(sentence);
    for (std::string line; std::getline(lines, line);) {
        m_sink.Write(priority, line.c_str());
    }
}

}  // namespace tova_service
