#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <limits>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "file-descriptor.h"
#include "server-util.h"
#include "test-io.h"
#include "test-root.h"

namespace {

using tovaserverutil::TraceLog;

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();
constexpr std::size_t kStamp = 24;  // with milliseconds and the blank

std::string WithoutStamp(const std::string& line) {
    return line.size() > kStamp ? line.substr(kStamp) : "";
}

// The clock that the stamps come from; std::time's coarse one may be a tick behind it.
std::time_t NowInSeconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

class TraceLogTest : public testing::Test {
protected:
    std::string Path() const { return root / "bayward.log"; }
    std::string Current() const { return root.Read("bayward.log"); }
    std::string Backup() const { return root.Read("bayward.log.bak"); }
    // Writes a line of exactly this many bytes, stamp and line feed included.
    void WriteBytes(TraceLog& log, std::size_t bytes, char fill = 'x') {
        log.Write("%s", std::string(bytes - kStamp - 1, fill).c_str());
    }

    TestRoot root;
};

TEST_F(TraceLogTest, Line_IsStampedWithLocalTimeAndMilliseconds) {
    TraceLog log(Path(), kNoLimit, true);
    const std::time_t before = NowInSeconds();
    EXPECT_TRUE(log.Write("<VK0900> [TR] %s %d", "text", 7));
    const std::time_t after = NowInSeconds();
    const std::string line = Current();
    EXPECT_TRUE(std::regex_match(
        line, std::regex("\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} <VK0900> \\[TR\\] text 7\n")))
        << line;
    std::tm parsed{};
    ASSERT_NE(strptime(line.c_str(), "%Y/%m/%d %H:%M:%S", &parsed), nullptr);
    parsed.tm_isdst = -1;
    const std::time_t stamp = std::mktime(&parsed);
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST_F(TraceLogTest, ChangedTimeZone_IsFollowedByTheNextLine) {
    TraceLog log(Path(), kNoLimit, true);
    const char* const zone = std::getenv("TZ");
    const std::string before = zone != nullptr ? zone : "";
    setenv("TZ", "AAA+2", 1);
    log.Write("west");
    setenv("TZ", "BBB-9", 1);
    log.Write("east");
    zone != nullptr ? setenv("TZ", before.c_str(), 1) : unsetenv("TZ");
    tzset();
    std::istringstream lines(Current());
    std::string west;
    std::string east;
    std::getline(lines, west);
    std::getline(lines, east);
    std::tm first{};
    std::tm second{};
    ASSERT_NE(strptime(west.c_str(), "%Y/%m/%d %H:%M:%S", &first), nullptr);
    ASSERT_NE(strptime(east.c_str(), "%Y/%m/%d %H:%M:%S", &second), nullptr);
    EXPECT_NEAR(std::difftime(timegm(&second), timegm(&first)), 11 * 3600, 5);
}

TEST_F(TraceLogTest, MillisecondsOff_AreLeftOut) {
    TraceLog log(Path(), kNoLimit, false);
    log.Write("text");
    EXPECT_TRUE(std::regex_match(Current(), std::regex("\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d text\n")));
}

TEST_F(TraceLogTest, SeveralLines_AreAppendedInOrder) {
    TraceLog log(Path(), kNoLimit, true);
    log.Write("first");
    TraceLog(Path(), kNoLimit, true).Write("second");
    std::istringstream lines(Current());
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(WithoutStamp(line), "first");
    std::getline(lines, line);
    EXPECT_EQ(WithoutStamp(line), "second");
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(TraceLogTest, EmptyMessage_GivesStampAndLineFeed) {
    TraceLog log(Path(), kNoLimit, true);
    log.Write("%s", "");
    EXPECT_EQ(Current().size(), kStamp + 1);
    EXPECT_EQ(Current().substr(kStamp - 1), " \n");
}

TEST_F(TraceLogTest, LongestMessageThatFits_IsWhole) {
    TraceLog log(Path(), kNoLimit, true);
    const std::string message(2046 - kStamp - 1, 'm');
    log.Write("%s", message.c_str());
    EXPECT_EQ(WithoutStamp(Current()), message + "\n");
}

TEST_F(TraceLogTest, LongerMessage_IsCutAndEndsWithTheLineFeed) {
    TraceLog log(Path(), kNoLimit, true);
    for (const std::size_t length : {2022u, 2023u, 2048u, 100000u}) {
        std::filesystem::remove(Path());
        log.Write("%s", std::string(length, 'm').c_str());
        EXPECT_EQ(WithoutStamp(Current()), std::string(2046 - kStamp - 1, 'm') + "\n") << length;
    }
}

TEST_F(TraceLogTest, LongMessageWithoutMilliseconds_UsesTheRoomOfTheShorterStamp) {
    TraceLog log(Path(), kNoLimit, false);
    log.Write("%s", std::string(5000, 'm').c_str());
    EXPECT_EQ(Current().size(), 2046u);
}

TEST_F(TraceLogTest, PercentSignsInArguments_AreOrdinaryText) {
    TraceLog log(Path(), kNoLimit, true);
    log.Write("%s", "100%s%n%d%%");
    EXPECT_EQ(WithoutStamp(Current()), "100%s%n%d%%\n");
}

TEST_F(TraceLogTest, LineThatFillsTheLimitExactly_IsAppended) {
    TraceLog log(Path(), 200, true);
    WriteBytes(log, 120);
    WriteBytes(log, 80, 'y');
    EXPECT_EQ(Current().size(), 200u);
    EXPECT_FALSE(std::filesystem::exists(root / "bayward.log.bak"));
}

TEST_F(TraceLogTest, LineOneByteOverTheLimit_RotatesFirst) {
    TraceLog log(Path(), 200, true);
    WriteBytes(log, 120);
    WriteBytes(log, 81, 'y');
    EXPECT_EQ(Current().size(), 81u);
    EXPECT_EQ(Backup().size(), 120u);
}

TEST_F(TraceLogTest, SecondRotation_ReplacesTheBackup) {
    TraceLog log(Path(), 100, true);
    WriteBytes(log, 100, 'a');
    WriteBytes(log, 100, 'b');
    WriteBytes(log, 100, 'c');
    EXPECT_EQ(Current().back(), '\n');
    EXPECT_NE(Current().find('c'), std::string::npos);
    EXPECT_NE(Backup().find('b'), std::string::npos);
    EXPECT_EQ(Backup().find('a'), std::string::npos);
}

TEST_F(TraceLogTest, LimitZero_RotatesAtEveryLine) {
    TraceLog log(Path(), 0, true);
    log.Write("one");
    EXPECT_EQ(WithoutStamp(Current()), "one\n");
    log.Write("two");
    log.Write("three");
    EXPECT_EQ(WithoutStamp(Current()), "three\n");
    EXPECT_EQ(WithoutStamp(Backup()), "two\n");
}

TEST_F(TraceLogTest, LineLargerThanTheLimit_StandsAloneInAFreshFile) {
    TraceLog log(Path(), 40, true);
    WriteBytes(log, 30);
    WriteBytes(log, 300, 'y');
    EXPECT_EQ(Current().size(), 300u);
    EXPECT_EQ(Backup().size(), 30u);
}

TEST_F(TraceLogTest, MissingFolder_DropsTheLineAndReturnsTrue) {
    TraceLog log(root / "none/bayward.log", kNoLimit, true);
    EXPECT_TRUE(log.Write("lost"));
    EXPECT_FALSE(std::filesystem::exists(root / "none"));
    std::filesystem::create_directory(root / "none");
    log.Write("kept");
    EXPECT_EQ(WithoutStamp(root.Read("none/bayward.log")), "kept\n");
}

TEST_F(TraceLogTest, PathThroughAFile_DropsTheLine) {
    root.Write("file", "content");
    TraceLog log(root / "file/bayward.log", 0, true);  // stat fails with ENOTDIR
    EXPECT_TRUE(log.Write("lost"));
    EXPECT_EQ(root.Read("file"), "content");
}

TEST_F(TraceLogTest, DirectoryInPlaceOfTheLog_DropsTheLine) {
    std::filesystem::create_directory(Path());
    TraceLog log(Path(), kNoLimit, true);
    EXPECT_TRUE(log.Write("lost"));
    EXPECT_TRUE(std::filesystem::is_empty(Path()));
}

TEST_F(TraceLogTest, BackupThatCannotBeRemoved_DropsTheLine) {
    root.Write("bayward.log.bak/inside", "");
    root.Write("bayward.log", "old\n");
    TraceLog log(Path(), 10, true);
    EXPECT_TRUE(log.Write("lost"));
    EXPECT_EQ(Current(), "old\n");
}

TEST_F(TraceLogTest, MissingLogAndOldBackup_WithLineOverTheLimit_RemovesTheBackup) {
    root.Write("bayward.log.bak", "old\n");
    TraceLog log(Path(), 0, true);
    log.Write("new");
    EXPECT_EQ(WithoutStamp(Current()), "new\n");
    EXPECT_FALSE(std::filesystem::exists(root / "bayward.log.bak"));
}

TEST_F(TraceLogTest, OverlongPath_IsCutNotOverrun) {
    TraceLog log(std::string(10000, '/'), 0, true);
    EXPECT_TRUE(log.Write("lost"));
}

TEST_F(TraceLogTest, ManyWriters_NeverInterleaveLines) {
    TraceLog log(Path(), kNoLimit, true);
    constexpr int kThreads = 8;
    constexpr int kLines = 100;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kThreads; ++writer) {
        writers.emplace_back([&log, writer] {
            const std::string body(static_cast<std::size_t>(200 * (writer + 1)),
                                   static_cast<char>('a' + writer));
            for (int line = 0; line < kLines; ++line) {
                log.Write("%s", body.c_str());
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    std::vector<int> counts(kThreads, 0);
    std::istringstream lines(Current());
    for (std::string line; std::getline(lines, line);) {
        const std::string body = WithoutStamp(line);
        ASSERT_FALSE(body.empty());
        const auto writer = static_cast<std::size_t>(body.front() - 'a');
        ASSERT_LT(writer, counts.size());
        ASSERT_EQ(body, std::string(200 * (writer + 1), body.front()));
        ++counts[writer];
    }
    EXPECT_EQ(counts, std::vector<int>(kThreads, kLines));
}

TEST_F(TraceLogTest, ManyWritersWithRotation_KeepBothFilesWithinTheLimit) {
    TraceLog log(Path(), 1000, true);
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer) {
        writers.emplace_back([this, &log] {
            for (int line = 0; line < 100; ++line) {
                WriteBytes(log, 100);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(Current().size(), 1000u);
    EXPECT_EQ(Backup().size(), 1000u);
}

template <typename Thrown>
void LogThrown(TraceLog& log, const Thrown& thrown) {
    try {
        throw thrown;
    } catch (...) {
        tovaserverutil::LogCurrentException(log, "unit", 12);
    }
}

TEST_F(TraceLogTest, LogCurrentException_WritesOneLineByKind) {
    TraceLog log(Path(), kNoLimit, true);
    LogThrown(log, tovabase::TOVAExcpt(0x10001, "%s", "a %s text"));
    LogThrown(log, std::bad_alloc());
    LogThrown(log, std::runtime_error("what 100%"));
    LogThrown(log, "a C string");
    LogThrown(log, 5);
    std::istringstream lines(Current());
    std::vector<std::string> bodies;
    for (std::string line; std::getline(lines, line);) {
        bodies.push_back(WithoutStamp(line));
    }
    EXPECT_THAT(bodies, testing::ElementsAre("<VK0902> [ER] unit 12 (Err: a %s text)",
                                             "<VK0902> [ER] unit 12 (Err: Bad Alloc)",
                                             "<VK0902> [ER] unit 12 (Err: what 100%)",
                                             "<VK0902> [ER] unit 12 (Err: Unknown)",
                                             "<VK0902> [ER] unit 12 (Err: Unknown)"));
}

TEST_F(TraceLogTest, LineThatDoesNotFitOnTheDisk_IsDroppedAsAWhole) {
    TraceLog log(Path(), kNoLimit, true);
    WriteBytes(log, 100, 'a');
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit full = before;
    full.rlim_cur = 150;  // a file's size stands for that of a disk: both take a line's beginning
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    log.Write("%s", std::string(100, 'b').c_str());
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(Current().size(), 100U);
    WriteBytes(log, 100, 'c');
    EXPECT_EQ(Current().size(), 200U);
    EXPECT_EQ(WithoutStamp(Current().substr(100)), std::string(100 - kStamp - 1, 'c') + "\n");
}

TEST_F(TraceLogTest, ControlCharacters_CannotForgeALine) {
    TraceLog log(Path(), kNoLimit, true);
    log.Write("<VK0900> [TR] name=%s", "a\n2026/01/01 00:00:00.000 <VK0900> [TR] b\r\x1b[31m\x7f\t\xc3\xa4");
    EXPECT_EQ(WithoutStamp(Current()),
              "<VK0900> [TR] name=a?2026/01/01 00:00:00.000 <VK0900> [TR] b??[31m??\xc3\xa4\n");
}

TEST_F(TraceLogTest, LinkInTheFilesPlace_IsNotWrittenThrough) {
    root.Write("precious", "");
    std::filesystem::create_symlink(root / "precious", Path());
    TraceLog(Path(), kNoLimit, true).Write("text");
    EXPECT_EQ(root.Read("precious"), "");
}

TEST_F(TraceLogTest, LinkInTheFoldersPlace_IsFollowed) {
    std::filesystem::create_directory(root / "elsewhere");
    std::filesystem::create_directory_symlink("elsewhere", root / "folder");
    TraceLog(root / "folder/bayward.log", kNoLimit, true).Write("text");
    EXPECT_EQ(WithoutStamp(root.Read("elsewhere/bayward.log")), "text\n");
}

TEST_F(TraceLogTest, PipeThatNobodyReadsInTheFilesPlace_DoesNotStopTheThread) {
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    const tovaserverutil::FileDescriptor held(open(Path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ASSERT_TRUE(held.valid());
    TraceLog log(Path(), kNoLimit, true);
    constexpr int kMoreThanAPipeHolds = 100;
    for (int line = 0; line < kMoreThanAPipeHolds; ++line) {
        log.Write("%s", std::string(2000, 'x').c_str());
    }
    EXPECT_TRUE(std::filesystem::is_fifo(Path()));
}

TEST_F(TraceLogTest, NewFile_IsWritableByItsOwnerAlone) {
    const mode_t before = umask(0);
    TraceLog(Path(), kNoLimit, true).Write("text");
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(Path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0644u);
}

}  // namespace
