#include "smart-array.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "adu-texts.h"
#include "fake-commands.h"
#include "test-root.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kTestReport = "KMT_ADUReport_test/KMT_ADUReport_test.txt";
const std::string kReport = "ADUReport/ADUReport.txt";
const std::string kUnzip = "unzip -o \"ADUReport.zip\" -d \"ADUReport\"";
const std::string kRemoveFolder = "rm -rf \"ADUReport\"";
const std::string kRemoveArchive = "rm -rf \"ADUReport.zip\"";

struct Told {
    int port;
    int drive;
    std::string location;
    std::uint32_t time;
    std::string title;
    int count;
    std::string serial;  // what the map knows at that moment
    bool marked;
};

// A fresh working directory for each test.
class SmartArrayTest : public testing::Test {
protected:
    SmartArrayTest() : m_before(std::filesystem::current_path()) {
        std::filesystem::current_path(root.path());
        commands.result.exitStatus = 0;
    }
    ~SmartArrayTest() override { std::filesystem::current_path(m_before); }

    void Search(tovaserverutil::CommandRunner& runner) {
        told.clear();
        SearchSmartArrays(
            runner, drives,
            [this](tovaevent::EvtData event, int port, int drive, std::string location, std::uint32_t time,
                   std::string title, int count) {
                EXPECT_EQ(event.Id(), 0u);
                EXPECT_THAT(event.Parameters(), IsEmpty());
                told.push_back({port, drive, location, time, title, count, drives.find_serial(location),
                                drives.is_intermittent(port, drive)});
            });
    }
    // One search over the report.
    void Search(const std::string& report) {
        root.Write(kReport, report);
        Search(commands);
    }
    // The same for a report that consists of one drive's status section and error log.
    const Told& SearchOne(const std::string& entries) {
        Search(DriveSection(kP840, "1I:1:1", kStatus, StatusLines("SN1", "1I", 1, 1)) +
               DriveSection(kP840, "1I:1:1", kErrorLog, entries));
        EXPECT_EQ(told.size(), 1u);
        return told.at(0);
    }

    TestRoot root;
    FakeCommands commands;
    pd_addr_map drives;
    std::vector<Told> told;

private:
    std::filesystem::path m_before;
};

// Medium errors at these minutes.
std::string Errors(const std::vector<unsigned int>& times) {
    std::string entries;
    for (const unsigned int time : times) {
        entries += Entry(3, time);
    }
    return entries;
}

// So many errors from `first` on, a minute apart.
std::vector<unsigned int> Minutes(unsigned int first, std::size_t count) {
    std::vector<unsigned int> times;
    for (std::size_t number = 0; number < count; ++number) {
        times.push_back(first + static_cast<unsigned int>(number));
    }
    return times;
}

// --- files and commands ---

TEST_F(SmartArrayTest, Archive_IsUnpackedReadAndRemoved) {
    SearchOne(Errors({0x10}));
    EXPECT_THAT(commands.commands, ElementsAre(kUnzip, kRemoveFolder, kRemoveArchive));
    EXPECT_EQ(commands.deadline, tovaserverutil::kListingDeadline);
}

TEST_F(SmartArrayTest, TestReport_IsReadWithoutUnpacking) {
    root.Write(kTestReport, DriveSection(kP840, "2I:1:1", kErrorLog, Errors({1})));
    Search(DriveSection(kP840, "1I:1:1", kErrorLog, Errors({1})));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].location, "2I:1:1");
    EXPECT_THAT(commands.commands, ElementsAre(kRemoveFolder, kRemoveArchive));
}

TEST_F(SmartArrayTest, NoReport_EndsQuietlyAndKeepsTheFacts) {
    SearchOne(Errors({1}));
    std::filesystem::remove_all("ADUReport");
    commands.commands.clear();
    Search(commands);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(commands.commands, ElementsAre(kUnzip, kRemoveFolder, kRemoveArchive));
    EXPECT_EQ(drives.find_serial("1I:1:1"), "SN1");
}

TEST_F(SmartArrayTest, FolderInPlaceOfTheText_IsNoReport) {
    std::filesystem::create_directories(kReport);
    Search(commands);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(commands.commands, ElementsAre(kUnzip, kRemoveFolder, kRemoveArchive));
}

TEST_F(SmartArrayTest, EmptyReport_TellsNothingAndEmptiesTheFacts) {
    SearchOne(Errors({1}));
    Search("");
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(drives.find_serial("1I:1:1"), "");
    EXPECT_EQ(drives.find_media_error_num("1I:1:1"), 0u);
}

struct Unpacking {
    const char* name;
    tovaserverutil::CommandResult result;
    bool read;

    friend void PrintTo(const Unpacking& row, std::ostream* out) { *out << row.name; }
};

class SmartArrayUnpacking : public SmartArrayTest, public testing::WithParamInterface<Unpacking> {};

INSTANTIATE_TEST_SUITE_P(
    , SmartArrayUnpacking,
    testing::Values(
        Unpacking{"Success", {.started = true, .timedOut = false, .exitStatus = 0, .output = {}}, true},
        Unpacking{"Warnings", {.started = true, .timedOut = false, .exitStatus = 1, .output = {}}, true},
        Unpacking{"Damage", {.started = true, .timedOut = false, .exitStatus = 3, .output = {}}, true},
        Unpacking{"FullDisk", {.started = true, .timedOut = false, .exitStatus = 50, .output = {}}, true},
        Unpacking{"NoArchive", {.started = true, .timedOut = false, .exitStatus = 9, .output = {}}, false},
        Unpacking{"NoUnzip", {.started = true, .timedOut = false, .exitStatus = 127, .output = {}}, false},
        Unpacking{"Signal", {.started = true, .timedOut = false, .exitStatus = -1, .output = {}}, false},
        Unpacking{"Deadline", {.started = true, .timedOut = true, .exitStatus = 1, .output = {}}, false},
        Unpacking{"NoShell", {.started = false, .timedOut = false, .exitStatus = 0, .output = {}}, false}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(SmartArrayUnpacking, Result_DecidesWhetherTheTextIsRead) {
    commands.result = GetParam().result;
    Search(DriveSection(kP840, "1I:1:1", kErrorLog, Errors({1})));
    EXPECT_EQ(told.size(), GetParam().read ? 1u : 0u);
    EXPECT_THAT(commands.commands, ElementsAre(kUnzip, kRemoveFolder, kRemoveArchive));
}

TEST_F(SmartArrayTest, RealArchive_IsReadAndNothingIsLeft) {
    root.Write("ADUReport.txt", FullReport());
    root.Write("ADUReport.xml", "<xml/>");
    tovaserverutil::ShellRunner runner;
    const auto packed =
        runner.Execute("/usr/bin/python3 -m zipfile -c ADUReport.zip ADUReport.txt ADUReport.xml",
                       tovaserverutil::kListingDeadline);
    ASSERT_TRUE(packed.Succeeded());
    std::filesystem::remove("ADUReport.txt");
    std::filesystem::remove("ADUReport.xml");
    Search(runner);
    EXPECT_EQ(told.size(), 4u);
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(SmartArrayTest, RealDamagedArchive_TellsNothingAndNothingIsLeft) {
    root.Write("ADUReport.zip", "no archive");
    root.Write(kReport, FullReport());  // left over from another time
    tovaserverutil::ShellRunner runner;
    Search(runner);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

// --- what is told ---

// The argument-less function, with the real shell.
TEST_F(SmartArrayTest, RunningServiceWithoutAReport_KeepsWhatItKnowsAndLeavesNothing) {
    m_PdAddrMap.set_serial("1I:1:1", "SN1");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    check_serialLog();
    testing::internal::GetCapturedStdout();  // unzip's complaint
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(m_PdAddrMap.find_serial("1I:1:1"), "SN1");
    m_PdAddrMap.clear_map();
    EXPECT_TRUE(std::filesystem::is_empty(root.path()));
}

TEST_F(SmartArrayTest, DriveWithMediumErrors_IsTold) {
    const Told& drive = SearchOne(Entry(3, 0x30) + Entry(1, 0x50) + Entry(3, 0x40));
    EXPECT_EQ(drive.port, 1);
    EXPECT_EQ(drive.drive, 1);
    EXPECT_EQ(drive.location, "1I:1:1");
    EXPECT_EQ(drive.time, 0x40u);
    EXPECT_EQ(drive.title, kP840);
    EXPECT_EQ(drive.count, 2);
    EXPECT_EQ(drive.serial, "SN1");
    EXPECT_FALSE(drive.marked);
    EXPECT_EQ(drives.find_media_error_num("1I:1:1"), 2u);
    EXPECT_THAT(drives.find_reference_times(1, 1).Times(), ElementsAre(0x30, 0x40));
    EXPECT_EQ(drives.find_location(1, 1), "1I:1:1");
}

TEST_F(SmartArrayTest, DriveWithoutMediumErrors_IsNotTold) {
    Search(DriveSection(kP840, "1I:1:1", kStatus, StatusLines("SN1", "1I", 1, 1)) +
           DriveSection(kP840, "1I:1:1", kErrorLog, Entry(1, 0x50) + Entry(5, 0x60)));
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(drives.find_media_error_num("1I:1:1"), 0u);
    EXPECT_EQ(drives.find_serial("1I:1:1"), "SN1");
}

TEST_F(SmartArrayTest, NewestReferenceTime_GoesByValueAndIsCutTo32Bits) {
    const Told& drive =
        SearchOne("   Sense Key   0x03\n   Reference Time   0x500000007\n" + Entry(3, 0xffffffff));
    EXPECT_EQ(drive.time, 7u);
}

TEST_F(SmartArrayTest, ErrorsWithoutTimes_AreToldWithTimeZero) {
    const Told& drive = SearchOne("   Sense Key   0x03\n   Sense Key   0x03\n");
    EXPECT_EQ(drive.count, 2);
    EXPECT_EQ(drive.time, 0u);
}

TEST_F(SmartArrayTest, DriveWithEmptyStatusValues_IsTold) {
    Search(DriveSection(kP840, "2I:1:4", kStatus, "   Drive Serial Number\n   Physical Port\n") +
           DriveSection(kP840, "2I:1:4", kErrorLog, Errors(Minutes(100, 19))));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].port, 2);
    EXPECT_EQ(told[0].serial, "");
    EXPECT_TRUE(told[0].marked);
}

TEST_F(SmartArrayTest, DriveUnknownToTheStatusSections_IsToldAndCanBeMarked) {
    Search(DriveSection(kP840, "1I:1:1", kErrorLog, Errors(Minutes(100, 19))));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].serial, "");
    EXPECT_TRUE(told[0].marked);
    EXPECT_EQ(drives.find_location(1, 1), "1I:1:1");
}

TEST_F(SmartArrayTest, UnknownDriveWithTheNumberOfAKnownOne_KeepsItsErrorsApart) {
    // The second log's order is the number of the third drive.
    Search(DriveSection(kP840, "1I:1:1", kStatus, "") + DriveSection(kP840, "1I:1:2", kStatus, "") +
           DriveSection(kP840, "1I:1:1", kErrorLog, "") +
           DriveSection(kP840, "1I:1:9", kErrorLog, Errors(Minutes(100, 10))) +
           DriveSection(kP840, "1I:1:2", kErrorLog, Errors(Minutes(100, 10))));
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[0].drive, told[1].drive);
    EXPECT_EQ(told[0].location, "1I:1:9");
    EXPECT_FALSE(told[0].marked);
    EXPECT_EQ(told[1].location, "1I:1:2");
    EXPECT_FALSE(told[1].marked);
}

TEST_F(SmartArrayTest, ControllersWithEqualPlaces_KeepTheirDrivesApart) {
    const std::string other = "Smart Array P440 in slot 2";
    std::string report;
    for (const auto& [controller, serial] : {std::pair(kP840, "SN-A"), std::pair(other, "SN-B")}) {
        report += DriveSection(controller, "1I:1:1", kStatus, StatusLines(serial, "1I", 1, 1)) +
                  DriveSection(controller, "1I:1:1", kErrorLog, Errors(Minutes(100, 10)));
    }
    Search(report);
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[0].serial, "SN-A");
    EXPECT_EQ(told[0].title, kP840);
    EXPECT_EQ(told[1].serial, "SN-B");
    EXPECT_EQ(told[1].title, other);
    EXPECT_EQ(told[0].drive, told[1].drive);
    EXPECT_FALSE(told[0].marked);
    EXPECT_FALSE(told[1].marked);  // 10 and 10 are not 20
}

TEST_F(SmartArrayTest, ControllersWithEqualPlacesInGroupedOrder_KeepTheirSerialNumbers) {
    const std::string other = "Smart Array P440 in slot 2";
    std::string statuses;
    std::string logs;
    for (const auto& [controller, serial, count] :
         {std::tuple(kP840, "SN-A", 19u), std::tuple(other, "SN-B", 1u)}) {
        statuses += DriveSection(controller, "1I:1:1", kStatus, StatusLines(serial, "1I", 1, 1));
        logs += DriveSection(controller, "1I:1:1", kErrorLog, Errors(Minutes(100, count)));
    }
    Search(statuses + logs);
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[0].serial, "SN-A");
    EXPECT_TRUE(told[0].marked);
    EXPECT_EQ(told[1].serial, "SN-B");
    EXPECT_FALSE(told[1].marked);
}

TEST_F(SmartArrayTest, PlaceThatOnlyAnotherControllerKnows_HasNoSerialNumber) {
    Search(DriveSection(kP840, "1I:1:1", kStatus, StatusLines("SN-A", "1I", 1, 1)) +
           DriveSection("Smart Array P440 in slot 2", "1I:1:1", kErrorLog, Errors({1})));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].serial, "");
}

TEST_F(SmartArrayTest, TwoLogsOfOneDrive_AreOneListOfTimes) {
    Search(DriveSection(kP840, "1I:1:1", kStatus, StatusLines("SN1", "1I", 1, 1)) +
           DriveSection(kP840, "1I:1:1", kErrorLog, Errors(Minutes(100, 10))) +
           DriveSection(kP840, "1I:1:1", kErrorLog, Errors(Minutes(200, 9))));
    ASSERT_EQ(told.size(), 2u);
    EXPECT_FALSE(told[0].marked);
    EXPECT_TRUE(told[1].marked);
    EXPECT_EQ(told[1].count, 9);
}

TEST_F(SmartArrayTest, DrivesOfOnePort_AreAllKept) {
    std::string report = kP840 + " : " + kStatus + "\n";
    std::string logs = kP840 + " : " + kErrorLog + "\n";
    for (int bay = 1; bay <= 3; ++bay) {
        const std::string location = "1I:1:" + std::to_string(bay);
        report += GroupedDrive(location, StatusLines("SN" + std::to_string(bay), "1I", 1, bay));
        logs += GroupedDrive(location, Errors(Minutes(100, bay == 2 ? 1 : 19)));
    }
    Search(report + logs);
    ASSERT_EQ(told.size(), 3u);
    EXPECT_EQ(told[2].serial, "SN3");
    EXPECT_TRUE(drives.is_intermittent(1, 1));
    EXPECT_FALSE(drives.is_intermittent(1, 2));
    EXPECT_TRUE(drives.is_intermittent(1, 3));
}

// --- the mark ---

TEST_F(SmartArrayTest, EighteenErrors_AreNeverAMark) {
    EXPECT_FALSE(SearchOne(Errors(std::vector<unsigned int>(18, 100))).marked);
}

TEST_F(SmartArrayTest, NineteenErrorsAtOnce_AreAMark) {
    EXPECT_TRUE(SearchOne(Errors(std::vector<unsigned int>(19, 100))).marked);
}

TEST_F(SmartArrayTest, NineteenErrorsWithinTheBound_AreAMark) {
    std::vector<unsigned int> times = Minutes(1000, 18);
    times.push_back(1000 + 10079);
    EXPECT_TRUE(SearchOne(Errors(times)).marked);
}

TEST_F(SmartArrayTest, NineteenErrorsBeyondTheBound_AreNoMark) {
    std::vector<unsigned int> times = Minutes(1000, 18);
    times.push_back(1000 + 10080);
    EXPECT_FALSE(SearchOne(Errors(times)).marked);
}

TEST_F(SmartArrayTest, OlderErrors_DoNotPreventTheMarkInAnyOrder) {
    std::vector<unsigned int> times = Minutes(900000, 19);
    times.insert(times.end(), {1, 2, 3});
    EXPECT_TRUE(SearchOne(Errors(times)).marked);
    EXPECT_TRUE(SearchOne(Errors({times.rbegin(), times.rend()})).marked);
}

TEST_F(SmartArrayTest, ErrorsWithoutTimes_AreNoMark) {
    std::string entries;
    for (int number = 0; number < 30; ++number) {
        entries += "   Sense Key   0x03\n";
    }
    EXPECT_FALSE(SearchOne(entries).marked);
}

// --- one search after the other ---

TEST_F(SmartArrayTest, SecondSearchOverTheSameReport_DoesNotAddUp) {
    for (int search = 0; search < 3; ++search) {
        const Told& drive = SearchOne(Errors(Minutes(100, 18)));
        EXPECT_EQ(drive.count, 18);
        EXPECT_FALSE(drive.marked);
        EXPECT_EQ(drives.find_reference_times(1, 1).Size(), 18u);
    }
}

TEST_F(SmartArrayTest, SecondSearchOverADriveWithoutStatus_DoesNotAddUp) {
    for (int search = 0; search < 3; ++search) {
        Search(DriveSection(kP840, "1I:1:1", kErrorLog, Errors(Minutes(100, 18))));
        ASSERT_EQ(told.size(), 1u);
        EXPECT_FALSE(told[0].marked);
    }
}

TEST_F(SmartArrayTest, MarkOfAnEarlierReport_GoesWithIt) {
    EXPECT_TRUE(SearchOne(Errors(Minutes(100, 19))).marked);
    EXPECT_FALSE(SearchOne(Errors({100})).marked);
}

TEST_F(SmartArrayTest, DriveThatIsGone_LeavesItsPort) {
    Search(DriveSection(kP840, "1I:1:1", kStatus, "") + DriveSection(kP840, "1I:1:2", kStatus, ""));
    EXPECT_EQ(drives.find_location(1, 2), "1I:1:2");
    Search(DriveSection(kP840, "1I:1:1", kStatus, ""));
    EXPECT_EQ(drives.find_location(1, 2), "");
}

TEST_F(SmartArrayTest, ReportingMemory_SurvivesTheSearch) {
    drives.set_event_time("SN1", 5);
    drives.set_trace_time("SN1", 6);
    SearchOne(Errors({1}));
    EXPECT_EQ(drives.find_event_time("SN1"), 5u);
    EXPECT_EQ(drives.find_trace_time("SN1"), 6u);
}

// --- failures and big reports ---

TEST_F(SmartArrayTest, HeadingWithoutPlace_LeavesTheSearchAfterTheDrivesBeforeIt) {
    EXPECT_THROW(Search(DriveSection(kP840, "1I:1:1", kErrorLog, Errors({1})) +
                        DriveSection(kP840, "I:1:2", kErrorLog, Errors({1}))),
                 std::invalid_argument);
    EXPECT_EQ(told.size(), 1u);
    EXPECT_THAT(commands.commands, ElementsAre(kUnzip));
}

TEST_F(SmartArrayTest, FailureOfTheReporter_LeavesTheSearch) {
    root.Write(kReport, FullReport());
    EXPECT_THROW(SearchSmartArrays(commands, drives,
                                   [](tovaevent::EvtData, int, int, std::string, std::uint32_t, std::string,
                                      int) { throw std::runtime_error("no log"); }),
                 std::runtime_error);
}

TEST_F(SmartArrayTest, DrivesBeyondAnyServers_AreLeftOut) {
    std::string report;
    for (int bay = 0; bay < 3000; ++bay) {
        const std::string location = "1I:1:" + std::to_string(bay);
        report +=
            DriveSection(kP840, location, kStatus, StatusLines("SN" + std::to_string(bay), "1I", 1, bay)) +
            DriveSection(kP840, location, kErrorLog, Errors({5}));
    }
    for (int search = 0; search < 2; ++search) {
        Search(report);
        ASSERT_EQ(told.size(), 1024u);
        EXPECT_EQ(told.back().location, "1I:1:1023");
        EXPECT_EQ(told.back().serial, "SN1023");
        EXPECT_EQ(drives.find_serial("1I:1:1024"), "");
        EXPECT_EQ(drives.find_location(1, 1024), "1I:1:1023");
        EXPECT_EQ(drives.find_location(1, 1025), "");
    }
    EXPECT_EQ(SearchOne(Errors({1})).serial, "SN1");
}

TEST_F(SmartArrayTest, ControllersBeyondAnyServers_AreLeftOut) {
    std::string report;
    for (int slot = 0; slot < 3000; ++slot) {
        report +=
            DriveSection("Smart Array in slot " + std::to_string(slot), "1I:1:1", kErrorLog, Errors({5}));
    }
    Search(report);
    ASSERT_EQ(told.size(), 1024u);
    EXPECT_EQ(told.back().title, "Smart Array in slot 1023");
}

// The drive's number grows with each of them, and the port is another one.
TEST_F(SmartArrayTest, StatusSectionsOfOnePlaceWithoutEnd_AreLeftOut) {
    std::string report;
    for (int port = 0; port < 3000; ++port) {
        report += DriveSection(kP840, "1I:1:1", kStatus, StatusLines("SN", std::to_string(port), 1, 1));
    }
    Search(report);
    EXPECT_EQ(drives.find_location(1023, 1024), "1I:1:1");
    EXPECT_EQ(drives.find_location(1024, 1025), "");
}

TEST_F(SmartArrayTest, TextsOfAnyLength_AreCut) {
    const std::string beginning(256, 'x');
    const std::string text = beginning + std::string(20'000, 'y');
    Search(DriveSection(text, "1I:1:1" + text, kStatus, StatusLines(text, "1I", 1, 1)) +
           DriveSection(text, "1I:1:1" + text, kErrorLog, Errors({5})));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].title, beginning);
    EXPECT_EQ(told[0].serial, beginning);
    EXPECT_EQ(told[0].location, ("1I:1:1" + text).substr(0, 256));
    EXPECT_EQ(drives.find_location(1, 1), told[0].location);
}

TEST_F(SmartArrayTest, FiftyThousandDrivesOnOnePort_TakeNoSquareOfTheirTime) {
    std::string report = kP840 + " : " + kStatus + "\n";
    std::string logs = kP840 + " : " + kErrorLog + "\n";
    for (int bay = 1; bay <= 50000; ++bay) {
        const std::string location = "1I:1:" + std::to_string(bay);
        report += GroupedDrive(location, "   Physical Port   1I\n");
        logs += GroupedDrive(location, bay % 1000 == 0 ? Entry(3, 5) : "");
    }
    const auto begin = std::chrono::steady_clock::now();
    Search(report + logs);
    EXPECT_EQ(told.size(), 1u);  // the other 49 lie beyond the limit
    // About 0.2 s here; the square would be minutes.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace
