#include "system-info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "server-util.h"
#include "test-root.h"

namespace {

using testing::MatchesRegex;
using tova_service::system_info;

struct Detected {
    std::string region;
    std::string codePage;
    bool operator==(const Detected&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Detected& detected) {
    return out << detected.region << "/" << detected.codePage;
}

Detected Detect(const TestRoot& root) {
    const system_info info(root.path());
    return {info.get_country_region(), info.get_code_page()};
}

Detected DetectLocaleConf(const std::string& content) {
    const TestRoot root;
    root.Write("etc/locale.conf", content);
    return Detect(root);
}

std::string FailureOf(const TestRoot& root) {
    try {
        Detect(root);
    } catch (const tovabase::TOVAExcpt& failure) {
        EXPECT_EQ(failure.code(), 0x10001);
        return failure.text();
    }
    return "";
}

const Detected kDefault{"default", ""};
const Detected kJapanese{"ja_JP", ""};
const Detected kJapaneseEuc{"ja_JP", "eucJP"};

TEST(SystemInfo, HostName_IsTheSystems) {
    const TestRoot root;
    root.Write("etc/locale.conf", "");
    char name[256] = {};
    gethostname(name, sizeof name);
    EXPECT_STREQ(system_info(root.path()).get_host_name(), name);
}

TEST(SystemInfo, LocaleLine_DecidesLanguageAndCodePage) {
    EXPECT_EQ(DetectLocaleConf("LANG=ja_JP.eucJP\n"), kJapaneseEuc);
    EXPECT_EQ(DetectLocaleConf("LANG=\"ja_JP.eucJP\"\n"), kJapaneseEuc);
    EXPECT_EQ(DetectLocaleConf("LANG='ja_JP.eucJP@x'"), kJapaneseEuc);
    EXPECT_EQ(DetectLocaleConf("LANG=ja_JP.UTF-8\n"), kJapanese);
    EXPECT_EQ(DetectLocaleConf("LANG=ja_JP.eucjp\n"), kJapanese);
    EXPECT_EQ(DetectLocaleConf("LANG=ja_JP\n"), kJapanese);
    EXPECT_EQ(DetectLocaleConf("LANG=en_US.UTF-8\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf("LANG=en_US.eucJP\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf(""), kDefault);
}

TEST(SystemInfo, OnlyTheFirstDot_IsLookedAt) {
    EXPECT_EQ(DetectLocaleConf("LANG=ja_JP.UTF-8.eucJP\n"), kJapanese);
}

TEST(SystemInfo, VariableName_IsAPlainPrefix) {
    EXPECT_EQ(DetectLocaleConf("LANGUAGE=ja_JP.eucJP\n"), kJapaneseEuc);
    EXPECT_EQ(DetectLocaleConf(" LANG=ja_JP.eucJP\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf("export LANG=ja_JP.eucJP\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf("#LANG=ja_JP.eucJP\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf("LC_ALL=ja_JP.eucJP\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf("RC_LANG=ja_JP.eucJP\n"), kDefault);
}

TEST(SystemInfo, LaterLines_NeverTakeAnythingBack) {
    EXPECT_EQ(DetectLocaleConf("LANG=ja_JP.eucJP\nLANG=en_US.UTF-8\nLANG=ja_JP.UTF-8\n"), kJapaneseEuc);
    EXPECT_EQ(DetectLocaleConf("LC_TIME=C\nLANG=ja_JP.UTF-8\nLANG=ja_JP.eucJP\n"), kJapaneseEuc);
}

TEST(SystemInfo, LineLongerThanTheBuffer_IsReadInPieces) {
    EXPECT_EQ(DetectLocaleConf("LANG=" + std::string(2000, 'x') + "ja_JP.eucJP\n"), kDefault);
    EXPECT_EQ(DetectLocaleConf(std::string(1023, 'x') + "LANG=ja_JP.eucJP\n"), kJapaneseEuc);
}

TEST(SystemInfo, LocaleFile_IsTheOneThatTheDetectionReads) {
    const TestRoot root;
    EXPECT_STREQ(system_info::LocaleFile(root.path()), "/etc/sysconfig/i18n");
    root.Write("etc/os-release", "");
    EXPECT_STREQ(system_info::LocaleFile(root.path()), "/etc/default/locale");
    root.Write("etc/locale.conf", "");
    EXPECT_STREQ(system_info::LocaleFile(root.path()), "/etc/locale.conf");
    root.Write("etc/SuSE-release", "");
    EXPECT_STREQ(system_info::LocaleFile(root.path()), "/etc/sysconfig/language");
}

TEST(SystemInfo, SuseSystem_IsReadThroughItsOwnVariable) {
    const TestRoot root;
    root.Write("etc/SuSE-release", "");
    root.Write("etc/locale.conf", "LANG=en_US.UTF-8\n");
    root.Write("etc/os-release", "");
    root.Write("etc/sysconfig/language", "LANG=\"en_US\"\nRC_LANG=\"ja_JP.eucJP\"\n");
    EXPECT_EQ(Detect(root), kJapaneseEuc);
    root.Write("etc/sysconfig/language", "LANG=\"ja_JP.eucJP\"\n");
    EXPECT_EQ(Detect(root), kDefault);
}

TEST(SystemInfo, LocaleConf_GoesBeforeOsRelease) {
    const TestRoot root;
    root.Write("etc/locale.conf", "LANG=ja_JP.UTF-8\n");
    root.Write("etc/os-release", "");
    root.Write("etc/default/locale", "LANG=en_US.UTF-8\n");
    EXPECT_EQ(Detect(root), kJapanese);
}

TEST(SystemInfo, OsRelease_LeadsToDefaultLocale) {
    const TestRoot root;
    root.Write("etc/os-release", "");
    root.Write("etc/default/locale", "LANG=ja_JP.eucJP\n");
    root.Write("etc/sysconfig/i18n", "LANG=en_US.UTF-8\n");
    EXPECT_EQ(Detect(root), kJapaneseEuc);
}

TEST(SystemInfo, NoMarker_LeadsToI18n) {
    const TestRoot root;
    root.Write("etc/sysconfig/i18n", "LANG=\"ja_JP.UTF-8\"\n");
    EXPECT_EQ(Detect(root), kJapanese);
}

TEST(SystemInfo, ChosenFileMissing_ThrowsWithItsPath) {
    const TestRoot root;
    EXPECT_THAT(FailureOf(root),
                MatchesRegex("system-info [0-9]+ \\(Err: 2, lang_path: .*/etc/sysconfig/i18n\\)"));
    root.Write("etc/sysconfig/i18n", "LANG=ja_JP.UTF-8\n");
    root.Write("etc/os-release", "");  // the choice does not fall back to the readable file
    EXPECT_THAT(FailureOf(root),
                MatchesRegex("system-info [0-9]+ \\(Err: 2, lang_path: .*/etc/default/locale\\)"));
    root.Write("etc/SuSE-release", "");
    std::filesystem::remove_all(root / "etc/sysconfig");
    EXPECT_THAT(FailureOf(root),
                MatchesRegex("system-info [0-9]+ \\(Err: 2, lang_path: .*/etc/sysconfig/language\\)"));
}

}  // namespace
