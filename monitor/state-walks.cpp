// Which rules are applied to which items, and what has vanished.
#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <utility>

#include "state-rules.h"
#include "storage-family.h"
#include "text.h"

using tovaserverutil::Contains;

namespace {

// ---- Controller kinds of the Mirror family, told apart by the model text ----

enum class MirrorKind { kEmbeddedSata, kBootDevice, kOther };

MirrorKind KindOf(const ArrayController& controller) {
    if (Contains(controller.model, kEmbeddedSataName)) {
        return MirrorKind::kEmbeddedSata;
    }
    if (Contains(controller.model, kBootDeviceName)) {
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

DriveRules PlainDriveRules(const ArrayController&) {
    return kDriveRules;
}

LogicalDriveRules PlainLogicalDriveRules(const ArrayController&) {
    return kLogicalDriveRules;
}

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

// The controller's key as the previous snapshot is asked for it.
std::string PlainLookupKey(const std::string& key, const ArrayController&) {
    return key;
}

// Of a "Slot" location with a key that starts with "Slot N", the word and the character after it are cut off.
// The ids that controllers give hold no "Slot", so the cut does nothing to them; it is kept for sources that
// put the slot before the id.
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

// Has the processor fetch an item and its key while the one before it is looked at. In big snapshots a walk
// else waits for memory at every item.
template <typename Item>
void Prefetch(const std::pair<const std::string, Item>& entry) {
    constexpr std::size_t kLine = 64;  // of the cache; with another one it only helps less
    const char* const bytes = reinterpret_cast<const char*>(&entry);
    for (std::size_t offset = 0; offset < sizeof entry; offset += kLine) {
        __builtin_prefetch(bytes + offset);
    }
    __builtin_prefetch(entry.first.data());  // elsewhere: an id is no short text
}

// Calls `visit` with key and item of each, in the order of the keys.
template <typename Items, typename Visit>
void ForEachItem(const Items& items, const Visit& visit) {
    for (auto at = items.begin(); at != items.end();) {
        const auto& [key, item] = *at;
        if (++at != items.end()) {
            Prefetch(*at);
        }
        visit(key, item);
    }
}

// The items of one controller of a snapshot, asked for in the order of their keys. It walks along with the
// keys instead of looking each of them up from the top, which in big snapshots waits for memory at every
// step.
template <typename Item>
class ItemsInStep {
public:
    using Items = std::map<std::string, Item>;
    using Iterator = typename Items::const_iterator;

    // Null for a controller that is not there: none of its items is.
    ItemsInStep(const ArrayController* controller, Items ArrayController::*items)
        : ItemsInStep(controller == nullptr ? kNone : controller->*items) {}

    // As the look-ups of ServiceRoot. Each key is greater than the one before it.
    bool Contains(const std::string& key, Iterator& found) {
        while (m_next != m_end) {
            if (const int order = m_next->first.compare(key); order >= 0) {
                found = m_next;
                if (order == 0 && ++m_next != m_end) {
                    Prefetch(*m_next);
                }
                return order == 0;
            }
            ++m_next;
        }
        return false;
    }

private:
    static inline const Items kNone{};

    explicit ItemsInStep(const Items& items) : m_next(items.begin()), m_end(items.end()) {}

    Iterator m_next;
    Iterator m_end;
};

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

// Has the controller, null for none, one of these volumes or drives?
template <typename Item>
bool HasAny(const ArrayController* controller, std::map<std::string, Item> ArrayController::*items,
            const std::vector<Odataid>& ids) {
    return controller != nullptr && std::any_of(ids.begin(), ids.end(), [&](const Odataid& id) {
               return (controller->*items).contains(id.id);
           });
}

// ---- The walk over the items of the current snapshot ----

// One kind of item of one controller family: where it lies, how the previous snapshot is asked for its
// controller, and which rules it gets.
template <typename Item, typename Rule>
struct Walk {
    SmartStorage ComputerSystem::*family;
    std::map<std::string, Item> ArrayController::*items;
    std::string (*lookUpKey)(const std::string& key, const ArrayController& controller);
    std::span<Rule* const> (*rules)(const ArrayController& controller);

    void operator()(const ServiceRoot& previous, const ServiceRoot& current, EventList& events) const {
        for (const auto& [systemKey, system] : current.systems) {
            for (const auto& entry : (system.*family).controllers) {
                const ArrayController& controller = entry.second;
                const std::span<Rule* const> applied = rules(controller);
                ItemsInStep<Item> oldItems(
                    previous.findController(systemKey, family, lookUpKey(entry.first, controller)), items);
                ForEachItem(controller.*items, [&](const std::string& itemKey, const Item& item) {
                    typename ItemsInStep<Item>::Iterator old;
                    const bool found = oldItems.Contains(itemKey, old);
                    for (Rule* rule : applied) {
                        rule(controller, item, found, old, events);
                    }
                });
            }
        }
    }
};

constexpr Walk<DiskDrive, DriveRule> kDriveWalk = {
    &ComputerSystem::smartStorage, &ArrayController::diskDrives, PlainLookupKey, PlainDriveRules};
constexpr Walk<LogicalDrive, LogicalDriveRule> kLogicalDriveWalk = {
    &ComputerSystem::smartStorage, &ArrayController::logicalDrives, PlainLookupKey, PlainLogicalDriveRules};
constexpr Walk<DiskDrive, DriveRule> kMirrorDriveWalk = {
    &ComputerSystem::mirror, &ArrayController::diskDrives, MirrorLookupKey, MirrorDriveRules};
constexpr Walk<LogicalDrive, LogicalDriveRule> kMirrorLogicalDriveWalk = {
    &ComputerSystem::mirror, &ArrayController::logicalDrives, MirrorLookupKey, MirrorLogicalDriveRules};

}  // namespace

bool isMegaRaidModel(const std::string& model) {
    return Contains(model, kMegaRaidModel);
}

void StateRules::checkPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                     EventList& events) const {
    guard([&] { kDriveWalk(previous, current, events); });
}

void StateRules::checkLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                   EventList& events) const {
    guard([&] { kLogicalDriveWalk(previous, current, events); });
}

void StateRules::checkMirrorPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                           EventList& events) const {
    guard([&] { kMirrorDriveWalk(previous, current, events); });
}

void StateRules::checkMirrorLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                         EventList& events) const {
    guard([&] { kMirrorLogicalDriveWalk(previous, current, events); });
}

void StateRules::checkPrvPhysicalDevice(const ServiceRoot& previous, const ServiceRoot& current,
                                        const std::string& system, EventList& events) const {
    guard([&] {
        ForEachMegaRaid(previous, system, [&](const std::string& key, const ArrayController& controller) {
            const ArrayController* const now = current.findController(system, &ComputerSystem::mirror, key);
            ItemsInStep<DiskDrive> present(now, &ArrayController::diskDrives);
            ForEachItem(controller.diskDrives, [&](const std::string& driveKey, const DiskDrive& drive) {
                ServiceRoot::DiskDriveIterator ignored;
                if (!present.Contains(driveKey, ignored) &&
                    (HasAny(now, &ArrayController::logicalDrives, drive.volumes) ||
                     HasAny(&controller, &ArrayController::logicalDrives, drive.volumes))) {
                    raiseEvent(tovaevent::kDriveFailed, getMirrorPdMessageParam, controller, drive, events);
                }
            });
        });
    });
}

void StateRules::checkPrvLogicalDrive(const ServiceRoot& previous, const ServiceRoot& current,
                                      const std::string& system, EventList& events) const {
    guard([&] {
        ForEachMegaRaid(previous, system, [&](const std::string& key, const ArrayController& controller) {
            const ArrayController* const now = current.findController(system, &ComputerSystem::mirror, key);
            ItemsInStep<LogicalDrive> present(now, &ArrayController::logicalDrives);
            ForEachItem(controller.logicalDrives,
                        [&](const std::string& driveKey, const LogicalDrive& drive) {
                            ServiceRoot::LogicalDriveIterator ignored;
                            if (!present.Contains(driveKey, ignored) &&
                                !HasAny(now, &ArrayController::diskDrives, drive.dataDrives)) {
                                raiseEvent(tovaevent::kLogicalDriveOffline, getMirrorLdMessageParam,
                                           controller, drive, events);
                            }
                        });
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
