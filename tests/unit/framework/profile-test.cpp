#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server-profile.h"
#include "test-io.h"
#include "test-root.h"

namespace {

using testing::ElementsAre;
using testing::Pair;
using tovaserverutil::Profile;

// A profile that has read the given content.
class Parsed {
public:
    explicit Parsed(const std::string& content) {
        m_root.Write("file", content);
        m_profile = std::make_unique<Profile>(m_root / "file");
        m_profile->ReadProfile();
    }
    const Profile* operator->() const { return m_profile.get(); }

private:
    TestRoot m_root;
    std::unique_ptr<Profile> m_profile;
};

TEST(Profile, SectionsAndEntries_KeepFileOrder) {
    const Parsed profile("[b]\ntwo=2\none=1\n[a]\nthree=3\n");
    ASSERT_EQ(profile->sections().size(), 2u);
    EXPECT_EQ(profile->sections()[0].name, "b");
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("two", "2"), Pair("one", "1")));
    EXPECT_EQ(profile->sections()[1].name, "a");
}

TEST(Profile, DuplicateKeys_AreKeptAndTheFirstAnswers) {
    const Parsed profile("[a]\nk=1\nk=2\n");
    EXPECT_EQ(profile->sections()[0].entries.size(), 2u);
    EXPECT_EQ(*profile->Find("a", "k"), "1");
}

TEST(Profile, DuplicateSections_AreKeptAndOnlyTheFirstIsSearched) {
    const Parsed profile("[a]\nk=1\n[a]\nk=2\nlater=3\n");
    EXPECT_EQ(profile->sections().size(), 2u);
    EXPECT_EQ(*profile->Find("a", "k"), "1");
    EXPECT_EQ(profile->Find("a", "later"), nullptr);
}

TEST(Profile, FirstOfDuplicateSectionsIsEmpty_HidesTheSecond) {
    const Parsed profile("[a]\n[a]\nk=2\n");
    EXPECT_EQ(profile->Find("a", "k"), nullptr);
}

TEST(Profile, EntriesBeforeAnyHeader_AreDropped) {
    const Parsed profile("k=0\n[a]\nk=1\n");
    ASSERT_EQ(profile->sections().size(), 1u);
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("k", "1")));
}

TEST(Profile, HeaderWithoutName_DropsItsEntries) {
    const Parsed profile("[]\nk=0\n[a]\nk=1\n");
    ASSERT_EQ(profile->sections().size(), 1u);
    EXPECT_EQ(profile->Find("", "k"), nullptr);
}

TEST(Profile, HeaderText_IsTakenUntrimmedUpToTheFirstBracket) {
    const Parsed profile("[ a b ] rest]\nk=1\n[c]x=5\nk=2\n");
    EXPECT_EQ(*profile->Find(" a b ", "k"), "1");
    EXPECT_EQ(profile->Find("a b", "k"), nullptr);
    EXPECT_EQ(*profile->Find("c", "k"), "2");
    EXPECT_EQ(profile->sections()[1].entries.size(), 1u);
}

TEST(Profile, BracketLineWithoutClosingBracket_IsIgnored) {
    const Parsed profile("[a]\nk=1\n[broken=5\nl=2\n");
    ASSERT_EQ(profile->sections().size(), 1u);
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("k", "1"), Pair("l", "2")));
}

TEST(Profile, NumberSignInFirstColumn_IsAComment) {
    const Parsed profile("[a]\n#max trials=5\n #max trials=6\nk=1#2\n");
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair(" #max trials", "6"), Pair("k", "1#2")));
    EXPECT_EQ(profile->ReadSigned("a", "max trials", 100), 100);
}

TEST(Profile, KeyAndValue_AreNotTrimmed) {
    const Parsed profile("[a]\nmax log size = 8192\n b=c \n");
    EXPECT_EQ(profile->Find("a", "max log size"), nullptr);
    EXPECT_EQ(*profile->Find("a", "max log size "), " 8192");
    EXPECT_EQ(*profile->Find("a", " b"), "c ");
}

TEST(Profile, Value_MayHoldFurtherEqualsSigns) {
    const Parsed profile("[a]\nk=x=y=\n=empty key\n");
    EXPECT_EQ(*profile->Find("a", "k"), "x=y=");
    EXPECT_EQ(*profile->Find("a", ""), "empty key");
}

TEST(Profile, LineWithoutEqualsSign_IsAKeyWithEmptyValue) {
    const Parsed profile("[a]\nlone\n");
    ASSERT_NE(profile->Find("a", "lone"), nullptr);
    EXPECT_EQ(*profile->Find("a", "lone"), "");
}

TEST(Profile, CrLf_ReadsLikeLf) {
    const Parsed profile("[a]\r\nk=1\r\n\r\nl=2\r\n");
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("k", "1"), Pair("l", "2")));
}

TEST(Profile, CarriageReturnInsideALine_CutsIt) {
    const Parsed profile("[a]\nk=1\rrest\n");
    EXPECT_EQ(*profile->Find("a", "k"), "1");
}

TEST(Profile, NulByte_CutsItsLineOnly) {
    const Parsed profile(std::string("[a]\nk=1\0rest\nl=2\n", 18));
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("k", "1"), Pair("l", "2")));
}

TEST(Profile, LineOf8191Bytes_IsOneEntry) {
    const std::string value(8191 - 3, 'v');  // "k=", value and line feed fill the buffer
    const Parsed profile("[a]\nk=" + value + "\nl=2\n");
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("k", value), Pair("l", "2")));
}

TEST(Profile, LineFeedThatDoesNotFitTheBuffer_LeavesNoEmptyEntry) {
    const std::string value(8191 - 2, 'v');
    const Parsed profile("[a]\nk=" + value + "\nl=2\n");
    EXPECT_THAT(profile->sections()[0].entries, ElementsAre(Pair("k", value), Pair("l", "2")));
}

TEST(Profile, LineOf8192Bytes_IsReadAsTwo) {
    const std::string value(8191 - 2, 'v');
    const Parsed profile("[a]\nk=" + value + "x=9\nl=2\n");
    EXPECT_THAT(profile->sections()[0].entries,
                ElementsAre(Pair("k", value), Pair("x", "9"), Pair("l", "2")));
}

TEST(Profile, LongLineWhoseSecondPieceIsAHeader_OpensASection) {
    const Parsed profile("[a]\n#" + std::string(8190, 'c') + "[b]\nk=1\n");
    EXPECT_EQ(*profile->Find("b", "k"), "1");
}

TEST(Profile, EmptyFile_HasNoSections) {
    EXPECT_TRUE(Parsed("")->sections().empty());
    EXPECT_TRUE(Parsed("\n\n\r\n")->sections().empty());
}

TEST(Profile, EmptySections_AreKeptExceptTheLast) {
    const Parsed profile("[a]\n[b]\n");
    ASSERT_EQ(profile->sections().size(), 1u);
    EXPECT_EQ(profile->sections()[0].name, "a");
}

TEST(Profile, NoFinalLineFeed_ReadsTheLastLine) {
    EXPECT_EQ(*Parsed("[a]\nk=1")->Find("a", "k"), "1");
}

TEST(Profile, Lookup_IsCaseSensitive) {
    const Parsed profile("[iLo]\nurl=x\n");
    EXPECT_EQ(profile->Find("ilo", "url"), nullptr);
    EXPECT_EQ(profile->Find("iLo", "URL"), nullptr);
    EXPECT_EQ(profile->ReadText("iLo", "url", "d"), "x");
}

TEST(Profile, Numbers_FollowStrtol) {
    const Parsed profile(
        "[a]\nempty=\nword=abc\nlead=12x\nneg=-5\nplus=+6\nblank=  7\nhex=0x10\nbig=4294967297\n"
        "max=4294967295\n");
    EXPECT_EQ(profile->ReadUnsigned("a", "absent", 60000), 60000u);
    EXPECT_EQ(profile->ReadUnsigned("a", "empty", 60000), 60000u);
    EXPECT_EQ(profile->ReadSigned("a", "empty", -1), -1);
    EXPECT_EQ(profile->ReadUnsigned("a", "word", 60000), 0u);
    EXPECT_EQ(profile->ReadUnsigned("a", "lead", 1), 12u);
    EXPECT_EQ(profile->ReadSigned("a", "neg", 1), -5);
    EXPECT_EQ(profile->ReadUnsigned("a", "neg", 1), 0xFFFFFFFBu);
    EXPECT_EQ(profile->ReadSigned("a", "plus", 1), 6);
    EXPECT_EQ(profile->ReadSigned("a", "blank", 1), 7);
    EXPECT_EQ(profile->ReadSigned("a", "hex", 1), 0);
    EXPECT_EQ(profile->ReadUnsigned("a", "big", 5), 1u);
    EXPECT_EQ(profile->ReadUnsigned("a", "max", 5), 0xFFFFFFFFu);
    EXPECT_EQ(profile->ReadUnsigned("a", "absent", 0xFFFFFFFF), 0xFFFFFFFFu);
}

TEST(Profile, Text_EmptyIsNotAbsent) {
    const Parsed profile("[a]\nempty=\n");
    EXPECT_EQ(profile->ReadText("a", "empty", "default"), "");
    EXPECT_EQ(profile->ReadText("a", "absent", "default"), "default");
}

TEST(Profile, Flag_IsOffForTheExactTextFalseOnly) {
    const Parsed profile("[a]\nf=false\nupper=FALSE\nzero=0\nempty=\nblank=false \n");
    EXPECT_FALSE(profile->ReadFlag("a", "f"));
    for (const char* key : {"upper", "zero", "empty", "blank", "absent"}) {
        EXPECT_TRUE(profile->ReadFlag("a", key)) << key;
    }
}

TEST(Profile, MissingFile_ThrowsCode15WithErrorAndPath) {
    const TestRoot root;
    Profile profile(root / "none%s");
    int code = 0;
    const std::string text = FailureText([&] { profile.ReadProfile(); }, &code);
    EXPECT_EQ(code, 15);
    EXPECT_THAT(text, testing::MatchesRegex("server-profile [0-9]+ \\(Err: 2 FileName: .*/none%s\\)"));
    EXPECT_TRUE(profile.sections().empty());
}

TEST(Profile, Directory_ReadsAsEmpty) {
    const TestRoot root;
    Profile profile(root.path());
    profile.ReadProfile();
    EXPECT_TRUE(profile.sections().empty());
}

TEST(Profile, ReadAgain_ReplacesTheSections) {
    const TestRoot root;
    root.Write("file", "[a]\nk=1\n");
    Profile profile(root / "file");
    profile.ReadProfile();
    root.Write("file", "[b]\nk=2\n");
    profile.ReadProfile();
    ASSERT_EQ(profile.sections().size(), 1u);
    EXPECT_EQ(*profile.Find("b", "k"), "2");
}

}  // namespace
