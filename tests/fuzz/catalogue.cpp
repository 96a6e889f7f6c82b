// The catalogue's text, and every event's message in each of its languages.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz.h"
#include "message-format.h"

using tova_service::EventMessage;
using tova_service::MessageCatalogue;
using tova_service::ReportedEvent;

namespace {

// In "%%1" the number counts as text; there it only makes the bound a little too wide.
std::size_t LongestMessage(const std::string& text, const EventMessage& message) {
    std::size_t parameters = 0;
    for (const std::string& parameter : message.parameters) {
        parameters += parameter.size();
    }
    const auto percents = static_cast<std::size_t>(std::count(text.begin(), text.end(), '%'));
    return text.size() + percents * parameters;
}

void CheckMessage(const MessageCatalogue& catalogue, const std::string& language, std::uint32_t id) {
    tovaevent::EvtData event(id);
    for (const char* parameter : {"Controller 1 in slot 1", "1I:1:11", "Model: X Serial Number: %1%n"}) {
        event.AddParameter(parameter);
    }
    const auto message = catalogue.Message(language, event);
    const std::string* own = catalogue.Find(language, id);
    const std::string* text = own != nullptr ? own : catalogue.Find(tova_service::kDefaultLanguage, id);
    FUZZ_CHECK(message.has_value() == (text != nullptr));
    if (message) {
        FUZZ_CHECK(message->sentence.size() <= LongestMessage(*text, *message));
    }
}

}  // namespace

void Fuzz(std::string_view input) {
    const MemoryFile file(input);
    MessageCatalogue catalogue;
    catalogue.Load(file.path());
    std::vector<std::string> languages = catalogue.Languages();
    FUZZ_CHECK(languages.size() <= input.size());
    FUZZ_CHECK(std::is_sorted(languages.begin(), languages.end()));
    languages.emplace_back("xx_XX");  // one that may well be missing
    for (const std::string& language : languages) {
        for (const ReportedEvent& reported : tova_service::kReportedEvents) {
            CheckMessage(catalogue, language, reported.id);
        }
    }
}
