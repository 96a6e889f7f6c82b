#include "controller-url.h"

#include <algorithm>
#include <cstdlib>

// The same rules as those of the helper module's own reader (ilorest/module/_bayward_target.py).

namespace {

constexpr std::string_view kInBandScheme = "blobstore://";
constexpr std::string_view kScheme = "https://";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz";
constexpr long kMostPort = 65535;
constexpr std::size_t kMostPortDigits = 5;
constexpr const char* kForm =
    "is not of the form https://HOST or https://HOST:PORT (an IPv6 address in brackets, no path, no blanks)";

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

std::string_view WithoutBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\n\r\v\f\x1c\x1d\x1e\x1f";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
    const bool there = text.substr(0, prefix.size()) == prefix;
    if (there) {
        text.remove_prefix(prefix.size());
    }
    return there;
}

// Removes the longest beginning that is made of these characters, and returns it.
std::string_view TakeAll(std::string_view& text, const std::string& characters) {
    const std::string_view taken = text.substr(0, text.find_first_not_of(characters));
    text.remove_prefix(taken.size());
    return taken;
}

// A name, an IPv4 address, or an IPv6 address in brackets, which may name a zone.
bool TakeHost(std::string_view& text) {
    const std::string nameCharacters = std::string(kLetters) + std::string(kDigits) + "_.-";
    if (!TakePrefix(text, "[")) {
        const std::string_view name = TakeAll(text, nameCharacters);
        return !name.empty() && name.front() != '.' && name.front() != '-';
    }
    if (TakeAll(text, std::string(kDigits) + "abcdef:.").empty()) {
        return false;
    }
    if (TakePrefix(text, "%") && TakeAll(text, nameCharacters).empty()) {
        return false;
    }
    return TakePrefix(text, "]");
}

}  // namespace

bool IsInBandUrl(std::string_view url) {
    return Lower(WithoutBlanks(url)).rfind(kInBandScheme, 0) == 0;
}

std::string FaultOfUrl(std::string_view url) {
    if (IsInBandUrl(url)) {
        return {};
    }
    const std::string lower = Lower(WithoutBlanks(url));
    std::string_view rest = lower;
    if (rest.find('@') != std::string_view::npos) {
        return "holds an account; register that with \"baywardctl account set\"";
    }
    if (!TakePrefix(rest, kScheme) && rest.find("://") != std::string_view::npos) {
        return "does not begin with https:// (or blobstore://)";
    }
    if (!TakeHost(rest)) {
        return kForm;
    }
    if (TakePrefix(rest, ":")) {
        const std::string digits(TakeAll(rest, std::string(kDigits)));
        if (digits.empty() || digits.size() > kMostPortDigits) {
            return kForm;
        }
        const long port = std::strtol(digits.c_str(), nullptr, 10);
        if (port < 1 || port > kMostPort) {
            return "has no port between 1 and 65535";
        }
    }
    TakePrefix(rest, "/");
    return rest.empty() ? std::string() : kForm;
}
