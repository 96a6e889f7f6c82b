#include "config-findings.h"

#include <strings.h>

#include <algorithm>

#include "account-text.h"
#include "config-value.h"
#include "controller-url.h"
#include "nearest-name.h"
#include "settings.h"
#include "text.h"

using tova_service::kSettings;
using tova_service::Setting;
using tovaserverutil::Profile;
using tovaserverutil::Trimmed;

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string Quoted(std::string_view text) {
    return "\"" + Printable(std::string(text)) + "\"";
}

// A name that nobody knows may be a mistyped line with a password in it.
bool MayHoldPassword(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower.find("pass") != std::string::npos || lower.find("pwd") != std::string::npos ||
           lower.find("secret") != std::string::npos;
}

// What looks like a name is shown; a URL, a longer text or strange characters may be anything.
std::string QuotedUnlessSecret(std::string_view name) {
    constexpr std::size_t kLongestShown = 40;
    constexpr const char* kNameCharacters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 _-";
    const bool isShown = name.size() <= kLongestShown &&
                         name.find_first_not_of(kNameCharacters) == std::string_view::npos &&
                         !MayHoldPassword(name);
    return isShown ? Quoted(name) : "(not shown, it may hold a password)";
}

// Of a key that nobody knows only the first word is shown: what follows may be a value behind a wrong
// separator.
std::string KeyToShow(std::string_view key, const std::vector<std::string_view>& known) {
    const bool isKnownInOtherCase = std::any_of(known.begin(), known.end(), [key](std::string_view name) {
        return name.size() == key.size() && strncasecmp(name.data(), key.data(), key.size()) == 0;
    });
    const bool isUrl = tovaserverutil::Contains(key, "://");
    return QuotedUnlessSecret(isKnownInOtherCase || isUrl ? key : key.substr(0, key.find_first_of(": \t")));
}

std::vector<std::string_view> SectionNames() {
    std::vector<std::string_view> names;
    for (const Setting* setting : kSettings) {
        if (std::find(names.begin(), names.end(), setting->section) == names.end()) {
            names.emplace_back(setting->section);
        }
    }
    return names;
}

std::vector<std::string_view> KeysOf(std::string_view section) {
    std::vector<std::string_view> names;
    for (const Setting* setting : kSettings) {
        if (section == setting->section) {
            names.emplace_back(setting->key);
        }
    }
    return names;
}

bool IsOneOf(std::string_view name, const std::vector<std::string_view>& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

const Setting* FindSetting(std::string_view section, std::string_view key) {
    for (const Setting* setting : kSettings) {
        if (section == setting->section && key == setting->key) {
            return setting;
        }
    }
    return nullptr;
}

// "serial log" or "media error": every section that has the key; empty when none has.
std::string SectionsOfKey(std::string_view key) {
    std::string sections;
    for (const Setting* setting : kSettings) {
        if (key == setting->key) {
            sections += (sections.empty() ? "" : " or ") + Quoted(setting->section);
        }
    }
    return sections;
}

std::string ListOf(const std::vector<std::string_view>& names) {
    std::string list;
    for (const std::string_view name : names) {
        list += (list.empty() ? "" : ", ") + Quoted(name);
    }
    return list;
}

std::string DidYouMean(std::string_view name, const std::vector<std::string_view>& known) {
    const std::string_view nearest = NearestName(name, known);
    return nearest.empty() ? std::string() : "; did you mean " + Quoted(nearest) + "?";
}

// One pass over the lines.
class Check {
public:
    Check(const ConfigText& text, const Profile& profile) : m_text(text), m_profile(profile) {}

    std::vector<Finding> Run() {
        for (const ConfigLine& line : m_text.lines()) {
            CheckForm(line);
            switch (line.kind) {
                case ConfigLine::Kind::kNothing:
                    break;
                case ConfigLine::Kind::kHeader:
                    CheckHeader(line);
                    break;
                case ConfigLine::Kind::kBrokenHeader:
                    Add(line, "a header without \"]\" is ignored; " + WhereLinesBelong(line));
                    break;
                case ConfigLine::Kind::kEntry:
                    CheckEntry(line);
                    break;
            }
        }
        return std::move(m_findings);
    }

private:
    void Add(const ConfigLine& line, std::string sentence) {
        m_findings.push_back({line.number, Finding::Level::kWarning, std::move(sentence), {}});
    }

    static std::string WhereLinesBelong(const ConfigLine& line) {
        return line.section.empty()
                   ? "the lines below it belong to no section and are never read"
                   : "the lines below it still belong to section " + QuotedUnlessSecret(line.section);
    }

    // What a line is made of, whatever it says.
    void CheckForm(const ConfigLine& line) {
        if (line.goesOn && !line.isPiece) {
            Add(line,
                "the line is longer than 8191 bytes; the service takes what is beyond as lines of their own");
        }
        if (line.dropped) {
            Add(line,
                "what stands behind the carriage return or NUL in the line is dropped; end lines with a line "
                "feed");
        }
        if (line.carriageReturn && !m_carriageReturnSeen) {
            m_carriageReturnSeen = true;
            Add(line,
                "the line ends in CR LF; the service ignores the carriage return (said once, for the first "
                "such line)");
        }
    }

    // ---- Headers ----

    void CheckHeader(const ConfigLine& line) {
        const std::string_view behind = Trimmed(line.behind);
        if (!behind.empty() && behind.front() != '#') {
            Add(line, "what stands behind the \"]\" is ignored");
        }
        if (line.section.empty()) {
            Add(line, "a section without name is never read");
            return;
        }
        const std::vector<std::string_view> known = SectionNames();
        if (!IsOneOf(line.section, known)) {
            const std::string_view trimmed = Trimmed(line.section);
            if (trimmed != line.section && IsOneOf(trimmed, known)) {
                Add(line,
                    "blanks inside the brackets belong to the section's name, so it is never read; write [" +
                        std::string(trimmed) + "]");
            } else {
                const std::string nearest = DidYouMean(line.section, known);
                Add(line, "unknown section " + QuotedUnlessSecret(line.section) +
                              ", nothing below it is read" +
                              (nearest.empty() ? "; the sections are " + ListOf(known) : nearest));
            }
            return;
        }
        const ConfigLine* const first = m_text.FindHeader(line.section);
        if (first->ordinal != line.ordinal) {
            Add(line, "section " + Quoted(line.section) + " begins in line " + std::to_string(first->number) +
                          " already; nothing below this second header is read");
        }
    }

    // ---- Entries ----

    void CheckEntry(const ConfigLine& line) {
        const std::string_view key = Trimmed(line.key);
        if (line.isPiece || (key.empty() && !line.hasEquals)) {
            return;  // said with the line's first piece; or a line of blanks, which nobody misses
        }
        if (line.number == 1 && line.key.rfind(kByteOrderMark, 0) == 0) {
            Add(line,
                "the file begins with a byte order mark, which belongs to the line: neither header nor "
                "comment "
                "is known behind it; save the file without");
            return;
        }
        if (key.substr(0, 1) == "[") {
            Add(line, "blanks before \"[\" make the line no header; " + WhereLinesBelong(line));
            return;
        }
        if (IsMeantAsComment(key)) {
            Add(line, "only \"#\" in the first column begins a comment; the line is taken as an unknown key");
            return;
        }
        if (line.ordinal == 0) {
            Add(line, "the line stands before any section and is never read");
            return;
        }
        const std::vector<std::string_view> keys = KeysOf(line.section);
        if (keys.empty() || m_text.FindHeader(line.section)->ordinal != line.ordinal) {
            return;  // said with the header
        }
        const Setting* const setting = FindSetting(line.section, line.key);
        if (setting == nullptr) {
            CheckUnknownKey(line, key, keys);
            return;
        }
        const ConfigLine* const read = m_text.FindEntry(line.section, line.key);
        if (read != &line) {
            Add(line, Quoted(line.key) + " is set in line " + std::to_string(read->number) +
                          " already; this one is never read");
            return;
        }
        if (!line.hasEquals) {
            Add(line, Quoted(line.key) + " stands without \"=\", so its value is empty");
        }
        for (std::string& sentence : FaultsOfValue(*setting, line.value, m_profile)) {
            Add(line, std::move(sentence));
        }
        if (setting == &tova_service::kControllerUrl && !line.value.empty()) {
            CheckUrl(line);
        }
    }

    void CheckUrl(const ConfigLine& line) {
        const std::string fault = FaultOfUrl(line.value);
        if (!fault.empty()) {
            m_findings.push_back({line.number,
                                  Finding::Level::kError,
                                  "\"url\" is refused, so the service cannot log in with it: it " + fault,
                                  {}});
        }
    }

    static bool IsMeantAsComment(std::string_view key) {
        return key.substr(0, 1) == "#" || key.substr(0, 1) == ";" || key.substr(0, 2) == "//";
    }

    void CheckUnknownKey(const ConfigLine& line, std::string_view trimmed,
                         const std::vector<std::string_view>& keys) {
        const std::string inSection = " in section " + Quoted(line.section);
        if (IsOneOf(trimmed, keys)) {
            const bool before = line.key.front() != trimmed.front();
            Add(line, "blanks " + std::string(before ? "before the key" : "before \"=\"") +
                          " belong to it, so " + Quoted(line.key) + " is never read; write " +
                          std::string(trimmed) + "=VALUE");
            return;
        }
        if (!line.hasEquals) {
            // The line is not repeated: it may be a password that was written behind a colon or a blank.
            Add(line, "the line has no \"=\" and is no key" + inSection +
                          DidYouMean(trimmed.substr(0, trimmed.find_first_of(": \t")), keys));
            return;
        }
        const std::string elsewhere = SectionsOfKey(trimmed);
        Add(line,
            elsewhere.empty()
                ? "unknown key " + KeyToShow(trimmed, keys) + inSection + DidYouMean(trimmed, keys)
                : "unknown key " + Quoted(trimmed) + inSection + "; it belongs into section " + elsewhere);
    }

    const ConfigText& m_text;
    const Profile& m_profile;
    std::vector<Finding> m_findings;
    bool m_carriageReturnSeen = false;
};

}  // namespace

std::vector<Finding> FindInConfig(const ConfigText& text, const Profile& profile) {
    return Check(text, profile).Run();
}
