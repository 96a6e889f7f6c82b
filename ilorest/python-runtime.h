// The life of the embedded Python interpreter.
#pragma once

#include <string>

#include "python-ref.h"

// Starts and stops the process's one interpreter. It is the distribution's Python, isolated from the
// process's surroundings: no signal handlers, no environment variables, no user site folder, UTF-8 whatever
// the locale, no bytecode files, and no remark of Python's own reaches the terminal; what a module logs does.
//
// Between Finalize() and the next Start() the interpreter itself is kept, without the modules that came with
// the last start. No Python restarts cleanly once it has loaded C extensions: 3.12 aborts, 3.9 and 3.13 lose
// several hundred kilobytes each time, 3.10 and 3.11 about five; and an interpreter that is built up or torn
// down while memory is short may take the process with it.
//
// SIGPIPE stays as the process has it: a process that lets Python write to sockets ignores or blocks it.
//
// All calls, the destructor included, come from the thread that called Start(); every PyRef is gone before
// Finalize().
class PythonRuntime {
public:
    // The folder is put first on sys.path; a relative one is resolved against the working directory of each
    // Start().
    explicit PythonRuntime(std::string moduleFolder);
    // Ends the interpreter itself.
    ~PythonRuntime();
    PythonRuntime(const PythonRuntime&) = delete;
    PythonRuntime& operator=(const PythonRuntime&) = delete;

    // True when an interpreter runs that Start() must not touch: somebody else's, or this one between Start()
    // and Finalize().
    bool IsTaken() const noexcept;
    // True between Start() and Finalize().
    bool IsStarted() const noexcept { return m_state == State::kStarted; }

    // Makes the interpreter ready to import from the module folder; not to be called when IsTaken(). False
    // when Python cannot start, which leaves nothing running, or when memory is short.
    bool Start();
    // Forgets what has been imported from outside of the standard library, and a pending Python error; does
    // nothing when not started. What there is no memory to forget, the next Start() forgets.
    void Finalize() noexcept;

private:
    enum class State {
        kStopped,  // no interpreter of ours
        kIdle,     // ours runs but nobody uses it
        kStarted,
    };

    bool Initialize();
    bool PreparePath();
    bool Forget();
    void Shutdown() noexcept;

    std::string m_moduleFolder;
    State m_state = State::kStopped;
    std::string m_resolvedFolder;
    bool m_forgotten = true;  // nothing is left of what was imported before
    PyRef m_ownPath;          // sys.path as Python made it, without the module folder
    PyRef m_ownModules;       // names of the modules that Python itself loads
};
