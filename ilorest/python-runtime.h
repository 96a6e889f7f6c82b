// The life of the embedded Python interpreter.
#pragma once

#include <string>

#include "python-ref.h"

// Starts, stops and restarts the process's one interpreter. It is the distribution's Python, isolated from
// the process's surroundings: no signal handlers, no environment variables, no user site folder, UTF-8
// whatever the locale, no bytecode files, and no remark of Python's own reaches the terminal; what a module
// logs does.
//
// SIGPIPE stays as the process has it: a process that lets Python write to sockets ignores or blocks it.
//
// All calls, the destructor included, come from the thread that called Start(); every PyRef is gone before
// Finalize().
class PythonRuntime {
public:
    enum class RestartPolicy {
        kRestart,  // Finalize() really finalises; the next Start() starts a new interpreter
        kKeep,  // Finalize() forgets the modules; the interpreter lives on and is finalised by the destructor
    };
    // What suits this Python: 3.10 and 3.11 restart cleanly. 3.12 aborts when an interpreter that has loaded
    // C extensions is started a second time; 3.9 and 3.13 lose several hundred kilobytes with each restart.
    static RestartPolicy DefaultPolicy() noexcept;

    // The folder is put first on sys.path; a relative one is resolved against the working directory of each
    // Start().
    explicit PythonRuntime(std::string moduleFolder, RestartPolicy policy = DefaultPolicy());
    ~PythonRuntime();
    PythonRuntime(const PythonRuntime&) = delete;
    PythonRuntime& operator=(const PythonRuntime&) = delete;

    // True when an interpreter runs that Start() must not touch: somebody else's, or this one between Start()
    // and Finalize().
    bool IsTaken() const noexcept;
    // True between Start() and Finalize().
    bool IsStarted() const noexcept { return m_state == State::kStarted; }

    // Makes the interpreter ready to import from the module folder; not to be called when IsTaken(). False
    // when Python cannot start, which leaves nothing running.
    bool Start();
    // Ends what Start() began, as the policy says; does nothing when not started. A pending Python error is
    // forgotten.
    void Finalize() noexcept;

private:
    enum class State {
        kStopped,  // no interpreter of ours
        kIdle,     // ours runs but nobody uses it (policy kKeep)
        kStarted,
    };

    bool Initialize();
    bool PreparePath();
    void Forget();
    void Shutdown() noexcept;

    std::string m_moduleFolder;
    RestartPolicy m_policy;
    State m_state = State::kStopped;
    std::string m_resolvedFolder;
    PyRef m_ownPath;     // sys.path as Python made it, without the module folder
    PyRef m_ownModules;  // names of the modules that Python itself loads
};
