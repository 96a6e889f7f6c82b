// Failures of the service body and the main routine that no ordinary means can bring about, and the order of
// what they do between their lines.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "child-process.h"
#include "monitor-log.h"
#include "service-body.h"
#include "service-fixture.h"
#include "service.h"
#include "watched-calls.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::MatchesRegex;
using testing::StartsWith;
using tovaserverutil::Event;
using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

const std::string kInitialized = "<VK0900> [TR] Initialize succeeded.";
const std::string kReady = "<VK0900> [TR] Ready to wait stop event.";
const std::string kReceived = "<VK0900> [TR] Receive StopEvent.";

void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "in the child: %s\n", what);
        _exit(1);
    }
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

template <typename Condition>
bool Becomes(Condition condition) {
    for (int wait = 0; wait < 3000 && !condition(); ++wait) {
        std::this_thread::sleep_for(10ms);
    }
    return condition();
}

std::atomic<int> started{0};
std::atomic<int> ended{0};

std::uint64_t UntilStopped(void* stopEvent) {
    ++started;
    std::vector<Event*> events{static_cast<Event*>(stopEvent)};
    Event::WaitAny(events, 60000);
    ++ended;
    return 0;
}

const std::vector<MonitoringThread> kThreads = {
    {"1", &UntilStopped, "start 1", "join 1", nullptr},
    {"2", &UntilStopped, "start 2", "join 2", nullptr},
    {"3", &UntilStopped, "start 3", "join 3", nullptr},
};

class Supervision : public testing::Test {
protected:
    Supervision() : parameter(root.Initialized()) {
        calls = {};
        started = 0;
        ended = 0;
        watchedBlockReleases = 0;
    }
    ~Supervision() override {
        calls = {};
        watchedBlock = nullptr;
    }

    void Run(const std::vector<MonitoringThread>& threads) {
        SuperviseThreads(*parameter, &stop, threads, kDaemon, info, sink);
    }

    // As Run; returns the text of the TOVAExcpt that leaves it, "" when none does.
    std::string Failure(const std::vector<MonitoringThread>& threads) {
        try {
            Run(threads);
        } catch (const tovabase::TOVAExcpt& failure) {
            return failure.text();
        }
        return "";
    }

    // The lines after those of the preparation.
    Lines Written() const {
        constexpr std::ptrdiff_t kPreparation = 5;
        const Lines lines = root.LogLines();
        return lines.size() < kPreparation ? Lines{} : Lines(lines.begin() + kPreparation, lines.end());
    }

    // What is closed when everything is taken down in reverse: of each thread the stop event, then the
    // completion event, which is the (count + n)th pipe, each with its read end first.
    static std::vector<int> ClosedInReverse(std::size_t count, bool withThreads) {
        std::vector<int> expected;
        for (std::size_t thread = count; thread-- > 0;) {
            expected.push_back(calls.pipes.at(thread).first);
            expected.push_back(calls.pipes.at(thread).second);
            if (withThreads) {
                expected.push_back(calls.pipes.at(count + thread).first);
                expected.push_back(calls.pipes.at(count + thread).second);
            }
        }
        return expected;
    }

    ServiceRoot root;
    RecordingSink sink;  // the parameters close it at their end
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    Event stop;
    tova_service::system_info* info = nullptr;
};

TEST_F(Supervision, PollTimesOut_WritesTheLineAndWaitsAgainWithoutLimit) {
    const std::string timedOut = "<VK0900> [TR] WaitOne for StopEvent timed out.";
    calls.pollTimeouts = 2;
    stop.Set();
    Run({});
    EXPECT_THAT(Written(), ElementsAre(kReady, timedOut, timedOut, kReceived));
    EXPECT_THAT(calls.pollWaits, ElementsAre(-1, -1, -1));
}

TEST_F(Supervision, End_ClosesStopEventsAndThreadsInReverseOrder) {
    stop.Set();
    Run(kThreads);
    ASSERT_EQ(calls.pipes.size(), 6u);
    EXPECT_THAT(calls.closed, ElementsAreArray(ClosedInReverse(3, true)));
}

TEST_F(Supervision, End_FreesTheSystemInformation) {
    calls.onPoll = [this] { watchedBlock = info; };
    stop.Set();
    Run(kThreads);
    ASSERT_NE(watchedBlock, nullptr);
    EXPECT_EQ(watchedBlockReleases, 1);
}

TEST_F(Supervision, LaterThreadCannotBeStarted_KeepsTheEarlierOnesAndStartsNoneAfterIt) {
    const auto failed = MatchesRegex(
        "<VK0902> \\[ER\\] main-routine [0-9]+ \\(Err: server-util [0-9]+ "
        "\\(Err: 11\\)\\)");
    using Expected = std::vector<testing::Matcher<std::string>>;
    // The holder of the thread that failed exists, so its line is written although there was nothing to join.
    const Expected expected[] = {
        {"start 1", failed, kReady, kReceived, "join 1", "join 2"},
        {"start 1", "start 2", failed, kReady, kReceived, "join 1", "join 2", "join 3"},
    };
    for (int good = 1; good <= 2; ++good) {
        std::filesystem::remove(root / "var/log/bayward/bayward.log");
        parameter = root.Initialized();
        calls = {};
        started = 0;
        ended = 0;
        calls.threadsBeforeFailure = good;
        calls.onPoll = [good] {
            EXPECT_TRUE(Becomes([good] { return started == good; }));
            EXPECT_EQ(ended, 0);  // they run on
        };
        stop.Set();
        Run(kThreads);
        EXPECT_THAT(Written(), ElementsAreArray(expected[good - 1]));
        EXPECT_EQ(started, good);
        EXPECT_EQ(ended, good);
    }
}

TEST_F(Supervision, ErrorLineOfThePreparationFails_LeavesWithTheStopEventsClosed) {
    std::filesystem::remove(root / "opt/bin/bayward.msg");
    calls.linesBeforeFailure = 2;  // "MainRoutine started." and "Get LocalSystemInfo."
    calls.lineFailures = 1;
    stop.Set();
    const std::string text = Failure(kThreads);
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 22\\)"));
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, "<VK0900> [TR] MainRoutine started.",
                                             "<VK0900> [TR] Get LocalSystemInfo."));
    ASSERT_EQ(calls.pipes.size(), 3u);
    EXPECT_THAT(calls.closed, ElementsAreArray(ClosedInReverse(3, false)));
    EXPECT_EQ(started, 0);
}

TEST_F(Supervision, ErrorLineOfTheWaitFails_EndsTheThreadsAndLeavesWithEverythingClosed) {
    calls.pollError = EIO;
    calls.onPoll = [] {
        calls.linesBeforeFailure = 0;
        calls.lineFailures = 1;
    };
    const std::string text = Failure(kThreads);
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 22\\)"));
    EXPECT_THAT(Written(), ElementsAre("start 1", "start 2", "start 3", kReady));
    EXPECT_EQ(ended, 3);
    ASSERT_EQ(calls.pipes.size(), 6u);
    EXPECT_THAT(calls.closed, ElementsAreArray(ClosedInReverse(3, true)));
}

// The first thread's line after the join and the error line about that both fail.
TEST_F(Supervision, ErrorLineOfTheShutDownFails_EndsTheOtherThreadsAndLeavesWithEverythingClosed) {
    calls.onPoll = [] {
        calls.linesBeforeFailure = 1;  // "Receive StopEvent."
        calls.lineFailures = 2;
    };
    stop.Set();
    const std::string text = Failure(kThreads);
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 22\\)"));
    EXPECT_THAT(Written(), ElementsAre("start 1", "start 2", "start 3", kReady, kReceived));
    EXPECT_EQ(ended, 3);
    ASSERT_EQ(calls.pipes.size(), 6u);
    EXPECT_THAT(calls.closed, ElementsAreArray(ClosedInReverse(3, true)));
}

// A thread whose stop event cannot be set, and what it sees of the world after the main routine has gone.
Event* mayEnd = nullptr;
tova_service::system_info** published = nullptr;
std::atomic<bool> sawItsThings{false};

std::uint64_t LoseStopEvent(void* stopEvent) {
    auto* const stop = static_cast<Event*>(stopEvent);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup3(null, stop->ReadEnd(), O_CLOEXEC);  // nobody could read it any more
    close(null);
    ++started;
    std::vector<Event*> events{mayEnd};
    Event::WaitAny(events, 60000);
    sawItsThings = !stop->IsSet() && (*published)->get_host_name()[0] != '\0';
    return 0;
}

TEST_F(Supervision, ThreadThatCannotBeStopped_KeepsWhatItUses) {
    const int status = RunInChild([this] {
        signal(SIGPIPE, SIG_IGN);
        Event end;
        mayEnd = &end;
        calls.pipes.clear();
        published = &info;
        calls.onPoll = [this] {
            watchedBlock = info;
            Require(Becomes([] { return started == 2; }), "threads running");
        };
        stop.Set();
        Run({{"1", &LoseStopEvent, "start 1", "join 1", nullptr},
             {"2", &UntilStopped, "start 2", "join 2", nullptr}});
        Require(calls.pipes.size() == 4, "two stop events, two threads");
        const auto [keptStop, otherStop, keptThread, otherThread] =
            std::tie(calls.pipes[0], calls.pipes[1], calls.pipes[2], calls.pipes[3]);
        Require(IsOpen(keptStop.first) && IsOpen(keptStop.second), "its stop event stays");
        Require(IsOpen(keptThread.first) && IsOpen(keptThread.second),
                "its completion event stays while it runs");
        Require(!IsOpen(otherStop.first) && !IsOpen(otherThread.first), "the other thread is taken down");
        Require(watchedBlockReleases == 0, "the system information stays");
        end.Set();
        Require(Becomes([] { return sawItsThings.load(); }), "the thread found what it uses");
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(Written(), ElementsAre("start 1", "start 2", kReady, kReceived,
                                       StartsWith("<VK0902> [ER] main-routine "), "join 2"));
}

TEST(ServiceBodyFailure, InitializeFailsWithATraceLog_WritesItsOneLine) {
    const ServiceRoot root;
    calls = {};
    calls.linesBeforeFailure = 0;
    calls.lineFailures = 1;  // the line that says that all went well
    RunService(kDaemon, nullptr, root.path(), [](unsigned long, char**) { FAIL() << "main routine"; });
    calls = {};
    Parameter = nullptr;
    EXPECT_THAT(root.LogLines(), ElementsAre(MatchesRegex("<VK0902> \\[ER\\] service [0-9]+")));
    EXPECT_EQ(StopEvent.load(), nullptr);
}

TEST(ServiceBodyOrder, StopEvent_IsPublishedBeforeTheStartLine) {
    const ServiceRoot root;
    const int status = RunInChild([&] {
        static std::vector<bool> publishedAtLine;
        calls = {};
        calls.onLine = [] { publishedAtLine.push_back(StopEvent.load() != nullptr); };
        RunService(kDaemon, nullptr, root.path(),
                   [](unsigned long, char**) { Parameter->Log().Write("main routine"); });
        Require(publishedAtLine == std::vector<bool>{false, true, true, false}, "published in time");
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, "<VK0900> [TR] Service started.", "main routine",
                                             "<VK0900> [TR] Service stopped."));
}

std::ptrdiff_t CountThreads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
}

// The trace log is gone by then, so the signal thread must end without even beginning a line.
TEST(ServiceBodyEnd, SignalAfterIt_EndsTheSignalThreadWithoutBeginningALine) {
    const ServiceRoot root;
    for (const unsigned long mode : {kDaemon, kStandAlone}) {
        const int status = RunInChild([&] {
            RunService(mode, nullptr, root.path(), [](unsigned long, char**) {});
            const int before = linesBegun;
            const std::ptrdiff_t threads = CountThreads();
            kill(getpid(), SIGINT);
            Require(Becomes([threads] { return CountThreads() < threads; }), "the signal thread ends");
            Require(linesBegun == before, "no line was begun");
        });
        EXPECT_EQ(status, 0) << mode;
    }
}

TEST(MonitorLogRoutineFailure, NoMemoryBeforeItsBody_IsTracedAsTheThreadsEnd) {
    // The first allocation makes the thread's wait, the second its manager.
    for (const int good : {0, 1}) {
        const ServiceRoot root;
        const auto parameter = root.Initialized();
        tova_service::system_info info(root.path());
        Parameter = parameter.get();
        LocalSystemInfo = &info;
        Event stop;
        newsBeforeFailure = good;
        const std::uint64_t status = MonitorLogRoutine(&stop);
        newsBeforeFailure = -1;
        Parameter = nullptr;
        LocalSystemInfo = nullptr;
        EXPECT_EQ(status, 0u);
        EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, "<VK0902> [ER] service 1454 (Err: Bad Alloc)"))
            << good;
    }
}

}  // namespace
