#include "service.h"

#include <signal.h>

#include <cstdio>
#include <initializer_list>
#include <memory>

#include "instance-lock.h"
#include "service-body.h"
#include "service-param.h"
#include "signal-thread.h"

std::atomic<tovaserverutil::Event*> StopEvent{nullptr};
std::uint64_t loggedTime = 0;

namespace {

constexpr const char* kUnit = "service";
constexpr const char* kRunsAlready = "The service runs already.";

sigset_t SetOf(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : signals) {
        sigaddset(&set, number);
    }
    return set;
}

// What the signal thread waits for. Not in the service body's frame, and never written again: the signal
// thread is not joined and may outlive it.
sigset_t* StopSignals(bool standAlone) {
    static sigset_t foreground = SetOf({SIGINT});
    static sigset_t background = SetOf({SIGTERM, SIGINT, SIGQUIT, SIGCHLD, SIGPIPE});
    return standAlone ? &foreground : &background;
}

// Blocks the mode's signals and returns the routine that handles them.
tovaserverutil::ThreadRoutine TakeOverSignals(bool standAlone) {
    // A launcher may have left SIGCHLD ignored; the exit status of the tools could not be read then.
    signal(SIGCHLD, SIG_DFL);
    // Every thread made later inherits the mask, so that the signal thread alone receives these signals.
    pthread_sigmask(SIG_BLOCK, StopSignals(standAlone), nullptr);
    if (standAlone) {
        // A controller that hangs up must not end the run; the daemon blocks the signal.
        signal(SIGPIPE, SIG_IGN);
        return &SigIntRoutine;
    }
    return &SigHandleRoutine;
}

}  // namespace

void RunService(unsigned long mode, char** argv, const std::string& root, MainRoutineFunction mainRoutine) {
    const bool standAlone = mode == kStandAlone;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    try {
        parameter = std::make_unique<tova_service::ServiceParameter>(root);
        Parameter = parameter.get();
        parameter->Initialize();
    } catch (...) {
        if (parameter != nullptr && parameter->HasLog()) {
            parameter->Log().Write("<VK0902> [ER] %s %d", kUnit, __LINE__);
        }
        return;
    }
    tovaserverutil::TraceLog& log = parameter->Log();
    InstanceLock lock(parameter->logDirectory());
    if (lock.IsTaken()) {
        // Perhaps it is about to end, which a report under way may delay by half an hour: one that gave up
        // would leave the server unwatched. The signals still end the process.
        log.Write("<VK0902> [ER] %s %d (Err: %s)", kUnit, __LINE__, kRunsAlready);
        if (standAlone) {
            (void)std::fprintf(stderr, "bayward: %s\n", kRunsAlready);
        }
        lock.Wait();
    }
    const SignalGate gate;
    tovaserverutil::Thread signalThread(TakeOverSignals(standAlone), StopSignals(standAlone));
    signalThread.Run();
    try {
        tovaserverutil::Event stop;
        const StopEventPublication publication(stop);
        if (!standAlone) {
            log.Write("<VK0900> [TR] Service started.");
        }
        mainRoutine(mode, argv);
    } catch (...) {
        tovaserverutil::LogCurrentException(log, kUnit, __LINE__);
    }
    if (!standAlone) {
        log.Write("<VK0900> [TR] Service stopped.");
    }
    // The signal thread has ended or sits in sigwait until the process ends, so it is not joined.
}

void ServiceMain(unsigned long mode, char** argv) {
    RunService(mode, argv, {}, &MainRoutine);
}
