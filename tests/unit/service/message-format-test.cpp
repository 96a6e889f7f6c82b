#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <stdexcept>

#include "service-fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using tovaevent::EvtData;
using Texts = std::vector<std::string>;

class MessageFormat : public testing::Test {
protected:
    MessageFormat() : parameter(root.Initialized()) {}
    ~MessageFormat() override { parameter->Finalize(); }  // before the sink goes

    void UseCatalogue(const std::string& content) {
        root.Write("opt/bin/bayward.msg", content);
        parameter->PrepareMessage();
        tova_service::system_info info(root.path());
        parameter->PrepareSysLog(info, sink);
        known = root.LogLines().size();
    }

    void Report(std::uint32_t id, const Texts& raw, const std::string& language = "default") {
        EvtData event(id);
        for (const std::string& text : raw) {
            event.AddParameter(text);
        }
        parameter->EventToLog(language, event);
    }

    // The trace lines written since the catalogue was loaded.
    Texts NewLines() const {
        Texts lines = root.LogLines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(known));
        return lines;
    }

    std::string Expand(std::string text, Texts params = {}) {
        std::string out = "<";
        parameter->Format(out, text, params);
        EXPECT_EQ(out.front(), '<') << "the result is appended";
        return out.substr(1);
    }

    ServiceRoot root;
    RecordingSink sink;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    std::size_t known = 0;
};

TEST_F(MessageFormat, Format_InsertsParametersByPosition) {
    EXPECT_EQ(Expand("%2 and %1.", {"a", "b"}), "b and a.");
    EXPECT_EQ(Expand("%1%1%1", {"a"}), "aaa");
    EXPECT_EQ(Expand("plain"), "plain");
    EXPECT_EQ(Expand(""), "");
}

TEST_F(MessageFormat, Format_PositionsThatDoNotExistInsertNothing) {
    const Texts nine(9, "x");
    EXPECT_EQ(Expand("a%10b", nine), "ab");
    EXPECT_EQ(Expand("a%0b", nine), "ab");
    EXPECT_EQ(Expand("a%1b"), "ab");
    EXPECT_EQ(Expand("a%99999999999999999999999999999b", nine), "ab");
    EXPECT_EQ(Expand("a%18446744073709551617b", nine), "ab");  // 2^64 + 1 is not position 1
}

TEST_F(MessageFormat, Format_ReadsAllDigits) {
    Texts twelve(12, "-");
    twelve[11] = "twelfth";
    EXPECT_EQ(Expand("%12", twelve), "twelfth");
    EXPECT_EQ(Expand("%0012", twelve), "twelfth");
    EXPECT_EQ(Expand("%12n3", twelve), "twelfthn3");
}

TEST_F(MessageFormat, Format_KnowsLineFeedAndPercentSign) {
    EXPECT_EQ(Expand("a%nb"), "a\nb");
    EXPECT_EQ(Expand("100%%"), "100%");
    EXPECT_EQ(Expand("%%1", {"x"}), "%1");
    EXPECT_EQ(Expand("%%%1", {"x"}), "%x");
}

TEST_F(MessageFormat, Format_UnknownPlaceholdersDisappear) {
    EXPECT_EQ(Expand("%x"), "x");
    EXPECT_EQ(Expand("%s%d"), "sd");
    EXPECT_EQ(Expand("end%"), "end");
    EXPECT_EQ(Expand("%"), "");
    EXPECT_EQ(Expand("% 1", {"x"}), " 1");
    EXPECT_EQ(Expand("%\xE6\x97\xA5"), "\xE6\x97\xA5");
}

TEST_F(MessageFormat, Format_InsertedTextIsNotExpandedAgain) {
    EXPECT_EQ(Expand("%1", {"%1 %n %% %s"}), "%1 %n %% %s");
}

TEST_F(MessageFormat, FormatLog_ShowsNumberIdentifierAndParameters) {
    std::string line = "old";
    Texts none;
    EXPECT_TRUE(parameter->FormatLog(line, 0xC00081D1, none));
    EXPECT_EQ(line, "<VK0465> [EV] 0xc00081d1 reported.");
    Texts two{"CTRL(a)", "LD(1)"};
    EXPECT_TRUE(parameter->FormatLog(line, 0x800081BB, two));
    EXPECT_EQ(line, "<VK0443> [EV] 0x800081bb CTRL(a) LD(1) reported.");
    EXPECT_TRUE(parameter->FormatLog(line, 0xC0008007, none));
    EXPECT_EQ(line, "<VK0007> [EV] 0xc0008007 reported.");
    EXPECT_TRUE(parameter->FormatLog(line, 0xFFFFFFFFC00081D1, none));
    EXPECT_EQ(line, "<VK0465> [EV] 0xc00081d1 reported.");
}

TEST_F(MessageFormat, PrepareMessage_WritesItsLine) {
    parameter->PrepareMessage();
    EXPECT_EQ(root.LogLines().back(), "<VK0900> [TR] PrepareMessage succeeded.");
}

TEST_F(MessageFormat, MissingCatalogue_ThrowsCode15) {
    std::filesystem::remove(root / "opt/bin/bayward.msg");
    try {
        parameter->PrepareMessage();
        FAIL() << "nothing thrown";
    } catch (const tovabase::TOVAExcpt& failure) {
        EXPECT_EQ(failure.code(), 15);
        EXPECT_THAT(failure.text(), MatchesRegex(".* [0-9]+ \\(Err: 2 FileName: bayward.msg\\)"));
    }
    EXPECT_THAT(root.LogLines(), ElementsAre("<VK0900> [TR] Initialize succeeded."));
}

TEST_F(MessageFormat, Keys_AreHexadecimalAndTheLaterOneWins) {
    UseCatalogue("[default]\nC00081D1=upper\nc00081d1=lower\n0x800081BB=%1%2 prefixed\n");
    Report(0xC00081D1, {});
    Report(0x800081BB, {"a", "1"});
    EXPECT_THAT(sink.entries,
                ElementsAre(Pair(LOG_ERR, "lower"), Pair(LOG_WARNING, "CTRL(a)LD(1) prefixed")));
}

TEST_F(MessageFormat, SameKeyTwice_GivesTheFirstText) {
    UseCatalogue("[default]\nC00081D1=first\nC00081D1=second\n");
    Report(0xC00081D1, {});
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_ERR, "first")));
}

TEST_F(MessageFormat, KeySpeltTwoWays_TakesTheLastKeysFirstText) {
    UseCatalogue("[default]\nC00081D1=a\nc00081d1=b\nC00081D1=c\n");
    Report(0xC00081D1, {});
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_ERR, "a")));
}

TEST_F(MessageFormat, KeyInALaterSectionOfTheSameNameOnly_HasAnEmptyText) {
    UseCatalogue("[default]\n800081BB=x\n[default]\nC00081D1=never shown\n");
    Report(0xC00081D1, {});
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(NewLines(), ElementsAre("<VK0465> [EV] 0xc00081d1 reported."));
}

TEST_F(MessageFormat, Language_IsPreferredAndDefaultStandsIn) {
    UseCatalogue("[default]\nC00081D1=default text\n800081BB=only default\n[ja_JP]\nC00081D1=other text\n");
    Report(0xC00081D1, {}, "ja_JP");
    Report(0xC00081D1, {}, "default");
    Report(0xC00081D1, {}, "fr_FR");
    Report(0x800081BB, {"a", "1"}, "ja_JP");
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_ERR, "other text"), Pair(LOG_ERR, "default text"),
                                          Pair(LOG_ERR, "default text"), Pair(LOG_WARNING, "only default")));
}

TEST_F(MessageFormat, NoTextAtAll_WritesNothingAnywhere) {
    UseCatalogue("[ja_JP]\nC00081D1=text\n[default]\n800081BB=text\n");
    Report(0xC00081D1, {}, "default");
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(MessageFormat, EachListedIdentifier_IsDecoratedBySubjectAndTraced) {
    struct Case {
        std::uint32_t id;
        const char* sentence;
        int priority;
        const char* trace;
    };
    const char* const kLogical = "CTRL(c)|LD(l)|";
    const char* const kPhysical = "CTRL(c)|PD(l)| d";
    const Case cases[] = {
        {0xC00081B7, kLogical, LOG_ERR, "<VK0439> [EV] 0xc00081b7 CTRL(c) LD(l) reported."},
        {0xC00081B9, kLogical, LOG_ERR, "<VK0441> [EV] 0xc00081b9 CTRL(c) LD(l) reported."},
        {0xC00081BA, kLogical, LOG_ERR, "<VK0442> [EV] 0xc00081ba CTRL(c) LD(l) reported."},
        {0x800081BB, kLogical, LOG_WARNING, "<VK0443> [EV] 0x800081bb CTRL(c) LD(l) reported."},
        {0x80008152, kPhysical, LOG_WARNING, "<VK0338> [EV] 0x80008152 CTRL(c) PD(l)  d reported."},
        {0x80008154, kPhysical, LOG_WARNING, "<VK0340> [EV] 0x80008154 CTRL(c) PD(l)  d reported."},
        {0x80008159, kPhysical, LOG_WARNING, "<VK0345> [EV] 0x80008159 CTRL(c) PD(l)  d reported."},
        {0x8000815B, kPhysical, LOG_WARNING, "<VK0347> [EV] 0x8000815b CTRL(c) PD(l)  d reported."},
        {0xC0008151, kPhysical, LOG_ERR, "<VK0337> [EV] 0xc0008151 CTRL(c) PD(l)  d reported."},
        {0xC0008153, kPhysical, LOG_ERR, "<VK0339> [EV] 0xc0008153 CTRL(c) PD(l)  d reported."},
        {0xC0008155, kPhysical, LOG_ERR, "<VK0341> [EV] 0xc0008155 CTRL(c) PD(l)  d reported."},
        {0xC00081D1, "||", LOG_ERR, "<VK0465> [EV] 0xc00081d1 reported."},
    };
    std::ostringstream catalogue;
    catalogue << "[default]\n" << std::hex;
    for (const Case& expected : cases) {
        catalogue << expected.id << "=%1|%2|%3\n";
    }
    UseCatalogue(catalogue.str());
    for (const Case& expected : cases) {
        sink.entries.clear();
        known = root.LogLines().size();
        Report(expected.id, {"c", "l", "d", "surplus"});
        Report(expected.id, {"c", "l", "d", "surplus"}, "ja_JP");  // has no text of its own here
        const auto entry = Pair(expected.priority, expected.sentence);
        EXPECT_THAT(sink.entries, ElementsAre(entry, entry)) << expected.trace;
        EXPECT_THAT(NewLines(), ElementsAre(expected.trace, expected.trace));
    }
}

TEST_F(MessageFormat, UnlistedIdentifiers_WriteNothing) {
    UseCatalogue("[default]\n40000001=x\nC00081B8=x\nC0008150=x\n0=x\n40008151=x\n");
    for (const std::uint32_t id : {0x40000001u, 0xC00081B8u, 0xC0008150u, 0u, 0x40008151u}) {
        Report(id, {"c", "l", "d"});
    }
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(MessageFormat, TooFewParameters_ThrowOutOfRangeAndWriteNothing) {
    UseCatalogue("[default]\nC00081B7=x\nC0008151=x\n");
    EXPECT_THROW(Report(0xC00081B7, {}), std::out_of_range);
    EXPECT_THROW(Report(0xC00081B7, {"c"}), std::out_of_range);
    EXPECT_THROW(Report(0xC0008151, {"c", "l"}), std::out_of_range);
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(NewLines(), IsEmpty());
    Report(0xC00081B7, {"c", "l"});
    EXPECT_EQ(sink.entries.size(), 1u);
}

TEST_F(MessageFormat, HostileParameters_NeverActAsFormats) {
    UseCatalogue("[default]\nC0008151=%1 %2%3\n");
    Report(0xC0008151, {"%s%n%1", "%2%%", "%d"});
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_ERR, "CTRL(%s%n%1) PD(%2%%) %d")));
    EXPECT_THAT(NewLines(), ElementsAre("<VK0337> [EV] 0xc0008151 CTRL(%s%n%1) PD(%2%%)  %d reported."));
}

TEST_F(MessageFormat, LineFeedPlaceholder_GivesTwoEntries) {
    UseCatalogue("[default]\nC00081D1=one%ntwo\n");
    Report(0xC00081D1, {});
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_ERR, "one"), Pair(LOG_ERR, "two")));
}

TEST_F(MessageFormat, SentenceThatCannotBeConverted_IsTracedAndTheEventLineFollows) {
    root.Write("etc/locale.conf", "LANG=ja_JP.eucJP\n");
    UseCatalogue("[default]\nC00081D1=\xF0\x9F\x98\x80\n");  // a character that EUC-JP lacks
    Report(0xC00081D1, {});
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(
        NewLines(),
        ElementsAre(MatchesRegex("<VK0902> \\[ER\\] [a-z-]+ [0-9]+ \\(Err: sys-log [0-9]+ \\(Err: 84\\)\\)"),
                    "<VK0465> [EV] 0xc00081d1 reported."));
}

class BrokenSink : public RecordingSink {
public:
    void Write(int, const char*) override { throw std::runtime_error("broken"); }
};

TEST_F(MessageFormat, OtherFailureOfTheSystemLog_GoesToTheCaller) {
    BrokenSink broken;
    UseCatalogue("[default]\nC00081D1=text\n");
    tova_service::system_info info(root.path());
    parameter->PrepareSysLog(info, broken);
    known = root.LogLines().size();
    EXPECT_THROW(Report(0xC00081D1, {}), std::runtime_error);
    EXPECT_THAT(NewLines(), IsEmpty());
    parameter->Finalize();
}

TEST(EvtData, Identifier_IsTheLow32BitsAndParametersKeepOrder) {
    EvtData event;
    EXPECT_EQ(event.Id(), 0u);
    event.SetId(0xC00081D1);
    event.AddParameter("one");
    event.AddParameter("two");
    EXPECT_EQ(event.Id(), 0xC00081D1u);
    EXPECT_THAT(event.Parameters(), ElementsAre("one", "two"));
}

}  // namespace
