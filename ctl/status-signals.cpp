#include "status-signals.h"

#include <cerrno>

namespace {

tovaserverutil::Event* g_event = nullptr;
volatile sig_atomic_t g_signal = 0;

void Request(int signal) {
    const int error = errno;
    g_signal = signal;
    g_event->Set();  // a write into a pipe that is empty but for two such writes
    errno = error;
}

}  // namespace

SignalStop::SignalStop() {
    g_event = &m_event;
    g_signal = 0;
    struct sigaction request {};
    request.sa_handler = Request;
    request.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&request.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], nullptr, &m_before[i]);
        if (m_before[i].sa_handler != SIG_IGN) {
            sigaction(kSignals[i], &request, nullptr);
        }
    }
}

SignalStop::~SignalStop() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], &m_before[i], nullptr);
    }
    g_event = nullptr;
}

int SignalStop::signal() const {
    return g_signal;
}
