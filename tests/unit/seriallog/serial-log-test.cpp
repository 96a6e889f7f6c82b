#include "serial-log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "../service/service-fixture.h"
#include "fake-commands.h"
#include "serial-log-cycle.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using tovaserverutil::Event;
using Lines = std::vector<std::string>;

const std::string kInitialized = "<VK0900> [TR] Initialize succeeded.";
const std::string kStart = "<VK0900> [TR] Start cyclic serial log saving.";
const std::string kBreak = "<VK0900> [TR] Break SerialLogRoutine by StopEvent.";
constexpr std::uint32_t kMinute = 60000;

// Waits no time at all: so many waits end with the time, then one with the stop.
class CountedWaits : public tovaserverutil::StopWait {
public:
    explicit CountedWaits(std::size_t cycles) : StopWait(nullptr), m_cycles(cycles) {}

    bool Wait(unsigned int timeoutMs) override {
        waits.push_back(timeoutMs);
        if (waits.size() <= m_cycles) {
            return false;
        }
        if (atTheEnd) {
            atTheEnd();
        }
        return true;
    }

    std::vector<unsigned int> waits;
    std::function<void()> atTheEnd;  // in place of the stop, when it throws

private:
    std::size_t m_cycles;
};

class FixedClock : public tovaserverutil::WallClock {
public:
    std::uint64_t Now() const override { return seconds; }
    std::uint64_t seconds = 1706745599;
};

// The tool: leaves an archive where it is told to.
class ArchiveWriter : public FakeCommands {
public:
    tovaserverutil::CommandResult Execute(const std::string& command,
                                          std::chrono::milliseconds limit) override {
        result.exitStatus = 0;
        std::ofstream(command.substr(command.find("file=") + 5)) << "archive";
        return FakeCommands::Execute(command, limit);
    }
};

class SerialLogTest : public testing::Test {
protected:
    SerialLogTest() { commands.result.exitStatus = 0; }
    ~SerialLogTest() override { Parameter = nullptr; }

    // One run of `cycles` cycles. Returns the lines after those of the start.
    Lines Run(std::size_t cycles, const std::string& configuration = "",
              std::function<void()> atTheEnd = {}) {
        root.Configure(configuration);
        const auto parameter = root.Initialized();
        CountedWaits wait(cycles);
        wait.atTheEnd = std::move(atTheEnd);
        RunSerialLog({*parameter, wait, commands, clock});
        waits = wait.waits;
        Lines lines = root.LogLines();
        EXPECT_GE(lines.size(), 2u);
        EXPECT_EQ(lines[0], kInitialized);
        EXPECT_EQ(lines[1], kStart);
        lines.erase(lines.begin(), lines.begin() + 2);
        return lines;
    }

    std::string Folder() const { return root / "var/log/bayward"; }
    void AddArchives(int count) const {
        for (int number = 0; number < count; ++number) {
            root.Write("var/log/bayward/" + Archive(number), "archive");
        }
    }
    static std::string Archive(int number) {
        return "serial_log_20200101_" + std::to_string(100000 + number) + ".zip";
    }
    Lines Archives() const {
        Lines names;
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
            if (entry.path().extension() == ".zip") {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    ServiceRoot root;
    FakeCommands commands;
    FixedClock clock;
    std::vector<unsigned int> waits;  // of the latest run
};

bool Comes(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::string LocalStamp(std::time_t seconds) {
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d_%H%M%S", &local);
    return text;
}

// ---- The period ----

TEST(SerialLogPeriod, Setting_IsKeptBetweenAnHourAndSevenDays) {
    EXPECT_EQ(SerialLogPeriod(0), 60 * kMinute);
    EXPECT_EQ(SerialLogPeriod(5), 60 * kMinute);
    EXPECT_EQ(SerialLogPeriod(60), 60 * kMinute);
    EXPECT_EQ(SerialLogPeriod(61), 61 * kMinute);
    EXPECT_EQ(SerialLogPeriod(10080), 604800000u);
    EXPECT_EQ(SerialLogPeriod(10081), 604800000u);
    EXPECT_EQ(SerialLogPeriod(20000), 604800000u);
    EXPECT_EQ(SerialLogPeriod(static_cast<std::uint32_t>(-5)), 604800000u);
}

TEST_F(SerialLogTest, NoSetting_WaitsSevenDays) {
    Run(2);
    EXPECT_THAT(waits, ElementsAre(604800000u, 604800000u, 604800000u));
}

TEST_F(SerialLogTest, Interval_IsTheWaitBeforeEachCycle) {
    Run(1, "[serial log]\ninterval=90\n");
    EXPECT_THAT(waits, ElementsAre(90 * kMinute, 90 * kMinute));
}

TEST_F(SerialLogTest, NegativeInterval_WaitsSevenDays) {
    Run(0, "[serial log]\ninterval=-1\n");
    EXPECT_THAT(waits, ElementsAre(604800000u));
}

// ---- The cycle ----

TEST_F(SerialLogTest, StopInTheFirstWait_SavesAndRemovesNothing) {
    AddArchives(300);
    EXPECT_THAT(Run(0), ElementsAre(kBreak));
    EXPECT_THAT(commands.commands, IsEmpty());
    EXPECT_THAT(Archives(), SizeIs(300));
}

TEST_F(SerialLogTest, Cycle_SavesIntoTheLogFolder) {
    EXPECT_THAT(Run(1), ElementsAre(kBreak));
    EXPECT_THAT(commands.commands,
                ElementsAre("/opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag logs=on file=" +
                            Folder() + "/serial_log_" + LocalStamp(1706745599) + ".zip"));
    EXPECT_EQ(commands.deadline, std::chrono::minutes(30));
}

TEST_F(SerialLogTest, EachCycle_SavesOnce) {
    Run(5);
    EXPECT_THAT(commands.commands, SizeIs(5));
}

TEST_F(SerialLogTest, ArchiveJustWritten_CountsAmongTheKept) {
    AddArchives(11);
    ArchiveWriter writer;
    root.Configure("[serial log]\nmax file count=10\n");
    const auto parameter = root.Initialized();
    CountedWaits wait(1);
    RunSerialLog({*parameter, wait, writer, clock});
    const Lines archives = Archives();
    ASSERT_THAT(archives, SizeIs(10));
    EXPECT_EQ(archives.front(), Archive(2));
    EXPECT_EQ(archives.back(), "serial_log_" + LocalStamp(1706745599) + ".zip");
}

class SerialLogCount : public SerialLogTest,
                       public testing::WithParamInterface<std::pair<const char*, std::size_t>> {};

TEST_P(SerialLogCount, MaxFileCount_IsKeptInRange) {
    AddArchives(205);
    Run(1, std::string("[serial log]\nmax file count=") + GetParam().first + "\n");
    EXPECT_THAT(Archives(), SizeIs(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(Settings, SerialLogCount,
                         testing::Values(std::pair("", 100u), std::pair("3", 10u), std::pair("10", 10u),
                                         std::pair("150", 150u), std::pair("500", 200u),
                                         std::pair("-1", 200u)),
                         [](const auto& parameter) { return "Number" + std::to_string(parameter.index); });

TEST_F(SerialLogTest, ToolMissing_IsTracedInEveryCycleAndPruningStillRuns) {
    commands.result.exitStatus = 127;
    AddArchives(102);
    const Lines lines = Run(2);
    const std::string line =
        "<VK0902> [ER] log-manager 98 (command: /opt/smartstorageadmin/ssacli/bin/ssacli ctrl "
        "all diag logs=on file=" +
        Folder() + "/serial_log_" + LocalStamp(1706745599) + ".zip)";
    EXPECT_THAT(lines, ElementsAre(line, line, kBreak));
    EXPECT_THAT(Archives(), SizeIs(100));
}

TEST_F(SerialLogTest, TimeThatCannotBeBrokenDown_SkipsTheSavingAndStillPrunes) {
    clock.seconds = static_cast<std::uint64_t>(INT64_MAX);
    AddArchives(101);
    EXPECT_THAT(Run(1), ElementsAre("<VK0902> [ER] log-manager 215", kBreak));
    EXPECT_THAT(commands.commands, IsEmpty());
    EXPECT_THAT(Archives(), SizeIs(100));
}

// ---- The end by an exception ----

TEST_F(SerialLogTest, WaitFails_IsTracedInTheLoopAndAtTheEndOfTheThread) {
    EXPECT_THAT(Run(1, "", [] { tovabase::ThrowSystemError("server-util", 77, 9); }),
                ElementsAre("<VK0902> [ER] service 1537 (Err: server-util 77 (Err: 9))",
                            "<VK0902> [ER] service 1540 (Err: server-util 77 (Err: 9))"));
    EXPECT_THAT(commands.commands, SizeIs(1));
}

TEST_F(SerialLogTest, AllocationFailure_IsTracedAsSuch) {
    EXPECT_THAT(Run(0, "", [] { throw std::bad_alloc(); }),
                ElementsAre("<VK0902> [ER] service 1537 (Err: Bad Alloc)",
                            "<VK0902> [ER] service 1540 (Err: Bad Alloc)"));
}

TEST_F(SerialLogTest, StandardException_IsTracedWithItsText) {
    EXPECT_THAT(
        Run(0, "", [] { throw std::runtime_error("100%s"); }),
        ElementsAre("<VK0902> [ER] service 1537 (Err: 100%s)", "<VK0902> [ER] service 1540 (Err: 100%s)"));
}

TEST_F(SerialLogTest, UnknownException_IsTracedAsSuch) {
    EXPECT_THAT(Run(0, "", [] { throw 1; }), ElementsAre("<VK0902> [ER] service 1537 (Err: Unknown)",
                                                         "<VK0902> [ER] service 1540 (Err: Unknown)"));
}

// ---- The routine ----

TEST_F(SerialLogTest, Routine_StopSetAlready_EndsAtOnceWithItsTwoLines) {
    const auto parameter = root.Initialized();
    Parameter = parameter.get();
    Event stop;
    stop.Set();
    EXPECT_EQ(SerialLogRoutine(&stop), 0u);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kBreak));
}

TEST_F(SerialLogTest, Routine_StopDuringTheWait_IsObservedAtOnce) {
    const auto parameter = root.Initialized();
    Parameter = parameter.get();
    Event stop;
    tovaserverutil::Thread thread(&SerialLogRoutine, &stop);
    thread.Run();
    ASSERT_TRUE(Comes([this] { return root.LogLines().back() == kStart; }));
    const auto begun = std::chrono::steady_clock::now();
    stop.Set();
    thread.Join();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
    EXPECT_EQ(thread.ExitStatus(), 0u);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kBreak));
}

TEST_F(SerialLogTest, Routine_StopEventThatCannotBeRead_EndsWithTwoErrorLines) {
    const auto parameter = root.Initialized();
    Parameter = parameter.get();
    Event stop;
    const int writeOnly = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup3(writeOnly, stop.ReadEnd(), O_CLOEXEC);
    close(writeOnly);
    EXPECT_EQ(SerialLogRoutine(&stop), 0u);
    EXPECT_THAT(
        root.LogLines(),
        ElementsAre(
            kInitialized, kStart,
            MatchesRegex("<VK0902> \\[ER\\] service 1537 \\(Err: server-util [0-9]+ \\(Err: 9\\)\\)"),
            MatchesRegex("<VK0902> \\[ER\\] service 1540 \\(Err: server-util [0-9]+ \\(Err: 9\\)\\)")));
}

}  // namespace
