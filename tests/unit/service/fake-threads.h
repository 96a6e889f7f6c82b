// The monitoring threads' stand-ins: they replace the real routines in this test program.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "server-util.h"

// How one stand-in behaves and what it saw.
struct FakeThread {
    std::chrono::milliseconds pauseBeforeEnd{0};  // after it has seen its stop
    bool endsAtOnce = false;                      // does not wait for its stop
    bool breaksItsStopEvent = false;              // leaves nobody who could read it
    std::atomic<int> starts{0};
    std::atomic<tovaserverutil::Event*> stop{nullptr};
    std::string name;  // the thread's, to be read when it has ended
    std::atomic<bool> ended{false};
};

extern FakeThread osLog;
extern FakeThread serialLog;
extern FakeThread mediaError;

void ResetFakeThreads();
