// The configuration file line by line, as the service's reader takes it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// One line, or one piece of a line that is too long for the reader.
struct ConfigLine {
    enum class Kind {
        kNothing,  // empty or a comment
        kHeader,
        kBrokenHeader,  // "[" without "]": ignored, the lines below belong to the section above
        kEntry,
    };

    int number = 0;  // from 1
    Kind kind = Kind::kNothing;
    bool carriageReturn = false;  // ends in CR LF
    bool dropped = false;         // what stands behind a NUL or behind a CR that ends no line is dropped
    bool isPiece = false;         // not the first piece of its line
    bool goesOn = false;          // the rest of the line is taken as another line

    // The section: that of a header itself, that which any other line belongs to.
    std::string section;
    std::size_t ordinal = 0;  // of the section's header among all headers, from 1; 0 before the first one
    std::string behind;       // what stands behind the "]" of a header

    // Entries.
    std::string key;
    std::string value;
    bool hasEquals = false;
};

// Wipes what it holds when it goes: the file may hold a password.
class ConfigText {
public:
    explicit ConfigText(std::string_view content);
    ~ConfigText();
    ConfigText(const ConfigText&) = delete;
    ConfigText& operator=(const ConfigText&) = delete;

    const std::vector<ConfigLine>& lines() const { return m_lines; }

    // The header that a section's entries are searched under, the first of this name; null when there is
    // none.
    const ConfigLine* FindHeader(std::string_view section) const;
    // The entry that the service takes the key's value from; null when there is none.
    const ConfigLine* FindEntry(std::string_view section, std::string_view key) const;

private:
    void Add(ConfigLine line, std::string_view piece);

    std::vector<ConfigLine> m_lines;
};
