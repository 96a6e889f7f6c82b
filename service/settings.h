// The settings of the configuration file: where each stands, what it means and what becomes of its value.
#pragma once

#include <cstdint>
#include <string>

#include "server-profile.h"

namespace tova_service {

enum class SettingKind { kText, kSecret, kUnsigned, kSigned, kFlag };

// Texts are empty by default.
struct Setting {
    const char* section;
    const char* key;
    SettingKind kind;
    const char* meaning;  // one sentence
    const char* unit = "";
    std::int32_t absent = 0;  // the default of a number; of a flag 1 for on, 0 for off
    // Numbers: the range that makes sense. Where the setting's user holds values to it (unsigned ones only),
    // a value out of it becomes the nearest end, a negative one, taken as the unsigned number it reads as,
    // the upper end. Elsewhere the value is taken as it stands, and the sentences say what comes of one below
    // the range.
    std::int64_t least = 0;
    std::int64_t most = 0;
    bool isHeld = true;
    const char* ifZero = nullptr;
    const char* ifNegative = nullptr;
    // The milliseconds that the setting's user makes of a number that is not held to its range; null where it
    // is taken as it is.
    int (*toMilliseconds)(std::uint32_t) = nullptr;
};

// The wait of a "media error" interval in milliseconds, as poll takes it: the product is one of 32 bits,
// deliberately so, and what is beyond the largest int is that.
int MediaErrorWait(std::uint32_t minutes);

inline constexpr Setting kMaxLogSize{
    .section = "log file",
    .key = "max log size",
    .kind = SettingKind::kSigned,
    .meaning = "Size limit of the trace log; one backup of the same size is kept beside it.",
    .unit = "kilobytes",
    .absent = 4096,
    .least = 1,
    .most = INT32_MAX,
    .isHeld = false,
    .ifZero = "every line moves the trace log aside",
    .ifNegative = "the trace log grows without limit"};
inline constexpr Setting kControllerInterval{.section = "iLo",
                                             .key = "interval",
                                             .kind = SettingKind::kUnsigned,
                                             .meaning = "Pause between two looks at the controller.",
                                             .unit = "milliseconds",
                                             .absent = 60000,
                                             .least = 3000,
                                             .most = 3600000};
inline constexpr Setting kControllerUrl{
    .section = "iLo",
    .key = "url",
    .kind = SettingKind::kText,
    .meaning =
        "Address of the management controller; empty: the local in-band channel. On the virtual-NIC "
        "link the controller is asked there instead."};
inline constexpr Setting kCaFile{
    .section = "iLo",
    .key = "ca file",
    .kind = SettingKind::kText,
    .meaning =
        "PEM file of the authorities that may vouch for the controller; empty: its certificate is not "
        "verified."};
inline constexpr Setting kAccount{
    .section = "iLo",
    .key = "account",
    .kind = SettingKind::kText,
    .meaning = "Account on the controller; replaced by the registered one, or emptied when there is none."};
inline constexpr Setting kPassword{
    .section = "iLo",
    .key = "password",
    .kind = SettingKind::kSecret,
    .meaning = "Its password; replaced by the registered one, or emptied when there is none."};
// Deliberately no count of log-ins or reads, whatever the name says: only with 0 it keeps them from being
// tried.
inline constexpr Setting kMaxTrials{
    .section = "iLo",
    .key = "max trials",
    .kind = SettingKind::kSigned,
    .meaning = "Trials of a log-out from the controller; a log-in and each read are tried once.",
    .absent = 100,
    .least = 1,
    .most = INT32_MAX,
    .isHeld = false,
    .ifZero = "no log-in and no read is ever tried, so nothing is watched",
    .ifNegative = "the trials of a log-out that fails hardly end"};
inline constexpr Setting kTrialInterval{
    .section = "iLo",
    .key = "trial interval",
    .kind = SettingKind::kSigned,
    .meaning = "Pause between two trials of a log-out from the controller.",
    .unit = "milliseconds",
    .absent = 10,
    .least = 0,
    .most = INT32_MAX,
    .isHeld = false,
    .ifNegative = "the pause between two trials of a log-out is longer than three weeks"};
inline constexpr Setting kExpand{.section = "iLo",
                                 .key = "expand",
                                 .kind = SettingKind::kFlag,
                                 .meaning = "Ask the controller for collections with their members in place.",
                                 .absent = 1};
inline constexpr Setting kReportExisting{
    .section = "iLo",
    .key = "report existing",
    .kind = SettingKind::kFlag,
    .meaning = "Report states that began while nobody watched: before the service, or between two sessions.",
    .absent = 0};
inline constexpr Setting kSerialLogInterval{
    .section = "serial log",
    .key = "interval",
    .kind = SettingKind::kUnsigned,
    .meaning = "Pause between two savings of the Smart Array diagnostic archive.",
    .unit = "minutes",
    .absent = 10080,
    .least = 60,
    .most = 10080};
inline constexpr Setting kMaxFileCount{.section = "serial log",
                                       .key = "max file count",
                                       .kind = SettingKind::kUnsigned,
                                       .meaning = "Number of diagnostic archives kept.",
                                       .unit = "archives",
                                       .absent = 100,
                                       .least = 10,
                                       .most = 200};
inline constexpr Setting kMediaErrorCheck{.section = "media error",
                                          .key = "check",
                                          .kind = SettingKind::kFlag,
                                          .meaning = "Search for medium errors.",
                                          .absent = 1};
// Its milliseconds have to fit 31 bits, the longest wait there is.
inline constexpr Setting kMediaErrorInterval{.section = "media error",
                                             .key = "interval",
                                             .kind = SettingKind::kUnsigned,
                                             .meaning = "Pause between two searches for medium errors.",
                                             .unit = "minutes",
                                             .absent = 60,
                                             .least = 1,
                                             .most = INT32_MAX / 60000,
                                             .isHeld = false,
                                             .ifZero = "one search follows the other without a pause",
                                             .toMilliseconds = &MediaErrorWait};
inline constexpr Setting kReportControllerFailures{
    .section = "iLO host",
    .key = "report",
    .kind = SettingKind::kFlag,
    .meaning = "Report a failed login to the controller to the system log.",
    .absent = 1};

// All of them, in the order of the sample configuration.
inline constexpr const Setting* kSettings[] = {
    &kMaxLogSize,
    &kControllerInterval,
    &kControllerUrl,
    &kCaFile,
    &kAccount,
    &kPassword,
    &kMaxTrials,
    &kTrialInterval,
    &kExpand,
    &kReportExisting,
    &kSerialLogInterval,
    &kMaxFileCount,
    &kMediaErrorCheck,
    &kMediaErrorInterval,
    &kReportControllerFailures,
};

// What the file says, as the service reads it: no range applied. Each is for settings of its kind.
std::int32_t ReadSigned(const tovaserverutil::Profile& profile, const Setting& setting);
std::uint32_t ReadUnsigned(const tovaserverutil::Profile& profile, const Setting& setting);
std::string ReadText(const tovaserverutil::Profile& profile, const Setting& setting);
bool ReadFlag(const tovaserverutil::Profile& profile, const Setting& setting);

// What the service makes of a number read with ReadUnsigned or ReadSigned (cast): the nearest end of the
// range where its user holds it to one, else the number.
std::int64_t EffectiveNumber(const Setting& setting, std::int32_t read);

}  // namespace tova_service
