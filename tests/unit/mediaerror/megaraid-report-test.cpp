#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <filesystem>

#include "megaraid-rig.h"
#include "megaraid.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

MediumErrors Errors(std::uint64_t count, const std::vector<std::uint64_t>& times) {
    MediumErrors errors;
    errors.count = count;
    for (const std::uint64_t time : times) {
        errors.times.Add(time);
    }
    return errors;
}

// `count` times, of which the newest and the 19th newest are `span` apart; in no order.
std::vector<std::uint64_t> TimesOverSpan(std::size_t count, std::uint64_t span) {
    std::vector<std::uint64_t> times{kBegin};
    times.resize(18, kBegin - span / 2);
    times.push_back(kBegin - span);
    times.resize(count, 1);
    std::swap(times.front(), times.back());
    return times;
}

class MegaRaidReport : public MegaRaidRig {};

TEST(ErrsRepeatedly, NeedsTwentyErrors) {
    EXPECT_FALSE(ErrsRepeatedly(Errors(19, TimesOverSpan(19, 0))));
    EXPECT_TRUE(ErrsRepeatedly(Errors(20, TimesOverSpan(20, 0))));
    EXPECT_TRUE(ErrsRepeatedly(Errors(20, TimesOverSpan(19, 0))));
    EXPECT_FALSE(ErrsRepeatedly(Errors(20, std::vector<std::uint64_t>(18, kBegin))));
    EXPECT_FALSE(ErrsRepeatedly(Errors(0, {})));
}

TEST(ErrsRepeatedly, NeedsTheNewestNineteenWithinLessThanSevenDays) {
    EXPECT_TRUE(ErrsRepeatedly(Errors(20, TimesOverSpan(20, kSevenDays - 1))));
    EXPECT_FALSE(ErrsRepeatedly(Errors(20, TimesOverSpan(20, kSevenDays))));
    EXPECT_TRUE(ErrsRepeatedly(Errors(500, TimesOverSpan(500, kSevenDays - 1))));
    EXPECT_FALSE(ErrsRepeatedly(Errors(500, TimesOverSpan(500, kSevenDays))));
}

TEST_F(MegaRaidReport, Event_TellsControllerAndPlaceInTheShippedSentence) {
    std::filesystem::copy_file(BAYWARD_SOURCE_DIR "/share/bayward.msg", "bayward.msg",
                               std::filesystem::copy_options::overwrite_existing);
    parameter->PrepareMessage();
    Search(Events(20, kBegin));
    EXPECT_THAT(sink.entries,
                ElementsAre(Pair(LOG_WARNING,
                                 "Medium errors recur on a physical drive: "
                                 "CTRL(RAID Card [Slot=4]) PD(Port=1I,Box=2,Bay=3) "),
                            Pair(LOG_WARNING, "Check that a backup exists and replace the drive.")));
    EXPECT_EQ(NewLines().back(),
              "<VK0345> [EV] 0x80008159 CTRL(RAID Card [Slot=4]) PD(Port=1I,Box=2,Bay=3)   reported.");
}

TEST_F(MegaRaidReport, TwentyErrors_RaiseTheEventOnceAndThenTraceLines) {
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), testing::SizeIs(1));
    EXPECT_THAT(NewLines(), ElementsAre(HasSubstr("reported.")));

    // The event leaves no trace time: the next search writes the first line.
    Search(Events(21, kBegin));
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (21) Medium Errors detected on pid:10"));
    clock.now += kSevenDays - 1;
    Search(Events(22, kBegin));
    EXPECT_THAT(NewLines(), IsEmpty());
    clock.now += 1;
    Search(Events(23, kBegin));
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (23) Medium Errors detected on pid:10"));
    EXPECT_THAT(NewSentences(), IsEmpty());
}

TEST_F(MegaRaidReport, NineteenErrors_GetTraceLinesOnly) {
    Search(Events(19, kBegin));
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (19) Medium Errors detected on pid:10"));
    EXPECT_THAT(NewSentences(), IsEmpty());
}

TEST_F(MegaRaidReport, TwentyErrorsOverSevenDays_GetTraceLinesOnly) {
    // The newest 19 lie 18 spacings apart.
    Search(Events(20, kBegin, kSevenDays / 18));
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (20) Medium Errors detected on pid:10"));
    EXPECT_THAT(NewSentences(), IsEmpty());
    Search(Events(20, kBegin, kSevenDays / 18 - 1));
    EXPECT_THAT(NewSentences(), testing::SizeIs(1));
}

TEST_F(MegaRaidReport, EventAfterATraceLine_IsRaisedAtOnceAndWithoutAnother) {
    Search(Events(1, kBegin));
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (1) Medium Errors detected on pid:10"));
    clock.now += 2 * kSevenDays;
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), testing::SizeIs(1));
    EXPECT_THAT(NewLines(), Each(Not(HasSubstr("[EV] ("))));
}

TEST_F(MegaRaidReport, TraceLines_AreSevenDaysApart) {
    const std::string one = Events(1, kBegin);
    Search(one);
    EXPECT_THAT(NewLines(), testing::SizeIs(1));
    clock.now += kSevenDays - 1;
    Search(one);
    EXPECT_THAT(NewLines(), IsEmpty());
    clock.now += 1;
    Search(one);
    EXPECT_THAT(NewLines(), testing::SizeIs(1));
    clock.now -= 1;  // set back: rather a line too many
    Search(one);
    EXPECT_THAT(NewLines(), testing::SizeIs(1));
}

TEST_F(MegaRaidReport, FirstTraceLine_DoesNotWaitForSevenDaysSinceTheEpoch) {
    clock.now = 1000;
    Search(Events(1, kBegin));
    EXPECT_THAT(NewLines(), testing::SizeIs(1));
    clock.now += 10;
    Search();
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(MegaRaidReport, LogWithoutErrors_IsSilent) {
    Search("seqNum: 1\nTime: Fri Oct  2 05:41:23 2026\nEvent Description: Fan restored\nDevice ID: 10\n");
    EXPECT_THAT(NewLines(), IsEmpty());
    EXPECT_THAT(NewSentences(), IsEmpty());
}

TEST_F(MegaRaidReport, ErrorsWithoutTime_CountButAreOld) {
    std::string events = Events(19, kBegin);
    events +=
        "seqNum: 1\nSeconds since last reboot: 46\nEvent Description: Corrected medium error\nDevice ID: "
        "10\n";
    Search(events);
    EXPECT_THAT(NewSentences(), testing::SizeIs(1));  // 20 errors, the newest 19 of them close together
    reports = {};
    std::string timeless;
    for (int event = 0; event < 20; ++event) {
        timeless += "seqNum: 1\nTime: ?\nEvent Description: Corrected medium error\nDevice ID: 10\n";
    }
    Search(Events(18, kBegin) + timeless);
    EXPECT_THAT(NewSentences(), IsEmpty());
}

TEST_F(MegaRaidReport, DriveThatIsGone_RaisesTheEventWithoutPlace) {
    Search(Events(20, kBegin, 60, 77));
    EXPECT_THAT(NewSentences(),
                ElementsAre("Medium errors recur on a physical drive: CTRL(RAID Card [Slot=4]) PD() "));
}

TEST_F(MegaRaidReport, EqualDeviceIdsOnTwoControllers_AreTwoDrives) {
    tool.answers["show"] = ControllerTable({"0", "1"});
    tool.answers["/c1 show"] = ControllerListing("Product Name = Other Card\n", {"8:7 10"});
    tool.answers["/c1/e8/s7 show all"] = "Port Number = 5\nBox = 6\n";
    tool.answers["/c1 show events"] = Events(10, kBegin);
    Search(Events(10, kBegin));
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (10) Medium Errors detected on pid:10",
                                        "[EV] (10) Medium Errors detected on pid:10"));
    tool.answers["/c1 show events"] = Events(20, kBegin);
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL(RAID Card [Slot=4]) PD(Port=1I,Box=2,Bay=3)"),
                                            HasSubstr("CTRL(Other Card) PD(Port=5,Box=6,Bay=7)")));
}

TEST_F(MegaRaidReport, HighestControllerAndDevice_HaveAMemoryOfTheirOwn) {
    tool.answers["show"] = ControllerTable({"32767"});
    tool.answers["/c32767 show"] = ControllerListing("Product Name = Far\n", {"65535:65535 65535"});
    tool.answers["/c32767 show events"] = Events(20, kBegin, 60, 65535);
    Search();
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr("CTRL(Far) PD(Port=,Box=,Bay=65535)")));
    EXPECT_EQ(reports.find_event_time(2147483647), clock.now);
}

TEST_F(MegaRaidReport, ControllerThatPrintsNoSlot_IsNamedWithoutOne) {
    tool.answers["/c0 show"] =
        ControllerListing("Product Name = RAID Card\nPCI Slot Number = \n", {"252:3 10"});
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(), ElementsAre(HasSubstr(": CTRL(RAID Card) PD(Port=1I,Box=2,Bay=3)")));
}

TEST_F(MegaRaidReport, Event_IsToldInTheSystemsLanguage) {
    language = "ja_JP";
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(),
                ElementsAre(HasSubstr("ja CTRL(RAID Card [Slot=4]) PD(Port=1I,Box=2,Bay=3)")));
}

TEST_F(MegaRaidReport, FormatCharactersInNames_AreOrdinaryText) {
    tool.answers["/c0 show"] =
        ControllerListing("Product Name = %s%n%1 \x1b[31m\nPCI Slot Number = %n\n", {"252:3 10"});
    tool.answers["/c0/e252/s3 show all"] = "Port Number = %s\nBox = a\rb\n";
    Search(Events(20, kBegin));
    EXPECT_THAT(NewSentences(),
                ElementsAre(HasSubstr("CTRL(%s%n%1 ?[31m [Slot=%n]) PD(Port=%s,Box=a?b,Bay=3)")));
}

}  // namespace
