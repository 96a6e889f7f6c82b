#include "events-command.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

#include "account-text.h"
#include "ctl-error.h"
#include "evt-data.h"
#include "file-descriptor.h"
#include "file-reading.h"
#include "json-text.h"
#include "server-util.h"
#include "system-info.h"

using tova_service::FindReported;
using tova_service::MessageCatalogue;
using tova_service::Subject;
using tova_service::SysLog;
using tova_service::system_info;
using tovaevent::EvtData;

namespace {

constexpr const char* kLogSocket = "/dev/log";
constexpr const char* kTestMark = " [TEST]";  // behind each line, so that what it begins with stays

// An event with these texts in the places of what an event of its kind is about.
EvtData MakeEvent(std::uint32_t id, const std::string& controller, const std::string& logicalDrive,
                  const std::string& location, const std::string& drive) {
    EvtData event(id);
    switch (FindReported(id)->subject) {
        case Subject::kLogicalDrive:
            event.AddParameter(controller);
            event.AddParameter(logicalDrive);
            break;
        case Subject::kPhysicalDrive:
            event.AddParameter(controller);
            event.AddParameter(location);
            event.AddParameter(drive);
            break;
        case Subject::kController:
            break;
    }
    return event;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The event's sentence with names in the places of its parameters, a line each; none without a text.
std::vector<std::string> ExampleOf(const MessageCatalogue& catalogue, const std::string& language,
                                   std::uint32_t id) {
    if (catalogue.Find(language, id) == nullptr) {
        return {};
    }
    const auto message =
        catalogue.Message(language, MakeEvent(id, "controller", "number", "location", "drive"));
    std::vector<std::string> lines = Lines(message->sentence);
    std::transform(lines.begin(), lines.end(), lines.begin(), Printable);
    return lines;
}

bool HasText(const MessageCatalogue& catalogue, const std::vector<std::string>& languages) {
    return std::any_of(languages.begin(), languages.end(), [&](const std::string& language) {
        return std::any_of(EventTable().begin(), EventTable().end(), [&](const EventInfo& event) {
            return catalogue.Find(language, event.id) != nullptr;
        });
    });
}

// The service's sentence with every line of it marked: each is an entry of its own in the system log.
std::string MarkedSentence(const MessageCatalogue& catalogue, const std::string& language, std::uint32_t id) {
    const auto message = catalogue.Message(language, MakeEvent(id, "TEST by baywardctl", "TEST", "TEST",
                                                               "TEST of the alerting, nothing has happened"));
    if (!message) {
        throw CtlError(
            "The message catalogue has no text for this event, so the service reports none either.");
    }
    std::string marked;
    for (const std::string& line : Lines(message->sentence)) {
        marked += (marked.empty() ? "" : "\n") + (line.empty() ? line : line + kTestMark);
    }
    return marked;
}

// syslog(3) tells nobody when there is no log daemon.
bool IsLogListening(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        const tovaserverutil::FileDescriptor descriptor(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        if (connect(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return true;
        }
    }
    return false;
}

struct Locale {
    std::string language;
    std::string codePage;
};

// As the service finds it out. A language that is given makes up for a system that tells none.
Locale DetectLocale(const std::string& root, const std::optional<std::string>& language) {
    try {
        if (const std::string file = root + system_info::LocaleFile(root); IsFifo(file)) {
            throw CtlError("The system's language cannot be detected, because " + file +
                           " is a FIFO, at which the service would wait, too; make it a file.");
        }
        const system_info system(root);
        return {language.value_or(system.get_country_region()), system.get_code_page()};
    } catch (const tovabase::TOVAExcpt&) {
        if (language) {
            return {*language, {}};
        }
        throw CtlError("The system's language cannot be detected, because " + root +
                       system_info::LocaleFile(root) +
                       " cannot be read; make that file, the service needs it too, or give --language.");
    }
}

void WriteText(const MessageCatalogue& catalogue, const std::vector<std::string>& languages,
               const CtlDoors& doors) {
    std::size_t width = std::strlen("raised");
    for (const std::string& language : languages) {
        width = std::max(width, language.size());
    }
    const auto label = [width](const std::string& name) {
        return "  " + name + std::string(width - std::min(width, name.size()), ' ') + "  ";
    };
    const char* separator = "";
    for (const EventInfo& event : EventTable()) {
        const std::string severity = SeverityName(event.id);
        doors.out << separator << doors.paint.Bold(TraceName(event.id)) << "  " << IdentifierText(event.id)
                  << "  " << (severity == "error" ? doors.paint.Red(severity) : doors.paint.Yellow(severity))
                  << '\n'
                  << label("raised") << event.when << '\n';
        for (const std::string& language : languages) {
            std::string name = Printable(language);
            for (const std::string& line : ExampleOf(catalogue, language, event.id)) {
                doors.out << label(name) << line << '\n';
                name.clear();
            }
        }
        separator = "\n";
    }
}

void WriteJson(const MessageCatalogue& catalogue, const std::vector<std::string>& languages,
               std::ostream& out) {
    out << "{\n  \"events\": [";
    const char* separator = "\n";
    for (const EventInfo& event : EventTable()) {
        out << separator << "    {\"number\": " << tova_service::MessageNumber(event.id)
            << ", \"trace\": " << JsonString(TraceName(event.id))
            << ", \"identifier\": " << JsonString(IdentifierText(event.id))
            << ", \"severity\": " << JsonString(SeverityName(event.id))
            << ", \"raised\": " << (event.isRaised ? "true" : "false")
            << ", \"when\": " << JsonString(event.when) << ",\n     \"sentences\": {";
        const char* comma = "";
        for (const std::string& language : languages) {
            std::string sentence;
            for (const std::string& line : ExampleOf(catalogue, language, event.id)) {
                sentence += (sentence.empty() ? "" : "\n") + line;
            }
            if (!sentence.empty()) {
                out << comma << JsonString(Printable(language)) << ": " << JsonString(sentence);
                comma = ", ";
            }
        }
        out << "}}";
        separator = ",\n";
    }
    out << "\n  ]\n}\n";
}

}  // namespace

MessageCatalogue EventsCommand::Load(const std::optional<std::string>& language) const {
    const std::string file = m_doors.programFolder + "/" + tova_service::kMessageFile;
    MessageCatalogue catalogue;
    try {
        if (IsFifo(file)) {
            throw CtlError("The message catalogue " + Printable(file) + " is a FIFO; install it anew.");
        }
        catalogue.Load(file);
    } catch (const tovabase::TOVAExcpt&) {
        throw CtlError("The message catalogue " + Printable(file) +
                       " cannot be read; install it anew, the service needs it too.");
    }
    const std::vector<std::string> languages = catalogue.Languages();
    if (!HasText(catalogue, languages)) {
        throw CtlError("The message catalogue " + Printable(file) +
                       " holds no text of any event; install it anew, the service needs it too.");
    }
    if (language && std::find(languages.begin(), languages.end(), *language) == languages.end()) {
        std::string known;
        for (const std::string& name : languages) {
            known += (known.empty() ? "" : ", ") + Printable(name);
        }
        throw UsageError("The message catalogue has no such language; it has: " + known + ".");
    }
    return catalogue;
}

void EventsCommand::List(Format format, const std::optional<std::string>& language) {
    const MessageCatalogue catalogue = Load(language);
    const std::vector<std::string> languages =
        language ? std::vector<std::string>{*language} : catalogue.Languages();
    if (format == Format::kJson) {
        WriteJson(catalogue, languages, m_doors.out);
    } else {
        WriteText(catalogue, languages, m_doors);
    }
}

void EventsCommand::Test(const std::string& name, const std::optional<std::string>& language) {
    const EventInfo* const event = FindEvent(name);
    if (event == nullptr) {
        throw UsageError("There is no such event; \"baywardctl events\" lists them.");
    }
    const MessageCatalogue catalogue = Load(language);
    const Locale locale = DetectLocale(m_doors.root, language);
    const std::string sentence = MarkedSentence(catalogue, locale.language, event->id);
    if (!IsLogListening(m_doors.root + kLogSocket)) {
        throw CtlError(std::string("Nobody listens at ") + kLogSocket +
                       ", so no event reaches the system log; start the log daemon.");
    }
    try {
        SysLog(locale.language, locale.codePage, m_sink).Write(event->id, sentence.c_str());
    } catch (const tovabase::TOVAExcpt& failure) {
        throw CtlError(std::string("The sentence cannot be converted to EUC-JP (") + failure.text() +
                       "); install the C library's converters, the service needs them too.");
    }
    m_doors.out << "Written to the system log as \"bayward\", facility daemon, priority "
                << SeverityName(event->id) << ", language " << locale.language
                << (locale.codePage.empty() ? "" : ", in EUC-JP") << "; test of " << TraceName(event->id)
                << " (" << IdentifierText(event->id) << "):\n"
                << sentence << '\n';
}
