#include "events-table.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "evt-data.h"
#include "message-format.h"

namespace {

constexpr unsigned kSeverityShift = 30;

// The whole text as a number of this base.
std::optional<unsigned long long> ParseNumber(const std::string& text, int base) {
    const char* const digits = base == 16 ? "0123456789abcdefABCDEF" : "0123456789";
    if (text.empty() || text.find_first_not_of(digits) != std::string::npos) {
        return std::nullopt;
    }
    return std::strtoull(text.c_str(), nullptr, base);
}

bool TakePrefix(std::string& text, std::string_view lower, std::string_view upper) {
    if (text.rfind(lower, 0) != 0 && text.rfind(upper, 0) != 0) {
        return false;
    }
    text.erase(0, lower.size());
    return true;
}

}  // namespace

const std::vector<EventInfo>& EventTable() {
    static const std::vector<EventInfo> table = {
        {tovaevent::kDriveFailed,
         "A drive has become failed, was replaced by a spare because it predicted its failure, or has "
         "vanished "
         "from an \"HPE MR\" controller while one of its volumes is known."},
        {tovaevent::kDrivePredictiveFailure, "A drive has begun to predict its failure."},
        {tovaevent::kDriveFatal,
         "A drive has stopped answering (it or its carrier), or has become unrecoverable."},
        {tovaevent::kDriveWear90, "An SSD has used 90 percent or more of its rated life, but less than 95."},
        {tovaevent::kDriveWear95, "An SSD has used 95 percent or more of its rated life."},
        {tovaevent::kMediumErrors,
         "Medium errors recur on a drive; in a run of the service once for each serial number, on MegaRAID "
         "controllers once for each controller and device id."},
        {tovaevent::kDriveWear80, "An SSD has used 80 percent or more of its rated life, but less than 90."},
        {tovaevent::kLogicalDriveOffline,
         "A logical drive has gone offline, or has vanished from an \"HPE MR\" controller together with all "
         "its "
         "drives."},
        {tovaevent::kLogicalDriveFailed,
         "Never raised at present; a failed logical drive is reported as offline.", false},
        {tovaevent::kLogicalDriveRebuildFailed, "Never raised at present; no rebuild is watched.", false},
        {tovaevent::kLogicalDriveCritical,
         "Never raised at present; the failed drive behind it is reported instead.", false},
        {tovaevent::kLoginFailed,
         "The controller has refused the account; once until a log-in succeeds, and only while \"report\" in "
         "section \"iLO host\" is on."},
    };
    return table;
}

const EventInfo* FindEvent(const std::string& name) {
    std::string text = name;
    const bool isNumber = TakePrefix(text, "vk", "VK");
    const bool isHex = !isNumber && TakePrefix(text, "0x", "0X");
    const auto decimal = isHex ? std::nullopt : ParseNumber(text, 10);
    const auto hexadecimal = isNumber ? std::nullopt : ParseNumber(text, 16);
    for (const EventInfo& event : EventTable()) {
        if (decimal == tova_service::MessageNumber(event.id) ||
            (!isNumber && (decimal == event.id || hexadecimal == event.id))) {
            return &event;
        }
    }
    return nullptr;
}

const char* SeverityName(std::uint32_t id) {
    switch (id >> kSeverityShift) {
        case 3:
            return "error";
        case 2:
            return "warning";
        default:
            return "information";
    }
}

std::string TraceName(std::uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "VK0%03u", tova_service::MessageNumber(id));
    return text;
}

std::string IdentifierText(std::uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(id));
    return text;
}
