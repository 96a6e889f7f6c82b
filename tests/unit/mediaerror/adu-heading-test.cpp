#include "adu-heading.h"

#include <gtest/gtest.h>

#include <string>

#include "adu-text.h"

namespace {

using std::string_literals::operator""s;

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

TEST(GetLocation, BracketsInTheSize_AreNotTheEndOfIt) {
    EXPECT_EQ(Location("X : Physical Drive (2 TB (SAS) HDD) 1I:1:1 : Physical Drive Status", kStatusHeading),
              "X|1I:1:1|1I|1|1");
}

TEST(GetLocation, IncompleteLocation_LeavesTheMissingPartsEmpty) {
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD) 1I:7", kErrorLogHeading), "X|1I:7|1I|7|");
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD) ::", kErrorLogHeading), "X|::|||");
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD)", kErrorLogHeading), "X||||");
    EXPECT_EQ(Location("X : Physical Drive (SAS HDD) 1I:2:3:4", kErrorLogHeading), "X|1I:2:3:4|1I|2|3");
}

}  // namespace
