// The service's small concurrency toolkit, its exception for failed system calls and its trace log.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "file-descriptor.h"

namespace tovabase {

// A failed system or library call. Deliberately not a std::exception: catch sites handle it separately and
// first.
class TOVAExcpt {
public:
    static constexpr int kSystemCall = 0x10001;  // the text carries the source location and the error number
    static constexpr int kFileOpen = 15;         // a file could not be opened

    // The formatted text is cut at 1023 characters.
    TOVAExcpt(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));

    int code() const { return m_code; }
    const char* text() const { return m_text; }

private:
    int m_code;
    char m_text[1024];
};

// Throws a TOVAExcpt of code kSystemCall with the text "UNIT LINE (Err: ERROR)".
[[noreturn]] void ThrowSystemError(const char* unit, int line, int error);

}  // namespace tovabase

namespace tovaserverutil {

// A waitable flag made of a pipe. Any thread may set it; one thread waits for it. Both ends are close-on-exec
// and are closed on destruction, read end first.
class Event {
public:
    static constexpr std::uint32_t kTimeout = 0xFFFFFFFF;  // result of WaitMultiple when the time is over

    Event();  // throws TOVAExcpt (kSystemCall) when no pipe can be made
    ~Event() = default;
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Writes the 7 bytes "SetEvt" (with the NUL) into the pipe and raises the flag. Throws TOVAExcpt when the
    // write fails.
    void Set();
    // True once Set() has succeeded; a wait that consumes the signal does not lower it.
    bool IsSet() const { return m_flag.load(); }
    int ReadEnd() const { return m_read.get(); }

    // Reads up to 8 bytes, what one wait consumes: one signal, and a byte of a second one, so an event set
    // twice stays readable. Throws TOVAExcpt when the read fails.
    void Consume();

    // Waits with poll, so for this event alone and whatever the number of its descriptor, at most timeoutMs
    // milliseconds. True when it was set: the signal is consumed then. Throws TOVAExcpt when poll or read
    // fails.
    bool Poll(int timeoutMs);

    // Waits for one event (waitAll false: its index in the list is returned) or for every event (waitAll
    // true: 0 is returned), at most timeoutMs milliseconds; kTimeout when the time is over. Every event of
    // the list is used: a null pointer in it is the caller's mistake (WaitAny drops them). An empty list
    // returns 0 at once. There is no infinite wait: 0xFFFFFFFF milliseconds is a very long one. Throws
    // TOVAExcpt when select, read or the clock fails, or when a descriptor is too large for select.
    static std::uint32_t WaitMultiple(std::vector<Event*>& events, bool waitAll, unsigned int timeoutMs);

    // Waits for any of the events that are not null. Returns the event that was set, or null on time-out and
    // when the list holds only null pointers.
    static Event* WaitAny(std::vector<Event*>& events, unsigned int timeoutMs);

private:
    FileDescriptor m_write;
    FileDescriptor m_read;  // declared last, so that it is closed first
    std::atomic<bool> m_flag{false};
};

using ThreadRoutine = std::uint64_t (*)(void*);

// Runs one routine on a thread of its own. The owner joins before destroying it: the destructor neither joins
// nor cancels. A thread that was not joined runs on and frees what it shares with the object when it ends.
// Not copyable; used by its owner's thread only.
class Thread {
public:
    // The name, at most 15 bytes, is what the system's own tools show of the thread; it has to outlive the
    // thread. Null leaves it with the name of the thread that called Run().
    Thread(ThreadRoutine routine, void* argument, const char* name = nullptr);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Starts the thread; a second call does nothing. Throws TOVAExcpt when the completion event or the thread
    // cannot be made.
    void Run();
    // Waits without limit for the routine's end; returns at once when no thread was started or it has been
    // joined. Throws TOVAExcpt when the join fails.
    void Join();
    // True from a successful Run() until a successful Join(), also when the routine has ended meanwhile.
    bool IsUnjoined() const { return m_handle != 0; }

    // Set when the routine has returned or thrown; null before Run().
    Event* CompletionEvent() const { return m_running ? &m_running->completed : nullptr; }
    // The routine's result; (uint64_t)-1 when it threw, (uint64_t)-2 when the completion event could not be
    // set. Meaningful after Join() only.
    std::uint64_t ExitStatus() const { return m_running ? m_running->status : 0; }

private:
    // What the object and the running thread share, so that an owner that does not join cannot pull it away.
    struct Running {
        Event completed;
        ThreadRoutine routine = nullptr;
        void* argument = nullptr;
        const char* name = nullptr;
        std::uint64_t status = 0;
    };

    static void* ThreadStart(void* shared);

    pthread_t m_handle{};  // 0: no thread to join
    std::shared_ptr<Running> m_running;
    ThreadRoutine m_routine;
    void* m_argument;
    const char* m_name;
};

class ILock {
public:
    // The two operations take the first two slots, in this order.
    virtual bool WaitOne(unsigned int timeout) = 0;
    virtual bool Release() = 0;
    virtual ~ILock() = default;
};

// A plain, non-recursive lock.
class Mutex : public ILock {
public:
    Mutex();
    ~Mutex() override;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Locks; the time-out is accepted and ignored, the wait has no limit. Returns true; throws TOVAExcpt on
    // failure.
    bool WaitOne(unsigned int timeout) override;
    // Unlocks. Returns true; throws TOVAExcpt on failure.
    bool Release() override;

private:
    pthread_mutex_t m_mutex;
};

// Holds a lock until the end of the scope.
class LockGuard {
public:
    // Throws TOVAExcpt when the lock cannot be taken.
    explicit LockGuard(ILock& lock) : m_lock(&lock) { lock.WaitOne(0); }
    ~LockGuard();
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

    // Releases the lock now, for whoever wants to know whether that succeeds; to be called at most once.
    // Returns and throws what the lock's Release does.
    bool Release() { return std::exchange(m_lock, nullptr)->Release(); }

private:
    ILock* m_lock;  // null: released
};

// Appends time-stamped lines to a file that is kept below a size limit, with one backup ending ".bak". Any
// thread may write; lines never interleave. File-system problems, also a link in the file's place, drop the
// line; only a failing lock throws (TOVAExcpt). The folder must exist.
class TraceLog {
public:
    TraceLog(const std::string& path, std::uint64_t sizeLimitBytes, bool milliseconds);
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    // Appends one line, control characters as "?", cut so that stamp, message and line feed fit 2046 bytes.
    // Returns the result of releasing the lock; false when the time could not be taken.
    bool Write(const char* format, ...) __attribute__((format(printf, 2, 3)));
    bool vWrite(const char* format, va_list args) __attribute__((format(printf, 2, 0)));

private:
    void Append(const char* line, std::size_t length);

    char m_path[4096];
    std::uint64_t m_sizeLimit;
    Mutex m_lock;
    bool m_milliseconds;
};

// The one catch ladder of service body and threads. Call it inside a catch block: it looks at the exception
// in flight and writes one line, "<VK0902> [ER] UNIT LINE (Err: ...)", with a TOVAExcpt's text, "Bad Alloc",
// what() or "Unknown".
void LogCurrentException(TraceLog& log, const char* unit, int line);

}  // namespace tovaserverutil
