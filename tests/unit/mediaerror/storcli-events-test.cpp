#include "storcli-events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <random>
#include <string>

#include "local-calendar.h"
#include "mutated-text.h"
#include "test-root.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPatrol = "Patrol Read corrected medium error on PD 0a(e0xfc/s3) at 1aea556";

std::vector<CorrectedError> Read(LineSource& lines) {
    std::vector<CorrectedError> errors;
    ReadCorrectedErrors(lines, [&](const CorrectedError& error) { errors.push_back(error); });
    return errors;
}

std::string Text(const std::optional<unsigned int>& number) {
    return number ? std::to_string(*number) : "-";
}

// "device enclosure:slot", "-" for what is not known.
std::string Drive(const CorrectedError& error) {
    return Text(error.device) + " " + Text(error.enclosure) + ":" + Text(error.slot);
}

// From memory, and with the same result from a file, of which blocks are passed over.
std::vector<CorrectedError> Errors(const std::string& text) {
    TextLines lines(text);
    const std::vector<CorrectedError> errors = Read(lines);
    const TestRoot root;
    root.Write("log", text);
    const auto fileLines = FileLines::OpenFirst({root / "log"});
    EXPECT_NE(fileLines, nullptr);
    const std::vector<CorrectedError> ofFile =
        fileLines == nullptr ? std::vector<CorrectedError>() : Read(*fileLines);
    EXPECT_TRUE(std::equal(errors.begin(), errors.end(), ofFile.begin(), ofFile.end(),
                           [](const CorrectedError& one, const CorrectedError& other) {
                               return Drive(one) == Drive(other) && one.time == other.time;
                           }))
        << errors.size() << " and " << ofFile.size();
    return errors;
}

std::vector<std::string> Drives(const std::string& text) {
    std::vector<std::string> drives;
    for (const CorrectedError& error : Errors(text)) {
        drives.push_back(Drive(error));
    }
    return drives;
}

std::vector<std::uint64_t> Times(const std::string& text) {
    std::vector<std::uint64_t> times;
    for (const CorrectedError& error : Errors(text)) {
        times.push_back(error.time);
    }
    return times;
}

std::string Block(const std::string& description, const std::string& data,
                  const std::string& time = "Time: Fri Oct  2 05:41:23 2026\n") {
    return "\n\nseqNum: 0x00011042\n" + time +
           "\nCode: 0x0000005d\nClass: 0\nLocale: 0x02\nEvent Description: " + description +
           "\nEvent Data:\n===========\n" + data;
}

std::string DriveData(const std::string& device, const std::string& enclosure, const std::string& slot) {
    return "Device ID: " + device + "\nEnclosure Index: " + enclosure + "\nSlot Number: " + slot + "\n";
}

const std::string kLog =
    "CLI Version = 007.3404.0000.0000 April 18, 2025\nController = 0\nStatus = Success\n" +
    Block("Controller cache preserved", "None\n") + Block(kPatrol, DriveData("10", "252", "3")) +
    Block("Time established as 10/02/26  5:41:23; (46 seconds since power on)", "None\n") +
    Block("Consistency Check corrected medium error (VD 00/0 at 5e11fa31, PD 15(e0xfc/s5) at 5e11fa31)",
          "Target Id: 0\n") +
    Block("Corrected medium error during recovery on PD 15(e0x08/s4) at 14553b546",
          DriveData("21", "8", "4") + "CDB Length: 10\nSense Data:\n0x70 0x0 0x3 \n", "") +
    "CLI Version = 007.3404.0000.0000 April 18, 2025\nDevice ID: 99\nStatus = Success\n";

TEST(ReadCorrectedErrors, Log_GivesEveryCorrectedErrorInOrder) {
    EXPECT_THAT(Drives(kLog), ElementsAre("10 252:3", "21 252:5", "21 8:4"));
    EXPECT_THAT(Times(kLog), ElementsAre(kTime, kTime, 1u));
}

TEST(ReadCorrectedErrors, CarriageReturns_ChangeNothing) {
    std::string text;
    for (const char character : kLog) {
        text += character == '\n' ? std::string("\r\n") : std::string(1, character);
    }
    EXPECT_THAT(Drives(text), ElementsAre("10 252:3", "21 252:5", "21 8:4"));
    EXPECT_THAT(Times(text), ElementsAre(kTime, kTime, 1u));
}

TEST(ReadCorrectedErrors, LostBlanksAndEmptyLines_ChangeNothing) {
    std::string text;
    for (std::size_t at = 0; at < kLog.size(); ++at) {
        if (kLog[at] != '\n' || at == 0 || kLog[at - 1] != '\n') {
            text += kLog[at];
        }
    }
    EXPECT_THAT(Drives(text), ElementsAre("10 252:3", "21 252:5", "21 8:4"));
    EXPECT_THAT(Drives("  seqNum: 1\n\t Event Description: " + kPatrol + "\n  Device ID: 4\n"),
                ElementsAre("4 252:3"));
}

TEST(ReadCorrectedErrors, EveryKindOfCorrectedError_Counts) {
    for (const char* const description : {
             "Background Initialization corrected medium error (VD 00/0 at 174442, PD 03(e0xff/s3) at "
             "174442)",
             "Consistency Check corrected medium error (VD 00/0 at 5e11fa31, PD 03(e0xff/s3) at 5e11fa31)",
             "Consistency Check corrected medium error on VD 00/0 (PD 03(e0xff/s3) at 5e11fa31)",
             "Patrol Read corrected medium error on PD 03(e0xff/s3) at 1aea541",
             "Corrected medium error during recovery on PD 03(e0xff/s3) at 14553b546",
         }) {
        EXPECT_THAT(Drives(Block(description, "")), ElementsAre("3 255:3")) << description;
    }
}

TEST(ReadCorrectedErrors, OtherEvents_DoNotCount) {
    for (const char* const description : {
             "Unrecoverable medium error during recovery on PD 03(e0xff/s3) at 1",
             "Unrecoverable medium error during rebuild on PD 03(e0xff/s3) at 1",
             "Uncorrectable medium error logged for VD 00/0 at 1 (on PD 03(e0xff/s3) at 1)",
             "Puncturing bad block on PD 03(e0xff/s3) at 1",
             "Unexpected sense: PD 03(e0xff/s3) Path 5000, CDB: 28 00, Sense: 3/11/00",
             "CORRECTED MEDIUM ERROR on PD 03(e0xff/s3)",
         }) {
        EXPECT_THAT(Errors(Block(description, DriveData("3", "255", "3"))), IsEmpty()) << description;
    }
}

TEST(ReadCorrectedErrors, TextOutsideTheDescription_DoesNotCount) {
    EXPECT_THAT(Errors("Event Description: " + kPatrol + "\n"), IsEmpty());
    EXPECT_THAT(Errors("seqNum: 1\n" + kPatrol + "\nEvent Description: other\n" + kPatrol + "\n"), IsEmpty());
    EXPECT_THAT(Errors("seqNum: 1\nNo Event Description: " + kPatrol + "\n"), IsEmpty());
    EXPECT_THAT(Errors("Sequence Number: 1\nEvent Description: " + kPatrol + "\n"), IsEmpty());
}

TEST(ReadCorrectedErrors, BlockWithTwoDescriptions_CountsByTheFirst) {
    const std::string both = "Event Description: other\nEvent Description: " + kPatrol + "\n";
    EXPECT_THAT(Errors("seqNum: 1\n" + both), IsEmpty());
    EXPECT_THAT(Drives("seqNum: 1\nEvent Description: " + kPatrol + "\n" + both), ElementsAre("10 252:3"));
}

TEST(ReadCorrectedErrors, EnvelopeBeforeTheDescription_EndsTheBlock) {
    EXPECT_THAT(Errors("seqNum: 1\nCLI Version = 1\nEvent Description: " + kPatrol + "\n"), IsEmpty());
    EXPECT_THAT(Errors("seqNum: 1\nController = 0\nEvent Description: " + kPatrol + "\n"), IsEmpty());
}

TEST(ReadCorrectedErrors, TimeBehindTheDescription_Counts) {
    EXPECT_THAT(Times("seqNum: 1\nEvent Description: " + kPatrol + "\nTime: Fri Oct  2 05:41:23 2026\n"),
                ElementsAre(kTime));
}

TEST(ReadCorrectedErrors, BlockEndsAtTheNextBlockAndAtTheEnvelope) {
    const std::string head = "seqNum: 1\nEvent Description: Corrected medium error\n";
    EXPECT_THAT(Drives(head + "seqNum: 2\nDevice ID: 5\n"), ElementsAre("- -:-"));
    EXPECT_THAT(Drives(head + "seqNum:\nDevice ID: 5\n"), ElementsAre("- -:-"));
    EXPECT_THAT(Drives(head + "CLI Version = 1\nDevice ID: 5\n"), ElementsAre("- -:-"));
    EXPECT_THAT(Drives(head + "Controller = 0\nDevice ID: 5\n"), ElementsAre("- -:-"));
    EXPECT_THAT(Drives(head + "Device ID: 5"), ElementsAre("5 -:-"));
    EXPECT_THAT(Drives(head + "My Controller = 0\nDevice ID: 5\n"), ElementsAre("5 -:-"));
}

// Outside of blocks nothing but the beginning of one is looked for.
TEST(ReadCorrectedErrors, EveryFormOfABlocksFirstLine_IsFoundOutsideOfBlocks) {
    const std::string other = "seqNum: 1\nEvent Description: other\nDevice ID: 1\n";
    const std::string ended = "seqNum: 1\nEvent Description: Corrected medium error\nController = 0\n";
    const std::string body = "\nEvent Description: Corrected medium error\nDevice ID: 5\n";
    for (const std::string first : {"seqNum:", "seqNum: ", "seqNum: 7", "seqNum: 0x00011042", "seqNum: none",
                                    "  seqNum: 7", "\tseqNum:", " \t seqNum:\r"}) {
        EXPECT_THAT(Drives(first + body), ElementsAre("5 -:-")) << first;
        EXPECT_THAT(Drives("\nDevice ID: 9\nseqNum 7\nlast seqNum: 7\n" + first + body), ElementsAre("5 -:-"))
            << first;
        EXPECT_THAT(Drives(other + first + body), ElementsAre("5 -:-")) << first;
        EXPECT_THAT(Drives(ended + first + body), ElementsAre("- -:-", "5 -:-")) << first;
    }
}

TEST(ReadCorrectedErrors, OtherLinesOutsideOfBlocks_AreNotRead) {
    const std::string body = "Event Description: Corrected medium error\nDevice ID: 5\n";
    const std::string ended = "seqNum: 1\nEvent Description: Corrected medium error\nController = 0\n";
    for (const std::string line :
         {"", "qNum:", "seqNum", "seqNum 7", "seqNum:7", "SEQNUM: 7", "last seqNum: 7", "Time: seqNum: 7"}) {
        EXPECT_THAT(Errors(line + "\n" + body), IsEmpty()) << line;
        EXPECT_THAT(Errors("seqNum: 1\nEvent Description: other\n" + line + "\n" + body), IsEmpty()) << line;
        EXPECT_THAT(Drives(ended + line + "\n" + body), ElementsAre("- -:-")) << line;
        EXPECT_THAT(Drives(ended + line + "\n" + body + ended), ElementsAre("- -:-", "- -:-")) << line;
    }
}

TEST(ReadCorrectedErrors, NextBlockInheritsNothing) {
    const std::string bare = "seqNum: 2\nEvent Description: Corrected medium error\n";
    const std::string text = Block(kPatrol, DriveData("10", "252", "3")) + bare;
    EXPECT_THAT(Drives(text), ElementsAre("10 252:3", "- -:-"));
    EXPECT_THAT(Times(text), ElementsAre(kTime, 1u));
    const std::string other = "seqNum: 1\nTime: Fri Oct  2 05:41:23 2026\nEvent Description: other\n";
    EXPECT_THAT(Times(other + bare), ElementsAre(1u));
    EXPECT_THAT(Times("seqNum: 1\nTime: Fri Oct  2 05:41:23 2026\nController = 0\n" + bare), ElementsAre(1u));
}

TEST(ReadCorrectedErrors, Device_IsDecimalInTheDataAndHexadecimalInTheDescription) {
    const std::string description = "Patrol Read corrected medium error on PD 26(e0x44/s10) at 1";
    EXPECT_THAT(Drives(Block(description, DriveData("38", "68", "10"))), ElementsAre("38 68:10"));
    EXPECT_THAT(Drives(Block(description, "")), ElementsAre("38 68:10"));
    EXPECT_THAT(Drives(Block("Corrected medium error on PD 0x26(e0x34/s11) at 1", "None\n")),
                ElementsAre("38 52:11"));
    EXPECT_THAT(Drives(Block("Corrected medium error on PD FF(eFC/s1) at 1", "")), ElementsAre("255 252:1"));
    EXPECT_THAT(
        Drives(Block("PD 7 corrected medium error (PD 8 at 1, PD 1f(e0x8/s2) at 1, PD 9(e0x9/s9))", "")),
        ElementsAre("31 8:2"));
}

TEST(ReadCorrectedErrors, Data_GoesBeforeTheDescription) {
    EXPECT_THAT(Drives(Block(kPatrol, DriveData("77", "8", "9"))), ElementsAre("77 8:9"));
    EXPECT_THAT(Drives(Block(kPatrol, "Device Id: 77\nBay Number: 9\n")), ElementsAre("77 252:9"));
    EXPECT_THAT(Drives(Block(kPatrol, "Device ID: 77\nDevice ID: 78\n")), ElementsAre("77 252:3"));
    EXPECT_THAT(Drives(Block(kPatrol, "Bay Number: 9\nSlot Number: 8\n")), ElementsAre("10 252:9"));
    EXPECT_THAT(Drives(Block(kPatrol, "Slot Number: 8\nBay Number: 9\n")), ElementsAre("10 252:9"));
    EXPECT_THAT(Drives(Block(kPatrol, "Device Index 4\nDevice ID:\nDevice ID: 0x1f\nDevice ID: four\n")),
                ElementsAre("10 252:3"));
}

TEST(ReadCorrectedErrors, DescriptionThatNamesNoDrive_LeavesItOpen) {
    for (const char* const description : {
             "Consistency Check corrected medium error on VD 00/0",
             "Corrected medium error on PD 0a",
             "Corrected medium error (e",
             "Corrected medium error PD (e)",
             "Corrected medium error PD zz(ezz/szz)",
             "Corrected medium error PD 0x(e0x/s)",
             "Corrected medium error (e0x1ffff/s99999999999999999999)",
             "Corrected medium error (e-1/s-1) PD 0a",
         }) {
        EXPECT_THAT(Drives(Block(description, "")), ElementsAre("- -:-")) << description;
    }
    EXPECT_THAT(Drives(Block("Corrected medium error on PD --(e0xfc/s3)", "")), ElementsAre("- 252:3"));
    EXPECT_THAT(Drives(Block("Corrected medium error on VD 1", "Enclosure Index: 252\nBay Number: 3\n")),
                ElementsAre("- 252:3"));
}

TEST(ReadCorrectedErrors, DeviceIdThatFitsNoKey_DropsTheEvent) {
    for (const char* const device : {"65536", "-1", "4294967296", "18446744073709551616",
                                     "99999999999999999999999999999999", "-99999999999999999999999"}) {
        EXPECT_THAT(Errors(Block(kPatrol, DriveData(device, "252", "3"))), IsEmpty()) << device;
    }
    EXPECT_THAT(Errors(Block("Corrected medium error on PD 10000(e0xfc/s3)", "")), IsEmpty());
    EXPECT_THAT(Errors(Block("Corrected medium error on PD ffffffffffffffffffff(e0xfc/s3)", "")), IsEmpty());
    EXPECT_THAT(Drives(Block(kPatrol, DriveData("65535", "252", "3"))), ElementsAre("65535 252:3"));
    EXPECT_THAT(Drives(Block(kPatrol, DriveData("0", "0", "0"))), ElementsAre("0 0:0"));
}

TEST(ReadCorrectedErrors, Time_IsTheFirstAtTheBeginningOfALine) {
    EXPECT_THAT(Times(Block(kPatrol, "",
                            "Old Time: Fri Oct  2 05:41:24 2026\n"
                            "Time: Fri Oct  2 05:41:23 2026\n"
                            "Time: Fri Oct  2 05:41:25 2026\n")),
                ElementsAre(kTime));
    EXPECT_THAT(Times(Block(kPatrol, "", "Seconds since last reboot: 46\n")), ElementsAre(1u));
    EXPECT_THAT(Times(Block(kPatrol, "", "Time:\n")), ElementsAre(1u));
    EXPECT_THAT(Times(Block(kPatrol, "", "Time: soon\nTime: Fri Oct  2 05:41:25 2026\n")), ElementsAre(1u));
    EXPECT_THAT(Times(Block(kPatrol, "", "Time:   Fri Oct 2 05:41:23 2026  \r\n")), ElementsAre(kTime));
}

TEST(ReadCorrectedErrors, LineOfAMegabyteAndNulBytes_DoNoHarm) {
    const std::string noise = std::string(1024 * 1024, '7') + "\n" + std::string(1000, '\0') + "\n";
    EXPECT_THAT(Drives(noise + kLog + noise), ElementsAre("10 252:3", "21 252:5", "21 8:4"));
    EXPECT_THAT(Drives(Block(kPatrol + noise, noise + DriveData("10", "252", "3") + noise)),
                ElementsAre("10 252:3"));
    EXPECT_THAT(Errors(Block(kPatrol, "Device ID: " + noise)), IsEmpty());
    EXPECT_THAT(Times(Block(kPatrol, "", "Time: " + noise)), ElementsAre(1u));
}

TEST(ReadCorrectedErrors, MutatedLogs_GiveNumbersWithinTheirLimits) {
    const std::vector<std::string> pieces{
        "seqNum: ", "PD ",         "(e", ")",      "/s",   "-1",
        "\n",       "Device ID: ", "%n", "Time: ", "\xff", "99999999999999999999"};
    std::mt19937 random(20261121);
    std::size_t found = 0;
    for (int round = 0; round < 5000; ++round) {
        for (const CorrectedError& error : Errors(MutatedText(kLog, pieces, random))) {
            ASSERT_LE(error.device.value_or(0), kMaxDevice);
            ASSERT_LE(error.enclosure.value_or(0), kMaxPlace);
            ASSERT_LE(error.slot.value_or(0), kMaxPlace);
            ++found;
        }
    }
    EXPECT_GT(found, 5000u);  // most errors survive
}

// Beginnings and ends of blocks in every order, and texts that look like them, over many times what is held
// of a file at once. That both ways of reading find the same is what counts.
TEST(ReadCorrectedErrors, BlocksInAnyOrder_AreReadAlikeFromFileAndMemory) {
    const std::vector<std::string> pieces = {
        "seqNum: 0x1\n",
        "\nseqNum: 0x2\nTime: Fri Oct  2 05:41:23 2026\n",
        " seqNum: 0x3\n",
        "seqNum:\r\n",
        "seqNum: \r\n",
        "the seqNum: 0x4\n",
        "Time: Fri Oct  2 05:41:24 2026\n",
        "Event Description: " + kPatrol + "\n",
        "Event Description: Corrected medium error during recovery on PD 15(e0x08/s4)\n",
        "Event Description: Unrecoverable medium error on PD 03(e0xff/s3)\n",
        "Event Description: Patrol Read progress\n",
        "Corrected medium error\n",
        "CLI Version = 007\n",
        "Device ID: 7\n",
        "Enclosure Index: 252\nSlot Number: 1\n",
        "corrected medium error",
        "\n",
        std::string(3000, 'x') + "\n",
    };
    std::mt19937 random(20261122);
    for (int round = 0; round < 30; ++round) {
        std::string text;
        while (text.size() < 20 * FileLines::kMaxLine) {
            // Most of the time whole blocks: else no description would stand in one.
            text += random() % 2 == 0 ? pieces[random() % pieces.size()]
                                      : Block(random() % 4 == 0 ? kPatrol : "Patrol Read progress",
                                              DriveData(std::to_string(random() % 100), "252", "3"));
            if (random() % 2000 == 0) {
                text += std::string(2 * FileLines::kMaxLine, 'y') + " um error\n";
            }
        }
        EXPECT_GT(Errors(text).size(), 100u) << round;
    }
}

// This process's resident memory in bytes.
std::size_t Resident() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(ReadCorrectedErrors, HugeLog_IsReadInConstantMemory) {
    const TestRoot root;
    const std::string other = Block("Patrol Read progress on PD 0a", "None\n");
    {
        std::ofstream log(root / "log");
        for (int block = 0; block < 100000; ++block) {
            log << other << Block(kPatrol, DriveData("10", "252", "3"));
        }
    }
    const std::size_t before = Resident();
    const auto lines = FileLines::OpenFirst({root / "log"});
    ASSERT_NE(lines, nullptr);
    std::uint64_t count = 0;
    ReadCorrectedErrors(*lines, [&](const CorrectedError&) { ++count; });
    EXPECT_EQ(count, 100000u);
    EXPECT_LT(Resident(), before + 16 * 1024 * 1024);
}

}  // namespace
