#include "status-model.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "account-text.h"
#include "ctl-error.h"
#include "events-table.h"
#include "state-rules.h"
#include "text.h"

using tovaserverutil::Trimmed;

namespace {

enum class Family { kSmartStorage, kMirror };

struct Phrase {
    std::uint32_t id;
    const char* text;
};
constexpr Phrase kPhrases[] = {
    {tovaevent::kDriveFailed, "failed"},          {tovaevent::kDrivePredictiveFailure, "predicts failure"},
    {tovaevent::kDriveFatal, "does not answer"},  {tovaevent::kDriveWear80, "80 % worn"},
    {tovaevent::kDriveWear90, "90 % worn"},       {tovaevent::kDriveWear95, "95 % worn"},
    {tovaevent::kLogicalDriveOffline, "offline"}, {tovaevent::kLogicalDriveCritical, "degraded"},
};

struct WearLevel {
    std::uint32_t id;
    int percent;
};
constexpr WearLevel kWearLevels[] = {
    {tovaevent::kDriveWear80, 80}, {tovaevent::kDriveWear90, 90}, {tovaevent::kDriveWear95, 95}};

std::string PhraseOf(std::uint32_t id) {
    const auto* const found = std::find_if(std::begin(kPhrases), std::end(kPhrases),
                                           [&](const Phrase& phrase) { return phrase.id == id; });
    return found != std::end(kPhrases) ? found->text : IdentifierText(id);
}

std::string Clean(std::string_view text) {
    return Printable(std::string(Trimmed(text)));
}

std::string WithoutSlash(std::string path) {
    if (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return Clean(path);
}

std::string CleanLines(const std::string& text) {
    std::string clean;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        clean += (at == 0 ? "" : "\n") + Clean(text.substr(at, end - at));
        at = end + 1;
    }
    return clean;
}

// Makes the records of one snapshot.
class Describer {
public:
    Describer(const tova_service::MessageCatalogue& catalogue, const std::string& language)
        : m_catalogue(catalogue), m_language(language) {}

    SystemStatus Describe(const std::string& key, const ComputerSystem& system) {
        SystemStatus status;
        status.id = WithoutSlash(key);
        AddControllers(Family::kMirror, system.mirror, status);
        AddControllers(Family::kSmartStorage, system.smartStorage, status);
        return status;
    }

private:
    void AddControllers(Family family, const SmartStorage& storage, SystemStatus& status) {
        m_family = family;
        for (const auto& [key, controller] : storage.controllers) {
            status.controllers.push_back(Describe(key, controller));
        }
    }

    ControllerStatus Describe(const std::string& key, const ArrayController& controller) {
        ControllerStatus status;
        status.id = WithoutSlash(key);
        status.model = Clean(controller.model);
        status.location = Clean(controller.location);
        status.serialNumber = Clean(controller.serialNumber);
        status.health = Clean(controller.health);
        status.state = Clean(controller.state);
        status.level = ItemLevel(ItemKind::kController, status.health, status.state, {});

        ArrayController alone = controller;  // with one item at a time, for the rules
        alone.diskDrives.clear();
        alone.logicalDrives.clear();
        for (const auto& [driveKey, drive] : controller.diskDrives) {
            alone.diskDrives = {{driveKey, drive}};
            status.drives.push_back(Describe(driveKey, drive, EventsOf(alone)));
        }
        alone.diskDrives.clear();
        for (const auto& [driveKey, drive] : controller.logicalDrives) {
            alone.logicalDrives = {{driveKey, drive}};
            status.logicalDrives.push_back(Describe(driveKey, drive, EventsOf(alone)));
        }
        std::stable_sort(status.drives.begin(), status.drives.end(),
                         [](const DriveStatus& left, const DriveStatus& right) {
                             return ComesBefore(left.location, right.location);
                         });
        std::stable_sort(status.logicalDrives.begin(), status.logicalDrives.end(),
                         [](const LogicalDriveStatus& left, const LogicalDriveStatus& right) {
                             return left.number < right.number;
                         });
        return status;
    }

    DriveStatus Describe(const std::string& key, const DiskDrive& drive,
                         std::vector<ReportedState> reported) const {
        DriveStatus status;
        status.id = WithoutSlash(key);
        status.location = Clean(drive.location);
        status.model = Clean(drive.model);
        status.serialNumber = Clean(drive.serialNumber);
        status.firmware = Clean(drive.firmwareRevision);
        status.mediaType = Clean(drive.mediaType);
        status.size = SizeText(drive);
        status.bytes = Bytes(drive);
        status.health = Clean(drive.health);
        status.state = Clean(drive.state);
        for (const std::string& reason : drive.statusReasons) {
            if (reason != "None" && reason != drive.health) {
                status.reasons.push_back(Clean(reason));
            }
        }
        status.failurePredicted = drive.failurePredicted;
        status.lifeLeft = LifeLeft(drive);
        for (const WearLevel& level : kWearLevels) {
            for (const ReportedState& state : reported) {
                status.wearLevel = state.id == level.id ? level.percent : status.wearLevel;
            }
        }
        status.level = ItemLevel(ItemKind::kDrive, status.health, status.state, reported);
        if (drive.failurePredicted) {
            status.level = std::max(status.level, Level::kWarning);
        }
        status.reported = std::move(reported);
        return status;
    }

    static LogicalDriveStatus Describe(const std::string& key, const LogicalDrive& drive,
                                       std::vector<ReportedState> reported) {
        LogicalDriveStatus status;
        status.id = WithoutSlash(key);
        status.number = drive.number;
        status.raid = Clean(drive.raidType);
        status.health = Clean(drive.health);
        status.state = Clean(drive.state);
        status.memberDrives = drive.dataDrives.size();
        status.level = ItemLevel(ItemKind::kLogicalDrive, status.health, status.state, reported);
        status.reported = std::move(reported);
        return status;
    }

    std::string SizeText(const DiskDrive& drive) const {
        DiskDrive copy = drive;  // the Mirror text's making changes its drive
        return m_family == Family::kMirror ? copy.getMirrorSizeString() : copy.getSizeString();
    }

    std::optional<std::uint64_t> Bytes(const DiskDrive& drive) const {
        constexpr std::int64_t kGigabyte = 1000 * 1000 * 1000;
        const bool mirror = m_family == Family::kMirror;
        std::int64_t bytes = 0;
        const bool fits = !__builtin_mul_overflow(mirror ? drive.capacityGB : drive.logicalBlocks,
                                                  mirror ? kGigabyte : drive.blockSize, &bytes);
        return fits && bytes > 0 ? std::optional(static_cast<std::uint64_t>(bytes)) : std::nullopt;
    }

    std::optional<int> LifeLeft(const DiskDrive& drive) const {
        if (!drive.enduranceTold || drive.mediaType.find("SSD") == std::string::npos) {
            return std::nullopt;
        }
        const std::int64_t percent = std::clamp<std::int64_t>(
            drive.endurance / static_cast<std::int64_t>(drive.enduranceScale), 0, 100);
        return static_cast<int>(m_family == Family::kMirror ? percent : 100 - percent);
    }

    // What the service says about the one item of the controller.
    std::vector<ReportedState> EventsOf(const ArrayController& controller) const {
        ServiceRoot snapshot;
        ComputerSystem& system = snapshot.systems["/"];
        (m_family == Family::kMirror ? system.mirror : system.smartStorage).controllers["/"] = controller;
        EventList events;
        StateRules([](const std::string& text) {
            throw CtlError("The rules for events failed (" + Printable(text) + "); report this.");
        }).checkAll({}, snapshot, events);

        std::vector<ReportedState> reported;
        for (const tovaevent::EvtData& event : events) {
            if (const auto message = m_catalogue.Message(m_language, event)) {
                const bool error = event.Id() >> 30 == 3;
                reported.push_back({event.Id(), error ? Level::kCritical : Level::kWarning,
                                    PhraseOf(event.Id()), CleanLines(message->sentence)});
            }
        }
        return reported;
    }

    const tova_service::MessageCatalogue& m_catalogue;
    std::string m_language;
    Family m_family = Family::kMirror;
};

bool IsDigit(char character) {
    return std::isdigit(static_cast<unsigned char>(character)) != 0;
}

bool IsBadState(ItemKind kind, const std::string& state) {
    constexpr std::array kBadStates = {"Disabled", "UnavailableOffline", "Absent"};
    return std::find(kBadStates.begin(), kBadStates.end(), state) != kBadStates.end() ||
           (kind == ItemKind::kLogicalDrive && state == "StandbyOffline");
}

// The number at the front of the text without its zeros, which is removed; empty when there is none.
std::string_view TakeDigits(std::string_view& text) {
    const auto end =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) - text.begin());
    std::string_view digits = text.substr(0, end);
    text.remove_prefix(end);
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return digits;
}

}  // namespace

std::vector<SystemStatus> DescribeSystems(const ServiceRoot& snapshot,
                                          const tova_service::MessageCatalogue& catalogue,
                                          const std::string& language) {
    std::vector<SystemStatus> systems;
    for (const auto& [key, system] : snapshot.systems) {
        systems.push_back(Describer(catalogue, language).Describe(key, system));
    }
    return systems;
}

Level ItemLevel(ItemKind kind, const std::string& health, const std::string& state,
                const std::vector<ReportedState>& reported) {
    Level level = Level::kOk;
    if (health == "Critical") {
        level = Level::kCritical;
    } else if ((!health.empty() && health != "OK") || IsBadState(kind, state)) {
        level = Level::kWarning;
    }
    for (const ReportedState& event : reported) {
        level = std::max(level, event.level);
    }
    return level;
}

bool ComesBefore(const std::string& left, const std::string& right) {
    std::string_view a = left;
    std::string_view b = right;
    while (!a.empty() && !b.empty()) {
        if (IsDigit(a.front()) && IsDigit(b.front())) {
            const std::string_view first = TakeDigits(a);
            const std::string_view second = TakeDigits(b);
            if (first.size() != second.size()) {
                return first.size() < second.size();
            }
            if (first != second) {
                return first < second;
            }
        } else if (a.front() != b.front()) {
            return a.front() < b.front();
        } else {
            a.remove_prefix(1);
            b.remove_prefix(1);
        }
    }
    return a.size() < b.size();
}
