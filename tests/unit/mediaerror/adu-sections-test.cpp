#include "adu-sections.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "adu-records.h"
#include "adu-texts.h"
#include "kept.h"

namespace {

// --- status values ---

TEST(AduSections, StatusValues_AreRead) {
    EXPECT_EQ(StatusOf(StatusLines("SN1", "2E", 3, 44), "1I:1:1"),
              "drive 1 [SN1] 1I:1:1 port 2 box 3 bay 44");
}

TEST(AduSections, StatusNumbers_AreTheDigitsOfTheFirstWord) {
    EXPECT_EQ(StatusOf("   Physical Port     4 (0x04)\n   Physical Box : 2\n   Physical Bay = 10 (0x0a)\n"),
              "drive 1 [] 1I:1:1 port 4 box 2 bay 10");
}

TEST(AduSections, FirstValueOfEachKind_Counts) {
    EXPECT_EQ(StatusOf(StatusLines("SN1", "2I", 2, 2) + StatusLines("SN2", "3I", 3, 3)),
              "drive 1 [SN1] 1I:1:1 port 2 box 2 bay 2");
}

TEST(AduSections, EmptyStatusValues_LeaveThePlaceOfTheHeading) {
    EXPECT_EQ(
        StatusOf(
            "   Drive Serial Number\n   Physical Port\n   Physical Box        n/a\n   Physical Bay   -\n",
            "2I:3:4"),
        "drive 1 [] 2I:3:4 port 2 box 3 bay 4");
}

TEST(AduSections, SerialNumber_IsTrimmedAndKeepsItsInnerBlanks) {
    EXPECT_EQ(StatusOf("   Serial Number   WRONG\n   Drive Serial Number      S 1 2        \n"),
              "drive 1 [S 1 2] 1I:1:1 port 1 box 1 bay 1");
}

TEST(AduSections, OverflowingStatusNumbers_CountAsMissing) {
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

TEST(AduSections, KeyValueEntries_CountMediumErrorsOnly) {
    EXPECT_EQ(LogOf(Entry(3, 0x10) + Entry(1, 0x20) + Entry(0xb, 0x30) + Entry(3, 0x40)),
              "count 2 times 16 64");
}

TEST(AduSections, TableRows_CountMediumErrorsOnly) {
    EXPECT_EQ(LogOf(Table({{3, 0x10}, {1, 0x20}, {0xb, 0x30}, {3, 0x40}})), "count 2 times 16 64");
}

TEST(AduSections, SenseKeyInOtherColumns_IsNotCounted) {
    EXPECT_EQ(LogOf(kTableHead + "      0x03 0x03 0x03 0x03 0x01 0x03 0x03 0x03 0x00000003 0x0003 0x0003\n"),
              "count 0 times");
}

TEST(AduSections, TableHeader_TellsTheColumns) {
    EXPECT_EQ(
        LogOf("   Reference Time   ASC   Sense Key   Block\n   --------------   ---   ---------   -----\n"
              "   0x0a             0x03  0x01        0x03\n   0x0b             0x11  0x03        0x00\n"),
        "count 1 times 11");
}

TEST(AduSections, TableHeaderWithSingleBlanks_MeansTheUsualColumns) {
    EXPECT_EQ(
        LogOf("Error Type SCSI Operation Code SCSI Status CAM Status Sense Key ASC ASCQ Block Valid Block "
              "Reference Time Additional Information\n"
              "0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x0d6d2ba0 0x0005a99e 0x0000\n"),
        "count 1 times 371102");
}

TEST(AduSections, StackedTableHeader_MeansTheUsualColumns) {
    EXPECT_EQ(
        LogOf(
            "   Physical Drive Error Log Entries\n\n"
            "      Error  SCSI Op  SCSI    CAM     Sense  ASC   ASCQ  Block  Block  Reference  Additional\n"
            "      Type   Code     Status  Status  Key                Valid         Time       Information\n"
            "      -----  -------  ------  ------  -----  ----  ----  -----  -----  ---------  ----------\n" +
            Row(3, 5) + Row(4, 6) + Row(3, 7)),
        "count 2 times 5 7");
}

TEST(AduSections, TableWithoutHeader_MeansTheUsualColumns) {
    EXPECT_EQ(LogOf("   Physical Drive Error Log Entries\n" + Row(3, 5) + "\n" + Row(3, 7)),
              "count 2 times 5 7");
}

TEST(AduSections, RowsOutsideATable_AreNotCounted) {
    EXPECT_EQ(LogOf(Row(3, 5)), "count 0 times");
    EXPECT_EQ(LogOf(Table({{3, 5}}) + "   Raw Data\n" + Row(3, 6)), "count 1 times 5");
}

TEST(AduSections, RowsThatAreNone_ArePassedOver) {
    EXPECT_EQ(LogOf(kTableHead +
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00\n"             // short
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 5a99e 0x00\n"  // no hex
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 0x5g 0x00\n"
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 0x 0x00\n"
                    "      0x01 0x28 0x02 0x04 0x03 0x11 0x00 0x01 0x00 0x10000000000000000 0x00\n" +
                    Row(3, 9)),
              "count 1 times 9");
}

TEST(AduSections, ClosingReferenceTime_BelongsToNoError) {
    const std::string closing = "\n   Reference Time                       0x0005f000\n";
    EXPECT_EQ(LogOf(Table({{3, 5}}) + closing), "count 1 times 5");
    EXPECT_EQ(LogOf(Entry(3, 5) + closing), "count 1 times 5");
    EXPECT_EQ(LogOf(Entry(3, 5) + Entry(1, 6) + closing), "count 1 times 5");
    EXPECT_EQ(LogOf(closing), "count 0 times");
    EXPECT_EQ(LogOf("   Reference Time    none\n"), "count 0 times");
}

TEST(AduSections, ErrorWithoutTime_IsCounted) {
    EXPECT_EQ(
        LogOf("   Sense Key   0x03\n   Sense Key   0x03\n   Reference Time   0x0a\n   Sense Key   0x03\n"),
        "count 3 times 10");
}

TEST(AduSections, EntryOfOneLine_IsCounted) {
    EXPECT_EQ(LogOf("   Sense Key: 0x03, ASC: 0x11, Reference Time: 0x0a\n"
                    "   Sense Key: 0x01, ASC: 0x11, Reference Time: 0x0b, Code: 0x03\n"),
              "count 1 times 10");
}

TEST(AduSections, LongerLabelThatBeginsWithTheSenseKey_IsNoEntry) {
    EXPECT_EQ(
        LogOf("   Sense Key            0x03\n   Sense Key Specific   0x00\n   Reference Time       0x10\n"),
        "count 1 times 16");
}

TEST(AduSections, NextErrorBeforeTheTime_TakesTheTime) {
    EXPECT_EQ(LogOf("   Sense Key   0x03\n   Sense Key   0x01\n   Reference Time   0x10\n"), "count 1 times");
    EXPECT_EQ(LogOf("   Sense Key: 0x03\n   Sense Key: 0x01\n   Reference Time   0x10\n"), "count 1 times");
}

TEST(AduSections, SenseKeyValue_HoldsTheWholeNumber) {
    EXPECT_EQ(LogOf("   Sense Key   0x03 (Medium Error)\n"), "count 1 times");
    EXPECT_EQ(LogOf("   Sense Key   3 (0x03)\n"), "count 1 times");
    EXPECT_EQ(LogOf("   Sense Key   0x031\n   Sense Key   0x0\n   Sense Key\n   Sense Key   03\n   sense key "
                    "  0x03\n"),
              "count 0 times");
}

TEST(AduSections, ReferenceTimes_AreHexadecimalWithOrWithoutPrefix) {
    EXPECT_EQ(
        LogOf("   Sense Key  0x03\n   Reference Time  1f\n   Sense Key  0x03\n   Reference Time  0x1f (31)\n"
              "   Sense Key  0x03\n   Reference Time  0xffffffffffffffff\n"),
        "count 3 times 31 31 18446744073709551615");
}

TEST(AduSections, TimeOfAMediumErrorWithoutHexDigits_Throws) {
    EXPECT_THROW(LogOf("   Sense Key  0x03\n   Reference Time  none\n"), std::invalid_argument);
    EXPECT_THROW(LogOf("   Sense Key  0x03\n   Reference Time\n"), std::invalid_argument);
    EXPECT_THROW(LogOf("   Sense Key  0x03\n   Reference Time  0x10000000000000000\n"), std::out_of_range);
}

TEST(AduSections, HeadingOfAnErrorLogWithoutPlace_Throws) {
    for (const std::string location : {"I:1:1", "1I::1", "1I:1:", "1I:1", "1I", "a:b:c", "", ":"}) {
        EXPECT_THROW(Records(DriveSection(kP840, location, kErrorLog, "")), std::invalid_argument)
            << location;
    }
    EXPECT_THROW(Records(DriveSection(kP840, "1I:99999999999:1", kErrorLog, "")), std::out_of_range);
}

TEST(AduSections, EndlessLines_AreTaken) {
    const std::string endless(3 * 1024 * 1024, 'x');
    const std::string blanks(1024 * 1024, ' ');
    EXPECT_EQ(LogOf(endless + "\n" + blanks + "Sense Key" + blanks + "0x03" + "\n" + kTableHead + endless +
                    "\n" + blanks + Row(3, 9)),
              "count 2 times 9");
    EXPECT_EQ(StatusOf("   Drive Serial Number " + endless + "\n").size(),
              kMaxText + std::string("drive 1 [] 1I:1:1 port 1 box 1 bay 1").size());
}

TEST(AduSections, LogWithManyEntries_KeepsTheirCountAndTheNewestTimes) {
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

TEST(AduSections, HeaderWithEndlessLabels_IsReadInOnePass) {
    std::string header = kTableHead + "Error Type  Sense Key  ";
    for (int label = 0; label < 300000; ++label) {
        header += "x  ";
    }
    EXPECT_EQ(LogOf(header + "Reference Time\n" + Row(3, 9)), "count 0 times");
}

}  // namespace
