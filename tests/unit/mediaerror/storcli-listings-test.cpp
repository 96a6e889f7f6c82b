#include "storcli-listings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "mutated-text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kDashes(76, '-');

std::vector<unsigned int> Controllers(const std::string& text) {
    TextLines lines(text);
    return ParseControllers(lines);
}

StorcliController Controller(const std::string& text) {
    TextLines lines(text);
    return ParseController(lines);
}

StorcliPlace Place(const std::string& text) {
    TextLines lines(text);
    return ParsePlace(lines);
}

// Every drive as "enclosure:slot device".
std::vector<std::string> Drives(const std::string& text) {
    std::vector<std::string> drives;
    for (const StorcliDrive& drive : Controller(text).drives) {
        drives.push_back((drive.enclosure ? std::to_string(*drive.enclosure) : "") + ":" +
                         std::to_string(drive.slot) + " " + std::to_string(drive.device));
    }
    return drives;
}

std::string ControllerTable(const std::string& rows) {
    return kDashes + "\nCtl Model                   Ports PDs DGs Hlth \n" + kDashes + "\n" + rows + kDashes +
           "\n";
}

std::string DriveTable(const std::string& rows) {
    return "PD LIST :\n=======\n\n" + kDashes +
           "\nEID:Slt DID State DG     Size Intf Med Model      Sp Type \n" + kDashes + "\n" + rows +
           kDashes + "\n";
}

const std::string kOverview =
    "CLI Version = 007.1504.0000.0000 June 22, 2020\n"
    "Controller = None\n"
    "Status = Success\n"
    "\n"
    "Number of Controllers = 2\n"
    "\n"
    "System Overview :\n"
    "===============\n"
    "\n" +
    ControllerTable(
        "  0 RAIDCard9361-8i             8  11   2 Opt  \n"
        "  3 RAIDCard9560-16i            8   2   1 Opt  \n") +
    "\nCtl=Controller Index|DGs=Drive groups|VDs=Virtual drives\n";

const std::string kDetails =
    "Generating detailed summary of the adapter, it may take a while to complete.\n"
    "\n"
    "CLI Version = 007.1504.0000.0000 June 22, 2020\n"
    "Controller = 0\n"
    "Status = Success\n"
    "Product Name = RAID Card 9560-16i 8GB  \n"
    "Serial Number = SK00000001\n"
    "PCI Slot Number = 7\n"
    "TOPOLOGY :\n"
    "========\n" +
    kDashes + "\nDG Arr Row EID:Slot DID Type  State BT       Size PDC  PI SED DS3  FSpace TR \n" + kDashes +
    "\n 0 -   -   -        -   RAID1 Optl  N   1.818 TB dflt N  N   dflt N      N  \n"
    " 0 0   0   252:3    10  DRIVE Onln  N   1.818 TB dflt N  N   dflt -      N  \n" +
    kDashes + "\n\n" +
    DriveTable(
        "252:3    10 Onln   0 1.818 TB SAS  HDD N   N  512B TESTMODEL 2000   U  -    \n"
        "252:11   38 UBUnsp F 1.818 TB SATA HDD N   N  512B MODEL WITH BLANKS U - \n"
        " :5       6 UGood  - 16.371 TB SATA HDD -   N  512B TESTMODEL 18      -  \n") +
    "\nEID=Enclosure Device ID|Slt=Slot No|DID=Device ID|DG=DriveGroup\n";

std::string WithCarriageReturns(const std::string& text) {
    std::string result;
    for (const char character : text) {
        result += character == '\n' ? std::string("\r\n") : std::string(1, character);
    }
    return result;
}

TEST(ParseControllers, Table_GivesFirstColumnInOrder) {
    EXPECT_THAT(Controllers(kOverview), ElementsAre(0u, 3u));
    EXPECT_THAT(Controllers(WithCarriageReturns(kOverview)), ElementsAre(0u, 3u));
    EXPECT_THAT(Controllers(ControllerTable("7 a\n0 b\n12 c\n")), ElementsAre(7u, 0u, 12u));
}

TEST(ParseControllers, SeveralTables_AreReadWithoutRepetition) {
    const std::string adapters =
        "IT System Overview :\n" + kDashes + "\nCtl Model        AdapterType   VendId DevId \n" + kDashes +
        "\n  1 HBA 9500-16e   SAS3816(A0) 0x1000 0xE4 \n  0 HBA 9400   SAS3416 0x1 0x2\n" + kDashes + "\n";
    EXPECT_THAT(Controllers(kOverview + adapters), ElementsAre(0u, 3u, 1u));
}

TEST(ParseControllers, ListingsWithoutTheTable_GiveNone) {
    EXPECT_THAT(Controllers(""), IsEmpty());
    EXPECT_THAT(Controllers("Number of Controllers = 0\nStatus = Success\n"), IsEmpty());
    EXPECT_THAT(Controllers("Status = Failure\nDescription = Controller 0 not found\n"), IsEmpty());
    EXPECT_THAT(
        Controllers(kDashes + "\nCtrl Product Name  Ports\n" + kDashes + "\n  0 x\n" + kDashes + "\n"),
        IsEmpty());
    EXPECT_THAT(Controllers(kDashes + "\nCtl Cl SAS\n" + kDashes + "\n  0 x\n" + kDashes + "\n"), IsEmpty());
    EXPECT_THAT(Controllers(kDashes + "\nCtl Model\n"), IsEmpty());
    EXPECT_THAT(Controllers(ControllerTable("")), IsEmpty());
    EXPECT_THAT(Controllers(ControllerTable("") + "  4 behind\n"), IsEmpty());
}

TEST(ParseControllers, DashLine_BeginsWithTwelveDashes) {
    const auto table = [](const std::string& dashes) {
        return dashes + "\nCtl Model\n" + dashes + "\n  2 x\n" + dashes + "\n  3 y\n";
    };
    EXPECT_THAT(Controllers(table(std::string(12, '-'))), ElementsAre(2u));
    EXPECT_THAT(Controllers(table(std::string(12, '-') + " -")), ElementsAre(2u));
    EXPECT_THAT(Controllers(table(std::string(11, '-'))), IsEmpty());
}

TEST(ParseControllers, TableCutAtItsEnd_GivesTheRowsThatAreThere) {
    EXPECT_THAT(Controllers(kDashes + "\nCtl Model\n" + kDashes + "\n  2 x\n  3"), ElementsAre(2u, 3u));
}

TEST(ParseControllers, RowWithoutUsableNumber_IsPassedOver) {
    EXPECT_THAT(Controllers(ControllerTable("0;reboot x\n"
                                            "$(id) x\n"
                                            "-1 x\n"
                                            "+1 x\n"
                                            "0x1 x\n"
                                            "1a x\n"
                                            "\n"
                                            "- x\n"
                                            "32768 x\n"
                                            "4294967296 x\n"
                                            "99999999999999999999999999 x\n"
                                            "32767 highest\n"
                                            "5\n")),
                ElementsAre(32767u, 5u));
}

TEST(ParseController, Listing_GivesNameSlotAndDrives) {
    for (const std::string& text : {kDetails, WithCarriageReturns(kDetails)}) {
        const StorcliController controller = Controller(text);
        EXPECT_EQ(controller.product, "RAID Card 9560-16i 8GB");
        EXPECT_EQ(controller.slot, "7");
        EXPECT_THAT(Drives(text), ElementsAre("252:3 10", "252:11 38", ":5 6"));
    }
}

TEST(ParseController, FailureWordsBeforeTheTable_DoNotStop) {
    EXPECT_THAT(
        Drives("Status = Failure\nDescription = Show Drive Information Failed.\n\nDetailed Status :\n" +
               kDashes + "\nDrive      Status  ErrCd ErrMsg \n" + kDashes +
               "\n/c0/e8/s1  Failure    46 - \n" + kDashes + "\n" + DriveTable("8:1 9 Failed\n")),
        ElementsAre("8:1 9"));
}

TEST(ParseController, OnlyTheFirstValueOfAKeyCounts) {
    const StorcliController controller = Controller(
        "Board Product Name = no\nProduct Name = first\nProduct Name = second\n"
        "  PCI Slot Number = 1\nPCI Slot Number = 2\n");
    EXPECT_EQ(controller.product, "first");
    EXPECT_EQ(controller.slot, "1");
    EXPECT_EQ(Controller("PCI Slot Number =\nPCI Slot Number = 2\n").slot, "");
}

TEST(ParseController, ListingWithoutTheKeys_GivesEmptyTexts) {
    const StorcliController controller = Controller("Model = other\nStatus = Failure\n");
    EXPECT_EQ(controller.product, "");
    EXPECT_EQ(controller.slot, "");
    EXPECT_THAT(controller.drives, IsEmpty());
}

TEST(ParseController, ControlAndForeignBytes_BecomeQuestionMarks) {
    EXPECT_EQ(Controller(std::string("Product Name = a\0b\x1b[2J\xe2\x84\xa2 %n\n", 29)).product,
              "a?b?[2J??? %n");
}

TEST(ParseController, RowsThatAreNoDrives_ArePassedOver) {
    EXPECT_THAT(Drives(DriveTable("- 1 UGood\n"
                                  "8:2\n"
                                  "8:- 1 x\n"
                                  ": 1 x\n"
                                  "x:1 1 x\n"
                                  "8:1:2 1 x\n"
                                  "8:$(id) 1 x\n"
                                  "8;reboot:1 1 x\n"
                                  "8:1 -1 x\n"
                                  "8:1 0x10 x\n"
                                  "8:1 65536 x\n"
                                  "65536:1 1 x\n"
                                  "8:65536 1 x\n"
                                  "99999999999999999999:1 1 x\n"
                                  "65535:65535 65535 highest\n"
                                  "8:1 0 x\n")),
                ElementsAre("65535:65535 65535", "8:1 0"));
}

TEST(ParseController, OnlyRowsBetweenTheDashLines_AreDrives) {
    EXPECT_THAT(Drives("8:1 1 before\nEID:Slt DID\n8:2 2 header\n" + kDashes + "\n8:3 3 row\n" + kDashes +
                       "\n8:4 4 behind\n" + kDashes + "\n8:5 5 next table\n"),
                ElementsAre("8:3 3"));
    EXPECT_THAT(Drives(DriveTable("") + DriveTable("8:1 1\n") + DriveTable("8:2 2\n")),
                ElementsAre("8:1 1", "8:2 2"));
}

TEST(ParseController, EqualRows_AreOneDrive) {
    std::string rows;
    for (int row = 0; row < 100'000; ++row) {
        rows += "8:1 1 x\n :1 1 x\n";
    }
    EXPECT_THAT(Drives(DriveTable(rows) + DriveTable("8:1 1\n8:1 2\n8:2 2\n")),
                ElementsAre("8:1 1", ":1 1", "8:1 2", "8:2 2"));
}

TEST(ParseController, DrivesBeyondAnyControllers_AreLeftOut) {
    std::string rows;
    for (int slot = 0; slot < 60'000; ++slot) {
        rows += "8:" + std::to_string(slot) + " 1 x\n";
    }
    const std::vector<std::string> drives = Drives(DriveTable(rows));
    ASSERT_EQ(drives.size(), 1024u);
    EXPECT_EQ(drives.back(), "8:1023 1");
}

TEST(ParseControllers, ControllersBeyondAnyServers_AreLeftOut) {
    std::string rows;
    for (int number = 0; number < 32'768; ++number) {
        rows += std::to_string(number) + " x\n";
    }
    const std::vector<unsigned int> controllers = Controllers(ControllerTable(rows));
    ASSERT_EQ(controllers.size(), 32u);
    EXPECT_EQ(controllers.back(), 31u);
}

TEST(StorcliListings, TextsOfAnyLength_AreCut) {
    const std::string beginning(256, 'x');
    const std::string text = beginning + std::string(60'000, 'y') + "\n";
    const StorcliController controller = Controller("Product Name = " + text + "PCI Slot Number = " + text);
    EXPECT_EQ(controller.product, beginning);
    EXPECT_EQ(controller.slot, beginning);
    const StorcliPlace place = Place("Port Number = " + text + "Box = " + text);
    EXPECT_EQ(place.port, beginning);
    EXPECT_EQ(place.box, beginning);
}

TEST(ParsePlace, PortAndBox_AreKeptAsPrinted) {
    const StorcliPlace place =
        Place("Drive /c0/e252/s3 Device attributes :\nPort Number = 1I \n  Box =  03\n");
    EXPECT_EQ(place.port, "1I");
    EXPECT_EQ(place.box, "03");
}

TEST(ParsePlace, ConnectedPortNumber_IsNotThePort) {
    const std::string connected = "Enclosure position = 1\nConnected Port Number = 3(path0) \nToolBox = 9\n";
    EXPECT_EQ(Place(connected).port, "");
    EXPECT_EQ(Place(connected).box, "");
    const StorcliPlace place =
        Place(connected + "Port Number = 2\r\nBox = 1\r\n" + connected + "Port Number = 8\nBox = 8\n");
    EXPECT_EQ(place.port, "2");
    EXPECT_EQ(place.box, "1");
}

TEST(StorcliListings, LineOfAMegabyteAndNulBytes_DoNoHarm) {
    const std::string noise = std::string(1024 * 1024, '7') + "\n" + std::string(1000, '\0') + "\n";
    EXPECT_THAT(Controllers(noise + ControllerTable(noise + "1 x\n")), ElementsAre(1u));
    EXPECT_THAT(Drives(noise + DriveTable(noise + "8:" + noise + "8:1 1\n")), ElementsAre("8:1 1"));
    EXPECT_EQ(Place(noise + "Port Number = 1\n").port, "1");
}

TEST(StorcliListings, MutatedListings_GiveNumbersWithinTheirLimits) {
    const std::vector<std::string> pieces{"------------", ":",  "\n", "-1", "99999999999", "0x",
                                          "Ctl Model",    "\r", " ",  "%s", "EID:Slt DID", "\xff"};
    std::mt19937 random(20261121);
    for (int round = 0; round < 5000; ++round) {
        for (const unsigned int number : Controllers(MutatedText(kOverview, pieces, random))) {
            ASSERT_LE(number, kMaxController);
        }
        const std::string listing = MutatedText(kDetails, pieces, random);
        const StorcliController controller = Controller(listing);
        for (const StorcliDrive& drive : controller.drives) {
            ASSERT_LE(drive.device, kMaxDevice);
            ASSERT_LE(drive.slot, kMaxPlace);
            ASSERT_LE(drive.enclosure.value_or(0), kMaxPlace);
        }
        const StorcliPlace place = Place(listing);
        for (const std::string& text : {controller.product, controller.slot, place.port, place.box}) {
            for (const char character : text) {
                ASSERT_TRUE(character >= ' ' && character <= '~');
            }
        }
    }
}

}  // namespace
