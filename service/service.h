// Service body and main routine.
#pragma once

#include <atomic>
#include <cstdint>

#include "server-util.h"

inline constexpr unsigned long kStandAlone =
    ~0UL;  // first argument of ServiceMain and MainRoutine in the foreground
inline constexpr unsigned long kDaemon = 0;

// The stop event of the process. Null before the service body has made it and after it has closed it.
extern std::atomic<tovaserverutil::Event*> StopEvent;
// Declared by the service and deliberately read and written by nothing.
extern std::uint64_t loggedTime;

// Builds the parameters, takes over the stop signals, runs MainRoutine and cleans up. `argv` is always null.
// A failure of the main routine ends as a line in the trace log; only failures to start the signal thread
// (TOVAExcpt) leave it.
void ServiceMain(unsigned long mode, char** argv);

// Thread routines that wait for the signals in the set they are given (sigset_t*); they return 0 after a stop
// request, 1 when waiting fails. The daemon stops on SIGTERM alone, a foreground run on SIGINT.
std::uint64_t SigHandleRoutine(void* set);
std::uint64_t SigIntRoutine(void* set);

// Starts the monitoring threads, waits for StopEvent, stops and joins them in start order. Throws TOVAExcpt
// only when the threads' stop events cannot be made.
void MainRoutine(unsigned long mode, char** argv);
