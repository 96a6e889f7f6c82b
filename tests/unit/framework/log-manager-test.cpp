#include "log-manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>

#include "log-fixture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using tovaserverutil::LogManager;

constexpr std::uint64_t kLastSecondOfJanuary = 1706745599;  // 2024-01-31 23:59:59 UTC
const std::string kOpenFailed = "<VK0902> [ER] log-manager 346 (Err: 2)";

// The machine's time zone for one test.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* const before = std::getenv("TZ")) {
            m_before = before;
        }
        setenv("TZ", zone, 1);
    }
    ~TimeZone() { m_before ? setenv("TZ", m_before->c_str(), 1) : unsetenv("TZ"); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    std::optional<std::string> m_before;
};

class LogManagerTest : public testing::Test {
protected:
    void LetCommandsSucceed() { folder.commands.result.exitStatus = 0; }
    const std::vector<std::string>& Commands() const { return folder.commands.commands; }

    ArchiveFolder folder;
};

// ---- The trace log ----

TEST_F(LogManagerTest, WriteLog_ForwardsToItsLog) {
    folder.Manager().WriteLog("%s %d", "forwarded", 3);
    EXPECT_THAT(folder.Lines(), ElementsAre("forwarded 3"));
}

TEST_F(LogManagerTest, NoLog_LeavesNoLineAndWorksAllTheSame) {
    folder.AddArchives(11);
    LogManager manager(nullptr, {"serial_log_", ".zip", folder.root / "archives/", 10}, folder.commands);
    manager.WriteLog("%s", "nowhere");
    manager.RunReport("report");
    manager.SaveArchive("save ", kLastSecondOfJanuary);
    manager.Prune();
    EXPECT_THAT(Commands(), SizeIs(2));
    EXPECT_THAT(folder.Names(), SizeIs(10));
    EXPECT_FALSE(std::filesystem::exists(folder.root / "trace.log"));
}

// ---- Saving ----

TEST_F(LogManagerTest, SaveArchive_RunsTheCommandWithThePathOfTheLocalTime) {
    const TimeZone zone("UTC0");
    LetCommandsSucceed();
    folder.Manager().SaveArchive("save file=", kLastSecondOfJanuary);
    EXPECT_THAT(Commands(),
                ElementsAre("save file=" + folder.root / "archives/serial_log_20240131_235959.zip"));
    EXPECT_EQ(folder.commands.deadline, std::chrono::minutes(30));
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

TEST_F(LogManagerTest, TimeZoneChangedMeanwhile_IsFollowed) {
    LetCommandsSucceed();
    LogManager manager = folder.Manager();
    {
        const TimeZone zone("UTC0");
        manager.SaveArchive("", kLastSecondOfJanuary);
    }
    const TimeZone zone("JST-9");
    manager.SaveArchive("", kLastSecondOfJanuary);
    EXPECT_THAT(Commands(), ElementsAre(folder.root / "archives/serial_log_20240131_235959.zip",
                                        folder.root / "archives/serial_log_20240201_085959.zip"));
}

TEST_F(LogManagerTest, SaveCommandFails_IsTracedEachTime) {
    const TimeZone zone("UTC0");
    LogManager manager = folder.Manager();
    manager.SaveArchive("save ", 0);
    manager.SaveArchive("save ", 1);
    const std::string line = "<VK0902> [ER] log-manager 98 (command: save " + folder.root / "archives/";
    EXPECT_THAT(folder.Lines(), ElementsAre(line + "serial_log_19700101_000000.zip)",
                                            line + "serial_log_19700101_000001.zip)"));
}

TEST_F(LogManagerTest, SaveCommandThatDidNotEndOrStart_IsAFailure) {
    folder.commands.result = {.started = true, .timedOut = true, .exitStatus = 0, .output = {}};
    LogManager manager = folder.Manager();
    manager.SaveArchive("save ", 0);
    folder.commands.result = {.started = false, .timedOut = false, .exitStatus = 0, .output = {}};
    manager.SaveArchive("save ", 0);
    EXPECT_THAT(folder.Lines(), SizeIs(2));
}

TEST_F(LogManagerTest, SaveCommandFails_WhatItWroteIsKept) {
    const TimeZone zone("UTC0");
    folder.Add("serial_log_20240131_235959.zip");
    folder.Manager().SaveArchive("save ", kLastSecondOfJanuary);
    EXPECT_THAT(folder.Names(), ElementsAre("serial_log_20240131_235959.zip"));
}

TEST_F(LogManagerTest, TimeThatCannotBeBrokenDown_IsTracedAndNothingIsSaved) {
    folder.Manager().SaveArchive("save ", std::numeric_limits<std::int64_t>::max());
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 215"));
    EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(LogManagerTest, YearOfManyDigits_StandsInTheNameInFull) {
    const TimeZone zone("UTC0");
    LetCommandsSucceed();
    folder.Manager().SaveArchive("", 67767976233532799);  // the last second of a year of ten digits
    EXPECT_THAT(Commands(), ElementsAre(folder.root / "archives/serial_log_21474836471231_235959.zip"));
}

// ---- The report ----

TEST_F(LogManagerTest, RunReport_RunsTheCommandAsItIs) {
    LetCommandsSucceed();
    folder.Manager().RunReport("report file=ADUReport.zip");
    EXPECT_THAT(Commands(), ElementsAre("report file=ADUReport.zip"));
    EXPECT_EQ(folder.commands.deadline, std::chrono::minutes(30));
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

TEST_F(LogManagerTest, ReportFails_IsTracedOnceAlsoAfterASuccess) {
    LogManager manager = folder.Manager();
    manager.RunReport("report");
    manager.RunReport("report");
    LetCommandsSucceed();
    manager.RunReport("report");
    folder.commands.result.exitStatus = 1;
    manager.RunReport("report");
    EXPECT_THAT(Commands(), SizeIs(4));
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 118 (command: report)"));
}

TEST_F(LogManagerTest, ReportFailsAfterASuccess_IsTraced) {
    LetCommandsSucceed();
    LogManager manager = folder.Manager();
    manager.RunReport("report");
    folder.commands.result.exitStatus = 127;
    manager.RunReport("report");
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 118 (command: report)"));
}

TEST_F(LogManagerTest, ReportAndArchive_HaveAFailureEach) {
    LogManager manager = folder.Manager();
    manager.RunReport("report");
    manager.SaveArchive("save ", 0);
    EXPECT_THAT(folder.Lines(), SizeIs(2));
}

TEST_F(LogManagerTest, CommandWithFormatCharacters_IsTracedAsItIs) {
    folder.Manager().RunReport("report %s%n%d");
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 118 (command: report %s%n%d)"));
}

// ---- Pruning ----

TEST_F(LogManagerTest, TwelveArchivesAndALimitOfTen_LoseTheTwoOldest) {
    folder.AddArchives(12);
    folder.Manager().Prune();
    const std::vector<std::string> names = folder.Names();
    ASSERT_THAT(names, SizeIs(10));
    EXPECT_EQ(names.front(), ArchiveFolder::Archive(2));
    EXPECT_EQ(names.back(), ArchiveFolder::Archive(11));
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

TEST_F(LogManagerTest, AsManyArchivesAsTheLimit_AllStay) {
    folder.AddArchives(10);
    folder.Manager().Prune();
    EXPECT_THAT(folder.Names(), SizeIs(10));
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

TEST_F(LogManagerTest, AgeOfFiles_IsThatOfTheirNames) {
    folder.Add("serial_log_19990101_000000.zip");  // written last of all
    for (int number = 9; number >= 0; --number) {
        folder.Add(ArchiveFolder::Archive(number));
    }
    folder.Add("serial_log_19990101_000000.zip");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Names(), SizeIs(10));
    EXPECT_THAT(folder.Names(), Not(Contains("serial_log_19990101_000000.zip")));
}

class LogManagerLimit : public LogManagerTest,
                        public testing::WithParamInterface<std::pair<std::uint32_t, std::size_t>> {};

TEST_P(LogManagerLimit, MaxFileCount_IsKeptInRange) {
    const auto [configured, kept] = GetParam();
    folder.AddArchives(205);
    folder.Manager(configured).Prune();
    EXPECT_THAT(folder.Names(), SizeIs(kept));
}

INSTANTIATE_TEST_SUITE_P(Counts, LogManagerLimit,
                         testing::Values(std::pair(0u, 10u), std::pair(3u, 10u), std::pair(10u, 10u),
                                         std::pair(11u, 11u), std::pair(100u, 100u), std::pair(200u, 200u),
                                         std::pair(201u, 200u), std::pair(500u, 200u),
                                         std::pair(static_cast<std::uint32_t>(-1), 200u)),
                         [](const auto& parameter) { return std::to_string(parameter.param.first); });

TEST_F(LogManagerTest, OtherNamesAndFolders_AreNeverRemoved) {
    folder.AddArchives(11);
    const std::vector<std::string> others{"bayward.log",    "Serial_log_1.zip", "aserial_log_1.zip",
                                          "serial_log.zip", "serial_log",       ".serial_log_1"};
    for (const std::string& name : others) {
        folder.Add(name);
    }
    std::filesystem::create_directory(folder.root / "archives/serial_log_0");
    folder.Add("serial_log_00/file");
    folder.Manager().Prune();
    std::vector<std::string> expected = others;
    expected.insert(expected.end(), {"serial_log_0", "serial_log_00"});
    for (int number = 1; number < 11; ++number) {
        expected.push_back(ArchiveFolder::Archive(number));
    }
    EXPECT_THAT(folder.Names(), testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

TEST_F(LogManagerTest, OtherKindsOfFile_DoNotCount) {
    folder.AddArchives(10);
    ASSERT_EQ(mkfifo((folder.root / "archives/serial_log_0").c_str(), 0600), 0);
    std::filesystem::create_directory_symlink(folder.root.path(), folder.root / "archives/serial_log_1");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Names(), SizeIs(12));
}

TEST_F(LogManagerTest, OtherExtension_Counts) {
    folder.AddArchives(10);
    folder.Add("serial_log_20240101");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Names(), SizeIs(10));
    EXPECT_THAT(folder.Names(), Not(Contains("serial_log_20240101")));
}

TEST_F(LogManagerTest, LinkToAFile_CountsAndIsRemovedWithoutItsTarget) {
    folder.AddArchives(10);
    folder.root.Write("target", "content");
    std::filesystem::create_symlink(folder.root / "target", folder.root / "archives/serial_log_0");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Names(), SizeIs(10));
    EXPECT_EQ(folder.root.Read("target"), "content");
}

TEST_F(LogManagerTest, EntryWithoutStatus_IsTracedAndSkipped) {
    folder.AddArchives(11);
    std::filesystem::create_symlink("nowhere", folder.root / "archives/serial_log_0");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 324 (Err: 2)"));
    EXPECT_THAT(folder.Names(), SizeIs(11));
    EXPECT_THAT(folder.Names(), Contains("serial_log_0"));
    EXPECT_THAT(folder.Names(), Not(Contains(ArchiveFolder::Archive(0))));
}

TEST_F(LogManagerTest, NoFolder_IsTraced) {
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre(kOpenFailed));
}

TEST_F(LogManagerTest, FolderThatIsAFile_IsTraced) {
    folder.root.Write("archives", "");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), ElementsAre("<VK0902> [ER] log-manager 346 (Err: 20)"));
}

TEST_F(LogManagerTest, EmptyFolder_IsLeftAlone) {
    std::filesystem::create_directory(folder.root / "archives");
    folder.Manager().Prune();
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

}  // namespace
