// The door through which the service runs other programs.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tovaserverutil {

struct CommandResult {
    bool started = false;   // false: the shell could not be started, nothing else is meaningful
    bool timedOut = false;  // the deadline passed and the command's process group was ended
    int exitStatus = -1;    // the shell's exit status; -1 when it was ended by a signal
    std::string output;     // its standard output, when asked for

    bool Succeeded() const { return started && !timedOut && exitStatus == 0; }
};

// Runs command lines through the shell (/bin/sh -c). Callers put only fixed texts and parsed decimal numbers
// into them. A call blocks until the shell has ended, at most for the deadline and the two seconds that the
// command has to clean up past it.
class CommandRunner {
public:
    static constexpr std::size_t kMaxOutput = 1024 * 1024;  // output beyond this is read and dropped
    // The largest file that a command may write; writing on fails with EFBIG. A report of a full server has a
    // small part of it.
    static constexpr std::size_t kMaxFile = 256 * 1024 * 1024;

    virtual ~CommandRunner() = default;
    // Runs the command with its standard output read back, up to kMaxOutput bytes.
    virtual CommandResult Capture(const std::string& command, std::chrono::milliseconds deadline) = 0;
    // Runs the command with this process's own standard streams.
    virtual CommandResult Execute(const std::string& command, std::chrono::milliseconds deadline) = 0;
};

// The real one. Children start with an empty signal mask, default signal dispositions, standard input from
// /dev/null, a process group of their own and this process's environment without what would change the
// meaning of a command (PATH: its absolute folders and the system's); past the deadline the group is ended
// (SIGTERM, then SIGKILL). A descendant that outlives the shell and keeps the output open does not hold the
// caller up. Any thread may use it; never throws but std::bad_alloc.
class ShellRunner : public CommandRunner {
public:
    CommandResult Capture(const std::string& command, std::chrono::milliseconds deadline) override;
    CommandResult Execute(const std::string& command, std::chrono::milliseconds deadline) override;
};

// How long each kind of command may take.
inline constexpr std::chrono::minutes kDiagnosticDeadline{30};
inline constexpr std::chrono::minutes kListingDeadline{2};
inline constexpr std::chrono::seconds kProbeDeadline{10};

}  // namespace tovaserverutil
