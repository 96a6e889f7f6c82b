// Turns the management controller's REST resources into one storage snapshot.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "rest-bridge.h"
#include "rest-records.h"
#include "server-util.h"
#include "stop-wait.h"
#include "storage-model.h"

// Owns the bridge. Used by one thread.
//
// Failures are text exceptions (std::string) that name the failed step, followed by the texts of the steps inside it. The
// exceptions to that rule are said at the operations. A stop that is seen (before a fetch, or while waiting for a resource)
// ends what is going on quietly, without a failure text.
class iLoRestReader {
public:
    // Marks the end of a walk or a version read because the thread is to stop.
    struct StopSeen {};

    iLoRestReader();  // with a bridge to the embedded module
    explicit iLoRestReader(std::unique_ptr<RestBridge> bridge);
    ~iLoRestReader();
    iLoRestReader(const iLoRestReader&) = delete;
    iLoRestReader& operator=(const iLoRestReader&) = delete;

    // Stores the values and opens nothing. The interval is in milliseconds.
    void init(const std::string& host, const std::string& account, const std::string& password,
              std::uint32_t retryCount, std::uint32_t retryInterval);

    // Fills the snapshot, from empty. Logs in first when no session is open. True when the snapshot is complete; false when a
    // stop was seen (the snapshot is then empty). Throws std::string for a text failure, const char* (into the reader's own
    // buffer, valid until the next call) for a standard exception.
    bool readILoRest(ServiceRoot& snapshot);

    // Logs in and reads the controller's version: 1. Throws std::string; StopSeen when a stop was seen.
    int setupiLOVersion();
    // The same over the virtual NIC: 0 for "iLO 5" and "iLO 6"; otherwise scale 1, the flag, and 0 when a version text could
    // be read, 1 when not. Throws std::string; StopSeen when a stop was seen.
    int setupiLOVersion_vnic(const std::string& host, const std::string& account, const std::string& password);

    // The thread's stop request, borrowed; null for none.
    void setEvt(tovaserverutil::StopWait* wait) { m_wait = wait; }
    // Borrowed, may be null; handed on to the bridge.
    void setLogger(tovaserverutil::TraceLog* logger);
    // "<VK0999> [TR] TEXT" to the trace log, when there is one.
    void writeLog(const std::string& text);

    void reset() { m_bridge->reset(); }
    void close() { m_bridge->close(); }  // throws what the bridge throws (const char*)
    bool isiLOInitialized() const { return m_bridge->isiLOInitialized(); }
    void set_vNIC(bool vNIC) { m_bridge->set_vNIC(vNIC); }
    bool get_vNIC() const { return m_bridge->get_vNIC(); }
    std::string is_vNIC_Avail(const std::string& host, std::uint32_t retryCount, std::uint32_t retryInterval);

    // Waiting for resources that are not ready: attempts and milliseconds between them. Tests shorten them.
    void setNotReadyRule(std::int32_t attempts, std::uint32_t waitMs);

    const std::string& versionText() const { return m_versionText; }
    const iLOVersion& version() const { return m_version; }
    std::uint32_t enduranceScale() const { return m_enduranceScale; }
    // Raised by the virtual-NIC set-up when the generation is neither "iLO 5" nor "iLO 6".
    bool unknownGeneration() const { return m_unknownGeneration != 0; }
    // The text of the last failure that a reader of this process passed on.
    static const std::string& lastFailure();
    // (the private part is the implementer's)
private:
    std::unique_ptr<RestBridge> m_bridge;
    tovaserverutil::StopWait* m_wait = nullptr;
    std::string m_versionText;
    iLOVersion m_version;
    std::uint32_t m_enduranceScale = 1;
    std::int32_t m_unknownGeneration = 0;
};
