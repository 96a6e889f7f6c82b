#include "monitor-loop.h"

#include <algorithm>
#include <array>
#include <exception>
#include <stdexcept>
#include <utility>

#include "ilo-account.h"
#include "secret.h"
#include "text.h"

using tova_service::ServiceParameter;
using tova_service::system_info;
using tovaserverutil::Clock;
using tovaserverutil::Contains;
using tovaserverutil::StopWait;
using tovaserverutil::WipeOnExit;

namespace {

constexpr int kCycleFailureLine = 1450;  // where a failure that leaves the loop is said to come from

constexpr std::uint32_t kMinInterval = 3000;     // milliseconds
constexpr std::uint32_t kMaxInterval = 3600000;  // milliseconds

enum class Stored {
    kText,
    kNone,     // no text that this server can decipher
    kUnknown,  // could not be found out now; that says nothing about the record
};

// Takes one stored text over.
Stored ReadRecord(const AccountSource& accounts, int record, std::string& text) {
    std::array<unsigned char, kMaxAccountText> buffer{};
    Stored found = Stored::kNone;
    try {
        if (accounts(record, buffer.data(), buffer.size())) {
            // A text of full length has no zero byte behind it.
            text.assign(buffer.begin(),
                        std::find(buffer.begin(), buffer.end(), static_cast<unsigned char>(0)));
            found = Stored::kText;
        }
    } catch (const std::invalid_argument&) {
        // No usable system UUID: the record cannot be deciphered.
    } catch (const std::exception&) {
        found = Stored::kUnknown;
    }
    tovaserverutil::Wipe(buffer.data(), buffer.size());
    return found;
}

}  // namespace

AccountChange iLOAccountCheck(ServiceParameter& parameter, const AccountSource& accounts) {
    std::string account;
    std::string password;
    const WipeOnExit wipe(password);
    Stored found = ReadRecord(accounts, kAccountNameRecord, account);
    if (found != Stored::kNone) {
        const Stored second = ReadRecord(accounts, kAccountPasswordRecord, password);
        // What is gone is gone, whatever cannot be found out about the other one.
        found = found == Stored::kText || second == Stored::kNone ? second : found;
    }
    if (found == Stored::kUnknown) {
        // A server that is short of memory or processes for a moment is not one without an account: logging
        // out would report a failed log-in, and lose what fails before the next one.
        return kAccountUnchanged;
    }
    if (found == Stored::kNone) {
        if (parameter.account().empty() && parameter.password().empty()) {
            return kAccountUnchanged;
        }
        parameter.SetCredentials("", "");
        return kAccountLost;
    }
    if (account == parameter.account() && password == parameter.password()) {
        return kAccountUnchanged;
    }
    parameter.SetCredentials(account, password);
    return kAccountChanged;
}

bool checkiLOVersion(iLoRestManager& manager, const ServiceParameter& parameter, StopWait& wait) {
    manager.setEvt(&wait);
    manager.init(parameter.url(), parameter.account(), parameter.password(), parameter.maxTrials(),
                 parameter.trialInterval());
    return true;
}

std::uint32_t ClampPollingInterval(std::uint32_t configured) {
    return std::clamp(configured, kMinInterval, kMaxInterval);
}

MonitorLoop::MonitorLoop(ServiceParameter& parameter, const system_info& system, iLoRestManager& manager,
                         StopWait& wait, const Clock& clock, AccountSource accounts)
    : m_parameter(parameter),
      m_system(system),
      m_manager(manager),
      m_wait(wait),
      m_accounts(std::move(accounts)),
      m_failures(clock) {}

void MonitorLoop::Run() {
    m_manager.setVNICEverEnabled(false);
    if (initILoRestManager()) {
        Trace("<VK0900> [TR] Start to monitor.");
    } else if (m_stopped) {
        return;  // the manager's end logs out; a reset would start an interpreter just to stop
    } else {
        // The last pass may have logged in; a log-in elsewhere does nothing while that session is open.
        GiveSessionUp();
        m_parameter.SetUrl(kVnicUrl);
        Trace("<VK0900> [TR] Retry accessing vNIC.");
    }
    m_failures.Clear();  // the cycles count for themselves
    try {
        for (;;) {
            RunCycle();
        }
    } catch (const iLoRestReader::StopSeen&) {
        Break();
    }
    m_manager.reset();
}

// ---- One monitoring cycle ----

void MonitorLoop::RunCycle() {
    Pause(ClampPollingInterval(m_parameter.controllerInterval()));
    m_manager.setEvt(&m_wait);
    if (IsLogInDue()) {
        LogIn();
    }
    if (m_initialized) {
        TakeSnapshot();
    }
    ReportEvents();
}

// A changed account logs in at once, with a count of 0: its first failure is not reported. Otherwise a log-in
// is a retry, with a count of 1: its failure is.
bool MonitorLoop::IsLogInDue() {
    if (TakeAccountOver()) {
        m_hasBaseline = false;
        return true;
    }
    if (m_initialized || m_failures.IsPausing()) {
        return false;
    }
    m_failures.SetCount(1);
    return true;
}

void MonitorLoop::LogIn() {
    try {
        checkiLOVersion(m_manager, m_parameter, m_wait);
    } catch (const iLoRestReader::StopSeen&) {
        throw;
    } catch (const std::string& text) {
        HandleLogInFailure(KindInCycle(text));
        return;
    } catch (...) {
        HandleLogInFailure(TextFailure::kOther);
        return;
    }
    m_initialized = true;
    if (m_manager.isiLOInitialized()) {
        m_manager.setiLOLoginFailed(false);
    }
    Trace("<VK0950> [TR] Initializing RaidManager succeed.");
    m_failures.Clear();
}

void MonitorLoop::HandleLogInFailure(TextFailure kind) {
    if (kind != TextFailure::kCredential) {
        if (kind == TextFailure::kOther) {
            Trace("<VK0956> [ER] Failed to initialize RaidManager.");
        }
        m_failures.Clear();
    } else if (m_failures.count() == 0) {
        m_failures.SetCount(1);
    } else {
        m_failures.RecordTime();
        ReportLoginFailed();
        Trace(kLoginFailedInCycle);
        m_failures.SetCount(2);  // from now on log-ins pause
    }
}

void MonitorLoop::TakeSnapshot() {
    try {
        bool complete = false;
        if (m_hasBaseline) {
            complete = m_manager.check(m_events);
        } else {
            complete = m_hasBaseline = TakeBaseline();
        }
        if (!complete) {
            ThrowIfStopRequested();
        }
    } catch (const std::string& text) {
        // The next cycle logs in again.
        m_hasBaseline = false;
        m_initialized = false;
        HandleSnapshotFailure(KindInCycle(text));
    }
}

void MonitorLoop::HandleSnapshotFailure(TextFailure kind) {
    if (kind != TextFailure::kCredential) {
        HandleLogInFailure(kind);
        return;
    }
    // The log-in that came before has cleared the count, so a single failure of a snapshot is not reported;
    // the next cycle's log-in is.
    m_failures.SetCount(m_failures.count() + 1);
    if (m_failures.count() > 1) {
        m_failures.RecordTime();
        ReportLoginFailed();
        Trace(kLoginFailedInCycle);
    }
}

MonitorLoop::TextFailure MonitorLoop::KindInCycle(const std::string& text) {
    if (Contains(text, "HpIloChifPacketExchangeError")) {
        return TextFailure::kChannelLost;
    }
    return Contains(text, "root/Administrator") ? TextFailure::kCredential : KindAtStartUp(text);
}

// ---- Shared with start-up ----

// True when there is a first snapshot for this log-in. It is silent, unless states that began unseen are to
// be reported: then it is compared with the last snapshot of this run, which is an empty one at first.
bool MonitorLoop::TakeBaseline() {
    return m_parameter.reportExisting() ? m_manager.check(m_events) : m_manager.build();
}

void MonitorLoop::ReportEvents() {
    for (const tovaevent::EvtData& event : m_events) {
        m_parameter.EventToLog(m_system.get_country_region(), event);
    }
    m_events.clear();
}

// True when the account has changed; the session of the old one is closed then.
bool MonitorLoop::TakeAccountOver() {
    if (iLOAccountCheck(m_parameter, m_accounts) == kAccountUnchanged) {
        return false;
    }
    if (m_initialized) {
        GiveSessionUp();
    }
    m_failures.Clear();
    return true;
}

void MonitorLoop::GiveSessionUp() {
    m_manager.closeQuietly();
    m_initialized = false;
}

// At most one event until a log-in succeeds.
void MonitorLoop::ReportLoginFailed() {
    if (m_parameter.reportControllerFailures() && !m_manager.getiLOLoginFailed()) {
        m_parameter.EventToLog(m_system.get_country_region(), tovaevent::EvtData(tovaevent::kLoginFailed));
    }
    m_manager.setiLOLoginFailed(true);
}

void MonitorLoop::Pause(unsigned int milliseconds) {
    if (m_wait.Wait(milliseconds)) {
        throw iLoRestReader::StopSeen{};
    }
}

void MonitorLoop::ThrowIfStopRequested() {
    if (m_wait.IsRequested()) {
        throw iLoRestReader::StopSeen{};
    }
}

void MonitorLoop::Break() {
    Trace("<VK0900> [TR] Break MonitorLogRoutine by StopEvent.");
    m_stopped = true;
}

void MonitorLoop::Trace(const std::string& line) {
    m_parameter.Log().Write("%s", line.c_str());
}

// ---- The thread's body ----

void RunMonitor(ServiceParameter& parameter, const system_info& system,
                std::unique_ptr<iLoRestManager> manager, StopWait& wait, const Clock& clock,
                AccountSource accounts) {
    try {
        try {
            MonitorLoop(parameter, system, *manager, wait, clock, std::move(accounts)).Run();
        } catch (...) {
            tovaserverutil::LogCurrentException(parameter.Log(), kFailureUnit, kCycleFailureLine);
            manager.reset();
            throw;
        }
    } catch (...) {
        tovaserverutil::LogCurrentException(parameter.Log(), kFailureUnit, kThreadFailureLine);
    }
}
