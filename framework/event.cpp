#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>

#include "server-util.h"

namespace {

constexpr const char* kUnit = "server-util";
constexpr int kPollLine = 151;             // where a failure of Event::Poll is said to come from
constexpr char kSignal[] = "SetEvt";       // written with its NUL: 7 bytes
constexpr std::size_t kConsumedBytes = 8;  // what one wait takes out of the pipe
constexpr std::int64_t kMicroseconds = 1000000;

std::int64_t NowInMicroseconds() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, errno);
    }
    return static_cast<std::int64_t>(now.tv_sec) * kMicroseconds + now.tv_usec;
}

// Takes one signal out of the pipe; false, with errno set, when that fails.
bool ReadSignal(int descriptor) {
    char buffer[kConsumedBytes];
    return read(descriptor, buffer, sizeof buffer) >= 0;
}

}  // namespace

namespace tovaserverutil {

Event::Event() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, errno);
    }
    m_read.reset(ends[0]);
    m_write.reset(ends[1]);
}

void Event::Set() {
    if (write(m_write.get(), kSignal, sizeof kSignal) < 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, errno);
    }
    m_flag = true;
}

void Event::Consume() {
    if (!ReadSignal(m_read.get())) {
        tovabase::ThrowSystemError(kUnit, __LINE__, errno);
    }
}

bool Event::Poll(int timeoutMs) {
    pollfd entry{m_read.get(), POLLIN, 0};
    const int ready = poll(&entry, 1, timeoutMs);
    if (ready < 0 || (ready > 0 && !ReadSignal(m_read.get()))) {
        tovabase::ThrowSystemError(kUnit, kPollLine, errno);
    }
    return ready > 0;
}

std::uint32_t Event::WaitMultiple(std::vector<Event*>& events, bool waitAll, unsigned int timeoutMs) {
    if (events.empty()) {
        return 0;
    }
    std::vector<Event*> pending = events;
    const std::int64_t timeout = static_cast<std::int64_t>(timeoutMs) * 1000;
    const std::int64_t start = NowInMicroseconds();
    std::int64_t left = timeout;
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        int highest = -1;
        for (const Event* event : pending) {
            if (event->ReadEnd() >= FD_SETSIZE) {
                tovabase::ThrowSystemError(kUnit, __LINE__, EINVAL);  // FD_SET would write past the set
            }
            FD_SET(event->ReadEnd(), &readable);
            highest = std::max(highest, event->ReadEnd());
        }
        timeval wait{};
        wait.tv_sec = static_cast<time_t>(left / kMicroseconds);
        wait.tv_usec = static_cast<suseconds_t>(left % kMicroseconds);
        const int ready = select(highest + 1, &readable, nullptr, nullptr, &wait);
        if (ready < 0) {
            tovabase::ThrowSystemError(kUnit, __LINE__, errno);
        }
        if (ready == 0) {
            return kTimeout;
        }
        std::vector<Event*> unset;
        for (std::size_t index = 0; index < pending.size(); ++index) {
            Event* event = pending[index];
            if (!FD_ISSET(event->ReadEnd(), &readable)) {
                unset.push_back(event);
                continue;
            }
            event->Consume();
            if (!waitAll) {
                return static_cast<std::uint32_t>(index);
            }
            // An event that is listed twice needs a second signal; reading now would block without limit.
            FD_CLR(event->ReadEnd(), &readable);
        }
        pending = std::move(unset);
        if (pending.empty()) {
            return 0;
        }
        // The wall clock may have been set back or far ahead meanwhile.
        left = std::clamp<std::int64_t>(timeout - (NowInMicroseconds() - start), 0, timeout);
    }
}

Event* Event::WaitAny(std::vector<Event*>& events, unsigned int timeoutMs) {
    std::vector<Event*> present;
    std::copy_if(events.begin(), events.end(), std::back_inserter(present),
                 [](const Event* event) { return event != nullptr; });
    const std::uint32_t index = WaitMultiple(present, false, timeoutMs);
    return index < present.size() ? present[index] : nullptr;
}

}  // namespace tovaserverutil
