#include "state-rules.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

using tovaevent::EvtData;

namespace {

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// The state holds now and did not hold before.
template <typename Item, typename Iterator>
bool Entered(bool (Item::*state)() const, const Item& current, bool found, Iterator previous) {
    return (current.*state)() && !(found && (previous->second.*state)());
}

// ---- Controller kinds of the Mirror family, told apart by the model text ----

enum class MirrorKind { kEmbeddedSata, kBootDevice, kOther };

MirrorKind KindOf(const ArrayController& controller) {
    if (Contains(controller.model, "Embedded SATA Controller")) {
        return MirrorKind::kEmbeddedSata;
    }
    if (Contains(controller.model, "HPE NS204i-")) {
        return MirrorKind::kBootDevice;
    }
    return MirrorKind::kOther;
}

// ---- Which rules apply, in order ----

using DriveRules = std::span<DriveRule* const>;
using LogicalDriveRules = std::span<LogicalDriveRule* const>;

constexpr std::array kDriveRules = {checkPdStatusFailed, checkPdStatusFatal, checkPdStatusSmart,
                                    checkPdSsdEndurance};
constexpr std::array kEmbeddedSataDriveRules = {checkMirrorPdSsdEndurance};
constexpr std::array kBootDeviceDriveRules = {checkMirrorPdStatusFailed, checkMirrorPdStatusFatal,
                                              checkMirrorPdStatusSmart, checkMirrorPdSsdEndurance};
constexpr std::array kMirrorDriveRules = {checkBCMPdStatusFailed, checkMirrorPdStatusFatal,
                                          checkMirrorPdStatusSmart, checkMirrorPdSsdEndurance};
constexpr std::array kLogicalDriveRules = {checkLdStatusOffline, checkLdStatusCritical};
constexpr std::array kMirrorLogicalDriveRules = {checkMirrorLdStatusOffline, checkMirrorLdStatusCritical};

DriveRules MirrorDriveRules(const ArrayController& controller) {
    switch (KindOf(controller)) {
        case MirrorKind::kEmbeddedSata:
            return kEmbeddedSataDriveRules;
        case MirrorKind::kBootDevice:
            return kBootDeviceDriveRules;
        case MirrorKind::kOther:
            break;
    }
    return kMirrorDriveRules;
}

LogicalDriveRules MirrorLogicalDriveRules(const ArrayController& controller) {
    return KindOf(controller) == MirrorKind::kOther ? LogicalDriveRules(kMirrorLogicalDriveRules)
                                                    : LogicalDriveRules(kLogicalDriveRules);
}

// The controller's key as the previous snapshot is asked for it. A "Slot" location with a key that starts
// with "Slot N" loses the word and the character after it. The ids that controllers give hold no "Slot", so
// the cut does nothing to them; it is kept for sources that put the slot before the id.
std::string MirrorLookupKey(const std::string& key, const ArrayController& controller) {
    constexpr std::size_t kSlotPrefix = 5;
    if (Contains(controller.location, "Slot") && Contains(key, "Slot")) {
        return key.substr(std::min(kSlotPrefix, key.size()));
    }
    return key;
}

bool HasMegaRaidController(const SmartStorage& storage) {
    for (const auto& [key, controller] : storage.controllers) {
        if (isMegaRaidModel(controller.model)) {
            return true;
        }
    }
    return false;
}

// Calls `visit` with key and controller of each "HPE MR" controller that the system had in the snapshot.
template <typename Visit>
void ForEachMegaRaid(const ServiceRoot& snapshot, const std::string& system, const Visit& visit) {
    const auto found = snapshot.systems.find(system);
    if (found == snapshot.systems.end()) {
        return;
    }
    for (const auto& [key, controller] : found->second.mirror.controllers) {
        if (isMegaRaidModel(controller.model)) {
            visit(key, controller);
        }
    }
}

bool IsVolumeKnown(const ServiceRoot& previous, const ServiceRoot& current, const std::string& system,
                   const std::string& controller, const std::vector<Odataid>& volumes) {
    ServiceRoot::LogicalDriveIterator ignored;
    for (const Odataid& volume : volumes) {
        if (current.containsMirrorLogicalDrive(system, controller, volume.id, ignored) ||
            previous.containsMirrorLogicalDrive(system, controller, volume.id, ignored)) {
            return true;
        }
    }
    return false;
}

bool IsAnyDrivePresent(const ServiceRoot& snapshot, const std::string& system, const std::string& controller,
                       const std::vector<Odataid>& drives) {
    ServiceRoot::DiskDriveIterator ignored;
    for (const Odataid& drive : drives) {
        if (snapshot.containsMirrorDiskDrive(system, controller, drive.id, ignored)) {
            return true;
        }
    }
    return false;
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

// ---- Walks ----

bool isMegaRaidModel(const std::string& model) {
    return Contains(model, "HPE MR");
}

void StateRules::guard(const std::function<void()>& walk) const {
    try {
        walk();
    } catch (const char* text) {
        m_writeLog(text);
    } catch (...) {
        m_writeLog("Fatal error.");
    }
}

void StateRules::checkPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                     EventList& events) const {
    guard([&] {
        for (const auto& [systemKey, system] : current.systems) {
            for (const auto& [controllerKey, controller] : system.smartStorage.controllers) {
                for (const auto& [driveKey, drive] : controller.diskDrives) {
                    ServiceRoot::DiskDriveIterator old;
                    const bool found = previous.containsDiskDrive(systemKey, controllerKey, driveKey, old);
                    for (DriveRule* rule : kDriveRules) {
                        rule(controller, drive, found, old, events);
                    }
                }
            }
        }
    });
}

void StateRules::checkLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                   EventList& events) const {
    guard([&] {
        for (const auto& [systemKey, system] : current.systems) {
            for (const auto& [controllerKey, controller] : system.smartStorage.controllers) {
                for (const auto& [driveKey, drive] : controller.logicalDrives) {
                    ServiceRoot::LogicalDriveIterator old;
                    const bool found = previous.containsLogicalDrive(systemKey, controllerKey, driveKey, old);
                    for (LogicalDriveRule* rule : kLogicalDriveRules) {
                        rule(controller, drive, found, old, events);
                    }
                }
            }
        }
    });
}

void StateRules::checkMirrorPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                           EventList& events) const {
    guard([&] {
        for (const auto& [systemKey, system] : current.systems) {
            for (const auto& [controllerKey, controller] : system.mirror.controllers) {
                const std::string lookupKey = MirrorLookupKey(controllerKey, controller);
                for (const auto& [driveKey, drive] : controller.diskDrives) {
                    ServiceRoot::DiskDriveIterator old;
                    const bool found = previous.containsMirrorDiskDrive(systemKey, lookupKey, driveKey, old);
                    for (DriveRule* rule : MirrorDriveRules(controller)) {
                        rule(controller, drive, found, old, events);
                    }
                }
            }
        }
    });
}

void StateRules::checkMirrorLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                         EventList& events) const {
    guard([&] {
        for (const auto& [systemKey, system] : current.systems) {
            for (const auto& [controllerKey, controller] : system.mirror.controllers) {
                const std::string lookupKey = MirrorLookupKey(controllerKey, controller);
                for (const auto& [driveKey, drive] : controller.logicalDrives) {
                    ServiceRoot::LogicalDriveIterator old;
                    const bool found =
                        previous.containsMirrorLogicalDrive(systemKey, lookupKey, driveKey, old);
                    for (LogicalDriveRule* rule : MirrorLogicalDriveRules(controller)) {
                        rule(controller, drive, found, old, events);
                    }
                }
            }
        }
    });
}

void StateRules::checkPrvPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                        const std::string& system, EventList& events) const {
    guard([&] {
        ForEachMegaRaid(previous, system, [&](const std::string& key, const ArrayController& controller) {
            for (const auto& [driveKey, drive] : controller.diskDrives) {
                ServiceRoot::DiskDriveIterator ignored;
                if (!current.containsMirrorDiskDrive(system, key, driveKey, ignored) &&
                    IsVolumeKnown(previous, current, system, key, drive.volumes)) {
                    Raise(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
                }
            }
        });
    });
}

void StateRules::checkPrvLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                      const std::string& system, EventList& events) const {
    guard([&] {
        ForEachMegaRaid(previous, system, [&](const std::string& key, const ArrayController& controller) {
            for (const auto& [driveKey, drive] : controller.logicalDrives) {
                ServiceRoot::LogicalDriveIterator ignored;
                if (!current.containsMirrorLogicalDrive(system, key, driveKey, ignored) &&
                    !IsAnyDrivePresent(current, system, key, drive.dataDrives)) {
                    Raise(tovaevent::kLogicalDriveOffline, getMirrorLdMessageParam, controller, drive,
                          events);
                }
            }
        });
    });
}

void StateRules::checkMediumError(const ServiceRoot&, const ServiceRoot&, EventList&) const {}

void StateRules::checkRebuildFaild(const ServiceRoot&, const ServiceRoot&, EventList&) const {}

void StateRules::checkAll(const ServiceRoot& previous, const ServiceRoot& current, EventList& events) const {
    checkMirrorPhysicalDevice(previous, current, events);
    checkMirrorLogicalDrive(previous, current, events);
    for (const auto& [key, system] : current.systems) {
        if (HasMegaRaidController(system.mirror) || HasMegaRaidController(system.smartStorage)) {
            checkPrvPhysicalDevice(previous, current, key, events);
            checkPrvLogicalDrive(previous, current, key, events);
        }
    }
    checkPhysicalDevice(previous, current, events);
    checkLogicalDrive(previous, current, events);
}
