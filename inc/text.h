// Searching, taking apart and cleaning texts.
#pragma once

#include <string>
#include <string_view>

namespace tovaserverutil {

// Is the part somewhere in the text? An empty part is in every text.
inline bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// The text without leading and trailing blanks and tabs.
inline std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

inline bool IsBlank(char character) {
    return character == ' ' || character == '\t';
}

inline std::string_view WithoutLeadingBlanks(std::string_view text) {
    std::size_t blanks = 0;
    while (blanks < text.size() && IsBlank(text[blanks])) {
        ++blanks;
    }
    return text.substr(blanks);
}

// Takes the first word off the text; empty when there is none.
inline std::string_view TakeWord(std::string_view& text) {
    text = WithoutLeadingBlanks(text);
    std::size_t end = 0;
    while (end < text.size() && !IsBlank(text[end])) {
        ++end;
    }
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

// The text with every control and non-ASCII byte replaced by "?". What a drive says about itself passes
// through here before it becomes part of a message: it can neither forge a log line nor make a sentence
// unconvertible.
inline std::string Printable(std::string_view text) {
    std::string clean(text);
    for (char& character : clean) {
        if (character < ' ' || character > '~') {
            character = '?';
        }
    }
    return clean;
}

}  // namespace tovaserverutil
