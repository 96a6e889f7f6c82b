// What changed between two storage snapshots, and which events that makes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "evt-data.h"
#include "storage-model.h"

using EventList = std::vector<tovaevent::EvtData>;

// ---- Message parameters ----
//
// Each sets the event's identifier and appends: controller text, drive location, drive text; or controller
// text and logical-drive number. Nothing else is changed: the Mirror drive text, whose making overwrites the
// capacity, is made from a copy, so that every event of a drive shows the right size.

void getPdMessageParam(tovaevent::EvtData& event, const ArrayController& controller, const DiskDrive& drive,
                       std::uint32_t id);
void getMirrorPdMessageParam(tovaevent::EvtData& event, const ArrayController& controller,
                             const DiskDrive& drive, std::uint32_t id);
void getLdMessageParam(tovaevent::EvtData& event, const ArrayController& controller,
                       const LogicalDrive& drive, std::uint32_t id);
void getMirrorLdMessageParam(tovaevent::EvtData& event, const ArrayController& controller,
                             const LogicalDrive& drive, std::uint32_t id);

template <typename Item>
using ParameterFiller = void(tovaevent::EvtData& event, const ArrayController& controller, const Item& item,
                             std::uint32_t id);

// Appends the item's event with this identifier.
template <typename Item>
void raiseEvent(std::uint32_t id, ParameterFiller<Item>* fill, const ArrayController& controller,
                const Item& item, EventList& events) {
    tovaevent::EvtData event;
    fill(event, controller, item, id);
    events.push_back(std::move(event));
}

// ---- Rules ----
//
// A rule appends one event when the current item has entered a state that the same item of the previous
// snapshot was not in; an item that is new (`found` false, `previous` then without meaning) was in none.

using DriveRule = void(const ArrayController& controller, const DiskDrive& drive, bool found,
                       ServiceRoot::DiskDriveIterator previous, EventList& events);
using LogicalDriveRule = void(const ArrayController& controller, const LogicalDrive& drive, bool found,
                              ServiceRoot::LogicalDriveIterator previous, EventList& events);

DriveRule checkPdStatusFailed;
DriveRule checkPdStatusFatal;
DriveRule checkPdStatusSmart;
DriveRule checkBCMPdStatusFailed;
DriveRule checkMirrorPdStatusFailed;
DriveRule checkMirrorPdStatusFatal;
DriveRule checkMirrorPdStatusSmart;

// The wear rules look at drives of media type "SSD" only, and fire when the wear level is another one than
// before.
DriveRule checkPdSsdEndurance;
DriveRule checkMirrorPdSsdEndurance;

LogicalDriveRule checkLdStatusOffline;
LogicalDriveRule checkMirrorLdStatusOffline;
// These two never fire at present: their predicates are constantly false. They are evaluated in their place
// all the same, so that event 0x800081BB can be switched on by the predicates alone.
LogicalDriveRule checkLdStatusCritical;
LogicalDriveRule checkMirrorLdStatusCritical;

// ---- Walks ----

// True for the model text of a MegaRAID controller.
bool isMegaRaidModel(const std::string& model);

// Applies the rules to every item of the current snapshot, in key order. Never throws: a failure ends the one
// walk as a line given to `writeLog`, and the events appended before it stay.
class StateRules {
public:
    using LogWriter = std::function<void(const std::string&)>;

    explicit StateRules(LogWriter writeLog) : m_writeLog(std::move(writeLog)) {}

    void checkPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                             EventList& events) const;
    void checkLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current, EventList& events) const;
    void checkMirrorPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                   EventList& events) const;
    void checkMirrorLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                 EventList& events) const;

    // What has vanished from the "HPE MR" controllers of one system. A drive that is gone counts as failed
    // while one of its volumes is known; a volume that is gone counts as offline unless a member drive is
    // still there (then it was deleted).
    void checkPrvPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                const std::string& system, EventList& events) const;
    void checkPrvLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                              const std::string& system, EventList& events) const;

    // Deliberately empty: medium errors are the media-error thread's business, failed rebuilds nobody's.
    void checkMediumError(const ServiceRoot& previous, const ServiceRoot& current, EventList& events) const;
    void checkRebuildFaild(const ServiceRoot& previous, const ServiceRoot& current, EventList& events) const;

    // All walks in their order: Mirror items, vanished items of each system with an "HPE MR" controller,
    // plain items.
    void checkAll(const ServiceRoot& previous, const ServiceRoot& current, EventList& events) const;

    // Runs one walk; writes what it throws: a C string's text, "Fatal error." for anything else.
    // Takes the walk as it is: wrapping it could fail outside the guard.
    template <typename Walk>
    void guard(const Walk& walk) const {
        try {
            walk();
        } catch (const char* text) {
            m_writeLog(text);
        } catch (...) {
            m_writeLog("Fatal error.");
        }
    }

private:
    LogWriter m_writeLog;
};
