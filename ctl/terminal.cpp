#include "terminal.h"

#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "secret.h"

namespace {

constexpr std::size_t kMaxLine = 4096;  // bytes; longer ones are cut, and refused for their length later
// The signals that end or stop the process and would leave the shell without echo.
constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile sig_atomic_t s_signal = 0;

void RememberSignal(int signal) {
    s_signal = signal;
}

// Holds those signals while the echo is off, and delivers them afterwards. They are let through only inside
// the wait for input, so none is missed between a check and the wait. One that is ignored stays ignored.
class SignalHold {
public:
    SignalHold() {
        s_signal = 0;
        sigset_t held;
        sigemptyset(&held);
        struct sigaction remember {};
        remember.sa_handler = RememberSignal;
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            sigaddset(&held, kSignals[i]);
        }
        sigprocmask(SIG_BLOCK, &held, &m_mask);
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            sigaction(kSignals[i], nullptr, &m_actions[i]);
            if (m_actions[i].sa_handler != SIG_IGN) {
                sigaction(kSignals[i], &remember, nullptr);
            }
        }
    }
    ~SignalHold() {
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            sigaction(kSignals[i], &m_actions[i], nullptr);
        }
        sigprocmask(SIG_SETMASK, &m_mask, nullptr);
        if (s_signal != 0) {
            raise(s_signal);
        }
    }
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;

    // True when there is input, false when a signal has come.
    bool WaitForInput(int descriptor) const {
        pollfd input{descriptor, POLLIN, 0};
        while (s_signal == 0) {
            if (ppoll(&input, 1, nullptr, &m_mask) > 0) {
                return true;
            }
            if (errno != EINTR) {
                return false;
            }
        }
        return false;
    }

private:
    std::array<struct sigaction, kSignals.size()> m_actions{};
    sigset_t m_mask{};
};

// Switches the echo off while it lives.
class EchoOff {
public:
    explicit EchoOff(int descriptor) : m_descriptor(descriptor) {
        m_off = tcgetattr(descriptor, &m_before) == 0;
        if (m_off) {
            termios silent = m_before;
            silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
            tcsetattr(descriptor, TCSAFLUSH, &silent);
        }
    }
    ~EchoOff() {
        if (m_off) {
            tcsetattr(m_descriptor, TCSAFLUSH, &m_before);
        }
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    int m_descriptor;
    termios m_before{};
    bool m_off = false;
};

void Show(const std::string& text) {
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

// Reads byte by byte, so that nothing behind the line is taken from the next reader.
template <typename Wait>
std::optional<std::string> ReadTo(int descriptor, const Wait& wait) {
    std::string line;
    line.reserve(kMaxLine);  // never moved, so that no copy of a password stays behind
    bool any = false;
    char byte = 0;
    while (wait()) {
        const ssize_t got = read(descriptor, &byte, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        any = true;
        if (byte == '\n') {
            return line;
        }
        if (line.size() < kMaxLine) {
            line.push_back(byte);
        }
    }
    return any ? std::optional(std::move(line)) : std::nullopt;
}

}  // namespace

bool RealTerminal::IsInteractive() {
    return isatty(m_descriptor) == 1;
}

std::optional<std::string> RealTerminal::ReadLine(const std::string& prompt) {
    if (IsInteractive()) {
        Show(prompt);
    }
    return ReadTo(m_descriptor, [] { return true; });
}

std::optional<std::string> RealTerminal::ReadHidden(const std::string& prompt) {
    if (!IsInteractive()) {
        return ReadLine(prompt);
    }
    std::optional<std::string> line;
    do {
        {
            const SignalHold signals;
            const EchoOff echo(m_descriptor);
            Show(prompt);
            line = ReadTo(m_descriptor, [&] { return signals.WaitForInput(m_descriptor); });
            Show("\n");  // the person's own one was not echoed
        }
        if (s_signal != 0 && line) {
            tovaserverutil::Wipe(*line);
            line.reset();
        }
    } while (s_signal == SIGTSTP);  // Ctrl+Z, and now continued: asks afresh
    return line;
}
