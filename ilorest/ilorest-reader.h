// Turns the management controller's REST resources into one storage snapshot.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "rest-bridge.h"
#include "rest-records.h"
#include "server-util.h"
#include "stop-wait.h"
#include "storage-model.h"

class RestText;
struct RedfishDriveReader;
struct RedfishVolumeReader;

// Owns the bridge. Used by one thread.
//
// Failures are text exceptions (std::string) that name the failed step, followed by the texts of the steps
// inside it. The exceptions to that rule are said at the operations. A stop that is seen (before a fetch, or
// while waiting for a resource) ends what is going on quietly, without a failure text.
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

    // Fills the snapshot, from empty. Logs in first when no session is open. True when the snapshot is
    // complete; false when a stop was seen (the snapshot is then empty). Throws std::string for a text
    // failure, const char* (into the reader's own buffer, valid until the next call) for a standard
    // exception.
    bool readILoRest(ServiceRoot& snapshot);

    // Logs in and reads the controller's version: 1. Throws std::string; StopSeen when a stop was seen.
    int setupiLOVersion();
    // The same over the virtual NIC: 0 for "iLO 5" and "iLO 6"; otherwise scale 1, the flag, and 0 when a
    // version text could be read, 1 when not. Throws std::string; StopSeen when a stop was seen.
    int setupiLOVersion_vnic(const std::string& host, const std::string& account,
                             const std::string& password);

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

    // The steps of a walk, each of which fetches the resource (or the collection) that the Odataid names and
    // fills the item. A failure is the step's own text, "iLoRestReader.readSystems failed." and so on,
    // followed by the text of what failed inside it; a resource that cannot be loaded is traced with the
    // reason and adds no text. StopSeen, std::bad_alloc and whatever else is no text pass through.
    void readSystems(RestBridge& bridge, const Odataid& collection, ServiceRoot& root);
    void readComputerSystem(RestBridge& bridge, const Odataid& id, ComputerSystem& system);

    // The Smart Storage family.
    void readSmartStorage(RestBridge& bridge, const Odataid& id, SmartStorage& storage);
    void readArrayControllers(RestBridge& bridge, const Odataid& collection, SmartStorage& storage);
    void readController(RestBridge& bridge, const Odataid& id, ArrayController& controller);
    void readLogicalDrives(RestBridge& bridge, const Odataid& collection, ArrayController& controller);
    void readLogicalDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive);
    void readLogicalDriveDataDrives(RestBridge& bridge, const Odataid& collection, LogicalDrive& drive);
    void readDiskDrives(RestBridge& bridge, const Odataid& collection, ArrayController& controller);
    void readDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive);

    // The Redfish Storage families. A drive whose resource stays unready keeps its defaults: health "OK",
    // state "Enabled", the one reason "None", 100 percent of life left.
    void readStorage(RestBridge& bridge, const Odataid& collection, ComputerSystem& system);
    void readMirrorControllers(RestBridge& bridge, const Odataid& collection, SmartStorage& storage);
    void readMirrorController(RestBridge& bridge, const Odataid& id, ArrayController& controller);
    // Drives of boot devices and direct-attached NVMe, of MR controllers, of other RAID controllers (SR), and
    // of embedded SATA and VROC, which are asked 20 times instead of 5.
    void readMirrorDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive);
    void readBCMDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive);
    void readMCDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive);
    void readVROCDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive);
    // Volumes of boot devices on "iLO 5", on later generations, and of RAID controllers.
    void readVolumeDrives(RestBridge& bridge, const Odataid& collection, ArrayController& controller);
    void readVolumeDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive);
    void readUVolumeDrives(RestBridge& bridge, const Odataid& collection, ArrayController& controller);
    void readUVolumeDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive);
    void readBCMVolumeDrives(RestBridge& bridge, const Odataid& collection, ArrayController& controller);
    void readBCMVolumeDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive);

    // The firmware version, from the first manager; also into the version text.
    void readiLOVersion(RestBridge& bridge, iLOVersion& version);
    // The product generation, also into the version text when it is a known one; empty when nothing could be
    // read. The service root tells no firmware version: `version` stays as it is.
    std::string readiLOVersion_vnic(const std::string& host, const std::string& account,
                                    const std::string& password, RestBridge& bridge, iLOVersion& version);

private:
    // A step's own failure text and the line of its source that traces say.
    struct Step {
        const char* failure;
        int line;
    };

    // Runs the body of a step and puts the step's own text before the text of a failure inside it.
    void step(const Step& where, const std::function<void()>& body);
    // Fetches until the resource is ready, at most `attempts` times with a wait after each; then the last
    // text as it stands. Throws StopSeen before a fetch and out of a wait.
    static bool isNotReady(const std::string& text);
    std::string fetch(const std::function<std::string()>& get, std::int32_t attempts);
    std::string fetch(RestBridge& bridge, const std::string& path, std::int32_t attempts);
    std::string fetch(RestBridge& bridge, const std::string& path);
    // The links of a collection, in array order.
    std::vector<Odataid> fetchMembers(RestBridge& bridge, const Odataid& collection);
    // "ilorest-reader LINE TEXT" to the trace log.
    void trace(int line, const std::string& text);
    void openSession();
    // Ends the session after a failure, whatever comes of it.
    void closeQuietly();
    // Makes the text the last failure.
    static void keepFailure(const std::string& text);
    // Closes, keeps the text as last failure and throws it; the endurance scale falls back to 1.
    [[noreturn]] void failVersion(std::string failure);

    // Model, serial number and place of the subsystem's controller, from where its text keeps them.
    void readStorageController(RestBridge& bridge, RestText& text, Storage& storage);
    // False when the text embeds none. With `scan` it is the first embedded SATA or VROC one, or else the
    // last.
    bool readEmbeddedController(RestText& text, bool scan, StorageController& controller);
    void readLinkedController(RestBridge& bridge, RestText& text, Odataid& collection,
                              StorageController& controller);
    // What the variants of drive and volume readers have in common.
    void readRedfishDrives(const RedfishDriveReader& reader, RestBridge& bridge,
                           const std::vector<Odataid>& ids, ArrayController& controller);
    void readRedfishDrive(const RedfishDriveReader& reader, RestBridge& bridge, const Odataid& id,
                          DiskDrive& drive);
    void readRedfishVolumes(const RedfishVolumeReader& reader, RestBridge& bridge, const Odataid& collection,
                            ArrayController& controller);
    void readRedfishVolume(const RedfishVolumeReader& reader, RestBridge& bridge, const Odataid& id,
                           LogicalDrive& drive);

    char m_message[1024] = {};
    std::unique_ptr<RestBridge> m_bridge;
    std::string m_host;
    std::string m_account;  // wiped when replaced and at the end, as the password
    std::string m_password;
    std::uint32_t m_retryCount = 0;
    std::uint32_t m_retryInterval = 0;  // milliseconds
    std::int32_t m_notReadyAttempts = 5;
    std::uint32_t m_notReadyWait = 10000;  // milliseconds
    tovaserverutil::StopWait* m_wait = nullptr;
    tovaserverutil::TraceLog* m_logger = nullptr;
    std::string m_versionText;
    iLOVersion m_version;
    std::uint32_t m_enduranceScale = 1;
    std::int32_t m_unknownGeneration = 0;
};
