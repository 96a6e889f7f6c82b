#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <stdexcept>
#include <thread>

#include "child-process.h"
#include "service-body.h"
#include "service-fixture.h"
#include "service.h"

// The service body leaves signals blocked and a signal thread behind, so each run has a process of its own.
// What happens inside is told through the trace log and the child's exit status.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using tovaserverutil::Event;
using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

const std::string kInitialized = "<VK0900> [TR] Initialize succeeded.";
const std::string kStarted = "<VK0900> [TR] Service started.";
const std::string kRan = "main routine";
const std::string kStopped = "<VK0900> [TR] Service stopped.";

std::string Received(int number) {
    return "<VK0902> [TR] Receive signal " + std::to_string(number);
}

void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "in the child: %s\n", what);
        _exit(1);
    }
}

const ServiceRoot* childRoot = nullptr;  // the root of the run in this child process

bool Logged(const std::string& line) {
    const Lines lines = childRoot->LogLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// Sends a signal to the process and waits until the signal thread has logged it.
void SendAndAwait(int number) {
    kill(getpid(), number);
    for (int wait = 0; wait < 3000 && !Logged(Received(number)); ++wait) {
        std::this_thread::sleep_for(10ms);
    }
    Require(Logged(Received(number)), "signal not logged");
}

bool StopArrives(unsigned int timeoutMs) {
    std::vector<Event*> events{StopEvent.load()};
    return Event::WaitAny(events, timeoutMs) != nullptr;
}

void WriteRan(unsigned long, char**) {
    Parameter->Log().Write("main routine");
}

// One run in a child process. Returns the child's wait status.
int RunBody(const ServiceRoot& root, unsigned long mode, MainRoutineFunction mainRoutine) {
    return RunInChild([&] {
        childRoot = &root;
        RunService(mode, nullptr, root.path(), mainRoutine);
    });
}

TEST(ServiceBody, DaemonRun_WritesStartAndStop) {
    const ServiceRoot root;
    EXPECT_EQ(RunBody(root, kDaemon, &WriteRan), 0);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStarted, kRan, kStopped));
}

TEST(ServiceBody, StandAloneRun_WritesNeitherStartNorStop) {
    const ServiceRoot root;
    EXPECT_EQ(RunBody(root, kStandAlone, &WriteRan), 0);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kRan));
}

TEST(ServiceBody, MainRoutine_GetsModeAndArgumentsAndThePublishedNames) {
    const ServiceRoot root;
    for (const unsigned long mode : {kDaemon, kStandAlone}) {
        const int status = RunInChild([&] {
            static unsigned long expected;
            static int readEnd;
            expected = mode;
            RunService(mode, nullptr, root.path(), [](unsigned long given, char** arguments) {
                Require(given == expected && arguments == nullptr, "arguments");
                Require(Parameter != nullptr && Parameter->HasLog(), "parameters");
                Require(StopEvent.load() != nullptr && !StopEvent.load()->IsSet(), "stop event");
                readEnd = StopEvent.load()->ReadEnd();
            });
            Require(StopEvent.load() == nullptr, "the stop event is withdrawn");
            Require(fcntl(readEnd, F_GETFD) == -1, "its pipe is closed");
            Require(Parameter != nullptr, "Parameter stays set");
        });
        EXPECT_EQ(status, 0);
    }
}

TEST(ServiceBody, MainRoutineThrows_WritesOneLineByKindAndStops) {
    struct Case {
        MainRoutineFunction mainRoutine;
        const char* text;
    };
    const Case cases[] = {
        {[](unsigned long, char**) { tovabase::ThrowSystemError("unit", 1, 24); }, "unit 1 \\(Err: 24\\)"},
        {[](unsigned long, char**) { throw std::bad_alloc(); }, "Bad Alloc"},
        {[](unsigned long, char**) { throw std::runtime_error("100%s"); }, "100%s"},
        {[](unsigned long, char**) { throw "text"; }, "Unknown"},
    };
    for (const Case& failing : cases) {
        const std::string line =
            "<VK0902> \\[ER\\] service [0-9]+ \\(Err: " + std::string(failing.text) + "\\)";
        const ServiceRoot daemonRoot;
        EXPECT_EQ(RunBody(daemonRoot, kDaemon, failing.mainRoutine), 0);
        EXPECT_THAT(daemonRoot.LogLines(), ElementsAre(kInitialized, kStarted, MatchesRegex(line), kStopped));
        const ServiceRoot standAloneRoot;
        EXPECT_EQ(RunBody(standAloneRoot, kStandAlone, failing.mainRoutine), 0);
        EXPECT_THAT(standAloneRoot.LogLines(), ElementsAre(kInitialized, MatchesRegex(line)));
    }
}

TEST(ServiceBody, NoConfiguration_EndsWithoutAnyLineOrMainRoutine) {
    const ServiceRoot root;
    std::filesystem::remove(root / "etc/opt/tarn/bayward/bayward.conf");
    EXPECT_EQ(RunBody(root, kDaemon, [](unsigned long, char**) { _exit(9); }), 0);
    EXPECT_THAT(root.LogLines(), IsEmpty());
}

TEST(ServiceBody, ParametersCannotBeBuilt_EndsWithoutAnyLineOrMainRoutine) {
    const ServiceRoot root;
    root.LinkExecutable("bayward");
    EXPECT_EQ(RunBody(root, kDaemon, [](unsigned long, char**) { _exit(9); }), 0);
    std::filesystem::remove(root / "proc/self/exe");
    EXPECT_EQ(RunBody(root, kDaemon, [](unsigned long, char**) { _exit(9); }), 0);
    EXPECT_THAT(root.LogLines(), IsEmpty());
}

TEST(ServiceBody, SignalThreadCannotBeStarted_ThrowsWithoutALine) {
    const ServiceRoot root;
    const int status = RunInChild([&] {
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
        pthread_setattr_default_np(&huge);
        try {
            RunService(kDaemon, nullptr, root.path(), &WriteRan);
        } catch (const tovabase::TOVAExcpt& failure) {
            _exit(failure.code() == 0x10001 ? 5 : 1);
        }
    });
    EXPECT_EQ(WEXITSTATUS(status), 5);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized));
}

TEST(ServiceBody, StopEventCannotBeMade_IsReportedAndStops) {
    const ServiceRoot root;
    const ServiceRoot firstRoot;
    const int status = RunInChild([&] {
        // Once with descriptors: the sanitizer's first look at a class needs one of its own.
        RunService(kDaemon, nullptr, firstRoot.path(), &WriteRan);
        const int next = dup(0);
        close(next);
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = static_cast<rlim_t>(next) + 3;  // the signal thread's event and the trace log fit
        setrlimit(RLIMIT_NOFILE, &limit);
        RunService(kDaemon, nullptr, root.path(), &WriteRan);
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(
        root.LogLines(),
        ElementsAre(
            kInitialized,
            MatchesRegex("<VK0902> \\[ER\\] service [0-9]+ \\(Err: server-util [0-9]+ \\(Err: 24\\)\\)"),
            kStopped));
}

TEST(ServiceBody, DaemonSignals_AreLoggedAndOnlySigtermStops) {
    const ServiceRoot root;
    const int status = RunBody(root, kDaemon, [](unsigned long, char**) {
        SendAndAwait(SIGINT);
        SendAndAwait(SIGQUIT);
        kill(getpid(), SIGCHLD);
        SendAndAwait(SIGPIPE);
        Require(!StopArrives(50), "nothing but SIGTERM stops");
        kill(getpid(), SIGTERM);
        Require(StopArrives(30000), "SIGTERM stops");
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStarted, Received(2), Received(3), Received(13),
                                             Received(15), kStopped));
}

TEST(ServiceBody, StandAloneSigint_IsLoggedAndStops) {
    const ServiceRoot root;
    const int status = RunBody(root, kStandAlone, [](unsigned long, char**) {
        kill(getpid(), SIGINT);
        Require(StopArrives(30000), "SIGINT stops");
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, Received(2)));
}

TEST(ServiceBody, StandAloneSigterm_EndsTheProcessAsUsual) {
    const ServiceRoot root;
    const int status = RunBody(root, kStandAlone, [](unsigned long, char**) {
        kill(getpid(), SIGTERM);
        std::this_thread::sleep_for(10s);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(ServiceBody, StandAlone_IgnoresSigpipeAndLeavesTheRestUnblocked) {
    const ServiceRoot root;
    const int status = RunBody(root, kStandAlone, [](unsigned long, char**) {
        struct sigaction action {};
        sigaction(SIGPIPE, nullptr, &action);
        Require(action.sa_handler == SIG_IGN, "SIGPIPE ignored");
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        Require(sigismember(&mask, SIGINT) == 1, "SIGINT blocked");
        for (const int number : {SIGTERM, SIGQUIT, SIGCHLD, SIGPIPE}) {
            Require(sigismember(&mask, number) == 0, "others not blocked");
        }
    });
    EXPECT_EQ(status, 0);
}

TEST(ServiceBody, Daemon_BlocksItsSignalsInEveryThreadMadeLater) {
    const ServiceRoot root;
    const int status = RunBody(root, kDaemon, [](unsigned long, char**) {
        std::thread([] {
            sigset_t mask;
            pthread_sigmask(SIG_BLOCK, nullptr, &mask);
            for (const int number : {SIGTERM, SIGINT, SIGQUIT, SIGCHLD, SIGPIPE}) {
                Require(sigismember(&mask, number) == 1, "blocked");
            }
            Require(sigismember(&mask, SIGHUP) == 0, "SIGHUP not blocked");
        }).join();
    });
    EXPECT_EQ(status, 0);
}

TEST(ServiceBody, SigchldLeftIgnoredByTheLauncher_IsTakenBack) {
    const ServiceRoot root;
    const int status = RunInChild([&] {
        signal(SIGCHLD, SIG_IGN);
        RunService(kDaemon, nullptr, root.path(), [](unsigned long, char**) {
            struct sigaction action {};
            sigaction(SIGCHLD, nullptr, &action);
            Require(action.sa_handler == SIG_DFL, "SIGCHLD at its default");
        });
    });
    EXPECT_EQ(status, 0);
}

// The signal thread sits in sigwait when the service body ends; a late signal must find nothing to touch.
TEST(ServiceBody, SignalAfterTheEnd_TouchesNothing) {
    const ServiceRoot root;
    const int status = RunInChild([&] {
        RunService(kDaemon, nullptr, root.path(), &WriteRan);
        kill(getpid(), SIGINT);
        kill(getpid(), SIGTERM);
        std::this_thread::sleep_for(100ms);
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(root.LogLines(), ElementsAre(kInitialized, kStarted, kRan, kStopped));
}

TEST(ServiceBody, StopAtTheVeryEnd_NeverTouchesWhatIsGone) {
    const ServiceRoot root;
    for (int round = 0; round < 30; ++round) {
        const int status = RunInChild([&] {
            std::thread sender;
            static std::thread* senderOfRun;
            senderOfRun = &sender;
            RunService(kDaemon, nullptr, root.path(), [](unsigned long, char**) {
                *senderOfRun = std::thread([] { kill(getpid(), SIGTERM); });
            });
            sender.join();
        });
        ASSERT_EQ(status, 0);
    }
}

// The signal thread's routines on their own.
class SignalRoutine : public testing::Test {
protected:
    SignalRoutine() : parameter(root.Initialized()) {
        Parameter = parameter.get();
        sigemptyset(&set);
        for (const int number : {SIGTERM, SIGINT, SIGQUIT, SIGCHLD}) {
            sigaddset(&set, number);
        }
        pthread_sigmask(SIG_BLOCK, &set, &previous);
    }
    ~SignalRoutine() override {
        StopEvent = nullptr;
        Parameter = nullptr;
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }

    static void Send(int number) { pthread_kill(pthread_self(), number); }

    Lines Written() const {
        Lines lines = root.LogLines();
        lines.erase(lines.begin());
        return lines;
    }

    ServiceRoot root;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    sigset_t set{};
    sigset_t previous{};
};

TEST_F(SignalRoutine, StopBeforeTheStopEventExists_EndsWithoutStoppingAnything) {
    Send(SIGTERM);
    EXPECT_EQ(SigHandleRoutine(&set), 0u);
    EXPECT_THAT(Written(), ElementsAre(Received(SIGTERM)));
    Send(SIGINT);
    EXPECT_EQ(SigIntRoutine(&set), 0u);
    EXPECT_THAT(Written(), ElementsAre(Received(SIGTERM), Received(SIGINT)));
}

TEST_F(SignalRoutine, StopSignal_SetsTheStopEvent) {
    Event stop;
    StopEvent = &stop;
    Send(SIGTERM);
    EXPECT_EQ(SigHandleRoutine(&set), 0u);
    EXPECT_TRUE(stop.IsSet());
}

TEST_F(SignalRoutine, ForegroundRun_StopsOnSigintOnly) {
    Event stop;
    StopEvent = &stop;
    Send(SIGTERM);
    Send(SIGINT);  // the lower number is received first, and ends the routine
    EXPECT_EQ(SigIntRoutine(&set), 0u);
    EXPECT_THAT(Written(), ElementsAre(Received(SIGINT)));
    EXPECT_TRUE(stop.IsSet());
    EXPECT_EQ(SigHandleRoutine(&set), 0u);  // takes the SIGTERM that is left
}

TEST_F(SignalRoutine, WaitFails_WritesItsLineAndReturnsOne) {
    void* const unreadable = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(unreadable, MAP_FAILED);
    EXPECT_EQ(SigHandleRoutine(unreadable), 1u);
    EXPECT_EQ(SigIntRoutine(unreadable), 1u);
    munmap(unreadable, 4096);
    const auto line = MatchesRegex("<VK0902> \\[ER\\] signal-thread [0-9]+");
    EXPECT_THAT(Written(), ElementsAre(line, line));
}

TEST_F(SignalRoutine, StopEventCannotBeSet_IsReportedAndTheWaitGoesOn) {
    signal(SIGPIPE, SIG_IGN);
    Event stop;
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup3(null, stop.ReadEnd(), O_CLOEXEC);
    close(null);
    StopEvent = &stop;
    Send(SIGTERM);
    std::thread second([this, routine = pthread_self()] {
        for (int wait = 0; wait < 3000 && Written().size() < 2; ++wait) {
            std::this_thread::sleep_for(10ms);
        }
        StopEvent = nullptr;
        pthread_kill(routine, SIGTERM);
    });
    EXPECT_EQ(SigHandleRoutine(&set), 0u);
    second.join();
    signal(SIGPIPE, SIG_DFL);
    EXPECT_FALSE(stop.IsSet());
    EXPECT_THAT(
        Written(),
        ElementsAre(Received(SIGTERM),
                    MatchesRegex(
                        "<VK0902> \\[ER\\] signal-thread [0-9]+ \\(Err: server-util [0-9]+ \\(Err: 32\\)\\)"),
                    Received(SIGTERM)));
}

}  // namespace
