#include "fake-threads.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <thread>

#include "media-error.h"
#include "monitor-log.h"
#include "serial-log.h"

FakeThread osLog;
FakeThread serialLog;
FakeThread mediaError;

namespace {

std::uint64_t Play(FakeThread& fake, void* argument) {
    auto* const stop = static_cast<tovaserverutil::Event*>(argument);
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    fake.name = name;
    fake.stop = stop;
    ++fake.starts;
    if (fake.breaksItsStopEvent) {
        const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup3(null, stop->ReadEnd(), O_CLOEXEC);
        close(null);
    } else if (!fake.endsAtOnce) {
        std::vector<tovaserverutil::Event*> events{stop};
        tovaserverutil::Event::WaitAny(events, 60000);
        std::this_thread::sleep_for(fake.pauseBeforeEnd);
    }
    fake.ended = true;
    return 0;
}

void Reset(FakeThread& fake) {
    fake.pauseBeforeEnd = std::chrono::milliseconds(0);
    fake.endsAtOnce = false;
    fake.breaksItsStopEvent = false;
    fake.starts = 0;
    fake.stop = nullptr;
    fake.name.clear();
    fake.ended = false;
}

}  // namespace

std::uint64_t MonitorLogRoutine(void* stopEvent) {
    return Play(osLog, stopEvent);
}

std::uint64_t SerialLogRoutine(void* stopEvent) {
    return Play(serialLog, stopEvent);
}

std::uint64_t MediaErrorRoutine(void* stopEvent) {
    return Play(mediaError, stopEvent);
}

void ResetFakeThreads() {
    Reset(osLog);
    Reset(serialLog);
    Reset(mediaError);
}
