// Reader of sectioned key=value text: the configuration file and the message catalogue.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tovaserverutil {

// A section with its entries in file order; duplicates are kept.
struct ProfileSection {
    std::string name;
    std::vector<std::pair<std::string, std::string>> entries;
};

// Syntax: "[name]" opens a section (everything up to the first "]", untrimmed); "#" in the first column is a
// comment; any other line is an entry, cut at its first "=", both sides untrimmed (without "=", the whole
// line is the key). Lines are read in pieces of at most 8191 bytes and cut at their first line feed and
// carriage return. Entries before the first header are dropped.
class Profile {
public:
    explicit Profile(std::string path) : m_path(std::move(path)) {}
    ~Profile();  // wipes what was read: the configuration may hold a password
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;

    // Reads the file into the section list. Throws TOVAExcpt of code kFileOpen with the text
    // "UNIT LINE (Err: ERROR FileName: PATH)" when it cannot be opened.
    void ReadProfile();

    const std::vector<ProfileSection>& sections() const { return m_sections; }

    // The value of the first such key in the first such section (both exact, case-sensitive); null when there
    // is none. A key that stands only in a later section of the same name is not found.
    const std::string* Find(std::string_view section, std::string_view key) const;

    // As Find, with a default. An absent or empty value gives the default for numbers; otherwise base-10
    // strtol rules (leading digits, sign allowed, rest ignored), narrowed to the type asked for without any
    // range check.
    std::uint32_t ReadUnsigned(std::string_view section, std::string_view key,
                               std::uint32_t defaultValue) const;
    std::int32_t ReadSigned(std::string_view section, std::string_view key, std::int32_t defaultValue) const;
    std::string ReadText(std::string_view section, std::string_view key,
                         const std::string& defaultValue) const;
    // False only when the value is exactly "false"; an absent flag is true.
    bool ReadFlag(std::string_view section, std::string_view key) const;

private:
    std::string m_path;
    std::vector<ProfileSection> m_sections;
};

}  // namespace tovaserverutil
