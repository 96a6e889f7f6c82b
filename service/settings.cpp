#include "settings.h"

#include <algorithm>
#include <climits>

#include "clock.h"

namespace tova_service {

using tovaserverutil::Profile;

int MediaErrorWait(std::uint32_t minutes) {
    return static_cast<int>(
        std::min<std::uint32_t>(minutes * tovaserverutil::kMillisecondsPerMinute, INT_MAX));
}

std::int32_t ReadSigned(const Profile& profile, const Setting& setting) {
    return profile.ReadSigned(setting.section, setting.key, setting.absent);
}

std::uint32_t ReadUnsigned(const Profile& profile, const Setting& setting) {
    return profile.ReadUnsigned(setting.section, setting.key, static_cast<std::uint32_t>(setting.absent));
}

std::string ReadText(const Profile& profile, const Setting& setting) {
    return profile.ReadText(setting.section, setting.key, "");
}

bool ReadFlag(const Profile& profile, const Setting& setting) {
    return profile.Find(setting.section, setting.key) == nullptr
               ? setting.absent != 0
               : profile.ReadFlag(setting.section, setting.key);
}

std::int64_t EffectiveNumber(const Setting& setting, std::int32_t read) {
    if (setting.kind == SettingKind::kSigned) {
        return read;
    }
    const std::int64_t number = static_cast<std::uint32_t>(read);
    return setting.isHeld ? std::clamp(number, setting.least, setting.most) : number;
}

}  // namespace tova_service
