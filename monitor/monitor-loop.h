// The monitoring thread's work: start-up, log-in, snapshots, events.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "clock.h"
#include "ilorest-manager.h"
#include "login-failures.h"
#include "service-param.h"
#include "state-rules.h"
#include "stop-wait.h"
#include "system-info.h"

// The door to the stored controller account: as DecryptAccount.
using AccountSource = std::function<bool(int record, unsigned char* buffer, std::size_t length)>;

// Where a failure that ends the thread is said to come from.
inline constexpr const char* kFailureUnit = "service";
inline constexpr int kThreadFailureLine = 1454;

enum AccountChange : int {
    kAccountUnchanged = 0,
    kAccountChanged = 1,
    kAccountLost = 2,
};

// Compares the stored account with the one in use and takes it over: unchanged, changed (stored in the
// parameters), or no longer readable (emptied in the parameters). A source that throws std::invalid_argument
// has no usable key, which counts as unreadable; one that throws another standard exception could not look,
// which counts as unchanged.
AccountChange iLOAccountCheck(tova_service::ServiceParameter& parameter, const AccountSource& accounts);

// Logs in with the configured values; the log-in's waits end when the thread is to stop. Returns true; throws
// what iLoRestManager::init throws.
bool checkiLOVersion(iLoRestManager& manager, const tova_service::ServiceParameter& parameter,
                     tovaserverutil::StopWait& wait);

// The polling interval in milliseconds, from 3 seconds to an hour. A negative setting, taken as the unsigned
// number it reads as, is a large one.
std::uint32_t ClampPollingInterval(std::uint32_t configured);

// Everything is borrowed and used on the monitoring thread alone.
//
// A stop that any wait sees, also one inside a log-in or a snapshot, ends Run() at once: one "Break ..." line
// is written and no line about what the stop cut short. Other exceptions than those of the controller leave
// Run().
class MonitorLoop {
public:
    MonitorLoop(tova_service::ServiceParameter& parameter, const tova_service::system_info& system,
                iLoRestManager& manager, tovaserverutil::StopWait& wait, const tovaserverutil::Clock& clock,
                AccountSource accounts);

    // The start-up loop: passes of 10 seconds until a first snapshot exists (true), or until 20 passes have
    // used up their retry or a stop was seen (false). A credential error and the pause that follows use up
    // none.
    bool initILoRestManager();

    // Start-up, then one cycle per polling interval until the stop. A session that start-up was stopped in is
    // left to the manager's destruction.
    void Run();

private:
    // The same sentence from three places, told apart by its number.
    static constexpr const char* kLoginFailedAtStartUp =
        "<VK0910> [ER] Login to iLO was failed. Please input an account of iLO using iLO account "
        "registration tool.";
    static constexpr const char* kLoginFailedInBuild =
        "<VK0914> [ER] Login to iLO was failed. Please input an account of iLO using iLO account "
        "registration tool.";
    static constexpr const char* kLoginFailedInCycle =
        "<VK0954> [ER] Login to iLO was failed. Please input an account of iLO using iLO account "
        "registration tool.";

    enum class TextFailure { kCredential, kChannelLost, kOther };

    // Start-up.
    bool BuildAtStartUp();
    void LogInAtStartUp();
    static TextFailure KindAtStartUp(const std::string& text);

    // Monitoring cycle.
    void RunCycle();
    bool IsLogInDue();
    void LogIn();
    void HandleLogInFailure(TextFailure kind);
    void TakeSnapshot();
    void HandleSnapshotFailure(TextFailure kind);
    static TextFailure KindInCycle(const std::string& text);

    // Both.
    bool TakeBaseline();
    void ReportEvents();
    bool TakeAccountOver();
    void GiveSessionUp();
    void ReportLoginFailed();
    void Pause(unsigned int milliseconds);
    void ThrowIfStopRequested();
    void Break();
    void Trace(const std::string& line);

    tova_service::ServiceParameter& m_parameter;
    const tova_service::system_info& m_system;
    iLoRestManager& m_manager;
    tovaserverutil::StopWait& m_wait;
    AccountSource m_accounts;

    LoginFailures m_failures;
    bool m_initialized = false;  // logged in and usable
    bool m_hasBaseline = false;  // a first snapshot exists for this log-in
    bool m_stopped = false;
    EventList m_events;  // not yet reported

    // Start-up only.
    std::uint32_t m_retry = 0;
    bool m_retryUsed = false;  // by the current pass
};

// The thread's body around the loop: what leaves the loop is traced, the manager is destroyed, the failure is
// traced again as the thread's end. Throws nothing but failures of the trace log.
void RunMonitor(tova_service::ServiceParameter& parameter, const tova_service::system_info& system,
                std::unique_ptr<iLoRestManager> manager, tovaserverutil::StopWait& wait,
                const tovaserverutil::Clock& clock, AccountSource accounts);
