#include "state-rules.h"

using tovaevent::EvtData;

// A drive gives its wear as the identifier of the event that reports it.
static_assert(DiskDrive::kWearFirst == tovaevent::kDriveWear80);
static_assert(DiskDrive::kWearSecond == tovaevent::kDriveWear90);
static_assert(DiskDrive::kWearHighest == tovaevent::kDriveWear95);

namespace {

// The state holds now and did not hold before.
template <typename Item, typename Iterator>
bool Entered(bool (Item::*state)() const, const Item& current, bool found, Iterator previous) {
    return (current.*state)() && !(found && (previous->second.*state)());
}

void RaiseWear(std::uint32_t code, std::uint32_t previousCode, ParameterFiller<DiskDrive>* fill,
               const ArrayController& controller, const DiskDrive& drive, EventList& events) {
    if (code != 0 && code != previousCode) {
        raiseEvent(code, fill, controller, drive, events);
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
        raiseEvent(tovaevent::kDriveFailed, getPdMessageParam, controller, drive, events);
    }
}

void checkPdStatusFatal(const ArrayController& controller, const DiskDrive& drive, bool found,
                        ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isStatusFatal, drive, found, previous)) {
        raiseEvent(tovaevent::kDriveFatal, getPdMessageParam, controller, drive, events);
    }
}

void checkPdStatusSmart(const ArrayController& controller, const DiskDrive& drive, bool found,
                        ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isStatusSmart, drive, found, previous)) {
        raiseEvent(tovaevent::kDrivePredictiveFailure, getPdMessageParam, controller, drive, events);
    }
}

void checkBCMPdStatusFailed(const ArrayController& controller, const DiskDrive& drive, bool found,
                            ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isBCMStatusFailed, drive, found, previous)) {
        raiseEvent(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdStatusFailed(const ArrayController& controller, const DiskDrive& drive, bool found,
                               ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isMirrorStatusFailed, drive, found, previous)) {
        raiseEvent(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdStatusFatal(const ArrayController& controller, const DiskDrive& drive, bool found,
                              ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isMirrorStatusFatal, drive, found, previous)) {
        raiseEvent(tovaevent::kDriveFatal, getMirrorPdMessageParam, controller, drive, events);
    }
}

void checkMirrorPdStatusSmart(const ArrayController& controller, const DiskDrive& drive, bool found,
                              ServiceRoot::DiskDriveIterator previous, EventList& events) {
    if (Entered(&DiskDrive::isMirrorStatusSmart, drive, found, previous)) {
        raiseEvent(tovaevent::kDrivePredictiveFailure, getMirrorPdMessageParam, controller, drive, events);
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
        raiseEvent(tovaevent::kLogicalDriveOffline, getLdMessageParam, controller, drive, events);
    }
}

void checkLdStatusCritical(const ArrayController& controller, const LogicalDrive& drive, bool found,
                           ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isStatusCritical, drive, found, previous)) {
        raiseEvent(tovaevent::kLogicalDriveCritical, getLdMessageParam, controller, drive, events);
    }
}

void checkMirrorLdStatusOffline(const ArrayController& controller, const LogicalDrive& drive, bool found,
                                ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isMirrorStatusOffline, drive, found, previous)) {
        raiseEvent(tovaevent::kLogicalDriveOffline, getMirrorLdMessageParam, controller, drive, events);
    }
}

void checkMirrorLdStatusCritical(const ArrayController& controller, const LogicalDrive& drive, bool found,
                                 ServiceRoot::LogicalDriveIterator previous, EventList& events) {
    if (Entered(&LogicalDrive::isMirrorStatusCritical, drive, found, previous)) {
        raiseEvent(tovaevent::kLogicalDriveCritical, getMirrorLdMessageParam, controller, drive, events);
    }
}
