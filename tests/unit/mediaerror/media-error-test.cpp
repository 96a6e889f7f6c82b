#include "media-error.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../service/service-fixture.h"
#include "media-error-cycle.h"
#include "settings.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using tova_service::MediaErrorWait;
using tovaserverutil::Event;
using namespace std::chrono_literals;
using Steps = std::vector<std::string>;

const std::string kInitialized = "<VK0900> [TR] Initialize succeeded.";
const std::string kStart = "<VK0900> [TR] Start cyclic Media Error search.";
const std::string kBreak = "<VK0900> [TR] Break MediaErrorRoutine by StopEvent.";
const std::string kReport = "/opt/smartstorageadmin/ssacli/bin/ssacli ctrl all diag file=ADUReport.zip";
const std::string kReportFailed = "<VK0902> [ER] log-manager 118 (command: " + kReport + ")";

const Steps kCycle{kReport, "pause", "smart", "mega"};
const Steps kRemovals{"rm -rf \"ADUReport\"",
                      "rm -rf \"ADUReport.zip\"",
                      "rm -rf \"storcli_show_all.log\"",
                      "rm -rf \"storcli_show_events.log\"",
                      "rm -rf \"storcli_cx_show.log\"",
                      "rm -rf \"storcli_device_show_all.log\""};

Steps operator+(Steps first, const Steps& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// Notes commands among the other steps of the cycle; they take no time.
class NotingRunner : public tovaserverutil::CommandRunner {
public:
    explicit NotingRunner(Steps& steps) : m_steps(steps) {}

    tovaserverutil::CommandResult Capture(const std::string&, std::chrono::milliseconds) override {
        throw std::logic_error("no output is wanted");
    }
    tovaserverutil::CommandResult Execute(const std::string& command,
                                          std::chrono::milliseconds limit) override {
        m_steps.push_back(command);
        EXPECT_EQ(limit, command == kReport ? tovaserverutil::kDiagnosticDeadline
                                            : tovaserverutil::kListingDeadline);
        return {.started = true, .timedOut = false, .exitStatus = exitStatus, .output = {}};
    }

    int exitStatus = 0;

private:
    Steps& m_steps;
};

class MediaErrorTest : public testing::Test {
protected:
    ~MediaErrorTest() override { Parameter = nullptr; }

    MediaErrorContext Context() {
        return {*parameter,
                stop,
                runner,
                Noting("pause", duringPause),
                Noting("smart", duringSmart),
                Noting("mega", duringMega)};
    }
    void Run() {
        parameter = root.Initialized();
        RunMediaErrorSearch(Context());
    }
    // Every cycle begins at once after the one before, and the stop comes in the cycle of this number.
    void StopInCycle(int number) {
        root.Configure("[media error]\ninterval=0\n");
        duringMega = [this, number] {
            if (++m_cycles == number) {
                stop.Set();
            }
        };
    }

    ServiceRoot root;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    Event stop;
    Steps steps;
    NotingRunner runner{steps};
    std::function<void()> duringPause = [] {};
    std::function<void()> duringSmart = [] {};
    std::function<void()> duringMega = [] {};

private:
    std::function<void()> Noting(const std::string& step, const std::function<void()>& action) {
        return [this, step, &action] {
            steps.push_back(step);
            action();
        };
    }

    int m_cycles = 0;
};

// ---- The wait ----

TEST(MediaErrorWait, Minutes_BecomeMilliseconds) {
    EXPECT_EQ(MediaErrorWait(0), 0);
    EXPECT_EQ(MediaErrorWait(1), 60000);
    EXPECT_EQ(MediaErrorWait(60), 3600000);
}

TEST(MediaErrorWait, ProductBeyondTheLargestInt_IsTheLargestInt) {
    EXPECT_EQ(MediaErrorWait(35791), 2147460000);
    EXPECT_EQ(MediaErrorWait(35792), INT_MAX);
    EXPECT_EQ(MediaErrorWait(71582), INT_MAX);
    EXPECT_EQ(MediaErrorWait(static_cast<std::uint32_t>(-1)), INT_MAX);
}

TEST(MediaErrorWait, ProductBeyond32Bits_WrapsRound) {
    EXPECT_EQ(MediaErrorWait(71583), 12704);
}

TEST_F(MediaErrorTest, WaitOfAnHour_IsEndedByTheStop) {
    std::thread setter;
    duringMega = [&] {
        setter = std::thread([&] {
            std::this_thread::sleep_for(50ms);
            stop.Set();
        });
    };
    const auto begun = std::chrono::steady_clock::now();
    Run();
    setter.join();
    EXPECT_GE(std::chrono::steady_clock::now() - begun, 45ms);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 20s);
    EXPECT_EQ(steps, kCycle + kRemovals);
}

TEST_F(MediaErrorTest, IntervalZero_RepeatsTheCycleAtOnce) {
    StopInCycle(3);
    Run();
    EXPECT_EQ(steps, kCycle + kCycle + kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kBreak));
}

// ---- The stop ----

TEST_F(MediaErrorTest, StopBeforeTheStart_IsHonouredAfterOneCycle) {
    stop.Set();
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kBreak));
}

TEST_F(MediaErrorTest, StopDuringThePause_LetsTheSearchesRun) {
    duringPause = [this] { stop.Set(); };
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kBreak));
}

TEST_F(MediaErrorTest, StopDuringTheFirstSearch_LetsTheSecondRun) {
    duringSmart = [this] { stop.Set(); };
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
}

TEST_F(MediaErrorTest, RemovalThatFails_IsIgnored) {
    duringPause = [this] { stop.Set(); };
    duringMega = [this] { runner.exitStatus = 1; };
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kBreak));
}

TEST_F(MediaErrorTest, BreakLine_IsWrittenBeforeTheRemovals) {
    class AskingRunner : public NotingRunner {
    public:
        AskingRunner(Steps& steps, const ServiceRoot& root) : NotingRunner(steps), m_root(root) {}
        tovaserverutil::CommandResult Execute(const std::string& command,
                                              std::chrono::milliseconds limit) override {
            if (command == kRemovals.front()) {
                EXPECT_EQ(m_root.LogLines().back(), kBreak);
            }
            return NotingRunner::Execute(command, limit);
        }

    private:
        const ServiceRoot& m_root;
    } asking(steps, root);
    stop.Set();
    parameter = root.Initialized();
    RunMediaErrorSearch({*parameter, stop, asking, [] {}, [] {}, [] {}});
    EXPECT_EQ(steps, Steps{kReport} + kRemovals);
}

// ---- The report ----

TEST_F(MediaErrorTest, ReportFailsInEveryCycle_IsTracedOnceAndTheSearchesRun) {
    runner.exitStatus = 127;
    StopInCycle(3);
    Run();
    EXPECT_EQ(steps, kCycle + kCycle + kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kReportFailed, kBreak));
}

TEST_F(MediaErrorTest, ReportFailure_IsTracedBeforeThePause) {
    runner.exitStatus = 1;
    stop.Set();
    duringPause = [this] { EXPECT_EQ(root.LogLines().back(), kReportFailed); };
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
}

TEST_F(MediaErrorTest, ReportSucceedsInBetween_TheNextFailureStaysUntraced) {
    runner.exitStatus = 1;
    duringPause = [this] { runner.exitStatus = runner.exitStatus == 0 ? 1 : 0; };
    StopInCycle(4);
    Run();
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kReportFailed, kBreak));
}

TEST_F(MediaErrorTest, NextThread_TracesItsOwnFailure) {
    runner.exitStatus = 1;
    stop.Set();
    Run();
    stop.Set();
    Run();
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, kReportFailed, kBreak, kInitialized,
                                             kStart, kReportFailed, kBreak));
}

// ---- The end by an exception ----

const std::string kEnded = "<VK0902> \\[ER\\] media-error [0-9]+ \\(Err: ";

TEST_F(MediaErrorTest, FirstSearchThrows_EndsWithOneLineAndTheRemovals) {
    duringSmart = [] { throw std::runtime_error("no such drive %s"); };
    Run();
    EXPECT_EQ(steps, (Steps{kReport, "pause", "smart"} + kRemovals));
    EXPECT_THAT(root.LogLines(),
                ElementsAre(kInitialized, kStart, MatchesRegex(kEnded + "no such drive %s\\)")));
}

TEST_F(MediaErrorTest, SecondSearchThrows_EndsWithOneLineAndTheRemovals) {
    duringMega = [] { tovabase::ThrowSystemError("server-util", 649, 22); };
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(),
                ElementsAre(kInitialized, kStart, MatchesRegex(kEnded + "server-util 649 \\(Err: 22\\)\\)")));
}

TEST_F(MediaErrorTest, MemoryRunsOut_IsTracedAsSuch) {
    duringMega = [] { throw std::bad_alloc(); };
    Run();
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, MatchesRegex(kEnded + "Bad Alloc\\)")));
}

TEST_F(MediaErrorTest, UnknownException_IsTracedAsSuch) {
    duringPause = [] { throw 1; };
    Run();
    EXPECT_EQ(steps, (Steps{kReport, "pause"} + kRemovals));
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStart, MatchesRegex(kEnded + "Unknown\\)")));
}

TEST_F(MediaErrorTest, StopEventThatCannotBeRead_EndsWithOneLineAndTheRemovals) {
    const int writeOnly = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup3(writeOnly, stop.ReadEnd(), O_CLOEXEC);
    close(writeOnly);
    Run();
    EXPECT_EQ(steps, kCycle + kRemovals);
    EXPECT_THAT(root.LogLines(),
                ElementsAre(kInitialized, kStart, MatchesRegex(kEnded + "server-util 151 \\(Err: 9\\)\\)")));
}

// ---- The interface ----

TEST(MediaErrorLimits, AreZero) {
    EXPECT_EQ(m_media_error_count, 0u);
    EXPECT_EQ(m_media_error_period, 0u);
    EXPECT_EQ(m_media_error_intermittently_count, 0u);
    EXPECT_EQ(m_media_error_intermittently_period, 0u);
}

}  // namespace
