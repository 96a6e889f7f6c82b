// The start-up half of MonitorLoop.
#include <algorithm>

#include "monitor-loop.h"

using tovabase::TOVAExcpt;

namespace {

constexpr unsigned int kPassPause = 10000;  // milliseconds
constexpr std::uint32_t kMaxRetries = 20;

}  // namespace

bool MonitorLoop::initILoRestManager() {
    try {
        for (m_retry = 0; m_retry < kMaxRetries;) {
            Pause(kPassPause);
            TakeAccountOver();
            m_retryUsed = true;
            if (m_initialized && BuildAtStartUp()) {
                return true;
            }
            if (!m_initialized) {
                LogInAtStartUp();
            }
            // A pass that uses up no retry leaves the counter alone; only a counter of 0 becomes 1 all the
            // same.
            m_retry = m_retryUsed ? m_retry + 1 : std::max<std::uint32_t>(m_retry, 1);
        }
    } catch (const iLoRestReader::StopSeen&) {
        Break();
    }
    return false;
}

bool MonitorLoop::BuildAtStartUp() {
    try {
        if (TakeBaseline()) {
            ReportEvents();
            return true;
        }
        ThrowIfStopRequested();
        Trace("<VK0900> [ER] Failed to build RAID information. : retry count=" + std::to_string(m_retry));
    } catch (const std::string& text) {
        if (KindAtStartUp(text) == TextFailure::kCredential) {
            m_retryUsed = false;
            m_failures.SetCount(m_failures.count() + 1);
            m_failures.RecordTime();
            // The log-in that came before has cleared the count, so a single failure is not reported here.
            if (m_failures.count() > 1) {
                ReportLoginFailed();
                Trace(kLoginFailedInBuild);
            }
        } else {
            m_failures.Clear();
        }
        GiveSessionUp();
    }
    return false;
}

void MonitorLoop::LogInAtStartUp() {
    if (m_failures.IsPausing()) {
        m_retryUsed = false;
        return;
    }
    if (m_failures.count() > 1) {
        m_failures.SetCount(1);  // the pause is over; the next failure starts another one
    }
    const std::string retryCount = " : retry count=" + std::to_string(m_retry);
    try {
        checkiLOVersion(m_manager, m_parameter, m_wait);
        m_initialized = m_manager.isiLOInitialized();
        if (m_initialized) {
            m_manager.setiLOLoginFailed(false);
        }
        m_failures.Clear();
    } catch (const iLoRestReader::StopSeen&) {
        throw;
    } catch (const std::string& text) {
        if (KindAtStartUp(text) == TextFailure::kCredential) {
            m_retryUsed = false;
            m_failures.SetCount(m_failures.count() + 1);
            m_failures.RecordTime();
            if (m_failures.count() == 2) {
                Trace(kLoginFailedAtStartUp);
                ReportLoginFailed();
            }
        } else {
            Trace("<VK0911> [ER] Failed to initialize RaidManager." + retryCount);
            m_failures.Clear();
        }
    } catch (const TOVAExcpt& failure) {
        Trace(std::string("<VK0912> [ER] Failed to initialize RaidManager. : ") + failure.text() +
              retryCount);
    } catch (...) {
        Trace("<VK0913> [ER] Failed to initialize RaidManager. : Unknown error" + retryCount);
    }
}

MonitorLoop::TextFailure MonitorLoop::KindAtStartUp(const std::string& text) {
    for (const char* name : {"InvalidCredentialsError", "SecurityStateError"}) {
        if (text.find(name) != std::string::npos) {
            return TextFailure::kCredential;
        }
    }
    return TextFailure::kOther;
}
