#include "megaraid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "megaraid-rig.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class MegaRaidSearching : public MegaRaidRig {};

TEST(DeviceOf, IdOfTheEventGoesBeforeItsPlace) {
    const std::vector<StorcliDrive> drives{{252u, 3, 10}, {252u, 4, 11}, {8u, 3, 12}, {std::nullopt, 3, 13}};
    const auto at = [](std::optional<unsigned int> enclosure, std::optional<unsigned int> slot) {
        CorrectedError error;
        error.enclosure = enclosure;
        error.slot = slot;
        return error;
    };
    EXPECT_EQ(DeviceOf(at(252, 4), drives), 11u);
    EXPECT_EQ(DeviceOf(at(8, 3), drives), 12u);
    EXPECT_EQ(DeviceOf(at(255, 3), drives), 13u);
    EXPECT_EQ(DeviceOf(at(252, 5), drives), std::nullopt);
    EXPECT_EQ(DeviceOf(at(std::nullopt, 3), drives), std::nullopt);
    EXPECT_EQ(DeviceOf(at(252, std::nullopt), drives), std::nullopt);
    CorrectedError named = at(252, 4);
    named.device = 99;
    EXPECT_EQ(DeviceOf(named, drives), 99u);
}

TEST_F(MegaRaidSearching, Search_RunsTheseCommandsInThisOrder) {
    tool.answers["show"] = ControllerTable({"0", "3"});
    tool.answers["/c0 show"] = ControllerListing("", {"252:3 10", " :5 6"});
    tool.answers["/c3 show"] = ControllerListing("", {"8:0 1"});
    Search();
    EXPECT_THAT(
        tool.commands,
        ElementsAre("/opt/MegaRAID/storcli/storcli64 show > storcli_show_all.log",
                    "/opt/MegaRAID/storcli/storcli64 /c0 show > storcli_cx_show.log",
                    "/opt/MegaRAID/storcli/storcli64 /c0/e252/s3 show all > storcli_device_show_all.log",
                    "rm -rf \"storcli_device_show_all.log\"",
                    "/opt/MegaRAID/storcli/storcli64 /c0/s5 show all > storcli_device_show_all.log",
                    "rm -rf \"storcli_device_show_all.log\"",  //
                    "rm -rf \"storcli_cx_show.log\"",
                    "/opt/MegaRAID/storcli/storcli64 /c0 show events > storcli_show_events.log",
                    "/opt/MegaRAID/storcli/storcli64 /c3 show > storcli_cx_show.log",
                    "/opt/MegaRAID/storcli/storcli64 /c3/e8/s0 show all > storcli_device_show_all.log",
                    "rm -rf \"storcli_device_show_all.log\"",  //
                    "rm -rf \"storcli_cx_show.log\"",
                    "/opt/MegaRAID/storcli/storcli64 /c3 show events > storcli_show_events.log",
                    "rm -rf \"storcli_show_all.log\"",     //
                    "rm -rf \"storcli_show_events.log\"",  //
                    "rm -rf \"storcli.log\""));
    EXPECT_THAT(FilesLeft(), IsEmpty());
}

TEST_F(MegaRaidSearching, FailingControllersCommand_EndsTheSearchAndRemovesTheFiles) {
    const std::string command = kTool + " show > storcli_show_all.log";
    const auto removals = ElementsAre(command, "rm -rf \"storcli_show_all.log\"",
                                      "rm -rf \"storcli_show_events.log\"", "rm -rf \"storcli.log\"");
    tool.statuses[command] = 127;
    Search(Events(30, kBegin));
    EXPECT_THAT(tool.commands, removals);
    tool.statuses.clear();

    tool.hanging.insert(command);
    Search();
    EXPECT_THAT(tool.commands, removals);
    tool.hanging.clear();

    tool.failing.insert(command);
    root.Write("opt/bin/storcli_show_all.log", tool.answers["show"]);  // of an earlier run
    Search();
    EXPECT_THAT(tool.commands, removals);

    EXPECT_THAT(NewLines(), IsEmpty());
    EXPECT_THAT(NewSentences(), IsEmpty());
    EXPECT_THAT(FilesLeft(), IsEmpty());
}

// --- the stop ---

TEST_F(MegaRaidSearching, StopDuringTheSearch_LetsItComeToItsEnd) {
    tool.answers["/c0 show"] = ControllerListing("Product Name = RAID Card\n", {"252:3 10", "252:4 11"});
    tool.during = [this](const std::string& command) {
        stop.Set();
        clock.now += command == kTool + " /c0/e252/s3 show all > storcli_device_show_all.log" ? 60 : 0;
    };
    Search(Events(20, kBegin, 60, 11));
    EXPECT_THAT(NewSentences(), testing::SizeIs(1));
    EXPECT_THAT(FilesLeft(), IsEmpty());
}

TEST_F(MegaRaidSearching, FloodOfDrives_EndsAMinuteAfterTheStopWithoutReports) {
    tool.answers["show"] = ControllerTable({"0", "1"});
    std::vector<std::string> rows;
    for (int slot = 0; slot < 1000; ++slot) {
        rows.push_back("252:" + std::to_string(slot) + " 10");
    }
    tool.answers["/c0 show"] = ControllerListing("", rows);
    tool.answers["/c0 show events"] = Events(20, kBegin);
    std::size_t places = 0;
    tool.during = [&](const std::string& command) {
        if (command.find("/e252/") != std::string::npos) {
            clock.now += 20;
            if (++places == 10) {
                stop.Set();
            }
        }
    };
    Search();
    EXPECT_EQ(places, 14u);  // the eleventh sees it, and 60 seconds are not yet too much
    EXPECT_THAT(NewSentences(), IsEmpty());
    EXPECT_THAT(NewLines(), IsEmpty());
    EXPECT_THAT(FilesLeft(), IsEmpty());
    EXPECT_THAT(tool.commands, Not(testing::Contains(HasSubstr(" show events"))));
    EXPECT_THAT(tool.commands, Not(testing::Contains(HasSubstr("/c1"))));
    EXPECT_TRUE(stop.Poll(0));  // it is still there for the thread
}

TEST_F(MegaRaidSearching, ErrorsOfMoreDevicesThanAServerHas_AreLeftOut) {
    std::string events;
    for (int device = 0; device < 2000; ++device) {
        events += Event("Device ID: " + std::to_string(device), kBegin);
    }
    Search(events + Event("Device ID: 0", kBegin));
    const std::vector<std::string> lines = NewLines();
    ASSERT_EQ(lines.size(), 1024u);
    EXPECT_EQ(lines.front(), "[EV] (2) Medium Errors detected on pid:0");
    EXPECT_EQ(lines.back(), "[EV] (1) Medium Errors detected on pid:1023");
}

TEST_F(MegaRaidSearching, NoController_RemovesTheFiles) {
    tool.answers["show"] = "Number of Controllers = 0\n";
    Search();
    EXPECT_THAT(tool.commands,
                ElementsAre(kTool + " show > storcli_show_all.log", "rm -rf \"storcli_show_all.log\"",
                            "rm -rf \"storcli_show_events.log\"", "rm -rf \"storcli.log\""));
    EXPECT_THAT(FilesLeft(), IsEmpty());
}

TEST_F(MegaRaidSearching, ExitStatusOfTheLaterCommands_IsIgnored) {
    tool.statuses[kTool + " /c0 show > storcli_cx_show.log"] = 46;
    tool.statuses[kTool + " /c0/e252/s3 show all > storcli_device_show_all.log"] = 46;
    tool.statuses[kTool + " /c0 show events > storcli_show_events.log"] = 1;
    tool.statuses["rm -rf \"storcli_cx_show.log\""] = 1;
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL(RAID Card [Slot=4]) PD(Port=1I,Box=2,Bay=3)")));
}

TEST_F(MegaRaidSearching, CommandThatCannotBeStarted_DoesNotInheritTheListingOfTheControllerBefore) {
    tool.answers["show"] = ControllerTable({"0", "1"});
    tool.failing = {kTool + " /c1 show > storcli_cx_show.log", "rm -rf \"storcli_cx_show.log\"",
                    kTool + " /c1 show events > storcli_show_events.log"};
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("RAID Card [Slot=4]")));
    EXPECT_THAT(NewLines(), ElementsAre(HasSubstr("reported.")));
    EXPECT_THAT(tool.commands, Not(testing::Contains(HasSubstr("/c1/e"))));
}

TEST_F(MegaRaidSearching, PlaceThatCannotBeListed_IsNotThatOfTheDriveBefore) {
    tool.answers["/c0 show"] = ControllerListing("Product Name = RAID Card\n", {"252:3 10", "252:4 11"});
    tool.failing = {kTool + " /c0/e252/s4 show all > storcli_device_show_all.log",
                    "rm -rf \"storcli_device_show_all.log\""};
    Search(Events(20, kBegin, 60, 11));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL(RAID Card) PD(Port=,Box=,Bay=4)")));
}

TEST_F(MegaRaidSearching, MissingOutputs_ReportNothing) {
    for (const char* const missing : {"show", "/c0 show events"}) {
        tool.silent = {missing};
        Search(Events(20, kBegin));
        EXPECT_THAT(NewLines(), IsEmpty()) << missing;
        EXPECT_THAT(NewSentences(), IsEmpty()) << missing;
    }
    tool.silent.clear();
    Search();
    EXPECT_THAT(NewSentences(), testing::SizeIs(1));  // it was for the missing output alone
}

TEST_F(MegaRaidSearching, MissingOverview_AsksNoController) {
    tool.silent = {"show"};
    Search(Events(20, kBegin));
    EXPECT_THAT(tool.commands, Not(testing::Contains(HasSubstr("/c0"))));
}

TEST_F(MegaRaidSearching, MissingListingOfAController_LeavesTitleAndPlaceEmpty) {
    tool.silent = {"/c0 show"};
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL() PD()")));
}

TEST_F(MegaRaidSearching, Errors_FindTheirDriveByIdDescriptionOrPlace) {
    tool.answers["/c0 show"] = ControllerListing("", {"252:3 10", "252:4 11", " :5 6"});
    const std::string corrected = "Patrol Read corrected medium error on ";
    Search(Event("Device ID: 1", kBegin) + Event("Device Id: 1", kBegin) +
           Event("", kBegin, corrected + "PD 1f(e0x0/s0) at 1") +
           Event("Enclosure Index: 252\nBay Number: 3", kBegin) +
           Event("Enclosure Index: 252\nSlot Number: 4", kBegin) +
           Event("", kBegin, corrected + "PD (e0xff/s5) at 1") +
           Event("Enclosure Index: 252\nSlot Number: 99", kBegin) + Event("", kBegin, corrected + "VD 00/0"));
    EXPECT_THAT(
        NewLines(),
        ElementsAre("[EV] (2) Medium Errors detected on pid:1", "[EV] (1) Medium Errors detected on pid:6",
                    "[EV] (1) Medium Errors detected on pid:10", "[EV] (1) Medium Errors detected on pid:11",
                    "[EV] (1) Medium Errors detected on pid:31"));
}

TEST_F(MegaRaidSearching, TestInputFiles_GoBeforeTheListings) {
    const std::string folder = "opt/bin/KMT_ADUReport_test/";
    root.Write(folder + "storcli_show_all_test.txt", ControllerTable({"5"}));
    root.Write(folder + "storcli_cx_show_test.txt",
               ControllerListing("Product Name = Tested\nPCI Slot Number = 9\n", {"1:2 33"}));
    root.Write(folder + "storcli_device_show_all.txt", "Port Number = 7\nBox = 8\n");
    root.Write(folder + "storcli_show_events.txt", Events(20, kBegin, 60, 33));
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL(Tested [Slot=9]) PD(Port=7,Box=8,Bay=2)")));
    EXPECT_THAT(
        tool.commands,
        ElementsAre(kTool + " show > storcli_show_all.log", kTool + " /c5 show > storcli_cx_show.log",
                    kTool + " /c5/e1/s2 show all > storcli_device_show_all.log",
                    "rm -rf \"storcli_device_show_all.log\"", "rm -rf \"storcli_cx_show.log\"",
                    kTool + " /c5 show events > storcli_show_events.log", "rm -rf \"storcli_show_all.log\"",
                    "rm -rf \"storcli_show_events.log\"", "rm -rf \"storcli.log\""));
    EXPECT_TRUE(std::filesystem::exists("KMT_ADUReport_test/storcli_show_events.txt"));
}

TEST_F(MegaRaidSearching, EachTestInputFile_StandsForItsOwnListingOnly) {
    root.Write("opt/bin/KMT_ADUReport_test/storcli_show_events.txt", Events(20, kBegin));
    Search("");
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL(RAID Card [Slot=4]) PD(Port=1I,Box=2,Bay=3)")));
}

TEST_F(MegaRaidSearching, HostileRows_NeverReachACommand) {
    tool.answers["show"] = ControllerTable({"0;reboot", "$(id)", "`id`", "-1", "99999999999", "0"});
    tool.answers["/c0 show"] = ControllerListing(
        "", {"252:3;id 10", "$(id):1 1", "252:|id 1", "2&2:1 1", "252:3 10;id", "252:3 10"});
    Search();
    for (const std::string& command : tool.commands) {
        EXPECT_EQ(command.find_first_of(";$`|&\n"), std::string::npos) << command;
    }
    EXPECT_THAT(tool.commands, testing::SizeIs(9));
}

TEST_F(MegaRaidSearching, EventIdsOutOfRange_AreIgnored) {
    Search(Event("Device ID: 65546", kBegin) + Event("Device ID: -1", kBegin) +
           Event("Device ID: 99999999999999999999", kBegin));
    EXPECT_THAT(NewLines(), IsEmpty());
}

// The argument-less function, with the real shell and without the tool.
TEST_F(MegaRaidSearching, RunningService_WithoutTheToolIsSilent) {
    if (std::filesystem::exists(kTool)) {
        GTEST_SKIP() << "this machine has a storcli64";
    }
    tova_service::system_info info(root.path());
    Parameter = parameter.get();
    LocalSystemInfo = &info;
    root.Write("opt/bin/storcli.log", "of an earlier run");
    testing::internal::CaptureStderr();
    check_MegaRaid_Event();
    testing::internal::GetCapturedStderr();
    Parameter = nullptr;
    LocalSystemInfo = nullptr;
    EXPECT_THAT(NewLines(), IsEmpty());
    EXPECT_THAT(FilesLeft(), IsEmpty());
}

}  // namespace
