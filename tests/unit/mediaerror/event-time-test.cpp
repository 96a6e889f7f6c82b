#include "event-time.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "local-calendar.h"
#include "mutated-text.h"
#include "test-root.h"

namespace {

TEST(DatestrToNum, Text_BecomesLocalSeconds) {
    EXPECT_EQ(datestr_to_num("Fri Oct  2 05:41:23 2026"), kTime);
    EXPECT_EQ(datestr_to_num("Fri Oct 02 05:41:23 2026"), kTime);
    EXPECT_EQ(datestr_to_num("Wed Jul  1 12:00:00 2026"), LocalTime(2026, 7, 1, 12, 0, 0));
    EXPECT_EQ(datestr_to_num("Thu Jan  1 12:00:00 2026"), LocalTime(2026, 1, 1, 12, 0, 0));
    EXPECT_EQ(datestr_to_num("Fri Oct  2 05:41:23 2026 and more"), kTime);
}

// Makes a zone the local one.
class Zone {
public:
    explicit Zone(const char* zone) { Set(zone); }
    ~Zone() {
        if (m_old) {
            setenv("TZ", m_old->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;

    static void Set(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

private:
    static std::optional<std::string> Get() {
        const char* const zone = std::getenv("TZ");
        return zone == nullptr ? std::nullopt : std::optional<std::string>(zone);
    }

    std::optional<std::string> m_old = Get();
};

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

TEST(DatestrToNum, SummerTime_IsTakenIntoAccount) {
    const Zone zone(kCentralEurope);
    EXPECT_EQ(datestr_to_num("Wed Jul  1 12:00:00 2026"), 1782900000u);
    EXPECT_EQ(datestr_to_num("Thu Jan  1 12:00:00 2026"), 1767265200u);
}

TEST(DatestrToNum, TextOfAnotherForm_GivesOne) {
    for (const char* const text :
         {"", " ", "Fri", "2026/10/02 05:41:23", "Fri Oct  2 05:41 2026", "Fri Oct 32 05:41:23 2026",
          "Fri Oct  2 25:41:23 2026", "Fr Okt  2 05:41:23 2026", "%s%n", "kin m10  2 05:41:23 2026"}) {
        EXPECT_EQ(datestr_to_num(text), 1u) << text;
    }
    EXPECT_EQ(datestr_to_num(std::string("\0Fri Oct  2 05:41:23 2026", 25)), 1u);
}

TEST(DatestrToNum, TimeBeforeTheEpoch_GivesZero) {
    EXPECT_EQ(datestr_to_num("Tue Oct  2 05:41:23 1956"), 0u);
    EXPECT_EQ(datestr_to_num("Wed Dec 31 00:00:00 1969"), 0u);
}

// Sets the process's locale of times to one with names of its own.
class ForeignTimes {
public:
    ForeignTimes() {
        m_root.Write(
            "names.txt",
            "comment_char %\nescape_char /\nLC_TIME\n"
            "abday \"nichi\";\"getsu\";\"ka\";\"sui\";\"moku\";\"kin\";\"do\"\n"
            "day \"nichiyou\";\"getsuyou\";\"kayou\";\"suiyou\";\"mokuyou\";\"kinyou\";\"doyou\"\n"
            "abmon \"m1\";\"m2\";\"m3\";\"m4\";\"m5\";\"m6\";\"m7\";\"m8\";\"m9\";\"m10\";\"m11\";\"m12\"\n"
            "mon \"m1\";\"m2\";\"m3\";\"m4\";\"m5\";\"m6\";\"m7\";\"m8\";\"m9\";\"m10\";\"m11\";\"m12\"\n"
            "am_pm \"\";\"\"\nd_t_fmt \"/%Y\"\nd_fmt \"/%Y\"\nt_fmt \"/%H\"\nt_fmt_ampm \"\"\n"
            "END LC_TIME\n");
        const std::string command = "localedef --no-archive -c -i " + (m_root / "names.txt") + " " +
                                    (m_root / "xx_XX") + " >/dev/null 2>&1";
        const int status = std::system(command.c_str());
        const bool compiled =
            WIFEXITED(status) && WEXITSTATUS(status) <= 1;  // 1: it warned of what is left out
        setenv("LOCPATH", m_root.path().c_str(), 1);
        m_set = compiled && setlocale(LC_TIME, "xx_XX") != nullptr;
    }
    ~ForeignTimes() {
        setlocale(LC_TIME, "C");
        unsetenv("LOCPATH");
    }
    ForeignTimes(const ForeignTimes&) = delete;
    ForeignTimes& operator=(const ForeignTimes&) = delete;

    bool AreSet() const { return m_set; }

private:
    TestRoot m_root;
    bool m_set = false;
};

TEST(DatestrToNum, LocaleWithOtherNames_ChangesNothing) {
    const ForeignTimes foreign;
    ASSERT_TRUE(foreign.AreSet()) << "localedef needs its character maps (package locales)";
    tm friday{};
    friday.tm_wday = 5;
    char name[16] = {};
    strftime(name, sizeof name, "%a", &friday);
    ASSERT_STREQ(name, "kin");
    EXPECT_EQ(datestr_to_num("Fri Oct  2 05:41:23 2026"), kTime);
    EXPECT_EQ(datestr_to_num("kin m10  2 05:41:23 2026"), 1u);
    strftime(name, sizeof name, "%a", &friday);
    EXPECT_STREQ(name, "kin");
}

// Some minutes of every day of a year, in their order, those that a change of the clocks leaves out as well.
std::vector<std::string> TextsOf(int year) {
    constexpr std::time_t kDay = 24 * 60 * 60;
    std::vector<std::string> texts;
    tm first{};
    first.tm_year = year - 1900;
    first.tm_mday = 1;
    const std::time_t begin = timegm(&first);
    for (std::time_t second = begin; second < begin + 365 * kDay; second += 29 * 60 + 11) {
        tm parts{};
        gmtime_r(&second, &parts);
        char text[32];
        strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &parts);
        texts.emplace_back(text);
    }
    return texts;
}

// What the C library tells for one text after the other. Of a time that comes twice it gives the one that
// fits the conversion before, so both sequences begin after the same one.
std::vector<std::uint64_t> Expected(const std::vector<std::string>& texts) {
    LocalTime(2026, 1, 1, 0, 0, 0);
    std::vector<std::uint64_t> times;
    for (const std::string& text : texts) {
        times.push_back(datestr_to_num(text));
    }
    return times;
}

std::vector<std::uint64_t> Converted(const std::vector<std::string>& texts) {
    LocalTime(2026, 1, 1, 0, 0, 0);
    EventTimes converter;
    std::vector<std::uint64_t> times;
    for (const std::string& text : texts) {
        times.push_back(converter.Seconds(text));
    }
    return times;
}

class EventTimesInZone : public testing::TestWithParam<const char*> {};

// Whole hours and half an hour, at midnight and at noon, to the east and to the west, in both hemispheres,
// twice a year and four times, and a day that was left out (Apia, 2011).
INSTANTIATE_TEST_SUITE_P(, EventTimesInZone,
                         testing::Values("UTC0", kCentralEurope, "EST5EDT,M3.2.0,M11.1.0",
                                         "LHST-10:30LHDT-11,M10.1.0,M4.1.0", "NZST-12NZDT,M9.5.0,M4.1.0/3",
                                         "<-02>2<-01>,M3.5.0/-1,M10.5.0/0", "XXX0YYY,J100/12,J200/12",
                                         "Pacific/Apia", "Africa/Casablanca", "America/Sao_Paulo",
                                         "Asia/Gaza", "Asia/Tehran", "Europe/Moscow"));

// Is the local zone UTC, in winter and in summer? So is one that the C library does not know.
bool IsUtc() {
    constexpr std::time_t kTimes[] = {1262304000, 1277942400};  // January and July 1st, 2010
    return std::all_of(std::begin(kTimes), std::end(kTimes), [](std::time_t seconds) {
        tm local{};
        return localtime_r(&seconds, &local) != nullptr && local.tm_gmtoff == 0;
    });
}

void ExpectTheCLibrarysTimes(int year) {
    std::mt19937 random(20261121);
    std::vector<std::string> texts = TextsOf(year);
    EXPECT_EQ(Converted(texts), Expected(texts)) << year;
    std::reverse(texts.begin(), texts.end());
    EXPECT_EQ(Converted(texts), Expected(texts)) << year << ", backwards";
    for (std::size_t at = 0; at + 20 < texts.size(); at += 20) {
        const auto begin = texts.begin() + static_cast<std::ptrdiff_t>(at);
        std::shuffle(begin, begin + 20, random);  // the times of one day and the next
    }
    EXPECT_EQ(Converted(texts), Expected(texts)) << year << ", nearly in order";
    std::shuffle(texts.begin(), texts.end(), random);
    EXPECT_EQ(Converted(texts), Expected(texts)) << year << ", in disorder";
}

TEST_P(EventTimesInZone, TimesOfWholeYears_AreTheCLibrarys) {
    const Zone zone(GetParam());
    ASSERT_EQ(IsUtc(), std::string(GetParam()) == "UTC0") << "the zone is not known here (package tzdata)";
    for (const int year : {1970, 2010, 2011, 2026}) {
        ExpectTheCLibrarysTimes(year);
    }
}

std::string BigEndian(std::uint32_t number) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>(number >> shift & 0xff);
    }
    return bytes;
}

// A file of a time zone, an hour to the east, that counts the leap second at the end of June 2012.
std::string ZoneWithLeapSecond() {
    std::string file = "TZif" + std::string(16, '\0');
    for (const std::uint32_t count :
         {0U, 0U, 1U, 0U, 1U, 4U}) {  // one leap second, one kind of time of four letters
        file += BigEndian(count);
    }
    return file + BigEndian(3600) + std::string(2, '\0') + std::string("LEA", 4) + BigEndian(1341100800) +
           BigEndian(1);
}

TEST(EventTimes, ZoneThatCountsLeapSeconds_GivesTheCLibrarysTimes) {
    const TestRoot root;
    root.Write("zone", ZoneWithLeapSecond());
    const std::string file = root / "zone";
    const Zone zone(file.c_str());
    ASSERT_EQ(datestr_to_num("Sun Jul  1 02:00:00 2012") - datestr_to_num("Sun Jul  1 00:00:00 2012"), 7201u);
    ExpectTheCLibrarysTimes(2012);
}

TEST(EventTimes, LaterTimeOfTheDayFirst_DoesNotHideAChangeOfTheClocks) {
    const Zone zone(kCentralEurope);
    EventTimes converter;
    converter.Seconds("Sun Mar 29 05:00:00 2026");
    EXPECT_EQ(converter.Seconds("Sun Mar 29 01:00:00 2026"), 1774742400u);
    converter.Seconds("Thu Jan  1 05:00:00 1970");
    EXPECT_EQ(converter.Seconds("Thu Jan  1 00:30:00 1970"), 0u);
}

TEST(EventTimes, TextsOfOtherForms_AreReadAsTheCLibraryReadsThem) {
    const Zone zone(kCentralEurope);
    const std::vector<std::string> plain{"Fri Oct  2 05:41:23 2026", "Sat Oct 31 23:59:59 2026",
                                         "Sun Oct 25 02:30:00 2026", "Mon Feb 29 12:00:00 2027"};
    const std::vector<std::string> odd{"",
                                       "Fri Oct  2 24:00:00 2026",
                                       "Fri Oct  2 05:60:00 2026",
                                       "Fri Oct  2 05:41:60 2026",
                                       "Fri Oct  2 05:41:61 2026",
                                       "Fri Oct  2 05:41: 9 2026",
                                       "Fri Oct  2  5:41:23 2026",
                                       "Fri Oct  2 05:41:23 26",
                                       "Fri Oct  2 05:41:23  2026",
                                       "Fri Oct  2 05:41:23  2025",
                                       "Fri Oct  2 05:41:23 20267",
                                       "Sun Oct  2 05:41:23 2026",
                                       "Xxx Oct  2 05:41:23 2026",
                                       "friday october 2 05:41:23 2026",
                                       "Fri Oct  2\t05:41:23 2026",
                                       "Fri Oct   205:41:23 2026",
                                       "Fri Oct   215:41:23 2026",
                                       std::string("Fri Oct  2 05:41:23 20\0006", 24),
                                       "Wed Dec 31 23:59:59 1969",
                                       "Thu Jan  1 00:59:59 1970"};
    std::vector<std::string> texts;
    for (const std::string& text : odd) {
        texts.push_back(plain.front());
        texts.push_back(text);
        for (const std::string& behind : odd) {
            texts.insert(texts.end(), {text, behind});
        }
    }
    std::mt19937 random(20261121);
    const std::vector<std::string> pieces{" ", "0", ":", "9", "31", "Feb", "1969"};
    for (int round = 0; round < 20000; ++round) {
        // Between texts of the same day, so that this day is known.
        texts.push_back(plain[random() % plain.size()]);
        texts.push_back(MutatedText(texts.back(), pieces, random));
    }
    const std::vector<std::uint64_t> converted = Converted(texts);
    const std::vector<std::uint64_t> expected = Expected(texts);
    for (std::size_t at = 0; at < texts.size(); ++at) {
        ASSERT_EQ(converted[at], expected[at]) << "number " << at << ": " << texts[at];
    }
}

TEST(EventTimes, ChangedTimeZone_CountsFromTheNextDayOn) {
    const Zone zone("UTC0");
    EventTimes converter;
    const std::uint64_t first = converter.Seconds("Fri Jul  3 05:00:00 2026");
    Zone::Set("XYZ-3");
    EXPECT_EQ(converter.Seconds("Fri Jul  3 06:00:00 2026"), first + 60 * 60);
    EXPECT_EQ(converter.Seconds("Sat Jul  4 05:00:00 2026"), first + 21 * 60 * 60);
    EXPECT_EQ(EventTimes().Seconds("Fri Jul  3 05:00:00 2026"), first - 3 * 60 * 60);
}

}  // namespace
