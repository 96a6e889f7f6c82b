#include "sys-log.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>

#include "service-fixture.h"

namespace {

// What reached the C library, whose calls this program replaces below.
std::vector<std::string> libraryCalls;
bool converterFails = false;

}  // namespace

extern "C" {

void openlog(const char* identity, int option, int facility) {
    libraryCalls.push_back("openlog " + std::string(identity) + " " + std::to_string(option) + " " +
                           std::to_string(facility));
}

void syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    libraryCalls.push_back("syslog " + std::to_string(priority) + " " + format + " " +
                           va_arg(args, const char*));
    va_end(args);
}

// The name that hardened builds call.
void __syslog_chk(int priority, int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    libraryCalls.push_back("syslog " + std::to_string(priority) + " " + format + " " +
                           va_arg(args, const char*));
    va_end(args);
}

void closelog() {
    libraryCalls.emplace_back("closelog");
}

iconv_t iconv_open(const char* to, const char* from) {
    if (converterFails) {
        errno = EMFILE;
        return reinterpret_cast<iconv_t>(-1);
    }
    using Function = iconv_t (*)(const char*, const char*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "iconv_open"));
    return real(to, from);
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using tova_service::SysLog;

constexpr unsigned int kError = 0xC00081D1;

class SysLogTest : public testing::Test {
protected:
    ~SysLogTest() override { converterFails = false; }

    std::vector<std::string> Written(const std::string& text, const std::string& code = "",
                                     unsigned int id = kError) {
        sink.entries.clear();
        SysLog("default", code, sink).Write(id, text.c_str());
        std::vector<std::string> texts;
        for (const auto& entry : sink.entries) {
            texts.push_back(entry.second);
        }
        return texts;
    }

    std::string FailureOf(const std::string& text, const std::string& code, unsigned int id = kError) {
        try {
            Written(text, code, id);
        } catch (const tovabase::TOVAExcpt& failure) {
            EXPECT_EQ(failure.code(), 0x10001);
            EXPECT_THAT(sink.entries, IsEmpty());
            return failure.text();
        }
        return "";
    }

    RecordingSink sink;
};

TEST_F(SysLogTest, Lifetime_OpensAsDaemonAndCloses) {
    {
        const SysLog log("ja_JP", "eucJP", sink);
        EXPECT_EQ(log.GetLang(), "ja_JP");
        EXPECT_EQ(log.GetCode(), "eucJP");
        EXPECT_THAT(sink.calls, ElementsAre("open bayward " + std::to_string(LOG_PID) + " " +
                                            std::to_string(LOG_DAEMON)));
    }
    EXPECT_EQ(sink.calls.back(), "close");
}

TEST_F(SysLogTest, TopBits_GiveThePriority) {
    SysLog log("default", "", sink);
    log.Write(0xC00081D1, "error");
    log.Write(0x800081BB, "warning");
    log.Write(0x40008001, "information");
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_ERR, "error"), Pair(LOG_WARNING, "warning"),
                                          Pair(LOG_INFO, "information")));
}

TEST_F(SysLogTest, IdentifierWithoutBit15_IsNotWritten) {
    for (const unsigned int id : {0xC0000001u, 0x80000001u, 0x00000001u, 0u, 0xFFFF7FFFu}) {
        EXPECT_THAT(Written("text", "", id), IsEmpty()) << id;
    }
}

TEST_F(SysLogTest, TopBitsZero_Throws) {
    EXPECT_THAT(FailureOf("text", "", 0x00008001), MatchesRegex("sys-log [0-9]+ \\(EventID: 0x00008001\\)"));
    EXPECT_THAT(FailureOf("text", "", 0x3FFFFFFF), MatchesRegex("sys-log [0-9]+ \\(EventID: 0x3FFFFFFF\\)"));
}

TEST_F(SysLogTest, Text_IsSplitAtLineFeeds) {
    EXPECT_THAT(Written("one\ntwo"), ElementsAre("one", "two"));
    EXPECT_THAT(Written("one\n"), ElementsAre("one"));
    EXPECT_THAT(Written("one\n\ntwo\n"), ElementsAre("one", "", "two"));
    EXPECT_THAT(Written("\none"), ElementsAre("", "one"));
    EXPECT_THAT(Written("\n"), ElementsAre(""));  // an empty line that is ended, not one that follows
    EXPECT_THAT(Written(""), IsEmpty());
}

TEST_F(SysLogTest, TwoLines_HaveTheSamePriority) {
    SysLog log("default", "", sink);
    log.Write(0x800081BB, "one\ntwo");
    EXPECT_THAT(sink.entries, ElementsAre(Pair(LOG_WARNING, "one"), Pair(LOG_WARNING, "two")));
}

TEST_F(SysLogTest, PercentSigns_AreOrdinaryText) {
    EXPECT_THAT(Written("100%s %n"), ElementsAre("100%s %n"));
}

TEST_F(SysLogTest, LongText_IsWrittenWhole) {
    EXPECT_THAT(Written(std::string(100000, 'x')), ElementsAre(std::string(100000, 'x')));
}

TEST_F(SysLogTest, OtherCodePage_LeavesTheTextAlone) {
    const std::string japanese = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E";
    EXPECT_THAT(Written(japanese, ""), ElementsAre(japanese));
    EXPECT_THAT(Written(japanese, "eucJP2"), ElementsAre(japanese));
    EXPECT_THAT(Written(japanese, "EUCJP"), ElementsAre(japanese));
}

TEST_F(SysLogTest, EucCodePage_Converts) {
    EXPECT_THAT(Written("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", "eucJP"),
                ElementsAre("\xC6\xFC\xCB\xDC\xB8\xEC"));
    EXPECT_THAT(Written("\xEF\xBD\xB1", "eucJP"), ElementsAre("\x8E\xB1"));  // a half-width character
    EXPECT_THAT(Written("plain", "eucJP"), ElementsAre("plain"));
    EXPECT_THAT(Written("", "eucJP"), IsEmpty());
    EXPECT_THAT(Written("a\xE6\x97\xA5\n\xE6\x9C\xAC"
                        "b",
                        "eucJP"),
                ElementsAre("a\xC6\xFC",
                            "\xCB\xDC"
                            "b"));
}

TEST_F(SysLogTest, CharacterThatEucLacks_FailsAndWritesNothing) {
    EXPECT_THAT(FailureOf("before \xF0\x9F\x98\x80\nafter", "eucJP"),
                MatchesRegex("sys-log [0-9]+ \\(Err: 84\\)"));
}

TEST_F(SysLogTest, BrokenUtf8_FailsAndWritesNothing) {
    for (const char* text : {"\xFF", "a\xE6\x97", "\xE6\x97\nb", "\x80"}) {
        EXPECT_THAT(FailureOf(text, "eucJP"), MatchesRegex("sys-log [0-9]+ \\(Err: 84\\)")) << text;
    }
}

// An accented letter takes two bytes in UTF-8 and three in EUC-JP.
TEST_F(SysLogTest, TextThatWouldGrow_FailsInsteadOfBeingCut) {
    EXPECT_THAT(FailureOf("caf\xC3\xA9", "eucJP"), MatchesRegex("sys-log [0-9]+ \\(Err: 7\\)"));
}

TEST_F(SysLogTest, GrowthMadeUpForElsewhere_IsConverted) {
    EXPECT_THAT(Written("\xC3\xA9\xE6\x97\xA5", "eucJP"), ElementsAre("\x8F\xAB\xB1\xC6\xFC"));
}

TEST_F(SysLogTest, NoConverter_ThrowsTheErrorNumber) {
    converterFails = true;
    EXPECT_THAT(FailureOf("text", "eucJP"), MatchesRegex("sys-log [0-9]+ \\(Err: 24\\)"));
    EXPECT_THAT(Written("text", ""), ElementsAre("text"));
}

TEST_F(SysLogTest, RealSink_HandsTextsOverAsArguments) {
    libraryCalls.clear();
    {
        SysLog log("default", "");
        log.Write(kError, "100%n\n%s");
    }
    EXPECT_THAT(libraryCalls,
                ElementsAre("openlog bayward 1 24", "syslog 3 %s 100%n", "syslog 3 %s %s", "closelog"));
}

}  // namespace
