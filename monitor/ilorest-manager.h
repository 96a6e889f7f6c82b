// The monitor's hold on the management controller: log-in, snapshots, their comparison.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ilorest-reader.h"
#include "server-util.h"
#include "shell.h"
#include "state-rules.h"
#include "stop-wait.h"
#include "storage-model.h"

// Used by the monitoring thread alone. Failures of the controller are text exceptions (std::string).
class iLoRestManager {
public:
    iLoRestManager();
    // The trace log is borrowed; null for none.
    explicit iLoRestManager(tovaserverutil::TraceLog* log);
    // The settings are those of its connections.
    iLoRestManager(tovaserverutil::TraceLog* log, const ConnectionSettings& settings);
    // With other doors to the controller and to commands (borrowed).
    iLoRestManager(tovaserverutil::TraceLog* log, std::unique_ptr<iLoRestReader> reader,
                   tovaserverutil::CommandRunner& commands);
    // Logs out whatever session is still open, also one of a log-in that a stop has cut short.
    ~iLoRestManager();
    iLoRestManager(const iLoRestManager&) = delete;
    iLoRestManager& operator=(const iLoRestManager&) = delete;

    // Logs in, and reads the controller's version: over the virtual NIC when this host has its address on
    // that link and the set-up there succeeds (vNICEverEnabled is then set), otherwise with the URL given. An
    // empty URL is the in-band channel, an empty account or password is handed on as "None". The interval is
    // in milliseconds. True on success. Throws std::string for a text failure, TOVAExcpt of code kSystemCall
    // for a C-string failure, iLoRestReader::StopSeen when a stop was seen.
    bool init(const std::string& url, const std::string& account, const std::string& password,
              std::int32_t maxTrials, std::int32_t trialInterval);

    // True when the module does not deny that the virtual NIC is there and the set-up over it succeeds.
    // Throws what the reader throws.
    bool isVNICAvail(const std::string& url, const std::string& account, const std::string& password,
                     std::int32_t maxTrials, std::int32_t trialInterval);

    // Has this host the address? `address` becomes part of a shell command: constants only.
    bool ipExists(const std::string& address);

    // Reads the snapshot that later ones are compared with. False when it could not be read, there is none
    // then. Throws std::string for a text failure, also without a snapshot then.
    bool build();
    // Reads a snapshot. A text failure (std::string) resets the reader and is thrown on; any other is traced
    // and gives false. A stop gives false without a line.
    bool buildRaidControllers(ServiceRoot& snapshot);

    // Reads a new snapshot, appends one event for each state entered since the previous one, and makes it the
    // previous one. False when no snapshot could be read, nothing is compared then. Throws as
    // buildRaidControllers does. A failed read leaves the previous snapshot alone, so that no transition is
    // lost or doubled. Without a previous snapshot every state that is there counts as entered.
    bool check(EventList& events);

    // "<VK0902> [ER] MESSAGE" to the trace log.
    void writeLog(const std::string& message);

    // The thread's stop request, which ends the reader's waits; borrowed.
    void setEvt(tovaserverutil::StopWait* wait) { m_reader->setEvt(wait); }
    void reset() { m_reader->reset(); }
    void close() { m_reader->close(); }  // throws const char*
    // Closes a session that is given up whatever comes of it. Starts no interpreter.
    void closeQuietly();
    bool isiLOInitialized() const { return m_reader->isiLOInitialized(); }

    // Has a log-in ever succeeded over the virtual NIC?
    void setVNICEverEnabled(bool enabled) { m_vNICEverEnabled = enabled; }
    bool isVNICEverEnabled() const { return m_vNICEverEnabled; }
    // The latch that keeps the system log from being flooded: the log-in failure has been reported.
    void setiLOLoginFailed(bool failed) { m_iLOLoginFailed = failed; }
    bool getiLOLoginFailed() const { return m_iLOLoginFailed; }

private:
    bool SetUpOverVnic(const std::string& account, const std::string& password, std::int32_t maxTrials,
                       std::int32_t trialInterval);

    tovaserverutil::TraceLog* m_log;
    tovaserverutil::ShellRunner m_shell;
    tovaserverutil::CommandRunner& m_commands;
    std::unique_ptr<iLoRestReader> m_reader;
    // Lives and dies with the manager and is deliberately used by nothing.
    iLoRestReader m_spareReader;
    StateRules m_rules;
    ServiceRoot m_previous;
    bool m_vNICEverEnabled = false;
    bool m_iLOLoginFailed = false;
};
