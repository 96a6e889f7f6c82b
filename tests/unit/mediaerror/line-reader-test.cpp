#include "line-reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "test-root.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using std::string_literals::operator""s;

std::vector<std::string> LinesOf(LineSource& source) {
    std::vector<std::string> lines;
    while (const auto line = source.Next()) {
        lines.emplace_back(*line);
    }
    EXPECT_EQ(source.Next(), std::nullopt);  // the end stays the end
    return lines;
}

// Each line that holds the text and the line behind it, asked for in turn.
std::vector<std::string> AroundEach(LineSource& source, const std::string& text) {
    std::vector<std::string> lines;
    while (const auto with = source.NextWith(text)) {
        EXPECT_NE(with->find(text), std::string_view::npos);
        lines.emplace_back(*with);
        if (const auto behind = source.Next()) {
            lines.emplace_back(*behind);
        }
    }
    EXPECT_EQ(source.NextWith(text), std::nullopt);
    return lines;
}

// Both sources have to cut a text in the same way.
class LineSourceTest : public testing::TestWithParam<bool> {
protected:
    std::vector<std::string> Lines(const std::string& text) { return LinesOf(*Source(text)); }
    std::vector<std::string> LinesAround(const std::string& text, const std::string& key) {
        return AroundEach(*Source(text), key);
    }

private:
    std::unique_ptr<LineSource> Source(const std::string& text) {
        if (!GetParam()) {
            return std::make_unique<TextLines>(text);
        }
        m_root.Write("text", text);
        return FileLines::OpenFirst({m_root / "text"});
    }

    TestRoot m_root;
};

INSTANTIATE_TEST_SUITE_P(, LineSourceTest, testing::Bool(), [](const auto& tested) {
    return std::string(tested.param ? "FileLines" : "TextLines");
});

TEST_P(LineSourceTest, EmptyText_HasNoLines) {
    EXPECT_THAT(Lines(""), IsEmpty());
}

TEST_P(LineSourceTest, Lines_ComeInOrderWithoutTheirEnds) {
    EXPECT_THAT(Lines("one\ntwo\n"), ElementsAre("one", "two"));
}

TEST_P(LineSourceTest, LastLineWithoutLineFeed_IsALine) {
    EXPECT_THAT(Lines("one\ntwo"), ElementsAre("one", "two"));
}

TEST_P(LineSourceTest, EmptyLines_AreLines) {
    EXPECT_THAT(Lines("\n\nx\n\n"), ElementsAre("", "", "x", ""));
}

TEST_P(LineSourceTest, CarriageReturn_BelongsToTheLineEnd) {
    EXPECT_THAT(Lines("one\r\n\r\ntwo\r\nthree\r"), ElementsAre("one", "", "two", "three"));
    EXPECT_THAT(Lines("a\rb\r\r\n"), ElementsAre("a\rb\r"));
}

TEST_P(LineSourceTest, TrailingBlanks_AreCutAndLeadingOnesKept) {
    EXPECT_THAT(Lines("  one \t \r\n \t \n"), ElementsAre("  one", ""));
}

TEST_P(LineSourceTest, AnyByte_MayStandInALine) {
    EXPECT_THAT(Lines("a\0b\n\0\n\xff\xfe%s%n\n"s), ElementsAre("a\0b"s, "\0"s, "\xff\xfe%s%n"));
}

TEST_P(LineSourceTest, NextWith_GivesTheNextLineThatHoldsTheText) {
    const std::string text = "a key\n\nb\n  key \r\nc\nke\ny\nd key\nkey";
    EXPECT_THAT(LinesAround(text, "key"), ElementsAre("a key", "", "  key", "c", "d key", "key"));
    EXPECT_THAT(LinesAround(text, "keys"), IsEmpty());
    EXPECT_THAT(LinesAround("", "key"), IsEmpty());
    EXPECT_THAT(LinesAround("x key", "key"), ElementsAre("x key"));
}

TEST(FileLines, NextWith_FindsWhatLineByLineReadingFinds) {
    const TestRoot root;
    std::mt19937 random(20261121);
    for (int round = 0; round < 40; ++round) {
        // Short lines and lines beyond the limit, the text in any place and often at a line's ends.
        std::string text;
        while (text.size() < 10 * FileLines::kMaxLine) {
            const bool isLong = random() % 50 == 0;
            const std::size_t size = random() % (isLong ? 6 * FileLines::kMaxLine : 2000);
            text +=
                std::string(size, 'x') + (random() % 4 == 0 ? "key" : "") + (random() % 3 == 0 ? "\n" : "k");
        }
        root.Write("text", text);
        const auto lines = FileLines::OpenFirst({root / "text"});
        const auto oneByOne = FileLines::OpenFirst({root / "text"});
        std::size_t found = 0;
        while (const auto line = lines->NextWith("key")) {
            auto expected = oneByOne->Next();
            while (expected && expected->find("key") == std::string_view::npos) {
                expected = oneByOne->Next();
            }
            ASSERT_EQ(line, expected) << round;
            ++found;
            if (random() % 2 == 0) {
                ASSERT_EQ(lines->Next(), oneByOne->Next()) << round;
            }
        }
        EXPECT_GT(found, 0u);
        while (const auto rest = oneByOne->Next()) {
            ASSERT_EQ(rest->find("key"), std::string_view::npos) << round;
        }
    }
}

// What comes next behind the first line when blocks without "key" may be passed over, and what that said.
std::pair<bool, std::optional<std::string>> BehindPassedOver(const std::string& text) {
    const TestRoot root;
    root.Write("text", text);
    const auto lines = FileLines::OpenFirst({root / "text"});
    lines->Next();
    const bool holds = lines->PassOverBlocksWithout("key", "head ");
    const auto line = lines->Next();
    return {holds, line ? std::optional(std::string(*line)) : std::nullopt};
}

TEST(FileLines, BlocksWithoutTheText_ArePassedOver) {
    EXPECT_THAT(BehindPassedOver("head 1\na\nhead 2\nb\nhead 3\nc\nkey\nhead 4\n"), Pair(true, "head 3"));
    EXPECT_THAT(BehindPassedOver("head 1\na\nhead 2 key\nhead 3\n"), Pair(true, "head 2 key"));
}

TEST(FileLines, ABlockWithTheText_IsNotPassedOver) {
    EXPECT_THAT(BehindPassedOver("head 1\na\nkey\nhead 2\nkey\n"), Pair(false, "a"));
    EXPECT_THAT(BehindPassedOver("head 1\nkey\nhead 2\n"), Pair(false, "key"));
    EXPECT_THAT(BehindPassedOver("head 1\na\n head 2\nkey\n"), Pair(false, "a"));  // no head, with a blank
    EXPECT_THAT(BehindPassedOver("head 1\na\nthe head 2\nkey\n"), Pair(false, "a"));
}

TEST(FileLines, TheLastBlockThatHasBegun_IsNeverPassedOver) {
    EXPECT_THAT(BehindPassedOver("head 1\na\nhead 2\nb\nhead 3\nc"), Pair(false, "head 3"));
    EXPECT_THAT(BehindPassedOver("head 1\na\nhead 2\n"), Pair(false, "head 2"));
    EXPECT_THAT(BehindPassedOver("head 1\na\nhead"), Pair(false, "a"));
    EXPECT_THAT(BehindPassedOver("head 1\n\n"), Pair(false, ""));
    EXPECT_THAT(BehindPassedOver("head 1"), Pair(false, std::nullopt));
    // Nor one whose end was not read yet: it may hold the text.
    const std::string filler = std::string(1000, 'x') + '\n';
    std::string text = "head 1\nhead 2\n";
    while (text.size() < 20 * FileLines::kMaxLine) {
        text += filler;
    }
    EXPECT_THAT(BehindPassedOver(text + "key\n"), Pair(false, "head 2"));
}

TEST(TextLines, NothingIsPassedOver) {
    TextLines lines("head 1\na\nhead 2\nkey\n");
    lines.Next();
    EXPECT_FALSE(lines.PassOverBlocksWithout("key", "head "));
    EXPECT_EQ(lines.Next(), "a");
}

TEST(FileLines, FirstPathThatOpens_IsRead) {
    const TestRoot root;
    root.Write("second", "2\n");
    root.Write("third", "3\n");
    const auto lines = FileLines::OpenFirst({root / "first", root / "second", root / "third"});
    ASSERT_NE(lines, nullptr);
    EXPECT_THAT(LinesOf(*lines), ElementsAre("2"));
}

TEST(FileLines, NothingToOpen_GivesNull) {
    const TestRoot root;
    EXPECT_EQ(FileLines::OpenFirst({}), nullptr);
    EXPECT_EQ(FileLines::OpenFirst({root / "first", root / "second"}), nullptr);
}

TEST(FileLines, FoldersAndPipes_ArePassedOver) {
    const TestRoot root;
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(FileLines::OpenFirst({root.path(), root / "pipe"}), nullptr);
}

TEST(FileLines, LinesAcrossTheBuffersEnd_ComeWhole) {
    const TestRoot root;
    std::string text;
    std::vector<std::string> expected;
    for (std::size_t number = 0; text.size() < 20 * FileLines::kMaxLine; ++number) {
        expected.push_back(std::to_string(number) + std::string(number * 7 % 997, 'x'));
        text += expected.back() + "\n";
    }
    root.Write("text", text);
    const auto lines = FileLines::OpenFirst({root / "text"});
    EXPECT_EQ(LinesOf(*lines), expected);
}

TEST(FileLines, LineAtTheLimit_IsCutOnlyBeyondIt) {
    const TestRoot root;
    const std::string longest(FileLines::kMaxLine, 'a');
    root.Write("text", longest + "\n" + longest + "b\n" + "next\n");
    const auto lines = FileLines::OpenFirst({root / "text"});
    EXPECT_THAT(LinesOf(*lines), ElementsAre(longest, longest, "next"));
}

TEST(FileLines, MegabyteLines_GiveTheirBeginningOnly) {
    const TestRoot root;
    const std::string endless(5 * 1024 * 1024 + 3, 'a');
    root.Write("text", "first\n" + endless + "\nsecond\n" + endless);
    const auto lines = FileLines::OpenFirst({root / "text"});
    const std::vector<std::string> all = LinesOf(*lines);
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0], "first");
    EXPECT_EQ(all[1], endless.substr(0, FileLines::kMaxLine));
    EXPECT_EQ(all[2], "second");
    EXPECT_EQ(all[3], endless.substr(0, FileLines::kMaxLine));
}

}  // namespace
