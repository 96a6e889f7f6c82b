// Message catalogue and the reporting of events.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "service-param.h"

namespace {

constexpr const char* kUnit = "message-format";
constexpr const char* kDefaultLanguage = "default";
constexpr unsigned long kMessageNumber =
    0x3FFF;  // the bits of an identifier that the trace log shows as VK number

// What an event's raw parameters stand for.
enum class Subject { kLogicalDrive, kPhysicalDrive, kController };

struct ReportedEvent {
    std::uint32_t id;
    Subject subject;
};

// What reaches the logs. 0xC00081B8 is deliberately absent and dropped like any identifier that is not
// listed.
constexpr ReportedEvent kReported[] = {
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

const ReportedEvent* FindReported(std::uint32_t id) {
    for (const ReportedEvent& reported : kReported) {
        if (reported.id == id) {
            return &reported;
        }
    }
    return nullptr;
}

// The parameters as the message texts take them. Throws std::out_of_range when the event carries too few.
std::vector<std::string> Decorate(Subject subject, const std::vector<std::string>& raw) {
    switch (subject) {
        case Subject::kLogicalDrive:
            return {"CTRL(" + raw.at(0) + ")", "LD(" + raw.at(1) + ")"};
        case Subject::kPhysicalDrive:
            return {"CTRL(" + raw.at(0) + ")", "PD(" + raw.at(1) + ")", " " + raw.at(2)};
        case Subject::kController:
            break;
    }
    return {};
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

// Reads the decimal number at the front of `text` and removes it; numbers beyond `limit` come back as limit
// + 1.
std::size_t TakeNumber(std::string_view& text, std::size_t limit) {
    std::size_t number = 0;
    while (!text.empty() && IsDigit(text.front())) {
        number = std::min(number * 10 + static_cast<std::size_t>(text.front() - '0'), limit + 1);
        text.remove_prefix(1);
    }
    return number;
}

}  // namespace

namespace tova_service {

void ServiceParameter::PrepareMessage() {
    tovaserverutil::Profile profile(kMessageFile);
    profile.ReadProfile();
    for (const tovaserverutil::ProfileSection& section : profile.sections()) {
        for (const auto& entry : section.entries) {
            const auto id = static_cast<std::uint32_t>(std::strtoul(entry.first.c_str(), nullptr, 16));
            // Looked up anew, so that the first of several equal keys gives the text, as for the
            // configuration.
            const std::string* text = profile.Find(section.name, entry.first);
            m_catalogue[section.name][id] = text != nullptr ? *text : std::string();
        }
    }
    m_traceLog->Write("<VK0900> [TR] PrepareMessage succeeded.");
}

void ServiceParameter::Format(std::string& out, std::string& text, std::vector<std::string>& params) {
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t percent = rest.find('%');
        out.append(rest.substr(0, percent));
        if (percent == std::string_view::npos || percent + 1 == rest.size()) {
            return;  // a percent sign at the very end is dropped
        }
        rest.remove_prefix(percent + 1);
        if (IsDigit(rest.front())) {
            const std::size_t position = TakeNumber(rest, params.size());
            if (position >= 1 && position <= params.size()) {
                out.append(params[position - 1]);
            }
            continue;
        }
        out.push_back(rest.front() == 'n' ? '\n' : rest.front());
        rest.remove_prefix(1);
    }
}

bool ServiceParameter::FormatLog(std::string& out, unsigned long id, std::vector<std::string>& params) {
    char head[64];
    std::snprintf(head, sizeof head, "<VK0%03u> [EV] %#x ", static_cast<unsigned>(id & kMessageNumber),
                  static_cast<unsigned>(id));
    out = head;
    for (const std::string& param : params) {
        out += param + " ";
    }
    out += "reported.";
    return true;
}

const std::string* ServiceParameter::FindText(const std::string& language, std::uint32_t id) const {
    const auto texts = m_catalogue.find(language);
    if (texts == m_catalogue.end()) {
        return nullptr;
    }
    const auto text = texts->second.find(id);
    return text == texts->second.end() ? nullptr : &text->second;
}

void ServiceParameter::EventToLog(const std::string& language, const tovaevent::EvtData& event) {
    const std::uint32_t id = event.Id();
    const ReportedEvent* reported = FindReported(id);
    if (reported == nullptr) {
        return;
    }
    std::vector<std::string> params = Decorate(reported->subject, event.Parameters());
    const std::string* found = FindText(language, id);
    if (found == nullptr) {
        found = FindText(kDefaultLanguage, id);
    }
    if (found == nullptr) {
        return;
    }
    std::string text = *found;
    std::string sentence;
    Format(sentence, text, params);
    try {
        m_sysLog->Write(id, sentence.c_str());
    } catch (const tovabase::TOVAExcpt& failure) {
        m_traceLog->Write("<VK0902> [ER] %s %d (Err: %s)", kUnit, __LINE__, failure.text());
    }
    std::string line;
    FormatLog(line, id, params);
    m_traceLog->Write("%s", line.c_str());
}

}  // namespace tova_service
