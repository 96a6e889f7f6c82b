#include "storage-model.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <string_view>

#include "whole-number.h"

namespace {

bool IsOneOf(const std::string& text, std::initializer_list<std::string_view> words) {
    return std::find(words.begin(), words.end(), text) != words.end();
}

bool AnyIsOneOf(const std::vector<std::string>& texts, std::initializer_list<std::string_view> words) {
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string& text) { return IsOneOf(text, words); });
}

// A product of 32 bits, as the scale is.
std::int64_t Threshold(std::uint32_t percent, std::uint32_t scale) {
    const std::uint32_t product = percent * scale;
    return product;
}

bool AtLeast(std::int64_t value, std::uint32_t percent, std::uint32_t scale) {
    return value >= Threshold(percent, scale);
}

bool AtMost(std::int64_t value, std::uint32_t percent, std::uint32_t scale) {
    return value <= Threshold(percent, scale);
}

std::string Info(const DiskDrive& drive, const std::string& size) {
    constexpr std::size_t kUsual = 128;  // characters
    std::string text;
    text.reserve(kUsual);
    text.append("Model: ").append(drive.model);
    text.append(" Size: ").append(size);
    text.append(" Serial Number: ").append(drive.serialNumber);
    text.append(" Firmware Revision: ").append(drive.firmwareRevision);
    return text;
}

// The item of a controller, which is null when there is none, in the map that `items` names.
template <class Items, class Iterator>
bool Find(const ArrayController* controller, Items ArrayController::*items, const std::string& item,
          Iterator& found) {
    if (controller == nullptr) {
        return false;
    }
    const Items& map = controller->*items;
    found = map.find(item);
    return found != map.end();
}

}  // namespace

bool DiskDrive::isStatusFailed() const {
    return AnyIsOneOf(statusReasons, {"Failed", "FailedDueToPredictiveSpareActivation"});
}

bool DiskDrive::isStatusFatal() const {
    return AnyIsOneOf(statusReasons,
                      {"CommunicationFailure", "CarrierCommunicationFailure", "Unrecoverable"});
}

bool DiskDrive::isStatusSmart() const {
    return AnyIsOneOf(statusReasons, {"PredictiveFail"});
}

bool DiskDrive::isBCMStatusFailed() const {
    return std::any_of(statusReasons.begin(), statusReasons.end(), [this](const std::string& reason) {
        return reason == "Failed" || reason == "Critical" || state == "UnavailableOffline";
    });
}

bool DiskDrive::isMirrorStatusFailed() const {
    return IsOneOf(health, {"Critical", "FailedDueToPredictiveSpareActivation"});
}

bool DiskDrive::isMirrorStatusFatal() const {
    return IsOneOf(health, {"CommunicationFailure", "CarrierCommunicationFailure", "Unrecoverable"});
}

bool DiskDrive::isMirrorStatusSmart() const {
    return failurePredicted;
}

std::uint32_t DiskDrive::getEnduranceCode() const {
    if (AtLeast(endurance, 95, enduranceScale)) {
        return kWearHighest;
    }
    if (AtLeast(endurance, 90, enduranceScale)) {
        return kWearSecond;
    }
    return AtLeast(endurance, 80, enduranceScale) ? kWearFirst : 0;
}

std::uint32_t DiskDrive::getMirrorEnduranceCode() const {
    if (AtMost(endurance, 5, enduranceScale)) {
        return kWearHighest;
    }
    if (AtMost(endurance, 10, enduranceScale)) {
        return kWearSecond;
    }
    return AtMost(endurance, 20, enduranceScale) ? kWearFirst : 0;
}

std::string DiskDrive::getSizeString() const {
    constexpr std::int64_t kLastInMB = 953;  // MiB; just below 1000 MB
    if (capacityMiB <= kLastInMB) {
        return std::to_string(WholeNumber(static_cast<double>(capacityMiB) * 1.024 * 1.024)) + " MB";
    }
    // In this order: the rounding of the steps decides about the last digit.
    const double blockInMB = static_cast<double>(blockSize) / 1000 / 1000;
    const std::int64_t gb = WholeNumber(static_cast<double>(logicalBlocks) * blockInMB / 1000);
    return gb > 9999 ? std::to_string(gb / 1000) + " TB" : std::to_string(gb) + " GB";
}

std::string DiskDrive::getMirrorSizeString() {
    if (capacityGB > 9999) {
        capacityGB = capacityGB / 1000;  // deliberate, see the header
        return std::to_string(capacityGB) + " TB";
    }
    return std::to_string(capacityGB) + " GB";
}

std::string DiskDrive::getInfoString() const {
    return Info(*this, getSizeString());
}

std::string DiskDrive::getMirrorInfoString() {
    return Info(*this, getMirrorSizeString());
}

bool LogicalDrive::isStatusOffline() const {
    return health == "Critical";
}

bool LogicalDrive::isStatusCritical() const {
    return false;
}

bool LogicalDrive::isMirrorStatusOffline() const {
    return (health == "Critical" && state == "Disabled") ||
           (health == "Warning" && state == "StandbyOffline");
}

bool LogicalDrive::isMirrorStatusCritical() const {
    return false;
}

void ArrayController::addDiskDrive(const Odataid& id, const DiskDrive& drive) {
    diskDrives.emplace(id.id, drive);
}

void ArrayController::addLogicalDrive(const Odataid& id, const LogicalDrive& drive) {
    logicalDrives.emplace(id.id, drive);
}

std::string ArrayController::getInfoString() const {
    return model + " [" + location + "]";
}

void SmartStorage::addController(const Odataid& id, const ArrayController& controller) {
    controllers.emplace(id.id, controller);
}

void ServiceRoot::addComputerSystem(const Odataid& id, const ComputerSystem& system) {
    systems.emplace(id.id, system);
}

const ArrayController* ServiceRoot::findController(const std::string& system,
                                                   SmartStorage ComputerSystem::*family,
                                                   const std::string& controller) const {
    const auto inSystem = systems.find(system);
    if (inSystem == systems.end()) {
        return nullptr;
    }
    const auto& controllers = (inSystem->second.*family).controllers;
    const auto found = controllers.find(controller);
    return found == controllers.end() ? nullptr : &found->second;
}

bool ServiceRoot::containsDiskDrive(const std::string& system, const std::string& controller,
                                    const std::string& drive, DiskDriveIterator& found) const {
    return Find(findController(system, &ComputerSystem::smartStorage, controller),
                &ArrayController::diskDrives, drive, found);
}

bool ServiceRoot::containsLogicalDrive(const std::string& system, const std::string& controller,
                                       const std::string& drive, LogicalDriveIterator& found) const {
    return Find(findController(system, &ComputerSystem::smartStorage, controller),
                &ArrayController::logicalDrives, drive, found);
}

bool ServiceRoot::containsMirrorDiskDrive(const std::string& system, const std::string& controller,
                                          const std::string& drive, DiskDriveIterator& found) const {
    return Find(findController(system, &ComputerSystem::mirror, controller), &ArrayController::diskDrives,
                drive, found);
}

bool ServiceRoot::containsMirrorLogicalDrive(const std::string& system, const std::string& controller,
                                             const std::string& drive, LogicalDriveIterator& found) const {
    return Find(findController(system, &ComputerSystem::mirror, controller), &ArrayController::logicalDrives,
                drive, found);
}
