// The configuration text: as the service reads it, as "baywardctl config" explains it, and the two against
// each other.
#include <string>

#include "config-findings.h"
#include "config-text.h"
#include "config-value.h"
#include "fuzz.h"
#include "server-profile.h"
#include "settings.h"

using tova_service::kSettings;
using tova_service::Setting;
using tova_service::SettingKind;
using tovaserverutil::Profile;
using tovaserverutil::ProfileSection;

namespace {

bool operator==(const ProfileSection& left, const ProfileSection& right) {
    return left.name == right.name && left.entries == right.entries;
}

void CheckSize(std::string_view input, const Profile& profile) {
    std::size_t size = 0;
    for (const ProfileSection& section : profile.sections()) {
        size += section.name.size();
        for (const auto& [key, value] : section.entries) {
            size += key.size() + value.size();
        }
    }
    FUZZ_CHECK(size <= input.size());
}

// Longer lines are read in pieces, which move with the line end, and a carriage return of its own hides what
// stands behind it.
bool IsPlain(std::string_view input) {
    constexpr std::size_t kShort = 8000;
    return input.size() < kShort && input.find('\r') == std::string_view::npos;
}

void CheckCarriageReturns(std::string_view input, const Profile& profile) {
    const MemoryFile file(WithCarriageReturns(input));
    Profile other(file.path());
    other.ReadProfile();
    FUZZ_CHECK(other.sections().size() == profile.sections().size());
    for (std::size_t i = 0; i < other.sections().size(); ++i) {
        FUZZ_CHECK(other.sections()[i] == profile.sections()[i]);
    }
}

void CheckSetting(const Setting& setting, const ConfigText& text, const Profile& profile) {
    const ConfigLine* const line = text.FindEntry(setting.section, setting.key);
    const std::string* const value = profile.Find(setting.section, setting.key);
    FUZZ_CHECK((line == nullptr) == (value == nullptr));
    FUZZ_CHECK(line == nullptr || line->value == *value);

    const std::string shown = EffectiveText(setting, profile);
    FUZZ_CHECK(setting.kind != SettingKind::kSecret || shown.empty() || shown == "***");
    if (value != nullptr) {
        for (const std::string& fault : FaultsOfValue(setting, *value, profile)) {
            FUZZ_CHECK(!HoldsControl(fault));
        }
    }
    if (IsNumber(setting)) {
        const std::int64_t number = EffectiveNumber(setting, ReadSigned(profile, setting));
        FUZZ_CHECK(!setting.isHeld || setting.kind != SettingKind::kUnsigned ||
                   (number >= setting.least && number <= setting.most));
    }
}

}  // namespace

void Fuzz(std::string_view input) {
    const MemoryFile file(input);
    Profile profile(file.path());
    profile.ReadProfile();
    CheckSize(input, profile);
    if (IsPlain(input)) {
        CheckCarriageReturns(input, profile);
    }
    const ConfigText text(input);
    for (const Setting* setting : kSettings) {
        CheckSetting(*setting, text, profile);
    }
    for (const Finding& finding : FindInConfig(text, profile)) {
        FUZZ_CHECK(!finding.sentence.empty() && !HoldsControl(finding.sentence));
        FUZZ_CHECK(finding.line >= 0 && (finding.line == 0 || finding.line <= text.lines().back().number));
    }
}
