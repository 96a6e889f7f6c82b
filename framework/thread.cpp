#include <execinfo.h>

#include <memory>

#include "server-util.h"

namespace {

constexpr const char* kUnit = "server-util";
constexpr std::uint64_t kThrew = static_cast<std::uint64_t>(-1);
constexpr std::uint64_t kNotSignalled = static_cast<std::uint64_t>(-2);

// The C library's pthread_exit loads the unwinder when it is first called, and aborts the process when there
// is no memory for it: at the stop, of all moments. A look at the stack loads it, too, and earlier.
void LoadUnwinder() {
    void* frame = nullptr;
    [[maybe_unused]] static const int looked = backtrace(&frame, 1);
}

}  // namespace

namespace tovaserverutil {

Thread::Thread(ThreadRoutine routine, void* argument, const char* name)
    : m_routine(routine), m_argument(argument), m_name(name) {}

Thread::~Thread() {
    if (m_handle != 0) {
        pthread_detach(m_handle);
    }
}

void Thread::Run() {
    if (m_running != nullptr) {
        return;
    }
    LoadUnwinder();
    m_running = std::make_shared<Running>();
    m_running->routine = m_routine;
    m_running->argument = m_argument;
    m_running->name = m_name;
    auto forThread = std::make_unique<std::shared_ptr<Running>>(m_running);
    const int result = pthread_create(&m_handle, nullptr, &Thread::ThreadStart, forThread.get());
    if (result != 0) {
        m_handle = 0;
        tovabase::ThrowSystemError(kUnit, __LINE__, result);
    }
    forThread.release();  // NOLINT(bugprone-unused-return-value): the new thread frees it
}

void Thread::Join() {
    if (m_handle == 0) {
        return;
    }
    const int result = pthread_join(m_handle, nullptr);
    if (result != 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, result);
    }
    m_handle = 0;
}

void* Thread::ThreadStart(void* shared) {
    std::uint64_t status = 0;
    {
        const std::unique_ptr<std::shared_ptr<Running>> running(
            static_cast<std::shared_ptr<Running>*>(shared));
        Running& state = **running;
        if (state.name != nullptr) {
            // A thread without its name does its work all the same.
            (void)pthread_setname_np(pthread_self(), state.name);
        }
        try {
            status = state.routine(state.argument);
        } catch (...) {
            status = kThrew;
        }
        state.status = status;
        try {
            state.completed.Set();
        } catch (const tovabase::TOVAExcpt&) {
            status = kNotSignalled;
            state.status = status;
        }
    }
    // Nobody reads the value that the address stands for: joiners pass no place for it, and the frame is gone
    // by then.
    pthread_exit(&status);
}

}  // namespace tovaserverutil
