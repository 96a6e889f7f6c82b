#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>

#include <thread>

#include "child-process.h"
#include "fake-threads.h"
#include "media-error.h"
#include "monitor-log.h"
#include "serial-log.h"
#include "service-body.h"
#include "service-fixture.h"
#include "service.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::MatchesRegex;
using tovaserverutil::Event;
using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

const Lines kPrepared = {"<VK0900> [TR] Initialize succeeded.", "<VK0900> [TR] MainRoutine started.",
                         "<VK0900> [TR] Get LocalSystemInfo.", "<VK0900> [TR] PrepareMessage succeeded.",
                         "<VK0900> [TR] PrepareSysLog succeeded."};
const Lines kStarted = {"<VK0900> [TR] Create thread for OS log.",
                        "<VK0900> [TR] Create thread for Serial log."};
const Lines kMediaStarted = {"<VK0900> [TR] Create thread for Media Error."};
const Lines kWaited = {"<VK0900> [TR] Ready to wait stop event.", "<VK0900> [TR] Receive StopEvent."};
const Lines kJoined = {"<VK0900> [TR] Join thread for OS log.", "<VK0900> [TR] Join thread for Serial log."};
const Lines kMediaJoined = {"<VK0900> [TR] Join thread for Media Error."};

Lines Together(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// A fragment that a trace line of the catch ladder must match.
auto IsFailureLine(const std::string& text) {
    return MatchesRegex("<VK0902> \\[ER\\] main-routine [0-9]+ \\(Err: " + text + "\\)");
}

// Waits until the trace log holds the line.
bool Appears(const ServiceRoot& root, const std::string& line) {
    for (int wait = 0; wait < 3000; ++wait) {
        const Lines lines = root.LogLines();
        if (std::find(lines.begin(), lines.end(), line) != lines.end()) {
            return true;
        }
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

// Makes every thread start fail for a scope: no memory for stacks of this size.
class NoThreads {
public:
    NoThreads() {
        pthread_getattr_default_np(&m_usual);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&m_usual);
        pthread_attr_destroy(&m_usual);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t m_usual;
};

class MainRoutineTest : public testing::Test {
protected:
    MainRoutineTest() { ResetFakeThreads(); }
    ~MainRoutineTest() override {
        StopEvent = nullptr;
        Parameter = nullptr;
        LocalSystemInfo = nullptr;
    }

    // Runs the main routine over its process-wide names. `stopFirst`: the stop has been requested before it
    // starts.
    void Run(unsigned long mode = kDaemon, bool stopFirst = true) {
        parameter = root.Initialized();
        Parameter = parameter.get();
        if (stopFirst) {
            stop.Set();
        }
        StopEvent = &stop;
        MainRoutine(mode, nullptr);
    }

    ServiceRoot root;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    Event stop;
};

TEST_F(MainRoutineTest, StopRequested_StartsAndJoinsInOrder) {
    Run();
    EXPECT_THAT(
        root.LogLines(),
        ElementsAreArray(Together({kPrepared, kStarted, kMediaStarted, kWaited, kJoined, kMediaJoined})));
    for (const FakeThread* fake : {&osLog, &serialLog, &mediaError}) {
        EXPECT_EQ(fake->starts, 1);
        EXPECT_TRUE(fake->ended);
    }
}

TEST_F(MainRoutineTest, LoggedTime_IsZeroAndStaysSo) {
    EXPECT_EQ(loggedTime, 0u);
    Run();
    EXPECT_EQ(loggedTime, 0u);
}

TEST_F(MainRoutineTest, EachThread_GetsAStopEventOfItsOwn) {
    Run();
    EXPECT_NE(osLog.stop.load(), serialLog.stop.load());
    EXPECT_NE(serialLog.stop.load(), mediaError.stop.load());
    EXPECT_NE(osLog.stop.load(), mediaError.stop.load());
    for (const FakeThread* fake : {&osLog, &serialLog, &mediaError}) {
        EXPECT_NE(fake->stop.load(), &stop);
    }
}

TEST_F(MainRoutineTest, EachThread_CarriesItsName) {
    Run();
    EXPECT_EQ(osLog.name, "OS log");
    EXPECT_EQ(serialLog.name, "Serial log");
    EXPECT_EQ(mediaError.name, "Media Error");
}

TEST_F(MainRoutineTest, CheckFalse_LeavesTheMediaErrorThreadOut) {
    root.Configure("[media error]\ncheck=false\n");
    Run();
    EXPECT_THAT(root.LogLines(), ElementsAreArray(Together({kPrepared, kStarted, kWaited, kJoined})));
    EXPECT_EQ(mediaError.starts, 0);
}

TEST_F(MainRoutineTest, SystemInfo_IsPublishedAndThePointerLeftAsItIs) {
    EXPECT_EQ(LocalSystemInfo, nullptr);
    Run();
    EXPECT_NE(LocalSystemInfo, nullptr);
}

TEST_F(MainRoutineTest, NoStop_WaitsUntilOneComes) {
    std::thread stopper([this] {
        EXPECT_TRUE(Appears(root, kWaited[0]));
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(osLog.ended);
        stop.Set();
    });
    Run(kDaemon, false);
    stopper.join();
    EXPECT_TRUE(osLog.ended);
}

TEST_F(MainRoutineTest, Mode_WritesTheConsoleHintForThe32BitValueOnly) {
    const std::string hint = "<VK0900> [TR] [CTRL]+[C] to exit.";
    for (const unsigned long mode : {kDaemon, kStandAlone, 0xFFFFFFFFUL}) {
        std::filesystem::remove(root / "var/log/bayward/bayward.log");
        Run(mode);
        const Lines lines = root.LogLines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), hint), mode == 0xFFFFFFFF ? 1 : 0) << mode;
    }
    const Lines lines = root.LogLines();
    const auto found = std::find(lines.begin(), lines.end(), hint);
    ASSERT_NE(found, lines.end());
    EXPECT_EQ(*(found - 1), kWaited[0]);
    EXPECT_EQ(*(found + 1), kWaited[1]);
}

TEST_F(MainRoutineTest, NoStopEvent_SkipsTheWait) {
    parameter = root.Initialized();
    Parameter = parameter.get();
    StopEvent = nullptr;
    MainRoutine(kDaemon, nullptr);
    EXPECT_THAT(root.LogLines(),
                ElementsAreArray(Together({kPrepared, kStarted, kMediaStarted, kJoined, kMediaJoined})));
}

TEST_F(MainRoutineTest, NoCatalogue_StaysUpWithoutThreadsUntilStopped) {
    std::filesystem::remove(root / "opt/bin/bayward.msg");
    std::thread stopper([this] {
        EXPECT_TRUE(Appears(root, kWaited[0]));
        stop.Set();
    });
    Run(kDaemon, false);
    stopper.join();
    EXPECT_THAT(root.LogLines(),
                ElementsAre(kPrepared[0], kPrepared[1], kPrepared[2],
                            IsFailureLine("server-profile [0-9]+ \\(Err: 2 FileName: bayward.msg\\)"),
                            kWaited[0], kWaited[1]));
    EXPECT_EQ(osLog.starts + serialLog.starts + mediaError.starts, 0);
}

TEST_F(MainRoutineTest, NoLocaleFile_StaysUpWithoutThreads) {
    std::filesystem::remove(root / "etc/locale.conf");
    Run();
    EXPECT_THAT(root.LogLines(), ElementsAre(kPrepared[0], kPrepared[1], IsFailureLine("system-info .*"),
                                             kWaited[0], kWaited[1]));
    EXPECT_EQ(osLog.starts + serialLog.starts + mediaError.starts, 0);
    EXPECT_EQ(LocalSystemInfo, nullptr);
}

TEST_F(MainRoutineTest, FirstThreadCannotBeStarted_StartsNoneAfterItAndGoesOn) {
    parameter = root.Initialized();
    Parameter = parameter.get();
    StopEvent = &stop;
    stop.Set();
    {
        const NoThreads none;
        MainRoutine(kDaemon, nullptr);
    }
    // The thread's holder exists, so its line is written although there was nothing to join.
    EXPECT_THAT(root.LogLines(),
                ElementsAreArray(std::vector<testing::Matcher<std::string>>{
                    kPrepared[0], kPrepared[1], kPrepared[2], kPrepared[3], kPrepared[4],
                    IsFailureLine("server-util [0-9]+ \\(Err: 11\\)"), kWaited[0], kWaited[1], kJoined[0]}));
    EXPECT_EQ(osLog.starts + serialLog.starts + mediaError.starts, 0);
}

TEST_F(MainRoutineTest, WaitFails_GoesOnToTheShutDown) {
    const int folder = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);  // readable for poll, not for read
    dup3(folder, stop.ReadEnd(), O_CLOEXEC);
    close(folder);
    parameter = root.Initialized();
    Parameter = parameter.get();
    StopEvent = &stop;
    MainRoutine(kDaemon, nullptr);
    Lines lines = root.LogLines();
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_EQ(lines[8], kWaited[0]);
    EXPECT_THAT(lines[9], IsFailureLine("server-util [0-9]+ \\(Err: 21\\)"));
    EXPECT_EQ(Lines(lines.begin() + 10, lines.end()), Together({kJoined, kMediaJoined}));
}

TEST_F(MainRoutineTest, PollFails_GoesOnToTheShutDown) {
    struct sigaction handler {};
    struct sigaction previous {};
    handler.sa_handler = [](int) {};
    sigaction(SIGUSR1, &handler, &previous);
    const pthread_t self = pthread_self();
    std::atomic<bool> done = false;
    std::thread interrupter([&] {
        EXPECT_TRUE(Appears(root, kWaited[0]));
        while (!done) {
            pthread_kill(self, SIGUSR1);
            std::this_thread::sleep_for(5ms);
            done = done || osLog.ended;
        }
    });
    Run(kDaemon, false);
    done = true;
    interrupter.join();
    sigaction(SIGUSR1, &previous, nullptr);
    const Lines lines = root.LogLines();
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_THAT(lines[9], IsFailureLine("main-routine [0-9]+ \\(Err: 4\\)"));
    EXPECT_EQ(lines.back(), kMediaJoined[0]);
}

// In a process of its own, as such a thread is left behind for good.
TEST_F(MainRoutineTest, ThreadThatCannotBeStopped_IsReportedAndTheNextOnesFollow) {
    const int status = RunInChild([this] {
        signal(SIGPIPE, SIG_IGN);
        serialLog.breaksItsStopEvent = true;
        std::thread stopper([this] {
            while (!serialLog.ended) {
                std::this_thread::sleep_for(5ms);
            }
            stop.Set();
        });
        Run(kDaemon, false);
        stopper.join();
    });
    EXPECT_EQ(status, 0);
    const Lines lines = root.LogLines();
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_EQ(lines[10], kJoined[0]);
    EXPECT_THAT(lines[11], IsFailureLine("server-util [0-9]+ \\(Err: 32\\)"));
    EXPECT_EQ(lines[12], kMediaJoined[0]);
}

TEST_F(MainRoutineTest, SlowThread_DelaysTheOthersButNeverTheOrder) {
    osLog.pauseBeforeEnd = 300ms;
    const auto start = std::chrono::steady_clock::now();
    Run();
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_THAT(
        root.LogLines(),
        ElementsAreArray(Together({kPrepared, kStarted, kMediaStarted, kWaited, kJoined, kMediaJoined})));
}

// A later thread is told to stop only after the earlier ones have been joined.
TEST_F(MainRoutineTest, SlowFirstThread_KeepsTheNextOnesRunning) {
    osLog.pauseBeforeEnd = 500ms;
    std::thread watcher([this] {
        EXPECT_TRUE(Appears(root, kWaited[1]));
        std::this_thread::sleep_for(100ms);
        EXPECT_FALSE(serialLog.ended);
        EXPECT_FALSE(mediaError.ended);
    });
    Run();
    watcher.join();
    EXPECT_TRUE(mediaError.ended);
}

TEST_F(MainRoutineTest, ThreadThatEndsEarly_IsJoinedAtShutDownAndNotRestarted) {
    osLog.endsAtOnce = true;
    std::thread stopper([this] {
        EXPECT_TRUE(Appears(root, kWaited[0]));
        std::this_thread::sleep_for(50ms);
        EXPECT_THAT(root.LogLines(), testing::Not(testing::Contains(kJoined[0])));
        stop.Set();
    });
    Run(kDaemon, false);
    stopper.join();
    EXPECT_EQ(osLog.starts, 1);
    EXPECT_THAT(root.LogLines(), testing::Contains(kJoined[0]));
}

TEST_F(MainRoutineTest, NoStopEventsForTheThreads_Throws) {
    parameter = root.Initialized();
    rlimit previous{};
    getrlimit(RLIMIT_NOFILE, &previous);
    const int next = dup(0);
    close(next);
    const rlimit limit{static_cast<rlim_t>(next) + 4,
                       previous.rlim_max};  // two events fit, the third does not
    const std::vector<MonitoringThread> threads(3, {"name", &MonitorLogRoutine, "start", "join", nullptr});
    tova_service::system_info* info = nullptr;
    RecordingSink sink;
    std::string text;
    setrlimit(RLIMIT_NOFILE, &limit);
    try {
        SuperviseThreads(*parameter, &stop, threads, kDaemon, info, sink);
    } catch (const tovabase::TOVAExcpt& failure) {
        text = failure.text();
    }
    setrlimit(RLIMIT_NOFILE, &previous);
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 24\\)"));
    EXPECT_THAT(root.LogLines(), ElementsAre(kPrepared[0], kPrepared[1]));
    EXPECT_EQ(osLog.starts, 0);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, next) << "the events already made have been closed";
}

TEST_F(MainRoutineTest, SystemLog_IsOpenedThroughTheGivenSink) {
    parameter = root.Initialized();
    stop.Set();
    tova_service::system_info* info = nullptr;
    RecordingSink sink;
    SuperviseThreads(*parameter, &stop, {}, kDaemon, info, sink);
    EXPECT_EQ(sink.calls.size(), 1u);
    EXPECT_NE(info, nullptr);
    parameter->Finalize();
}

}  // namespace
