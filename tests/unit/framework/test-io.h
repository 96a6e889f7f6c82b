// Small helpers around descriptors and failures.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "server-util.h"

// Runs the action and returns the text of the TOVAExcpt that it throws, "" when it throws none. `code` gets
// its code.
template <typename Action>
std::string FailureText(Action action, int* code = nullptr) {
    try {
        action();
    } catch (const tovabase::TOVAExcpt& failure) {
        if (code != nullptr) {
            *code = failure.code();
        }
        return failure.text();
    }
    return "";
}

// Puts another file in a descriptor's place, so that its owner meets a failure and still closes something of
// its own.
inline void ReplaceDescriptor(int descriptor, const char* path, int flags) {
    const int other = open(path, flags | O_CLOEXEC);
    dup3(other, descriptor, O_CLOEXEC);
    close(other);
}

// How many descriptors this process has open.
inline std::ptrdiff_t CountDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

class IgnoreSignal {
public:
    explicit IgnoreSignal(int number) : m_number(number), m_previous(signal(number, SIG_IGN)) {}
    ~IgnoreSignal() { signal(m_number, m_previous); }
    IgnoreSignal(const IgnoreSignal&) = delete;
    IgnoreSignal& operator=(const IgnoreSignal&) = delete;

private:
    int m_number;
    void (*m_previous)(int);
};

// Sets the soft limit of open descriptors for a scope. Keep the scope to the one call that is to fail:
// sanitizers need descriptors of their own for their checks.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t count) {
        getrlimit(RLIMIT_NOFILE, &m_previous);
        const rlimit limit{count, m_previous.rlim_max};
        m_set = setrlimit(RLIMIT_NOFILE, &limit) == 0;
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_previous); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    bool IsSet() const { return m_set; }

private:
    rlimit m_previous{};
    bool m_set = false;
};
