// Message catalogue and the reporting of events.
#include "message-format.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "server-profile.h"
#include "service-param.h"

namespace {

using tova_service::Subject;

constexpr const char* kUnit = "message-format";

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

const ReportedEvent* FindReported(std::uint32_t id) {
    for (const ReportedEvent& reported : kReportedEvents) {
        if (reported.id == id) {
            return &reported;
        }
    }
    return nullptr;
}

void ExpandMessage(std::string& out, std::string_view text, const std::vector<std::string>& parameters) {
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t percent = rest.find('%');
        out.append(rest.substr(0, percent));
        if (percent == std::string_view::npos || percent + 1 == rest.size()) {
            return;  // a percent sign at the very end is dropped
        }
        rest.remove_prefix(percent + 1);
        if (IsDigit(rest.front())) {
            const std::size_t position = TakeNumber(rest, parameters.size());
            if (position >= 1 && position <= parameters.size()) {
                out.append(parameters[position - 1]);
            }
            continue;
        }
        out.push_back(rest.front() == 'n' ? '\n' : rest.front());
        rest.remove_prefix(1);
    }
}

void MessageCatalogue::Load(const std::string& path) {
    tovaserverutil::Profile profile(path);
    profile.ReadProfile();
    for (const tovaserverutil::ProfileSection& section : profile.sections()) {
        for (const auto& entry : section.entries) {
            const auto id = static_cast<std::uint32_t>(std::strtoul(entry.first.c_str(), nullptr, 16));
            // Looked up anew, so that the first of several equal keys gives the text, as for the
            // configuration.
            const std::string* text = profile.Find(section.name, entry.first);
            m_texts[section.name][id] = text != nullptr ? *text : std::string();
        }
    }
}

std::vector<std::string> MessageCatalogue::Languages() const {
    std::vector<std::string> languages;
    for (const auto& [language, texts] : m_texts) {
        languages.push_back(language);
    }
    return languages;
}

const std::string* MessageCatalogue::Find(const std::string& language, std::uint32_t id) const {
    const auto texts = m_texts.find(language);
    if (texts == m_texts.end()) {
        return nullptr;
    }
    const auto text = texts->second.find(id);
    return text == texts->second.end() ? nullptr : &text->second;
}

std::optional<EventMessage> MessageCatalogue::Message(const std::string& language,
                                                      const tovaevent::EvtData& event) const {
    const ReportedEvent* reported = FindReported(event.Id());
    if (reported == nullptr) {
        return std::nullopt;
    }
    EventMessage message{Decorate(reported->subject, event.Parameters()), {}};
    const std::string* text = Find(language, event.Id());
    if (text == nullptr) {
        text = Find(kDefaultLanguage, event.Id());
    }
    if (text == nullptr) {
        return std::nullopt;
    }
    ExpandMessage(message.sentence, *text, message.parameters);
    return message;
}

void ServiceParameter::PrepareMessage() {
    m_catalogue.Load(kMessageFile);
    m_traceLog->Write("<VK0900> [TR] PrepareMessage succeeded.");
}

void ServiceParameter::Format(std::string& out, std::string& text, std::vector<std::string>& params) {
    ExpandMessage(out, text, params);
}

bool ServiceParameter::FormatLog(std::string& out, unsigned long id, std::vector<std::string>& params) {
    const auto low = static_cast<std::uint32_t>(id);
    char head[64];
    std::snprintf(head, sizeof head, "<VK0%03u> [EV] %#x ", MessageNumber(low), low);
    out = head;
    for (const std::string& param : params) {
        out += param + " ";
    }
    out += "reported.";
    return true;
}

void ServiceParameter::EventToLog(const std::string& language, const tovaevent::EvtData& event) {
    std::optional<EventMessage> message = m_catalogue.Message(language, event);
    if (!message) {
        return;
    }
    try {
        m_sysLog->Write(event.Id(), message->sentence.c_str());
    } catch (const tovabase::TOVAExcpt& failure) {
        m_traceLog->Write("<VK0902> [ER] %s %d (Err: %s)", kUnit, __LINE__, failure.text());
    }
    std::string line;
    FormatLog(line, event.Id(), message->parameters);
    m_traceLog->Write("%s", line.c_str());
}

}  // namespace tova_service
