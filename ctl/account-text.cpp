#include "account-text.h"

#include <optional>
#include <utility>

#include "ctl-error.h"
#include "ilo-account.h"

namespace {

// The next character of UTF-8 text, and how many bytes it takes; nothing for bytes that are not UTF-8.
std::optional<std::pair<char32_t, std::size_t>> DecodeCharacter(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        return std::pair{static_cast<char32_t>(lead), std::size_t{1}};
    }
    struct Form {
        unsigned char mask, mark;
        char32_t least;  // shorter forms exist for characters below
    };
    constexpr Form kForms[] = {{0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    std::size_t length = 2;
    for (const Form& form : kForms) {
        if ((lead & form.mask) == form.mark) {
            auto character = static_cast<char32_t>(lead & static_cast<unsigned char>(~form.mask));
            if (text.size() - at < length) {
                return std::nullopt;
            }
            for (std::size_t i = at + 1; i < at + length; ++i) {
                if ((byte(i) & 0xC0) != 0x80) {
                    return std::nullopt;
                }
                character = character << 6 | (byte(i) & 0x3F);
            }
            const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
            if (character < form.least || character > 0x10FFFF || surrogate) {
                return std::nullopt;
            }
            return std::pair{character, length};
        }
        ++length;
    }
    return std::nullopt;
}

bool IsControl(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

// What is wrong with the text, as the rest of a sentence that begins with its name; empty for nothing.
std::string FaultOf(const std::string& text) {
    if (text.empty()) {
        return "is empty; give one of 1 to " + std::to_string(kMaxAccountText) + " bytes.";
    }
    if (text.size() > kMaxAccountText) {
        return "has " + std::to_string(text.size()) + " bytes; give one of at most " +
               std::to_string(kMaxAccountText) + ".";
    }
    for (std::size_t at = 0; at < text.size();) {
        const auto character = DecodeCharacter(text, at);
        if (!character) {
            return "is not UTF-8; give it in a UTF-8 locale.";
        }
        if (IsControl(character->first)) {
            return "holds a control character; give one without.";
        }
        at += character->second;
    }
    return {};
}

}  // namespace

bool IsAccountText(const std::string& text) {
    return FaultOf(text).empty();
}

void CheckAccountText(const std::string& what, const std::string& text) {
    const std::string fault = FaultOf(text);
    if (!fault.empty()) {
        throw UsageError("The " + what + " " + fault);
    }
}

std::string Printable(const std::string& text) {
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const auto character = DecodeCharacter(text, at);
        const std::size_t length = character ? character->second : 1;
        const bool fit = character && !IsControl(character->first);
        shown += fit ? text.substr(at, length) : "?";
        at += length;
    }
    return shown;
}
