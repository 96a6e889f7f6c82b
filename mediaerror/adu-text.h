// Small parts that the readers of the diagnostic report share.
#pragma once

#include <string>
#include <string_view>

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

// When the line holds the key: true, and the value is the text behind the key without leading blanks. Else
// false and an empty value.
bool find_elements(std::string_view line, std::string_view key, std::string& value);

bool isNotDigit(char character);

// Removes everything but the decimal digits.
void removeNonDigits(std::string& text);
