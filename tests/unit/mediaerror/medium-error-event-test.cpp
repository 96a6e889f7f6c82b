#include "medium-error-event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "../service/service-fixture.h"
#include "system-info.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kNow = 1'790'000'000;
constexpr std::uint64_t kSevenDays = 604800;

class SetClock : public tovaserverutil::WallClock {
public:
    std::uint64_t Now() const override { return now; }
    std::uint64_t now = kNow;
};

// Two drives of port 1: 1 at "1I:1:1" (SERIAL1) and 2 at "1I:1:2" (SERIAL2).
class MediumErrorEvent : public testing::Test {
protected:
    MediumErrorEvent() : parameter(root.Initialized()) {
        root.Write("opt/bin/bayward.msg",
                   "[default]\n80008159=Medium errors recur on a physical drive: %1 %2%3\n"
                   "[ja_JP]\n80008159=ja %1 %2%3\n");
        parameter->PrepareMessage();
        tova_service::system_info info(root.path());
        parameter->PrepareSysLog(info, sink);
        m_known = root.LogLines().size();
        pd_addr record;
        record.add(1, 0, "SERIAL1", "1I:1:1", 1, 1, 1);
        record.add(2, 0, "SERIAL2", "1I:1:2", 1, 1, 2);
        drives.insert(1, record);
        drives.set_serial("1I:1:1", "SERIAL1");
        drives.set_serial("1I:1:2", "SERIAL2");
    }
    ~MediumErrorEvent() override {
        parameter->Finalize();  // before the sink goes
        Parameter = nullptr;
        LocalSystemInfo = nullptr;
    }

    void Report(int drive, int count = 3) { Report(drive, "1I:1:" + std::to_string(drive), count); }
    void Report(int drive, const std::string& location, int count = 3, int port = 1) {
        ReportMediumErrors({drives, *parameter, language, clock}, {}, port, drive, location, 7,
                           "Smart Array P408i-a in Slot 0", count);
    }

    // The trace lines since the last call.
    Lines NewLines() {
        Lines lines = root.LogLines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(m_known));
        m_known += lines.size();
        return lines;
    }

    ServiceRoot root;
    RecordingSink sink;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    pd_addr_map drives;
    std::string language = "default";
    SetClock clock;

private:
    std::size_t m_known = 0;
};

const std::string kLine1 = "[EV] (3) Medium Errors detected on [1I:1:1] Serial Number:SERIAL1";
const std::string kLine2 = "[EV] (3) Medium Errors detected on [1I:1:2] Serial Number:SERIAL2";
const std::string kEventLine1 =
    "<VK0345> [EV] 0x80008159 CTRL(Smart Array P408i-a in Slot 0) PD(1I:1:1)   Serial Number: SERIAL1 "
    "reported.";

// ---- Drives without a mark ----

TEST_F(MediumErrorEvent, FirstErrors_GiveATraceLineAndNoEvent) {
    Report(1);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), kNow);
    EXPECT_EQ(drives.find_event_time("SERIAL1"), 0u);
}

TEST_F(MediumErrorEvent, OneError_GivesALine) {
    Report(1, 1);
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (1) Medium Errors detected on [1I:1:1] Serial Number:SERIAL1"));
}

TEST_F(MediumErrorEvent, NoError_GivesNoLine) {
    Report(1, 0);
    EXPECT_THAT(NewLines(), IsEmpty());
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), 0u);
}

TEST_F(MediumErrorEvent, SecondReportWithinSevenDays_IsSilent) {
    Report(1);
    NewLines();
    Report(1);
    clock.now += kSevenDays - 1;
    Report(1, 5);
    EXPECT_THAT(NewLines(), IsEmpty());
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), kNow);
}

TEST_F(MediumErrorEvent, ReportExactlySevenDaysLater_GivesALine) {
    Report(1);
    clock.now += kSevenDays;
    Report(1, 5);
    EXPECT_THAT(NewLines(),
                ElementsAre(kLine1, "[EV] (5) Medium Errors detected on [1I:1:1] Serial Number:SERIAL1"));
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), kNow + kSevenDays);
}

TEST_F(MediumErrorEvent, SevenDays_AreCountedFromTheLastLine) {
    Report(1);
    clock.now += kSevenDays;
    Report(1);
    NewLines();
    clock.now += kSevenDays - 1;
    Report(1);
    EXPECT_THAT(NewLines(), IsEmpty());
    clock.now += 1;
    Report(1);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
}

TEST_F(MediumErrorEvent, ClockNearTheEpoch_CountsFromTheEpochWhileNoLineWasWritten) {
    clock.now = kSevenDays - 1;
    Report(1);
    EXPECT_THAT(NewLines(), IsEmpty());
    clock.now = kSevenDays;
    Report(1);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
}

TEST_F(MediumErrorEvent, ClockSetBack_GivesALineAndNoSilence) {
    Report(1);
    clock.now -= 1;
    Report(1);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1, kLine1));
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), kNow - 1);
    Report(1);
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(MediumErrorEvent, TwoDrives_AreReportedEach) {
    Report(1);
    Report(2);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1, kLine2));
}

TEST_F(MediumErrorEvent, DriveMovedToAnotherBay_IsRecognisedByItsSerialNumber) {
    Report(1);
    NewLines();
    drives.clear_map();
    drives.set_serial("2I:1:8", "SERIAL1");
    Report(1, "2I:1:8");
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(MediumErrorEvent, HugeCount_IsPrintedInFull) {
    Report(1, 2147483647);
    EXPECT_THAT(NewLines(),
                ElementsAre("[EV] (2147483647) Medium Errors detected on [1I:1:1] Serial Number:SERIAL1"));
}

TEST_F(MediumErrorEvent, FormatCharacters_AreTracedAsTheyAre) {
    drives.set_serial("%s%n", "%1%d");
    Report(1, "%s%n");
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (3) Medium Errors detected on [%s%n] Serial Number:%1%d"));
}

// ---- Drives that fail repeatedly ----

TEST_F(MediumErrorEvent, MarkedDrive_RaisesTheEventAndNoTraceLineOfItsOwn) {
    drives.set_intermittent(1, 1);
    Report(1);
    EXPECT_THAT(sink.entries,
                ElementsAre(Pair(LOG_WARNING,
                                 "Medium errors recur on a physical drive: CTRL(Smart Array P408i-a in "
                                 "Slot 0) PD(1I:1:1)  Serial Number: SERIAL1")));
    EXPECT_THAT(NewLines(), ElementsAre(kEventLine1));
    EXPECT_EQ(drives.find_event_time("SERIAL1"), kNow);
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), 0u);
}

TEST_F(MediumErrorEvent, MarkedMinutesAfterALine_RaisesTheEvent) {
    Report(1);
    NewLines();
    drives.set_intermittent(1, 1);
    clock.now += 120;
    Report(1);
    EXPECT_THAT(sink.entries, SizeIs(1));
    EXPECT_THAT(NewLines(), ElementsAre(kEventLine1));
    EXPECT_EQ(drives.find_trace_time("SERIAL1"), kNow);
}

TEST_F(MediumErrorEvent, MarkedDriveAgain_GivesTraceLinesSevenDaysApartAndNoSecondEvent) {
    drives.set_intermittent(1, 1);
    Report(1);
    NewLines();
    Report(1);  // no line was written for it yet
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
    clock.now += kSevenDays - 1;
    Report(1);
    EXPECT_THAT(NewLines(), IsEmpty());
    clock.now += 1;
    Report(1);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
    EXPECT_THAT(sink.entries, SizeIs(1));
    EXPECT_EQ(drives.find_event_time("SERIAL1"), kNow);
}

TEST_F(MediumErrorEvent, MarkedAfterALine_KeepsTheSpacingOfItsTraceLines) {
    Report(1);
    drives.set_intermittent(1, 1);
    Report(1);
    NewLines();
    clock.now += kSevenDays - 1;
    Report(1);
    EXPECT_THAT(NewLines(), IsEmpty());
    clock.now += 1;
    Report(1);
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
}

TEST_F(MediumErrorEvent, MarkLostAndFoundAgain_RaisesNoSecondEvent) {
    drives.set_intermittent(1, 1);
    Report(1);
    pd_addr record;
    record.add(1, 0, "SERIAL1", "1I:1:1", 1, 1, 1);
    drives.insert(1, record);  // a new report begins without marks
    Report(1);
    drives.set_intermittent(1, 1);
    Report(1);
    EXPECT_THAT(sink.entries, SizeIs(1));
}

TEST_F(MediumErrorEvent, EventTimeOfZero_CountsAsNeverRaised) {
    drives.set_intermittent(1, 1);
    clock.now = 0;
    Report(1);
    Report(1);
    EXPECT_THAT(sink.entries, SizeIs(2));
    clock.now = kNow;
    Report(1);
    Report(1);
    EXPECT_THAT(sink.entries, SizeIs(3));
}

TEST_F(MediumErrorEvent, MarkOfAnotherDrive_RaisesNothing) {
    drives.set_intermittent(1, 2);
    Report(1);
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(NewLines(), ElementsAre(kLine1));
}

TEST_F(MediumErrorEvent, UnknownPortOrDrive_CountsAsUnmarked) {
    drives.set_intermittent(1, 1);
    Report(1, "1I:1:1", 3, 9);
    Report(9, "1I:1:2", 3, 1);
    EXPECT_THAT(sink.entries, IsEmpty());
    EXPECT_THAT(NewLines(), ElementsAre(kLine1, kLine2));
}

TEST_F(MediumErrorEvent, LanguageOfTheSystem_IsThatOfTheSentence) {
    language = "ja_JP";
    drives.set_intermittent(1, 1);
    Report(1);
    EXPECT_THAT(sink.entries,
                ElementsAre(Pair(LOG_WARNING,
                                 "ja CTRL(Smart Array P408i-a in Slot 0) PD(1I:1:1)  Serial Number: "
                                 "SERIAL1")));
}

TEST_F(MediumErrorEvent, EventOfTheCaller_StaysAsItIs) {
    drives.set_intermittent(1, 1);
    tovaevent::EvtData event(tovaevent::kDriveFailed);
    ReportMediumErrors({drives, *parameter, language, clock}, event, 1, 1, "1I:1:1", 0, "title", 1);
    EXPECT_EQ(event.Id(), tovaevent::kDriveFailed);  // the caller's stays as it is
    EXPECT_THAT(event.Parameters(), IsEmpty());
    EXPECT_THAT(
        NewLines(),
        ElementsAre("<VK0345> [EV] 0x80008159 CTRL(title) PD(1I:1:1)   Serial Number: SERIAL1 reported."));
}

TEST_F(MediumErrorEvent, ShippedCatalogue_HasItsSentence) {
    std::filesystem::copy_file(BAYWARD_SOURCE_DIR "/share/bayward.msg", "bayward.msg",
                               std::filesystem::copy_options::overwrite_existing);
    parameter->PrepareMessage();
    drives.set_intermittent(1, 1);
    Report(1);
    EXPECT_THAT(
        sink.entries,
        ElementsAre(Pair(LOG_WARNING,
                         "Medium errors recur on a physical drive: CTRL(Smart Array P408i-a in Slot 0) "
                         "PD(1I:1:1)  Serial Number: SERIAL1"),
                    Pair(LOG_WARNING, "Check that a backup exists and replace the drive.")));
}

// ---- Locations without a serial number ----

TEST_F(MediumErrorEvent, UnknownLocations_ShareOneTraceTimer) {
    Report(1, "1I:1:7");
    Report(2, "1I:1:8");
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (3) Medium Errors detected on [1I:1:7] Serial Number:"));
    clock.now += kSevenDays;
    Report(2, "1I:1:8");
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (3) Medium Errors detected on [1I:1:8] Serial Number:"));
}

TEST_F(MediumErrorEvent, UnknownLocations_ShareOneEvent) {
    drives.set_intermittent(1, 1);
    drives.set_intermittent(1, 2);
    Report(1, "1I:1:7");
    Report(2, "1I:1:8");
    EXPECT_THAT(sink.entries,
                ElementsAre(Pair(LOG_WARNING,
                                 "Medium errors recur on a physical drive: CTRL(Smart Array P408i-a in "
                                 "Slot 0) PD(1I:1:7)  Serial Number: ")));
    EXPECT_EQ(drives.find_event_time(""), kNow);
}

// ---- The running service ----

TEST_F(MediumErrorEvent, Routine_UsesWhatTheServiceShares) {
    tova_service::system_info info(root.path());
    Parameter = parameter.get();
    LocalSystemInfo = &info;
    const std::uint64_t before = tovaserverutil::WallClock().Now();
    MediumErrorEventRoutine({}, 77, 1, "77I:1:1", 0, "title", 2);
    EXPECT_THAT(NewLines(), ElementsAre("[EV] (2) Medium Errors detected on [77I:1:1] Serial Number:"));
    EXPECT_GE(m_PdAddrMap.find_trace_time(""), before);

    pd_addr record;
    record.add(1, 0, "SERIAL77", "77I:1:1", 77, 1, 1);
    m_PdAddrMap.insert(77, record);
    m_PdAddrMap.set_serial("77I:1:1", "SERIAL77");
    m_PdAddrMap.set_intermittent(77, 1);
    MediumErrorEventRoutine({}, 77, 1, "77I:1:1", 0, "title", 2);
    EXPECT_THAT(sink.entries, SizeIs(1));
    EXPECT_GE(m_PdAddrMap.find_event_time("SERIAL77"), before);
}

}  // namespace
