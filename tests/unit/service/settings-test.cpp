#include "settings.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "service-fixture.h"

namespace {

using tova_service::EffectiveNumber;
using tova_service::kSettings;
using tova_service::Setting;
using tova_service::SettingKind;

// The default as it would stand in the file.
std::string AbsentText(const Setting& setting) {
    switch (setting.kind) {
        case SettingKind::kUnsigned:
        case SettingKind::kSigned:
            return std::to_string(setting.absent);
        case SettingKind::kFlag:
            return setting.absent != 0 ? "true" : "false";
        case SettingKind::kText:
        case SettingKind::kSecret:
            break;
    }
    return "";
}

TEST(Settings, SampleConfiguration_HoldsEachInItsSectionWithItsDefault) {
    std::set<std::string> found;
    std::ifstream in(BAYWARD_SOURCE_DIR "/share/bayward.conf");
    std::string section;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("[", 0) == 0) {
            section = line.substr(1, line.find(']') - 1);
        } else if (line.find('=') != std::string::npos && line.rfind("# ", 0) != 0 && !section.empty()) {
            found.insert(section + "/" + (line.front() == '#' ? line.substr(1) : line));
        }
    }
    std::set<std::string> expected;
    for (const Setting* setting : kSettings) {
        expected.insert(std::string(setting->section) + "/" + setting->key + "=" + AbsentText(*setting));
    }
    EXPECT_EQ(found, expected);
}

TEST(Settings, DefaultNumbers_AreInTheirRanges) {
    for (const Setting* setting : kSettings) {
        if (setting->kind == SettingKind::kUnsigned || setting->kind == SettingKind::kSigned) {
            EXPECT_LE(setting->least, setting->absent) << setting->key;
            EXPECT_GE(setting->most, setting->absent) << setting->key;
        }
    }
}

TEST(Settings, EffectiveNumber_IsHeldToTheRangeAsAnUnsignedNumber) {
    EXPECT_EQ(EffectiveNumber(tova_service::kControllerInterval, 5000), 5000);
    EXPECT_EQ(EffectiveNumber(tova_service::kControllerInterval, 1000), 3000);
    EXPECT_EQ(EffectiveNumber(tova_service::kControllerInterval, 7200000), 3600000);
    EXPECT_EQ(EffectiveNumber(tova_service::kControllerInterval, -1), 3600000);
    EXPECT_EQ(EffectiveNumber(tova_service::kSerialLogInterval, 5), 60);
    EXPECT_EQ(EffectiveNumber(tova_service::kMaxFileCount, -1), 200);
}

TEST(Settings, EffectiveNumberWithoutLimits_IsTheNumber) {
    EXPECT_EQ(EffectiveNumber(tova_service::kMediaErrorInterval, 0), 0);
    EXPECT_EQ(EffectiveNumber(tova_service::kMediaErrorInterval, -1), 4294967295);
    EXPECT_EQ(EffectiveNumber(tova_service::kMaxTrials, -3), -3);
    EXPECT_EQ(EffectiveNumber(tova_service::kMaxLogSize, 0), 0);
}

TEST(Settings, FlagThatIsOffByDefault_IsOnWithAnyValueButFalse) {
    const Setting flag{
        .section = "iLo", .key = "flag", .kind = SettingKind::kFlag, .meaning = "", .absent = 0};
    for (const auto& [content, on] :
         {std::pair("[iLo]\n", false), std::pair("[iLo]\nflag=false\n", false),
          std::pair("[iLo]\nflag=\n", true), std::pair("[iLo]\nflag=no\n", true)}) {
        const TestRoot root;
        root.Write("conf", content);
        tovaserverutil::Profile profile(root / "conf");
        profile.ReadProfile();
        EXPECT_EQ(tova_service::ReadFlag(profile, flag), on) << content;
    }
}

}  // namespace
