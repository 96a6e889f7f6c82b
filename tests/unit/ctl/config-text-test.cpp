#include "config-text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "server-profile.h"
#include "test-root.h"

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

TEST(ConfigText, Lines_KnowTheirNumberAndSection) {
    const ConfigText text("lost=1\n[iLo]\n# comment\n\ninterval=5\n[serial log] tail\nkey");
    const auto& lines = text.lines();
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_EQ(lines[0].section, "");
    EXPECT_EQ(lines[0].ordinal, 0U);
    EXPECT_EQ(lines[1].kind, ConfigLine::Kind::kHeader);
    EXPECT_EQ(lines[2].kind, ConfigLine::Kind::kNothing);
    EXPECT_EQ(lines[3].kind, ConfigLine::Kind::kNothing);
    EXPECT_EQ(lines[4].number, 5);
    EXPECT_EQ(lines[4].section, "iLo");
    EXPECT_EQ(lines[4].key, "interval");
    EXPECT_EQ(lines[4].value, "5");
    EXPECT_EQ(lines[5].behind, " tail");
    EXPECT_EQ(lines[6].key, "key");
    EXPECT_FALSE(lines[6].hasEquals);
}

TEST(ConfigText, LongLine_ComesInPiecesOfOneNumber) {
    const ConfigText text("[iLo]\nurl=" + std::string(8191, 'x') + "\nmax trials=3\n");
    const auto& lines = text.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_TRUE(lines[1].goesOn);
    EXPECT_EQ(lines[1].value.size(), 8187U);
    EXPECT_TRUE(lines[2].isPiece);
    EXPECT_EQ(lines[2].number, 2);
    EXPECT_EQ(lines[2].key, "xxxx");
    EXPECT_EQ(lines[3].number, 3);
}

TEST(ConfigText, LineThatFillsTheReader_DoesNotGoOn) {
    const ConfigText text(std::string(8191, 'x') + "\r\n");
    EXPECT_FALSE(text.lines()[0].goesOn);
}

TEST(ConfigText, LineEnds_AreToldFromDroppedText) {
    const ConfigText text(std::string("a=1\r\nb=1\rc=2\nd=1\0e\nf=1\r", 23));
    const auto& lines = text.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_TRUE(lines[0].carriageReturn);
    EXPECT_FALSE(lines[0].dropped);
    EXPECT_FALSE(lines[1].carriageReturn);
    EXPECT_TRUE(lines[1].dropped);
    EXPECT_EQ(lines[1].value, "1");
    EXPECT_TRUE(lines[2].dropped);
    EXPECT_TRUE(lines[3].carriageReturn);
}

TEST(ConfigText, FindEntry_IsTheFirstOfTheFirstSection) {
    const ConfigText text("[iLo]\nurl=1\nurl=2\n[iLo]\naccount=3\n[]\nnameless=4\n");
    EXPECT_EQ(text.FindEntry("iLo", "url")->number, 2);
    EXPECT_EQ(text.FindEntry("iLo", "account"), nullptr);
    EXPECT_EQ(text.FindEntry("ilo", "url"), nullptr);
    EXPECT_EQ(text.FindEntry("", "nameless"), nullptr);
}

TEST(ConfigText, EmptyFile_HasNoLines) {
    EXPECT_TRUE(ConfigText("").lines().empty());
}

// Random texts out of the pieces that matter to the reader, some of them long.
std::string RandomText(std::mt19937& random) {
    static const std::string kPieces[] = {"[",
                                          "]",
                                          "[a]",
                                          "[b]",
                                          "=",
                                          "#",
                                          "k",
                                          "v",
                                          " ",
                                          "\n",
                                          "\n",
                                          "\r",
                                          "\r\n",
                                          "[]",
                                          "k=1",
                                          "l",
                                          "\t",
                                          std::string(1, '\0'),
                                          std::string(8190, 'x')};
    std::uniform_int_distribution<std::size_t> which(0, std::size(kPieces) - 1);
    std::string text;
    for (int i = 0; i < 60; ++i) {
        text += kPieces[which(random)];
    }
    return text;
}

TEST(ConfigText, WhateverTheFile_FindsWhatTheServicesReaderFinds) {
    std::mt19937 random(4711);
    const TestRoot root;
    std::size_t found = 0;
    for (int round = 0; round < 500; ++round) {
        const std::string content = RandomText(random);
        root.Write("conf", content);
        tovaserverutil::Profile profile(root / "conf");
        profile.ReadProfile();
        const ConfigText text(content);
        for (const ConfigLine& line : text.lines()) {
            if (line.kind != ConfigLine::Kind::kEntry) {
                continue;
            }
            const ConfigLine* const entry = text.FindEntry(line.section, line.key);
            const std::string* const value = profile.Find(line.section, line.key);
            ASSERT_EQ(entry == nullptr, value == nullptr) << content;
            if (entry != nullptr) {
                ASSERT_EQ(entry->value, *value) << content;
                ++found;
            }
        }
        for (const auto& section : profile.sections()) {
            for (const auto& entry : section.entries) {
                const std::string* const value = profile.Find(section.name, entry.first);
                ASSERT_EQ(value == nullptr, text.FindEntry(section.name, entry.first) == nullptr) << content;
            }
        }
    }
    EXPECT_GT(found, 1000U);
}

}  // namespace
