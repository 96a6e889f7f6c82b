// Calls of the C library that this test program watches or makes fail on order; all others are passed on. The
// linker leads them here (--wrap). Memory comes from operators of this program's own.
#pragma once

#include <atomic>
#include <functional>
#include <utility>
#include <vector>

// Orders to, and records of, the calling thread.
struct WatchedCalls {
    std::vector<int> pollWaits;    // the time-outs asked for, milliseconds
    int pollTimeouts = 0;          // so many polls return 0 at once
    int pollError = 0;             // other than 0: every later poll fails with it
    std::function<void()> onPoll;  // before each poll

    std::vector<std::pair<int, int>> pipes;  // read and write ends made, in order
    std::vector<int> closed;                 // ends of pipes, in order; the trace log closes its file too

    int threadsBeforeFailure = -1;  // so many threads start, then none; -1: all

    // A trace line begins with a reading of the clock; the lock taken next is the trace log's.
    std::function<void()> onLine;  // at its beginning
    int linesBeforeFailure = -1;   // so many lines get the lock, then `lineFailures` do not; -1: all do
    int lineFailures = 0;
    bool lineBegun = false;
};

extern thread_local WatchedCalls calls;
extern std::atomic<int> linesBegun;  // by all threads

// So many allocations of this thread succeed, then one fails; -1: all succeed.
extern thread_local int newsBeforeFailure;
// Counts the releases of one block of memory.
extern std::atomic<const void*> watchedBlock;
extern std::atomic<int> watchedBlockReleases;
