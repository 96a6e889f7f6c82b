// Small parts that the readers of storcli64's texts share.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "text.h"

// Controller number × 65536 + device id, the key of the reporting memory, has to fit an int.
inline constexpr unsigned int kMaxController = 32767;
inline constexpr unsigned int kMaxDevice = 65535;
// Enclosure numbers, which are device ids as well, and slots.
inline constexpr unsigned int kMaxPlace = 65535;

// The decimal number that the whole text is; nothing for any other text and for a number above the limit.
inline std::optional<unsigned int> ParseDecimal(std::string_view text, unsigned int limit) {
    unsigned int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number > limit) {
        return std::nullopt;
    }
    return number;
}

// The trimmed text behind the key when the line begins with it, leading blanks aside. The key ends with a
// blank; a line that has lost that one, for want of a value, gives the empty text.
inline std::optional<std::string_view> ValueOf(std::string_view line, std::string_view key) {
    line = tovaserverutil::WithoutLeadingBlanks(line);
    if (line.starts_with(key)) {
        return tovaserverutil::Trimmed(line.substr(key.size()));
    }
    if (line == key.substr(0, key.size() - 1)) {
        return std::string_view();
    }
    return std::nullopt;
}
