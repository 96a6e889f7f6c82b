// The message catalogue: which events are reported, and with which sentences.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "evt-data.h"

namespace tova_service {

inline constexpr const char* kMessageFile = "bayward.msg";  // beside the executable
inline constexpr const char* kDefaultLanguage = "default";

// What an event's raw parameters stand for.
enum class Subject { kLogicalDrive, kPhysicalDrive, kController };

struct ReportedEvent {
    std::uint32_t id;
    Subject subject;
};

// What reaches the logs. 0xC00081B8 is deliberately absent and dropped like any identifier that is not
// listed.
inline constexpr ReportedEvent kReportedEvents[] = {
    {tovaevent::kLogicalDriveOffline, Subject::kLogicalDrive},
    {tovaevent::kLogicalDriveFailed, Subject::kLogicalDrive},
    {tovaevent::kLogicalDriveRebuildFailed, Subject::kLogicalDrive},
    {tovaevent::kLogicalDriveCritical, Subject::kLogicalDrive},
    {tovaevent::kDrivePredictiveFailure, Subject::kPhysicalDrive},
    {tovaevent::kDriveWear90, Subject::kPhysicalDrive},
    {tovaevent::kMediumErrors, Subject::kPhysicalDrive},
    {tovaevent::kDriveWear80, Subject::kPhysicalDrive},
    {tovaevent::kDriveFailed, Subject::kPhysicalDrive},
    {tovaevent::kDriveFatal, Subject::kPhysicalDrive},
    {tovaevent::kDriveWear95, Subject::kPhysicalDrive},
    {tovaevent::kLoginFailed, Subject::kController},
};

// Null when events of this identifier are not reported.
const ReportedEvent* FindReported(std::uint32_t id);

// The number that the trace log shows behind "VK".
constexpr unsigned MessageNumber(std::uint32_t id) {
    return id & 0x3FFF;
}

// One event as it is reported.
struct EventMessage {
    std::vector<std::string> parameters;  // as the texts take them: "CTRL(...)", "PD(...)" ...
    std::string sentence;                 // may have several lines
};

// Filled before it is shared, any thread may read it.
class MessageCatalogue {
public:
    // Adds the texts of the file. Throws TOVAExcpt of code kFileOpen when it cannot be opened.
    void Load(const std::string& path);

    // In alphabetical order.
    std::vector<std::string> Languages() const;
    // The text of exactly this language, placeholders and all; null when there is none.
    const std::string* Find(const std::string& language, std::uint32_t id) const;
    // The event in the given language, else in the default one; nothing for events that are not reported or
    // have no text. Throws std::out_of_range when the event carries fewer parameters than its kind reads.
    std::optional<EventMessage> Message(const std::string& language, const tovaevent::EvtData& event) const;

private:
    std::map<std::string, std::map<std::uint32_t, std::string>> m_texts;
};

// Expands placeholders (%1, %2 ... by position from 1, %n line feed, %% percent sign) and appends the result
// to `out`.
void ExpandMessage(std::string& out, std::string_view text, const std::vector<std::string>& parameters);

}  // namespace tova_service
