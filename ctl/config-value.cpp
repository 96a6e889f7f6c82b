#include "config-value.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "account-text.h"
#include "clock.h"
#include "text.h"

using tova_service::Setting;
using tova_service::SettingKind;
using tovaserverutil::Contains;
using tovaserverutil::Profile;
using tovaserverutil::Trimmed;

namespace {

constexpr std::size_t kShownBytes = 60;  // of a value in a sentence
constexpr std::int64_t kMillisecondsPerSecond = 1000;

std::string Quoted(const std::string& text) {
    return "\"" + Printable(text.substr(0, kShownBytes)) + (text.size() > kShownBytes ? "..." : "") + "\"";
}

std::int32_t ReadNumber(const Setting& setting, const Profile& profile) {
    return setting.kind == SettingKind::kSigned ? ReadSigned(profile, setting)
                                                : static_cast<std::int32_t>(ReadUnsigned(profile, setting));
}

// Does the number reach the service as it is written?
bool Fits(const Setting& setting, long number) {
    return setting.kind == SettingKind::kSigned
               ? number >= std::numeric_limits<std::int32_t>::min() &&
                     number <= std::numeric_limits<std::int32_t>::max()
               : number >= 0 && number <= std::numeric_limits<std::uint32_t>::max();
}

void AddReason(std::string& reasons, const std::string& reason) {
    reasons += (reasons.empty() ? "" : ", and ") + reason;
}

// The whole part and up to three decimals.
std::string Decimal(std::int64_t number, std::int64_t divisor) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", static_cast<double>(number) / static_cast<double>(divisor));
    std::string decimal = text;
    decimal.resize(decimal.find_last_not_of('0') + 1);
    if (decimal.back() == '.') {
        decimal.pop_back();
    }
    return decimal;
}

// The number that the service works with, in the setting's unit.
std::string NumberText(const Setting& setting, std::int32_t read) {
    if (setting.toMilliseconds == nullptr) {
        return std::to_string(EffectiveNumber(setting, read));
    }
    return Decimal(setting.toMilliseconds(static_cast<std::uint32_t>(read)),
                   tovaserverutil::kMillisecondsPerMinute);
}

// What the service makes of a number that is not as it should be.
std::string Consequence(const Setting& setting, std::int32_t read) {
    std::string sentence = "the service takes " + NumberText(setting, read);
    if (*setting.unit != '\0') {
        sentence += std::string(" ") + setting.unit;
    }
    if (setting.toMilliseconds != nullptr) {
        sentence +=
            " (" + Decimal(setting.toMilliseconds(static_cast<std::uint32_t>(read)), kMillisecondsPerSecond) +
            " seconds)";
    }
    const char* const meaning = setting.isHeld ? nullptr
                                : read == 0    ? setting.ifZero
                                : read < 0     ? setting.ifNegative
                                               : nullptr;
    return meaning == nullptr ? sentence : sentence + ": " + meaning;
}

std::vector<std::string> FaultsOfNumber(const Setting& setting, const std::string& value,
                                        const Profile& profile) {
    if (value.empty()) {
        return {};  // the default
    }
    char* end = nullptr;
    const long number = std::strtol(value.c_str(), &end, 10);
    const std::string_view behind = end;
    const bool isOut = number < setting.least || number > setting.most;
    std::string reasons;
    if (end == value.c_str()) {
        AddReason(reasons, "it is no number and counts as 0");
    } else if (!Trimmed(behind).empty()) {
        AddReason(reasons, "only the number at its beginning counts");
    }
    if (isOut) {
        AddReason(reasons,
                  "it is not in " + std::to_string(setting.least) + " to " + std::to_string(setting.most));
    }
    if (number >= 0 && !Fits(setting, number)) {
        AddReason(reasons, "it does not fit 32 bits");
    }
    if (!reasons.empty()) {
        return {std::string("\"") + setting.key + "\" is " + Quoted(value) + ": " + reasons + "; " +
                Consequence(setting, ReadNumber(setting, profile))};
    }
    if (Trimmed(value) != value) {
        return {std::string("blanks around the value of \"") + setting.key +
                "\" are ignored, because it is a number; texts and flags keep theirs"};
    }
    return {};
}

std::vector<std::string> FaultsOfText(const Setting& setting, const std::string& value) {
    const std::string ofKey = std::string(" of \"") + setting.key + "\"";
    std::vector<std::string> faults;
    if (Trimmed(value) != value) {
        faults.push_back("blanks around the value" + ofKey + " belong to it");
    }
    if (setting.kind == SettingKind::kSecret) {
        return faults;
    }
    if (Contains(value, "\"") || Contains(value, "'")) {
        faults.push_back("quotation marks belong to the value" + ofKey);
    }
    if (Contains(value, " #")) {
        faults.push_back("\"#\" begins no comment behind a value, it belongs to the value" + ofKey);
    }
    return faults;
}

// A password may hold every character, so the last "@" of the whole text counts, and a query goes altogether.
std::string WithoutSecrets(const std::string& url) {
    constexpr std::string_view kMark = "://";
    const std::size_t scheme = url.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
    const std::size_t host = scheme != std::string::npos && url.compare(scheme, kMark.size(), kMark) == 0
                                 ? scheme + kMark.size()
                                 : 0;
    const std::size_t at = url.rfind('@');
    const bool masked = at != std::string::npos;
    const std::size_t from = masked ? at : 0;
    const std::size_t query = url.find('?', from);
    return (masked ? url.substr(0, std::min(host, at)) + "***" : "") + url.substr(from, query - from) +
           (query == std::string::npos ? "" : "?***");
}

}  // namespace

bool IsNumber(const Setting& setting) {
    return setting.kind == SettingKind::kUnsigned || setting.kind == SettingKind::kSigned;
}

std::vector<std::string> FaultsOfValue(const Setting& setting, const std::string& value,
                                       const Profile& profile) {
    switch (setting.kind) {
        case SettingKind::kUnsigned:
        case SettingKind::kSigned:
            return FaultsOfNumber(setting, value, profile);
        case SettingKind::kFlag:
            if (value == "true" || value == "false") {
                return {};
            }
            return {std::string("\"") + setting.key + "\" is " + Quoted(value) +
                    ", which is not exactly \"false\" and so counts as true"};
        case SettingKind::kText:
        case SettingKind::kSecret:
            break;
    }
    return FaultsOfText(setting, value);
}

std::string EffectiveText(const Setting& setting, const Profile& profile) {
    switch (setting.kind) {
        case SettingKind::kUnsigned:
        case SettingKind::kSigned:
            return NumberText(setting, ReadNumber(setting, profile));
        case SettingKind::kFlag:
            return ReadFlag(profile, setting) ? "true" : "false";
        case SettingKind::kSecret:
            return ReadText(profile, setting).empty() ? "" : "***";
        case SettingKind::kText:
            break;
    }
    return Printable(WithoutSecrets(ReadText(profile, setting)));
}

std::string DefaultText(const Setting& setting) {
    // What an empty configuration gives.
    return EffectiveText(setting, Profile({}));
}
