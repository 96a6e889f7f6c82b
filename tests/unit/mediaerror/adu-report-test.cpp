#include "adu-report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "adu-records.h"
#include "adu-texts.h"
#include "mutated-text.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using std::string_literals::operator""s;

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

// Outside of sections nothing but the heading of one is looked for.
TEST(AduReport, EveryFormOfASectionsHeading_IsFoundOutsideOfSections) {
    const std::string before[] = {
        "",
        "Device Summary:\nPhysical Drive 1I:1:1\nSerial SCSI Physical Drive Error Log\n\n",
        "Adapter : " + kStatus + "\n" + kP840 + " : Cache\n   Cache Status   OK\n",
        "Adapter: " + kErrorLog + "\nReport for Adapter\n---\n",
    };
    for (const std::string& lines : before) {
        for (const std::string heading :
             {"Adapter: ", "Adapter : ", "Adapter, slot 1: ", "   Adapter: ", ": ", " : "}) {
            EXPECT_THAT(Records(lines + heading + kErrorLog + "\n" + GroupedDrive("1I:1:1", Entry(3, 10))),
                        ElementsAre(testing::EndsWith("1I:1:1 port 1 box 1 bay 1 count 1 times 10")))
                << lines << heading;
        }
        for (const std::string heading : {"Adapter : ", "Adapter, slot 1 : ", "   Adapter : ", " : "}) {
            EXPECT_THAT(Records(lines + heading + kStatus + "\n" + GroupedDrive("1I:1:1", "")),
                        ElementsAre("drive 1 [] 1I:1:1 port 1 box 1 bay 1"))
                << lines << heading;
        }
    }
}

TEST(AduReport, OtherLinesOutsideOfSections_AreNotRead) {
    const std::string drives = GroupedDrive("1I:1:1", StatusLines("SN1", "1I", 1, 1) + Entry(3, 10)) +
                               "Physical Drive (2 TB SAS HDD) without colons\n" + Entry(3, 20);
    const std::string section = kP840 + " : " + kErrorLog + "\n" + GroupedDrive("1I:1:9", Entry(3, 30));
    for (const std::string line :
         {"", "Physical Drive Status", "Adapter Physical Drive Status", "Adapter: Physical Drive Status",
          "Serial SCSI Physical Drive Error Log", "Adapter :Serial SCSI Physical Drive Error Log",
          "Report for Adapter", "Adapter : Cache", ":"}) {
        EXPECT_THAT(Records(line + "\n" + drives), IsEmpty()) << line;
        EXPECT_THAT(Records(section + "Report for Adapter\n" + line + "\n" + drives + section),
                    ElementsAre(testing::EndsWith("count 1 times 30"), testing::EndsWith("count 1 times 30")))
            << line;
        EXPECT_THAT(Records(section + kP840 + " : Cache\n" + line + "\n" + drives),
                    ElementsAre(testing::EndsWith("count 1 times 30")))
            << line;
    }
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

TEST(AduReport, HeadingWithoutBracketInAStatusSection_IsSkippedAndNotCounted) {
    EXPECT_THAT(Records(kP840 + " : Physical Drive Status\n" + GroupedDrive("1I:1:1", "") +
                        "   Physical Drive 1I:1:2 SAS HDD\n" + StatusLines("SN2", "1I", 1, 2) +
                        GroupedDrive("1I:1:3", "")),
                ElementsAre("drive 1 [] 1I:1:1 port 1 box 1 bay 1", "drive 2 [] 1I:1:3 port 1 box 1 bay 3"));
}

TEST(AduReport, ValuesThatNameThePhysicalDrive_AreNoHeadings) {
    for (const std::string value : {"   Physical Drive State: OK\n", "   Physical Drive Type: SAS HDD\n",
                                    "   Physical Drive Type   SSD\n"}) {
        EXPECT_THAT(Records(DriveSection(kP840, "1I:1:1", kStatus, value + StatusLines("SN1", "1I", 1, 1)) +
                            DriveSection(kP840, "1I:1:1", kErrorLog, value + Entry(3, 16))),
                    ElementsAre("drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1",
                                "log 1 [" + kP840 + "] 1I:1:1 port 1 box 1 bay 1 count 1 times 16"))
            << value;
    }
}

TEST(AduReport, HeadingInAnErrorLogWithAWordBeforeItsBracket_IsTheNextDrive) {
    EXPECT_THAT(
        Records(kP840 + " : " + kErrorLog + "\n" + GroupedDrive("1I:1:1", Entry(3, 16)) +
                "   Physical Drive 2 (2 TB SAS HDD) 1I:1:2 :\n" + Entry(3, 32)),
        ElementsAre(
            "log 1 [Physical Drive (2 TB SAS HDD) 1I:1:1] 1I:1:1 port 1 box 1 bay 1 count 1 times 16",
            "log 2 [Physical Drive 2 (2 TB SAS HDD) 1I:1:2] 1I:1:2 port 1 box 1 bay 2 count 1 times 32"));
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

TEST(AduReport, ErrorLogsOfTheNextController_KnowNothingOfTheOneBefore) {
    const std::string other = "Smart Array P410i in Embedded Slot";
    EXPECT_THAT(
        Records(DriveSection(kP840, "1I:1:1", kStatus, "") + DriveSection(kP840, "1I:1:2", kStatus, "") +
                DriveSection(kP840, "1I:1:1", kErrorLog, "") + DriveSection(kP840, "1I:1:2", kErrorLog, "") +
                DriveSection(other, "1I:1:2", kErrorLog, "") + DriveSection(other, "1I:1:1", kErrorLog, "")),
        ElementsAre(testing::StartsWith("drive 1 "), testing::StartsWith("drive 2 "),
                    testing::StartsWith("log 1 "), testing::StartsWith("log 2 "),
                    testing::StartsWith("log 1 [" + other + "] 1I:1:2"),
                    testing::StartsWith("log 2 [" + other + "] 1I:1:1")));
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
