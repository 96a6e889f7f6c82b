#include "config-command.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "account-text.h"
#include "config-findings.h"
#include "config-surroundings.h"
#include "config-trust.h"
#include "config-value.h"
#include "ctl-error.h"
#include "file-reading.h"
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
        : m_content(ReadWholeFile(file)), m_text(m_content.text), m_profile(file) {
        tovaserverutil::Wipe(m_content.text);
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
    FileKind kind() const { return m_content.kind; }
    const ConfigText& text() const { return m_text; }
    const Profile& profile() const { return m_profile; }

private:
    FileContent m_content;
    ConfigText m_text;
    Profile m_profile;
};

// A row of "config show".
struct Shown {
    const Setting* setting;
    std::string value;
    enum class From { kDefault, kFile, kRegistered, kUnchecked, kEmptied } from;
    int line;  // in the file, where that is where it came from
};

// The registered account takes the place of what the file says; without one the service empties that.
Shown ShowAccount(const Setting& setting, AccountState::Kind state, const std::string& value, int line) {
    if (state == AccountState::Kind::kUsable) {
        return {&setting, "***", Shown::From::kRegistered, 0};
    }
    if (state == AccountState::Kind::kUnknown) {
        return {&setting, "***", Shown::From::kUnchecked, 0};
    }
    return value.empty() ? Shown{&setting, "", line == 0 ? Shown::From::kDefault : Shown::From::kFile, line}
                         : Shown{&setting, "", Shown::From::kEmptied, line};
}

std::vector<Shown> ShownSettings(const Configuration& configuration, AccountState::Kind account) {
    std::vector<Shown> shown;
    for (const Setting* setting : kSettings) {
        const ConfigLine* const entry = configuration.text().FindEntry(setting->section, setting->key);
        const int line = entry == nullptr ? 0 : entry->number;
        const std::string value = EffectiveText(*setting, configuration.profile());
        shown.push_back(
            setting == &kAccount || setting == &kPassword
                ? ShowAccount(*setting, account, value, line)
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
            return place + ", emptied: no usable account is registered";
        case Shown::From::kRegistered:
            return "the registered account";
        case Shown::From::kUnchecked:
            return "the registered account, if it can be deciphered (root sees that)";
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
        case Shown::From::kUnchecked:
            return "unchecked";
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

// What is no file reads as an empty one.
void CheckKind(FileKind kind, std::vector<Finding>& findings) {
    if (kind != FileKind::kRegular) {
        findings.push_back({0,
                            Finding::Level::kWarning,
                            std::string("it is ") + (kind == FileKind::kFolder ? "a folder" : "no file") +
                                ", which the service reads as an empty file: every setting has its default",
                            {}});
    }
}

// What becomes of a service whose configuration cannot be opened, or never gives a first line.
std::string Unreadability(const Unreadable& failure, bool isServices) {
    return "cannot be read: " + failure.reason +
           (isServices && failure.error != 0 ? "; without its configuration the service does not start" : "");
}

}  // namespace

ConfigCommand::ConfigCommand(CtlDoors doors, const std::optional<std::string>& file)
    : m_doors(std::move(doors)),
      m_file(file.value_or(m_doors.root + tova_service::kConfigurationFile)),
      m_isServices(m_file == m_doors.root + tova_service::kConfigurationFile) {}

Surroundings ConfigCommand::Look() const {
    Surroundings found;
    try {
        const Configuration configuration(m_file);
        found.findings = FindInConfig(configuration.text(), configuration.profile());
        CheckKind(configuration.kind(), found.findings);
        LookBehindSettings(m_doors.root, m_doors.user, m_doors.commands, configuration.text(),
                           configuration.profile(), found);
    } catch (const Unreadable& failure) {
        if (failure.error == EACCES && m_doors.user != 0) {
            throw CtlError("The configuration " + Printable(m_file) +
                           " cannot be read by this user; run the command with sudo.");
        }
        found.findings.push_back({0, Finding::Level::kError, Unreadability(failure, m_isServices), {}});
    }
    LookAtSystem(m_doors.root, m_doors.user, found);
    LookAtTrust(m_doors.root, m_doors.programFolder, found);
    // Those about lines first, in the order of the lines.
    std::stable_sort(
        found.findings.begin(), found.findings.end(), [](const Finding& one, const Finding& other) {
            return (one.line == 0 ? INT32_MAX : one.line) < (other.line == 0 ? INT32_MAX : other.line);
        });
    return found;
}

int ConfigCommand::Check() {
    const Surroundings found = Look();
    for (const Finding& finding : found.findings) {
        const bool isError = finding.level == Finding::Level::kError;
        m_doors.out << Printable(finding.file.empty() ? m_file : finding.file) << ':';
        if (finding.line != 0) {
            m_doors.out << finding.line << ':';
        }
        m_doors.out << ' ' << (isError ? m_doors.paint.Red("error:") : m_doors.paint.Yellow("warning:"))
                    << ' ' << finding.sentence << '\n';
    }
    WriteNotChecked(found.notChecked);
    const int errors = CountOf(found.findings, Finding::Level::kError);
    const int warnings = CountOf(found.findings, Finding::Level::kWarning);
    m_doors.messages << Printable(m_file) << ": "
                     << (found.findings.empty()
                             ? std::string("nothing to complain about")
                             : Counted(errors, "error") + ", " + Counted(warnings, "warning"))
                     << '\n';
    return errors > 0 ? kErrors : warnings > 0 ? kWarnings : kClean;
}

void ConfigCommand::WriteNotChecked(const std::vector<std::string>& names) const {
    if (names.empty()) {
        return;
    }
    std::string list;
    for (const std::string& name : names) {
        list += (list.empty() ? "" : ", ") + name;
    }
    m_doors.messages << "Not checked as this user: " << list << "; run the command with sudo.\n";
}

void ConfigCommand::Show(Format format) {
    std::vector<Shown> shown;
    try {
        const Configuration configuration(m_file);
        shown =
            ShownSettings(configuration, FindAccountState(m_doors.root, m_doors.user, m_doors.commands).kind);
    } catch (const Unreadable& failure) {
        const bool forbidden = failure.error == EACCES && m_doors.user != 0;
        throw CtlError("The configuration " + Printable(m_file) + " cannot be read: " + failure.reason +
                       "; " +
                       (forbidden ? "run the command with sudo." : "check the name, or put the file there."));
    }
    if (format == Format::kJson) {
        WriteJson(shown, m_file, m_doors.out);
    } else {
        WriteTable(shown, m_file, m_doors);
    }
}
