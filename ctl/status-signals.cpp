#include "status-signals.h"

#include <atomic>
#include <cerrno>
#include <tuple>

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

tovaserverutil::Event* g_event = nullptr;
RequestCutter* g_cutter = nullptr;
std::atomic<int> g_signal{0};  // lock-free, so fit for a handler

void Handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    // Until the handler has run, the others wait, so that it runs once.
    for (const int other : kSignals) {
        sigaddset(&action.sa_mask, other);
    }
    sigaction(signal, &action, nullptr);
}

bool IsHandled(int signal, void (*handler)(int)) {
    struct sigaction now {};
    return sigaction(signal, nullptr, &now) == 0 && now.sa_handler == handler;
}

void Request(int signal) {
    const int error = errno;
    for (const int handled : kSignals) {
        if (IsHandled(handled, Request)) {
            Handle(handled, SIG_DFL);
        }
    }
    g_signal = signal;
    g_event->Set();  // each is one write into an empty pipe
    g_cutter->Start();
    errno = error;
}

}  // namespace

SignalStop::SignalStop(RequestCutter::Limits limits, const std::function<void(int)>& onLimit)
    : m_cutter(limits, [this, onLimit] { onLimit(signal()); }) {
    static_assert(std::tuple_size_v<decltype(m_before)> == kSignals.size());
    static_assert(decltype(g_signal)::is_always_lock_free);
    g_event = &m_event;
    g_cutter = &m_cutter;
    g_signal = 0;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], nullptr, &m_before[i]);
        if (m_before[i].sa_handler != SIG_IGN) {
            Handle(kSignals[i], Request);
        }
    }
}

SignalStop::~SignalStop() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], &m_before[i], nullptr);
    }
    g_event = nullptr;
    g_cutter = nullptr;
}

int SignalStop::signal() const {
    return g_signal;
}
