#include "watched-calls.h"

#include <sys/stat.h>

#include <poll.h>
#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

thread_local WatchedCalls calls;
std::atomic<int> linesBegun{0};
thread_local int newsBeforeFailure = -1;
std::atomic<const void*> watchedBlock{nullptr};
std::atomic<int> watchedBlockReleases{0};

namespace {

// Counts down to 0; true when it was there already.
bool IsUsedUp(int& left) {
    if (left > 0) {
        --left;
        return false;
    }
    return left == 0;
}

}  // namespace

extern "C" {

int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __real_pipe2(int* ends, int flags);
int __real_close(int descriptor);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_gettimeofday(timeval* now, void* zone);

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
    calls.pollWaits.push_back(timeout);
    if (calls.onPoll) {
        calls.onPoll();
    }
    if (calls.pollError != 0) {
        errno = calls.pollError;
        return -1;
    }
    if (calls.pollTimeouts > 0) {
        --calls.pollTimeouts;
        return 0;
    }
    return __real_poll(descriptors, count, timeout);
}

int __wrap_pipe2(int* ends, int flags) {
    const int result = __real_pipe2(ends, flags);
    if (result == 0) {
        calls.pipes.emplace_back(ends[0], ends[1]);
    }
    return result;
}

int __wrap_close(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode)) {
        calls.closed.push_back(descriptor);
    }
    return __real_close(descriptor);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument) {
    if (IsUsedUp(calls.threadsBeforeFailure)) {
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, routine, argument);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (std::exchange(calls.lineBegun, false) && IsUsedUp(calls.linesBeforeFailure) &&
        calls.lineFailures > 0) {
        --calls.lineFailures;
        return EINVAL;
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    ++linesBegun;
    calls.lineBegun = true;
    if (calls.onLine) {
        calls.onLine();
    }
    return __real_gettimeofday(now, zone);
}

}  // extern "C"

void* operator new(std::size_t size) {
    if (newsBeforeFailure >= 0 && IsUsedUp(newsBeforeFailure)) {
        newsBeforeFailure = -1;
        throw std::bad_alloc();
    }
    void* const block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr && block == watchedBlock) {
        ++watchedBlockReleases;
    }
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}
