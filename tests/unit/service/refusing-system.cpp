// Preloaded by the tests of the process entry: a system that detaches no daemon and starts no thread.
#include <pthread.h>
#include <unistd.h>

#include <cerrno>

extern "C" int daemon(int /*keepFolder*/, int /*keepStreams*/) noexcept {
    errno = EAGAIN;
    return -1;
}

extern "C" int pthread_create(pthread_t* __restrict, const pthread_attr_t* __restrict, void* (*)(void*),
                              void* __restrict) noexcept {
    return EAGAIN;
}
