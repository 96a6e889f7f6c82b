#include "config-command.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "account-text.h"
#include "config-findings.h"
#include "config-surroundings.h"
#include "config-value.h"
#include "ctl-error.h"
#include "json-text.h"
#include "secret.h"
#include "service-param.h"
#include "table-text.h"

using tova_service::kAccount;
using tova_service::kPassword;
using tova_service::kSettings;
using tova_service::Setting;
using tova_service::SettingKind;
using tovaserverutil::Profile;

namespace {

// Why a file cannot be read.
struct Unreadable {
    int error;  // 0 for something that is no file
    std::string reason;
};

std::string ReadWhole(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        throw Unreadable{errno, std::strerror(errno)};
    }
    if (!S_ISREG(status.st_mode)) {
        throw Unreadable{0, "it is no regular file"};
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw Unreadable{errno, std::strerror(errno)};
    }
    // At once, so that no text is left behind in memory that was too small.
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    in.read(content.data(), status.st_size);
    content.resize(static_cast<std::size_t>(in.gcount()));
    return content;
}

// Do the lines say what the profile has read?
bool AreSame(const ConfigText& text, const Profile& profile) {
    for (const Setting* setting : kSettings) {
        const ConfigLine* const line = text.FindEntry(setting->section, setting->key);
        const std::string* const value = profile.Find(setting->section, setting->key);
        if ((line == nullptr) != (value == nullptr) || (line != nullptr && line->value != *value)) {
            return false;
        }
    }
    return true;
}

// The file in both shapes.
class Configuration {
public:
    // Throws Unreadable, and CtlError when the file was changed between the two readings.
    explicit Configuration(const std::string& file)
        : m_content(ReadWhole(file)), m_text(m_content), m_profile(file) {
        tovaserverutil::Wipe(m_content);
        try {
            m_profile.ReadProfile();
        } catch (const tovabase::TOVAExcpt& failure) {
            throw CtlError(std::string("The configuration cannot be opened a second time: ") +
                           failure.text());
        }
        if (!AreSame(m_text, m_profile)) {
            throw CtlError("The configuration " + Printable(file) +
                           " was changed while it was read; run the command again.");
        }
    }
    const ConfigText& text() const { return m_text; }
    const Profile& profile() const { return m_profile; }

private:
    std::string m_content;
    ConfigText m_text;
    Profile m_profile;
};

// A row of "config show".
struct Shown {
    const Setting* setting;
    std::string value;
    enum class From { kDefault, kFile, kRegistered, kEmptied } from;
    int line;  // in the file, where that is where it came from
};

// The registered account takes the place of what the file says; without one the service empties that.
Shown ShowAccount(const Setting& setting, bool registered, const std::string& value, int line) {
    if (registered) {
        return {&setting, "***", Shown::From::kRegistered, 0};
    }
    return value.empty() ? Shown{&setting, "", line == 0 ? Shown::From::kDefault : Shown::From::kFile, line}
                         : Shown{&setting, "", Shown::From::kEmptied, line};
}

std::vector<Shown> ShownSettings(const Configuration& configuration, bool registered) {
    std::vector<Shown> shown;
    for (const Setting* setting : kSettings) {
        const ConfigLine* const entry = configuration.text().FindEntry(setting->section, setting->key);
        const int line = entry == nullptr ? 0 : entry->number;
        const std::string value = EffectiveText(*setting, configuration.profile());
        shown.push_back(
            setting == &kAccount || setting == &kPassword
                ? ShowAccount(*setting, registered, value, line)
                : Shown{setting, value, line == 0 ? Shown::From::kDefault : Shown::From::kFile, line});
    }
    return shown;
}

std::string OriginText(const Shown& shown, const std::string& file) {
    std::string place = file + ":" + std::to_string(shown.line);
    switch (shown.from) {
        case Shown::From::kFile:
            return place;
        case Shown::From::kEmptied:
            return place + ", emptied: no account is registered";
        case Shown::From::kRegistered:
            return "the registered account";
        case Shown::From::kDefault:
            break;
    }
    return "default";
}

const char* OriginName(Shown::From from) {
    switch (from) {
        case Shown::From::kFile:
            return "file";
        case Shown::From::kEmptied:
            return "emptied";
        case Shown::From::kRegistered:
            return "registered";
        case Shown::From::kDefault:
            break;
    }
    return "default";
}

// Numbers and flags as such.
std::string JsonValue(const Setting& setting, const std::string& text) {
    return IsNumber(setting) || setting.kind == SettingKind::kFlag ? text : JsonString(text);
}

void WriteTable(const std::vector<Shown>& shown, const std::string& file, const CtlDoors& doors) {
    const auto orDash = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
    TextTable table({"SECTION", "KEY", "VALUE", "DEFAULT", "UNIT", "FROM"});
    for (const Shown& row : shown) {
        table.Add({row.setting->section, row.setting->key, orDash(row.value),
                   orDash(DefaultText(*row.setting)), orDash(row.setting->unit),
                   OriginText(row, Printable(file))});
    }
    table.Write(doors.out, doors.paint);
}

void WriteJson(const std::vector<Shown>& shown, const std::string& file, std::ostream& out) {
    out << "{\n  \"file\": " << JsonString(Printable(file)) << ",\n  \"settings\": [";
    const char* separator = "\n";
    for (const Shown& row : shown) {
        out << separator << "    {\"section\": " << JsonString(row.setting->section)
            << ", \"key\": " << JsonString(row.setting->key)
            << ", \"value\": " << JsonValue(*row.setting, row.value)
            << ", \"default\": " << JsonValue(*row.setting, DefaultText(*row.setting))
            << ", \"unit\": " << JsonString(row.setting->unit)
            << ", \"origin\": " << JsonString(OriginName(row.from)) << ", \"line\": ";
        out << (row.line == 0 ? "null" : std::to_string(row.line))
            << ",\n     \"meaning\": " << JsonString(row.setting->meaning) << "}";
        separator = ",\n";
    }
    out << "\n  ]\n}\n";
}

int CountOf(const std::vector<Finding>& findings, Finding::Level level) {
    return static_cast<int>(std::count_if(findings.begin(), findings.end(), [level](const Finding& finding) {
        return finding.level == level;
    }));
}

std::string Counted(int count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

ConfigCommand::ConfigCommand(CtlDoors doors, const std::optional<std::string>& file)
    : m_doors(std::move(doors)), m_file(file.value_or(m_doors.root + tova_service::kConfigurationFile)) {}

int ConfigCommand::Check() {
    std::vector<Finding> findings;
    try {
        const Configuration configuration(m_file);
        findings = FindInConfig(configuration.text(), configuration.profile());
        if (auto account = FindAccount(m_doors.root, configuration.text(), configuration.profile())) {
            findings.push_back(std::move(*account));
        }
    } catch (const Unreadable& failure) {
        if (failure.error == EACCES && m_doors.user != 0) {
            throw CtlError("The configuration " + Printable(m_file) +
                           " cannot be read by this user; run the command with sudo.");
        }
        findings.push_back(
            {0,
             Finding::Level::kError,
             "cannot be read: " + failure.reason + "; without its configuration the service does not start",
             {}});
    }
    for (Finding& finding : FindInSystem(m_doors.root, m_doors.user)) {
        findings.push_back(std::move(finding));
    }
    // Those about lines first, in the order of the lines.
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& one, const Finding& other) {
        return (one.line == 0 ? INT32_MAX : one.line) < (other.line == 0 ? INT32_MAX : other.line);
    });
    for (const Finding& finding : findings) {
        const bool isError = finding.level == Finding::Level::kError;
        m_doors.out << Printable(finding.file.empty() ? m_file : finding.file) << ':';
        if (finding.line != 0) {
            m_doors.out << finding.line << ':';
        }
        m_doors.out << ' ' << (isError ? m_doors.paint.Red("error:") : m_doors.paint.Yellow("warning:"))
                    << ' ' << finding.sentence << '\n';
    }
    const int errors = CountOf(findings, Finding::Level::kError);
    const int warnings = CountOf(findings, Finding::Level::kWarning);
    m_doors.messages << Printable(m_file) << ": "
                     << (findings.empty() ? std::string("nothing to complain about")
                                          : Counted(errors, "error") + ", " + Counted(warnings, "warning"))
                     << '\n';
    return errors > 0 ? kErrors : warnings > 0 ? kWarnings : kClean;
}

void ConfigCommand::Show(Format format) {
    std::vector<Shown> shown;
    try {
        shown = ShownSettings(Configuration(m_file), IsAccountRegistered(m_doors.root));
    } catch (const Unreadable& failure) {
        throw CtlError("The configuration " + Printable(m_file) + " cannot be read: " + failure.reason +
                       "; name another file, or run the command with sudo.");
    }
    if (format == Format::kJson) {
        WriteJson(shown, m_file, m_doors.out);
    } else {
        WriteTable(shown, m_file, m_doors);
    }
}
