#include "signal-thread.h"

#include <pthread.h>
#include <signal.h>

#include <mutex>

#include "service-param.h"
#include "service.h"
#include "thread-names.h"

namespace {

constexpr const char* kUnit = "signal-thread";

std::mutex gateLock;
bool gateOpen = true;

std::uint64_t WaitForSignals(const sigset_t* set, int stopSignal) {
    (void)pthread_setname_np(pthread_self(), kSignalThread);
    for (;;) {
        int received = 0;
        const int result = sigwait(set, &received);
        const std::lock_guard<std::mutex> gate(gateLock);
        if (!gateOpen) {
            return 0;
        }
        tovaserverutil::TraceLog& log = Parameter->Log();
        if (result != 0) {
            log.Write("<VK0902> [ER] %s %d", kUnit, __LINE__);
            return 1;
        }
        if (received == SIGCHLD) {
            continue;
        }
        log.Write("<VK0902> [TR] Receive signal %d", received);
        if (received != stopSignal) {
            continue;
        }
        tovaserverutil::Event* const stop = StopEvent;
        if (stop == nullptr) {
            return 0;  // too early or too late: there is nothing to stop
        }
        try {
            stop->Set();
            return 0;
        } catch (...) {
            tovaserverutil::LogCurrentException(log, kUnit, __LINE__);
        }
    }
}

}  // namespace

StopEventPublication::StopEventPublication(tovaserverutil::Event& event) {
    const std::lock_guard<std::mutex> gate(gateLock);
    StopEvent = &event;
}

StopEventPublication::~StopEventPublication() {
    const std::lock_guard<std::mutex> gate(gateLock);
    StopEvent = nullptr;
}

SignalGate::SignalGate() {
    const std::lock_guard<std::mutex> gate(gateLock);
    gateOpen = true;
}

SignalGate::~SignalGate() {
    const std::lock_guard<std::mutex> gate(gateLock);
    gateOpen = false;
}

std::uint64_t SigHandleRoutine(void* set) {
    // On purpose the daemon ends on SIGTERM alone; SIGINT, SIGQUIT and SIGPIPE are only logged.
    return WaitForSignals(static_cast<const sigset_t*>(set), SIGTERM);
}

std::uint64_t SigIntRoutine(void* set) {
    return WaitForSignals(static_cast<const sigset_t*>(set), SIGINT);
}
