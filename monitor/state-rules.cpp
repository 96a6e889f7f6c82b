#include "state-rules.h"

#include <utility>

using tovaevent::EvtData;

namespace {

// The state holds now and did not hold before.
template <typename Item, typename Iterator>
bool Entered(bool (Item::*state)() const, const Item& current, bool found, Iterator previous) {
    return (current.*state)() && !(found && (previous->second.*state)());
}

template <typename Item>
using ParameterFiller = void(EvtData&, const ArrayController&, const Item&, std::uint32_t);

template <typename Item>
void Raise(std::uint32_t id, ParameterFiller<Item>* fill, const ArrayController& controller, const Item& item,
           EventList& events) {
    EvtData event;
    fill(event, controller, item, id);
    events.push_back(std::move(event));
}

void RaiseWear(std::uint32_t code, std::uint32_t previousCode, ParameterFiller<DiskDrive>* fill,
               const ArrayController& controller, const DiskDrive& drive, EventList& events) {
    if (code != 0 && code != previousCode) {
        Raise(code, fill, controller, drive, events);
    }
}

}  // namespace

// ---- Message parameters ----

void getPdMessageParam(EvtData& event, const ArrayController& controller, const DiskDrive& drive,
                       std::uint32_t id) {
    event.SetId(id);
    event.AddParameter(controller.getInfoString());
    event.AddParameter(drive.location);
    event.AddParameter(drive.getInfoString());
}

void getMirrorPdMessageParam(EvtData& event, const ArrayController& controller, const DiskDrive& drive,
                             std::uint32_t id) {
    DiskDrive copy = drive;
    event.SetId(id);
    event.AddParameter(controller.getInfoString());
    event.AddParameter(drive.location);
    event.AddParameter(copy.getMirrorInfoString());
}

void getLdMessageParam(EvtData& event, const ArrayController& controller, const LogicalDrive& drive,
                       std::uint32_t id) {
    event.SetId(id);
    event.AddParameter(controller.getInfoString());
    event.AddParameter(std::to_string(drive.number));
}

void getMirrorLdMessageParam(EvtData& event, const ArrayController& controller, const LogicalDrive& drive,
                             std::uint32_t id) {
    getLdMessageParam(event, controller, drive, id);
}

// ---- Rules ----

void checkPdStatusFailed(const ArrayController& controller, const DiskDrive& drive, bool found,
                         ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isStatusFailed, drive, found, previous)) {
        Raise(tovaevent::kDriveFailed, getPdMessageParam, controller, drive, events);
    }
}

void checkPdStatusFatal(const ArrayController& controller, const DiskDrive& drive, bool found,
                        ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isStatusFatal, drive, found, previous)) {
        Raise(tovaevent::kDriveFatal, getPdMessageParam, controller, drive, events);
    }
}

void checkPdStatusSmart(const ArrayController& controller, const DiskDrive& drive, bool found,
                        ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isStatusSmart, drive, found, previous)) {
        Raise(tovaevent::kDrivePredictiveFailure, getPdMessageParam, controller, drive, events);
    }
}

void checkBCMPdStatusFailed(const ArrayController& controller, const DiskDrive& drive, bool found,
                            ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isBCMStatusFailed, drive, found, previous)) {
        Raise(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdStatusFailed(const ArrayController& controller, const DiskDrive& drive, bool found,
                               ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isMirrorStatusFailed, drive, found, previous)) {
        Raise(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdStatusFatal(const ArrayController& controller, const DiskDrive& drive, bool found,
                              ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isMirrorStatusFatal, drive, found, previous)) {
        Raise(tovaevent::kDriveFatal, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdStatusSmart(const ArrayController& controller, const DiskDrive& drive, bool found,
                              ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isMirrorStatusSmart, drive, found, previous)) {
        Raise(tovaevent::kDrivePredictiveFailure, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkPdSsdEndurance(const ArrayController& controller, const DiskDrive& drive, bool found,
                         ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (drive.mediaType == "SSD") {
        RaiseWear(drive.getEnduranceCode(), found ? previous->second.getEnduranceCode() : 0,
                  getPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdSsdEndurance(const ArrayController& controller, const DiskDrive& drive, bool found,
                               ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (drive.mediaType == "SSD") {
        RaiseWear(drive.getMirrorEnduranceCode(), found ? previous->second.getMirrorEnduranceCode() : 0,
                  getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkLdStatusOffline(const ArrayController& controller, const LogicalDrive& drive, bool found,
                          ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isStatusOffline, drive, found, previous)) {
        Raise(tovaevent::kLogicalDriveOffline, getLdMessageParam, controller, drive, events);
    }
}

void checkLdStatusCritical(const ArrayController& controller, const LogicalDrive& drive, bool found,
                           ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isStatusCritical, drive, found, previous)) {
        Raise(tovaevent::kLogicalDriveCritical, getLdMessageParam, controller, drive, events);
    }
}

void checkMirrorLdStatusOffline(const ArrayController& controller, const LogicalDrive& drive, bool found,
                                ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isMirrorStatusOffline, drive, found, previous)) {
        Raise(tovaevent::kLogicalDriveOffline, getMirrorLdMessageParam, controller, drive, events);
    }
}

void checkMirrorLdStatusCritical(const ArrayController& controller, const LogicalDrive& drive, bool found,
                                 ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isMirrorStatusCritical, drive, found, previous)) {
        Raise(tovaevent::kLogicalDriveCritical, getMirrorLdMessageParam, controller, drive, events);
    }
}
