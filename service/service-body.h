// The service body and the main routine below the process-wide names, for their entry points and for tests.
#pragma once

#include <string>
#include <vector>

#include "server-util.h"
#include "service-param.h"

using MainRoutineFunction = void (*)(unsigned long mode, char** argv);

// ServiceMain with the file root and the main routine given. It sets Parameter, which stays set although the
// object is gone in the end, and StopEvent; one call per process, as it leaves the stop signals blocked.
void RunService(unsigned long mode, char** argv, const std::string& root, MainRoutineFunction mainRoutine);

// One monitoring thread. Its routine gets a pointer to a stop event of its own and returns soon after that is
// set.
struct MonitoringThread {
    const char* name;  // as Thread's
    tovaserverutil::ThreadRoutine routine;
    const char* startLine;
    const char* joinLine;
    bool (tova_service::ServiceParameter::*startedOnlyIf)() const;  // null: always started
};

// The main routine's work: prepares language, catalogue and system log, starts the threads in the given
// order, waits for `stop` (null: does not wait), then stops and joins them in the same order. `info` gets the
// system information, which lives until the function returns; the pointer is deliberately left as it is then,
// no thread that reads it is running any more. Throws TOVAExcpt when the threads' stop events cannot be made;
// every later failure is one line in the trace log.
void SuperviseThreads(tova_service::ServiceParameter& parameter, tovaserverutil::Event* stop,
                      const std::vector<MonitoringThread>& threads, unsigned long mode,
                      tova_service::system_info*& info, tova_service::SystemLogSink& sink);
