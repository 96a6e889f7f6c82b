#include "adu-report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "adu-texts.h"
#include "mutated-text.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using std::string_literals::operator""s;

// What a report yields, each record as one line: "drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1", "log 1 [title]
// 1I:1:1 port 1 box 1 bay 1 count 2 times 10 20".
std::vector<std::string> Records(const std::string& text) {
    std::vector<std::string> records;
    const auto place = [](const auto& record) {
        return record.location + " port " + std::to_string(record.port) + " box " +
               std::to_string(record.box) + " bay " + std::to_string(record.bay);
    };
    TextLines lines(text);
    ReadAduReport(lines, {[&](const AduDrive& drive) {
                              records.push_back("drive " + std::to_string(drive.number) + " [" +
                                                drive.serial + "] " + place(drive));
                          },
                          [&](const AduErrorLog& log) {
                              std::string times;
                              for (const std::uint64_t time : log.times.Times()) {
                                  times += " " + std::to_string(time);
                              }
                              records.push_back("log " + std::to_string(log.number) + " [" + log.title +
                                                "] " + place(log) + " count " + std::to_string(log.count) +
                                                " times" + times);
                          }});
    return records;
}

// One error log in the middle of a report: its count and times.
std::string LogOf(const std::string& lines) {
    const std::vector<std::string> records = Records(DriveSection(kP840, "1I:1:1", kErrorLog, lines));
    EXPECT_THAT(records, SizeIs(1));
    return records.empty() ? "" : records[0].substr(records[0].find("count"));
}

// One status section: its record.
std::string StatusOf(const std::string& lines, const std::string& location = "1I:1:1") {
    const std::vector<std::string> records = Records(DriveSection(kP840, location, kStatus, lines));
    EXPECT_LE(records.size(), 1u);
    return records.empty() ? "" : records[0];
}

// --- the interface's small functions ---

TEST(FindElements, KeyInTheLine_GivesTheTextBehindIt) {
    std::string value = "old";
    EXPECT_TRUE(find_elements("   Drive Serial Number      SN1  x", "Drive Serial Number", value));
    EXPECT_EQ(value, "SN1  x");
    EXPECT_TRUE(find_elements("Sense Key\t 0x03", "Sense Key", value));
    EXPECT_EQ(value, "0x03");
    EXPECT_TRUE(find_elements("Sense Key", "Sense Key", value));
    EXPECT_EQ(value, "");
}

TEST(FindElements, KeyNotInTheLine_EmptiesTheValue) {
    std::string value = "old";
    EXPECT_FALSE(find_elements("   Drive serial number      SN1", "Drive Serial Number", value));
    EXPECT_EQ(value, "");
}

TEST(RemoveNonDigits, AnyText_KeepsDecimalDigitsOnly) {
    std::string text = "-1I \xb2\0 0x2:9"s;
    removeNonDigits(text);
    EXPECT_EQ(text, "1029");
    EXPECT_FALSE(isNotDigit('0'));
    EXPECT_FALSE(isNotDigit('9'));
    EXPECT_TRUE(isNotDigit('/'));
    EXPECT_TRUE(isNotDigit(':'));
    EXPECT_TRUE(isNotDigit('\0'));
    EXPECT_TRUE(isNotDigit('\xb2'));
}

// The five texts of getLocation, joined by "|".
std::string Location(const std::string& line, int mode) {
    std::string texts[5] = {"old", "old", "old", "old", "old"};
    getLocation(line, texts[0], texts[1], texts[2], texts[3], texts[4], mode);
    return texts[0] + "|" + texts[1] + "|" + texts[2] + "|" + texts[3] + "|" + texts[4];
}

TEST(GetLocation, Headings_AreTakenApart) {
    EXPECT_EQ(Location("Smart Array P840 in slot 1 : Internal Drive Cage at Port 1I : Box 2 : Physical Drive "
                       "(2 TB SATA HDD) 1I:2:11 : Physical Drive Status",
                       kStatusHeading),
              "Smart Array P840 in slot 1|1I:2:11|1I|2|11");
    EXPECT_EQ(Location("   Physical Drive (480 GB SATA SSD) 2E:1:64 :", kErrorLogHeading),
              "Physical Drive (480 GB SATA SSD) 2E:1:64|2E:1:64|2E|1|64");
    EXPECT_EQ(Location("Box 1 (rear) of HDDs : Physical Drive (2 TB SATA HDD) 1I:2:11", kStatusHeading),
              "Box 1 (rear) of HDDs|1I:2:11|1I|2|11");
}

TEST(GetLocation, LineWithoutKind_LeavesTheOutputsEmpty) {
    for (const int mode : {kStatusHeading, kErrorLogHeading}) {
        EXPECT_EQ(Location("Physical Drive (400 GB SAS Tape) 1I:1:1 :", mode), "||||");
        EXPECT_EQ(Location("Physical Drive 1I:1:1 :", mode), "||||");
        EXPECT_EQ(Location("SSD cage : Physical Drive (Tape) 1I:1:1", mode), "||||");
        EXPECT_EQ(Location("", mode), "||||");
    }
}

TEST(GetLocation, Bracket_IsRequiredInStatusSectionsOnly) {
    EXPECT_EQ(Location("Physical Drive [SAS HDD (4 TB) 1I:1:1", kStatusHeading), "||||");
    EXPECT_EQ(Location("Physical Drive [SAS HDD (4 TB) 1I:1:1", kErrorLogHeading),
              "Physical Drive [SAS HDD (4 TB) 1I:1:1|1I:1:1|1I|1|1");
}

TEST(GetLocation, IncompleteLocation_LeavesTheMissingPartsEmpty) {
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD) 1I:7", kErrorLogHeading), "X|1I:7|1I|7|");
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD) ::", kErrorLogHeading), "X|::|||");
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD)", kErrorLogHeading), "X||||");
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD) 1I:2:3:4", kErrorLogHeading), "X|1I:2:3:4|1I|2|3");
}

// --- layouts ---

TEST(AduReport, EmptyText_HasNoRecords) {
    EXPECT_THAT(Records(""), IsEmpty());
}

TEST(AduReport, InterleavedSections_GiveTheDrivesOneByOne) {
    EXPECT_THAT(
        Records(Head(kP840) + DriveSection(kP840, "1I:1:1", kStatus, StatusLines("SN1", "1I", 1, 1)) +
                OtherSections(kP840, "1I:1:1") +
                DriveSection(kP840, "1I:1:1", kErrorLog, Table({{3, 10}, {3, 20}})) +
                OtherSections(kP840, "1I:1:1") +
                DriveSection(kP840, "2I:1:5", kStatus, StatusLines("SN2", "2I", 1, 5)) +
                OtherSections(kP840, "2I:1:5") + DriveSection(kP840, "2I:1:5", kErrorLog, Table({})) +
                OtherSections(kP840, "2I:1:5")),
        ElementsAre("drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1",
                    "log 1 [Smart Array P840 in slot 1] 1I:1:1 port 1 box 1 bay 1 count 2 times 10 20",
                    "drive 2 [SN2] 2I:1:5 port 2 box 1 bay 5",
                    "log 2 [Smart Array P840 in slot 1] 2I:1:5 port 2 box 1 bay 5 count 0 times"));
}

TEST(AduReport, GroupedSections_GiveTheDrivesInOrder) {
    EXPECT_THAT(
        Records(kP840 + " : Physical Drive Status\n" +
                GroupedDrive("1I:1:1", StatusLines("SN1", "1I", 1, 1)) +
                GroupedDrive("1I:1:2", StatusLines("SN2", "1I", 1, 2)) + kP840 +
                " : Serial SCSI Physical Drive Error Log\n" +
                GroupedDrive("1I:1:1", Entry(3, 10) + Entry(3, 20)) +
                GroupedDrive("1I:1:2", Entry(5, 30) + Entry(3, 0x40))),
        ElementsAre(
            "drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1", "drive 2 [SN2] 1I:1:2 port 1 box 1 bay 2",
            "log 1 [Physical Drive (2 TB SAS HDD) 1I:1:1] 1I:1:1 port 1 box 1 bay 1 count 2 times 10 20",
            "log 2 [Physical Drive (2 TB SAS HDD) 1I:1:2] 1I:1:2 port 1 box 1 bay 2 count 1 times 64"));
}

TEST(AduReport, GroupedHeadingWithoutEmptyPart_IsAHeading) {
    EXPECT_THAT(
        Records(kP840 + " : Serial SCSI Physical Drive Error Log\n" +
                "Physical Drive (1 TB SAS HDD) 1I:1:1\n" + Entry(3, 1) +
                "  Internal Drive Cage at Port 1I : Box 1 : Physical Drive (1 TB SAS HDD) 1I:1:2\n" +
                Entry(3, 2) + kP840 +
                " : Internal Drive Cage at Port 1I : Box 1 : Physical Drive (1 TB SAS HDD) 1I:1:3 :\n" +
                Entry(3, 3)),
        ElementsAre("log 1 [Physical Drive (1 TB SAS HDD) 1I:1:1] 1I:1:1 port 1 box 1 bay 1 count 1 times 1",
                    "log 2 [Internal Drive Cage at Port 1I] 1I:1:2 port 1 box 1 bay 2 count 1 times 2",
                    "log 3 [Smart Array P840 in slot 1] 1I:1:3 port 1 box 1 bay 3 count 1 times 3"));
}

TEST(AduReport, ErrorLogsBeforeStatusSections_AreNumberedByTheirOrder) {
    EXPECT_THAT(Records(kP840 + " : Serial SCSI Physical Drive Error Log\n" +
                        GroupedDrive("1I:1:1", Entry(3, 10)) + kP840 + " : Physical Drive Status\n" +
                        GroupedDrive("1I:1:1", StatusLines("SN1", "1I", 1, 1))),
                ElementsAre(testing::StartsWith("log 1 "), "drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1"));
}

TEST(AduReport, CarriageReturns_ChangeNothing) {
    const std::string report = FullReport();
    std::string withReturns;
    for (const char character : report) {
        withReturns += character == '\n' ? "\r\n" : std::string(1, character);
    }
    EXPECT_THAT(Records(report), SizeIs(8));
    EXPECT_EQ(Records(withReturns), Records(report));
}

TEST(AduReport, ReportCutOffInAnErrorLog_GivesWhatWasRead) {
    EXPECT_THAT(
        Records(DriveSection(kP840, "1I:1:1", kErrorLog, Entry(3, 10) + Entry(3, 20)) + "      Sense Ke"),
        ElementsAre("log 1 [Smart Array P840 in slot 1] 1I:1:1 port 1 box 1 bay 1 count 2 times 10 20"));
}

TEST(AduReport, ReportCutOffInAStatusSection_GivesTheDrive) {
    EXPECT_THAT(
        Records(DriveHeading(kP840, "1I:1:1", kStatus) + "\n   Drive Serial Number     SN1\n   Physi"),
        ElementsAre("drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1"));
}

TEST(AduReport, EveryBeginningOfAReport_CanBeRead) {
    const std::string report = FullReport();
    std::size_t most = 0;
    for (std::size_t size = 0; size < report.size(); ++size) {
        try {
            most = std::max(most, Records(report.substr(0, size)).size());
        } catch (const std::invalid_argument&) {
            // Cut off in the location of an error log's heading.
        }
    }
    EXPECT_EQ(most, 8u);
}

// --- what ends a section ---

struct Ending {
    const char* name;
    std::string line;

    friend void PrintTo(const Ending& ending, std::ostream* out) { *out << ending.name; }
};

class AduReportEnding : public testing::TestWithParam<Ending> {};

INSTANTIATE_TEST_SUITE_P(
    , AduReportEnding,
    testing::Values(
        Ending{"OtherStructureOfTheDrive", DriveHeading(kP840, "1I:1:1", "Mode Sense 10")},
        Ending{"OtherStructureOfAnotherDrive", DriveHeading(kP840, "1I:1:2", "VPD Page 83")},
        Ending{"OtherStructureOfATape", kP840 + " : Physical Drive (400 GB SAS Tape) 1I:1:3 : Mode Sense 10"},
        Ending{"StructureWithoutController", "Physical Drive (2 TB SAS HDD) 1I:1:1 : Workload Information"},
        Ending{"StructureOfTheController", kP840 + " : Identify Controller"},
        Ending{"StructureOfAnotherController", "Smart Array P410i in Embedded Slot : Device Error Report"},
        Ending{"DriveOfAnotherController",
               "Smart Array P410i in Slot 2 : Physical Drive (2 TB SAS HDD) 1I:1:2"},
        Ending{"NextReport", "Report for Smart Array P840 in slot 2"},
        Ending{"NextReportWithColon", "Report for Smart Array P840 in slot 2 :"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(AduReportEnding, InAStatusSection_EndsIt) {
    EXPECT_THAT(Records(DriveHeading(kP840, "1I:1:1", kStatus) + "\n" + GetParam().line +
                        "\n   Drive Serial Number   WRONG\n   Physical Port   7\n" +
                        GroupedDrive("1I:1:9", StatusLines("WRONG", "1I", 1, 9))),
                ElementsAre("drive 1 [] 1I:1:1 port 1 box 1 bay 1"));
}

TEST_P(AduReportEnding, InAnErrorLog_EndsIt) {
    EXPECT_THAT(Records(DriveHeading(kP840, "1I:1:1", kErrorLog) + "\n" + Entry(3, 10) + GetParam().line +
                        "\n" + Entry(3, 20) + Table({{3, 30}}) + GroupedDrive("1I:1:9", Entry(3, 40))),
                ElementsAre("log 1 [Smart Array P840 in slot 1] 1I:1:1 port 1 box 1 bay 1 count 1 times 10"));
}

TEST(AduReport, OwnControllerWithoutSlotInItsTitle_EndsTheSectionToo) {
    EXPECT_THAT(Records("Adapter : Serial SCSI Physical Drive Error Log\n" +
                        GroupedDrive("1I:1:1", Entry(3, 10)) + "Adapter : Cache\n" + Entry(3, 20)),
                ElementsAre(testing::EndsWith("count 1 times 10")));
}

TEST(AduReport, LinesBeforeAnySection_AreNoRecords) {
    EXPECT_THAT(
        Records("Consolidated Error Report:\n   Controller: Smart Array P840 in slot 1\n"
                "   Device: Physical Drive 1I:1:1\n   Device: Physical Drive (2 TB SAS HDD) 1I:1:1\n"
                "   Message: The physical drive has failed.\n" +
                Entry(3, 10) + "Physical Drive (2 TB SAS HDD) 1I:1:1    Critical    Sense Key  0x03\n" +
                "   Drive Serial Number   SN1\n   Physical Port   1I\n"),
        IsEmpty());
}

TEST(AduReport, LinesWithColonsInASection_AreNoHeadings) {
    EXPECT_EQ(LogOf("   Time : 10:11:12\n   Sense Key : 0x03\n   Note: Physical Drive is old\n"
                    "   Reference Time : 0x0a\n"),
              "count 1 times 10");
}

// --- drives that are none, or of no kind ---

TEST(AduReport, TapeBetweenDrives_IsSkippedWithAllItsEntries) {
    const std::string tape = " : Physical Drive (400 GB SAS Tape) 1I:1:2 : ";
    EXPECT_THAT(
        Records(DriveSection(kP840, "1I:1:1", kErrorLog, Entry(3, 1)) + kP840 + tape + kStatus + "\n" +
                StatusLines("TAPE", "1I", 1, 2) + kP840 + tape + kErrorLog + "\n" + Entry(3, 2) +
                Table({{3, 3}}) + DriveSection(kP840, "1I:1:3", kErrorLog, Entry(3, 4))),
        ElementsAre(testing::EndsWith("1I:1:1 port 1 box 1 bay 1 count 1 times 1"),
                    testing::EndsWith("1I:1:3 port 1 box 1 bay 3 count 1 times 4")));
}

TEST(AduReport, GroupedTape_IsSkippedAndNotCounted) {
    for (const std::string tape :
         {"   Physical Drive (400 GB SAS Tape) 1I:1:2 :\n", "   Physical Drive (400 GB SAS Tape)\n",
          "   Physical Drive 1I:1:2 :\n", "Physical Drive 1I:1:2\n"}) {
        EXPECT_THAT(
            Records(kP840 + " : Physical Drive Status\n" + GroupedDrive("1I:1:1", "   Physical Port   1\n") +
                    tape + StatusLines("TAPE", "7I", 7, 7) + GroupedDrive("1I:1:3", "") + kP840 +
                    " : Serial SCSI Physical Drive Error Log\n" + GroupedDrive("1I:1:1", Entry(3, 1)) + tape +
                    Entry(3, 2) + GroupedDrive("1I:1:3", Entry(3, 4))),
            ElementsAre("drive 1 [] 1I:1:1 port 1 box 1 bay 1", "drive 2 [] 1I:1:3 port 1 box 1 bay 3",
                        testing::AllOf(testing::StartsWith("log 1 "), testing::EndsWith("count 1 times 1")),
                        testing::AllOf(testing::StartsWith("log 2 "), testing::EndsWith("count 1 times 4"))))
            << tape;
    }
}

TEST(AduReport, SolidStateDrive_IsADrive) {
    EXPECT_THAT(Records(kP840 + " : Physical Drive (480 GB SATA SSD) 1I:1:1 : Physical Drive Status\n"),
                ElementsAre("drive 1 [] 1I:1:1 port 1 box 1 bay 1"));
}

TEST(AduReport, OldReportWithoutKinds_HasNoRecords) {
    const std::string drive = kP840 + " : Box 1 : Physical Drive 1I:1:1 : ";
    EXPECT_THAT(Records(drive + kStatus + "\n" + StatusLines("SN1", "1I", 1, 1) + drive + kErrorLog + "\n" +
                        Entry(3, 1)),
                IsEmpty());
}

// --- numbers ---

TEST(AduReport, RepeatedHeadingOfOneController_GoesOnCounting) {
    const std::string status = kP840 + " : Physical Drive Status\n";
    EXPECT_THAT(Records(status + GroupedDrive("1I:1:1", "") + status + GroupedDrive("1I:1:2", "") +
                        "Physical Drive (2 TB SAS HDD) 1I:1:3 : Physical Drive Status\n"),
                ElementsAre(testing::StartsWith("drive 1 "), testing::StartsWith("drive 2 "),
                            testing::StartsWith("drive 3 ")));
}

TEST(AduReport, SectionLiteralsWithAndWithoutBlank_BelongToTheSameController) {
    EXPECT_THAT(Records("Adapter : Physical Drive Status\n" + GroupedDrive("1I:1:1", "") +
                        GroupedDrive("1I:1:2", "") + "Adapter: Serial SCSI Physical Drive Error Log\n" +
                        GroupedDrive("1I:1:2", Entry(3, 1))),
                ElementsAre(testing::StartsWith("drive 1 "), testing::StartsWith("drive 2 "),
                            testing::StartsWith("log 2 ")));
}

TEST(AduReport, NextController_CountsFromOne) {
    const std::string other = "Smart Array P410i in Embedded Slot";
    std::string report;
    for (const std::string& controller : {kP840, other}) {
        report += Head(controller) + DriveSection(controller, "1I:1:1", kStatus, "") +
                  DriveSection(controller, "1I:1:1", kErrorLog, Entry(3, 1)) +
                  DriveSection(controller, "1I:1:2", kStatus, "");
    }
    EXPECT_THAT(Records(report), ElementsAre(testing::StartsWith("drive 1 [] 1I:1:1"),
                                             testing::StartsWith("log 1 [" + kP840 + "] 1I:1:1"),
                                             testing::StartsWith("drive 2 [] 1I:1:2"),
                                             testing::StartsWith("drive 1 [] 1I:1:1"),
                                             testing::StartsWith("log 1 [" + other + "] 1I:1:1"),
                                             testing::StartsWith("drive 2 [] 1I:1:2")));
}

TEST(AduReport, NumberOfAnErrorLog_IsThatOfTheLocationInTheStatusSections) {
    EXPECT_THAT(
        Records(DriveSection(kP840, "1I:1:1", kStatus, "") + DriveSection(kP840, "1I:1:2", kStatus, "") +
                DriveSection(kP840, "1I:1:3", kStatus, "") +
                DriveSection(kP840, "1I:1:3", kErrorLog, "") +  // others have none
                DriveSection(kP840, "1I:1:9", kErrorLog, "") +  // second log, no status
                DriveSection(kP840, "1I:1:1", kErrorLog, "")),
        ElementsAre(testing::StartsWith("drive 1 "), testing::StartsWith("drive 2 "),
                    testing::StartsWith("drive 3 "), testing::StartsWith("log 3 "),
                    testing::StartsWith("log 2 "), testing::StartsWith("log 1 ")));
}

TEST(AduReport, DriveWithoutPort_IsCountedButNotGiven) {
    EXPECT_THAT(Records(DriveSection(kP840, "I:1:1", kStatus, "   Drive Serial Number   SN1\n") +
                        DriveSection(kP840, "1I:1:2", kStatus, "")),
                ElementsAre("drive 2 [] 1I:1:2 port 1 box 1 bay 2"));
}

// --- status values ---

TEST(AduReport, StatusValues_AreRead) {
    EXPECT_EQ(StatusOf(StatusLines("SN1", "2E", 3, 44), "1I:1:1"),
              "drive 1 [SN1] 1I:1:1 port 2 box 3 bay 44");
}

TEST(AduReport, StatusNumbers_AreTheDigitsOfTheFirstWord) {
    EXPECT_EQ(StatusOf("   Physical Port     4 (0x04)\n   Physical Box : 2\n   Physical Bay = 10 (0x0a)\n"),
              "drive 1 [] 1I:1:1 port 4 box 2 bay 10");
}

TEST(AduReport, FirstValueOfEachKind_Counts) {
    EXPECT_EQ(StatusOf(StatusLines("SN1", "2I", 2, 2) + StatusLines("SN2", "3I", 3, 3)),
              "drive 1 [SN1] 1I:1:1 port 2 box 2 bay 2");
}

TEST(AduReport, EmptyStatusValues_LeaveThePlaceOfTheHeading) {
    EXPECT_EQ(
        StatusOf(
            "   Drive Serial Number\n   Physical Port\n   Physical Box        n/a\n   Physical Bay   -\n",
            "2I:3:4"),
        "drive 1 [] 2I:3:4 port 2 box 3 bay 4");
}

TEST(AduReport, SerialNumber_IsTrimmedAndKeepsItsInnerBlanks) {
    EXPECT_EQ(StatusOf("   Serial Number   WRONG\n   Drive Serial Number      S 1 2        \n"),
              "drive 1 [S 1 2] 1I:1:1 port 1 box 1 bay 1");
}

TEST(AduReport, OverflowingStatusNumbers_CountAsMissing) {
    const std::string huge(100, '9');
    EXPECT_EQ(StatusOf("   Physical Port   " + huge + "\n   Physical Box   " + huge +
                           "\n   Physical Bay  2147483648\n",
                       "1I:2:3"),
              "drive 1 [] 1I:2:3 port 1 box 2 bay 3");
    EXPECT_EQ(StatusOf("", huge + ":1:1"), "");
    EXPECT_EQ(StatusOf("   Physical Port  1\n", "1I:" + huge + ":x"),
              "drive 1 [] 1I:" + huge + ":x port 1 box 0 bay 0");
}

// --- error entries ---

TEST(AduReport, KeyValueEntries_CountMediumErrorsOnly) {
    EXPECT_EQ(LogOf(Entry(3, 0x10) + Entry(1, 0x20) + Entry(0xb, 0x30) + Entry(3, 0x40)),
              "count 2 times 16 64");
}

TEST(AduReport, TableRows_CountMediumErrorsOnly) {
    EXPECT_EQ(LogOf(Table({{3, 0x10}, {1, 0x20}, {0xb, 0x30}, {3, 0x40}})), "count 2 times 16 64");
}

TEST(AduReport, SenseKeyInOtherColumns_IsNotCounted) {
    EXPECT_EQ(LogOf(kTableHead + "      0x03 0x03 0x03 0x03 0x01 0x03 0x03 0x03 0x00000003 0x0003 0x0003\n"),
              "count 0 times");
}

TEST(AduReport, TableHeader_TellsTheColumns) {
    EXPECT_EQ(
        LogOf("   Reference Time   ASC   Sense Key   Block\n   --------------   ---   ---------   -----\n"
              "   0x0a             0x03  0x01        0x03\n   0x0b             0x11  0x03        0x00\n"),
        "count 1 times 11");
}

TEST(AduReport, TableHeaderWithSingleBlanks_MeansTheUsualColumns) {
    EXPECT_EQ(
        LogOf("Error Type SCSI Operation Code SCSI Status CAM Status Sense Key ASC ASCQ Block Valid Block "
              "Reference Time Additional Information\n"
              "0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x0d6d2ba0 0x0005a99e 0x0000\n"),
        "count 1 times 371102");
}

TEST(AduReport, StackedTableHeader_MeansTheUsualColumns) {
    EXPECT_EQ(
        LogOf(
            "   Physical Drive Error Log Entries\n\n"
            "      Error  SCSI Op  SCSI    CAM     Sense  ASC   ASCQ  Block  Block  Reference  Additional\n"
            "      Type   Code     Status  Status  Key                Valid         Time       Information\n"
            "      -----  -------  ------  ------  -----  ----  ----  -----  -----  ---------  ----------\n" +
            Row(3, 5) + Row(4, 6) + Row(3, 7)),
        "count 2 times 5 7");
}

TEST(AduReport, TableWithoutHeader_MeansTheUsualColumns) {
    EXPECT_EQ(LogOf("   Physical Drive Error Log Entries\n" + Row(3, 5) + "\n" + Row(3, 7)),
              "count 2 times 5 7");
}

TEST(AduReport, RowsOutsideATable_AreNotCounted) {
    EXPECT_EQ(LogOf(Row(3, 5)), "count 0 times");
    EXPECT_EQ(LogOf(Table({{3, 5}}) + "   Raw Data\n" + Row(3, 6)), "count 1 times 5");
}

TEST(AduReport, RowsThatAreNone_ArePassedOver) {
    EXPECT_EQ(LogOf(kTableHead +
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00\n"             // short
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 5a99e 0x00\n"  // no hex
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 0x5g 0x00\n"
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 0x 0x00\n"
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 0x10000000000000000 0x00\n" +
                    Row(3, 9)),
              "count 1 times 9");
}

TEST(AduReport, ClosingReferenceTime_BelongsToNoError) {
    const std::string closing = "\n   Reference Time                       0x0005f000\n";
    EXPECT_EQ(LogOf(Table({{3, 5}}) + closing), "count 1 times 5");
    EXPECT_EQ(LogOf(Entry(3, 5) + closing), "count 1 times 5");
    EXPECT_EQ(LogOf(Entry(3, 5) + Entry(1, 6) + closing), "count 1 times 5");
    EXPECT_EQ(LogOf(closing), "count 0 times");
    EXPECT_EQ(LogOf("   Reference Time    none\n"), "count 0 times");
}

TEST(AduReport, ErrorWithoutTime_IsCounted) {
    EXPECT_EQ(
        LogOf("   Sense Key   0x03\n   Sense Key   0x03\n   Reference Time   0x0a\n   Sense Key   0x03\n"),
        "count 3 times 10");
}

TEST(AduReport, EntryOfOneLine_IsCounted) {
    EXPECT_EQ(LogOf("   Sense Key: 0x03, ASC: 0x11, Reference Time: 0x0a\n"
                    "   Sense Key: 0x01, ASC: 0x11, Reference Time: 0x0b, Code: 0x03\n"),
              "count 1 times 10");
}

TEST(AduReport, SenseKeyValue_HoldsTheWholeNumber) {
    EXPECT_EQ(LogOf("   Sense Key   0x03 (Medium Error)\n"), "count 1 times");
    EXPECT_EQ(LogOf("   Sense Key   3 (0x03)\n"), "count 1 times");
    EXPECT_EQ(LogOf("   Sense Key   0x031\n   Sense Key   0x0\n   Sense Key\n   Sense Key   03\n   sense key "
                    "  0x03\n"),
              "count 0 times");
}

TEST(AduReport, ReferenceTimes_AreHexadecimalWithOrWithoutPrefix) {
    EXPECT_EQ(
        LogOf("   Sense Key  0x03\n   Reference Time  1f\n   Sense Key  0x03\n   Reference Time  0x1f (31)\n"
              "   Sense Key  0x03\n   Reference Time  0xffffffffffffffff\n"),
        "count 3 times 31 31 18446744073709551615");
}

TEST(AduReport, TimeOfAMediumErrorWithoutHexDigits_Throws) {
    EXPECT_THROW(LogOf("   Sense Key  0x03\n   Reference Time  none\n"), std::invalid_argument);
    EXPECT_THROW(LogOf("   Sense Key  0x03\n   Reference Time\n"), std::invalid_argument);
    EXPECT_THROW(LogOf("   Sense Key  0x03\n   Reference Time  0x10000000000000000\n"), std::out_of_range);
}

TEST(AduReport, HeadingOfAnErrorLogWithoutPlace_Throws) {
    for (const std::string location : {"I:1:1", "1I::1", "1I:1:", "1I:1", "1I", "a:b:c", "", ":"}) {
        EXPECT_THROW(Records(DriveSection(kP840, location, kErrorLog, "")), std::invalid_argument)
            << location;
    }
    EXPECT_THROW(Records(DriveSection(kP840, "1I:99999999999:1", kErrorLog, "")), std::out_of_range);
}

TEST(AduReport, DrivesBeforeTheOneThatThrows_HaveBeenGiven) {
    int given = 0;
    const std::string report = DriveSection(kP840, "1I:1:1", kErrorLog, Entry(3, 1)) +
                               DriveSection(kP840, "1I:1:x", kErrorLog, Entry(3, 1));
    TextLines source(report);
    EXPECT_THROW(ReadAduReport(source, {[](const AduDrive&) {}, [&](const AduErrorLog&) { ++given; }}),
                 std::invalid_argument);
    EXPECT_EQ(given, 1);
}

// --- hostile texts ---

TEST(AduReport, UnprintableTexts_AreCleaned) {
    EXPECT_THAT(Records("Smart\tArray\x1b[2J\xff in slot 1 : Physical Drive (SAS HDD) 1I:1:1\0x : "s +
                        kStatus + "\n   Drive Serial Number   S\0N\x07%s\n"s +
                        "Smart\tArray\x1b[2J\xff in slot 1 : Physical Drive (SAS HDD) 1I:1:1\0x : "s +
                        kErrorLog + "\n"),
                ElementsAre("drive 1 [S?N?%s] 1I:1:1?x port 1 box 1 bay 1",
                            "log 1 [Smart?Array?[2J? in slot 1] 1I:1:1?x port 1 box 1 bay 1 count 0 times"));
}

TEST(AduReport, EndlessLines_AreTaken) {
    const std::string endless(3 * 1024 * 1024, 'x');
    const std::string blanks(1024 * 1024, ' ');
    EXPECT_EQ(LogOf(endless + "\n" + blanks + "Sense Key" + blanks + "0x03" + "\n" + kTableHead + endless +
                    "\n" + blanks + Row(3, 9)),
              "count 2 times 9");
    EXPECT_EQ(StatusOf("   Drive Serial Number " + endless + "\n").size(),
              endless.size() + std::string("drive 1 [] 1I:1:1 port 1 box 1 bay 1").size());
}

TEST(AduReport, LogWithManyEntries_KeepsTheirCountAndTheNewestTimes) {
    std::string rows = kTableHead;
    for (unsigned int time = 1; time <= 50000; ++time) {
        rows += Row(3, time);
    }
    const std::string report = DriveSection(kP840, "1I:1:1", kErrorLog, rows);
    TextLines lines(report);
    AduErrorLog last;
    ReadAduReport(lines, {[](const AduDrive&) {}, [&](const AduErrorLog& log) { last = log; }});
    EXPECT_EQ(last.count, 50000u);
    EXPECT_EQ(last.times.Newest(), 50000u);
    EXPECT_LE(last.times.Size(), 2 * ErrorTimes::kKept);
    EXPECT_EQ(last.times.SpanOfNewest(19), 18u);
}

TEST(AduReport, DamagedReports_ThrowNothingButTheTwo) {
    const std::vector<std::string> pieces{"\n",
                                          " : ",
                                          " :",
                                          "Physical Drive (",
                                          "Physical Drive ",
                                          "HDD) ",
                                          "SSD",
                                          " : Physical Drive Status\n",
                                          ": Serial SCSI Physical Drive Error Log\n",
                                          "Report for ",
                                          " in slot ",
                                          "Sense Key",
                                          "Reference Time",
                                          "0x03",
                                          "0x",
                                          std::string(1, '\0'),
                                          "99999999999999999999",
                                          "Physical Port ",
                                          "Physical Drive Error Log Entries\n",
                                          "\r\n"};
    std::mt19937 random(20260117);
    const std::string report = FullReport();
    std::size_t whole = 0;
    for (int round = 0; round < 20000; ++round) {
        try {
            whole += Records(MutatedText(report, pieces, random)).empty() ? 0 : 1;
        } catch (const std::invalid_argument&) {
        } catch (const std::out_of_range&) {
        }
    }
    EXPECT_GT(whole, 10000u);  // most of them could be read
}

}  // namespace
