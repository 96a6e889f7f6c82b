#include "shell.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "child-environment.h"
#include "file-descriptor.h"

namespace {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;
using tovaserverutil::CommandResult;
using tovaserverutil::CommandRunner;
using tovaserverutil::FileDescriptor;

constexpr milliseconds kFirstSlice{1};   // how soon a shell's end is noticed that ends at once,
constexpr milliseconds kSlice{20};       // and one that takes its time
constexpr milliseconds kEndGrace{2000};  // between SIGTERM and SIGKILL
constexpr std::size_t kReadBuffer = 64 * 1024;

// What a first shell does before the one that runs the command takes its place: posix_spawn cannot limit the
// files that are written, and a limit of this process would hold for its other threads too. Whoever writes
// more is told so, not killed: unzip then goes on with the archive's other members. The unit is 512 bytes.
std::string Preface() {
    return "trap '' XFSZ; ulimit -f " + std::to_string(CommandRunner::kMaxFile / 512) +
           " 2>/dev/null; exec /bin/sh -c \"$1\"";
}

// Starts /bin/sh in a process group of its own. `output` becomes its standard output unless it is -1.
std::optional<pid_t> Spawn(std::string command, int output) {
    std::vector<std::string> variables = tovaserverutil::ChildEnvironment(environ);
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& variable : variables) {
        environment.push_back(variable.data());
    }
    environment.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) {
        return std::nullopt;
    }
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return std::nullopt;
    }
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    // The output goes first: in a process whose standard input is closed the pipe may lie at descriptor 0.
    int result = output < 0 ? 0 : posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    result |= posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    result |= posix_spawnattr_setsigmask(&attributes, &none);
    result |= posix_spawnattr_setsigdefault(&attributes, &all);
    result |= posix_spawnattr_setpgroup(&attributes, 0);
    result |= posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    pid_t pid = -1;
    if (result == 0) {
        std::string preface = Preface();
        char shell[] = "sh";
        char option[] = "-c";
        char* const arguments[] = {shell, option, preface.data(), shell, command.data(), nullptr};
        result = posix_spawn(&pid, "/bin/sh", &actions, &attributes, arguments, environment.data());
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return result == 0 ? std::optional<pid_t>(pid) : std::nullopt;
}

// A shell that runs, with its process group. Whoever leaves without reaping it, by an exception, ends both.
class Child {
public:
    explicit Child(pid_t pid) : m_pid(pid) {}
    ~Child() {
        if (m_pid > 0) {
            End(SIGKILL);
            Reap();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // It is not reaped yet, so its process group's number cannot be given to anybody else.
    bool HasEnded() const {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
               info.si_pid == m_pid;
    }

    // Sends the signal to the whole group.
    void End(int signal) const { kill(-m_pid, signal); }

    // Waits for the shell's end. Its exit status; -1 when there is none. To be called once.
    int Reap() {
        const pid_t pid = std::exchange(m_pid, -1);
        int status = 0;
        while (waitpid(pid, &status, 0) < 0) {
            if (errno != EINTR) {
                return -1;
            }
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid;  // -1: reaped
};

// The reading end of the command's output.
class OutputReader {
public:
    explicit OutputReader(FileDescriptor descriptor) : m_descriptor(std::move(descriptor)) {}

    // Waits up to `slice` for output and reads one piece of it. False when there was none.
    bool ReadPiece(milliseconds slice) {
        pollfd entry{m_descriptor.get(), POLLIN, 0};  // poll skips a negative descriptor and just waits
        if (poll(&entry, 1, static_cast<int>(slice.count())) <= 0) {
            return false;
        }
        const ssize_t count = read(m_descriptor.get(), m_buffer.data(), m_buffer.size());
        if (count <= 0) {
            m_descriptor.reset();
            return false;
        }
        const std::size_t room = CommandRunner::kMaxOutput - m_text.size();
        m_text.append(m_buffer, 0, std::min(static_cast<std::size_t>(count), room));
        return true;
    }

    // Reads what the ended shell has left in the pipe. A descendant that goes on writing is not followed for
    // ever.
    void Drain() {
        constexpr std::size_t kPieces = CommandRunner::kMaxOutput / kReadBuffer;
        for (std::size_t piece = 0; piece < kPieces && ReadPiece(milliseconds(0)); ++piece) {
        }
    }

    std::string&& Take() { return std::move(m_text); }

private:
    FileDescriptor m_descriptor;
    std::string m_buffer = std::string(kReadBuffer, '\0');
    std::string m_text;
};

// Reads along until the shell has ended; false when the deadline came first.
bool WaitForEnd(const Child& shell, OutputReader& output, milliseconds limit) {
    const SteadyClock::time_point deadline = SteadyClock::now() + limit;
    milliseconds slice = kFirstSlice;
    while (!shell.HasEnded()) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - SteadyClock::now());
        if (left <= milliseconds(0)) {
            return false;
        }
        output.ReadPiece(std::min(left, slice));
        slice = std::min(2 * slice, kSlice);
    }
    return true;
}

// The whole grace, even when the shell ends at once: it may only have wrapped the program that is still
// cleaning up, and while the shell is not reaped nothing tells whether its group is empty.
void LetGroupEnd(OutputReader& output) {
    const SteadyClock::time_point end = SteadyClock::now() + kEndGrace;
    while (SteadyClock::now() < end) {
        output.ReadPiece(kSlice);
    }
}

CommandResult Run(const std::string& command, milliseconds deadline, int writeEnd, FileDescriptor* toClose,
                  OutputReader& output) {
    CommandResult result;
    const std::optional<pid_t> pid = Spawn(command, writeEnd);
    if (toClose != nullptr) {
        toClose->reset();
    }
    if (!pid) {
        return result;
    }
    Child shell(*pid);
    result.started = true;
    if (!WaitForEnd(shell, output, deadline)) {
        result.timedOut = true;
        shell.End(SIGTERM);
        LetGroupEnd(output);
        shell.End(SIGKILL);
    }
    result.exitStatus = shell.Reap();
    output.Drain();
    result.output = output.Take();
    return result;
}

}  // namespace

namespace tovaserverutil {

CommandResult ShellRunner::Capture(const std::string& command, milliseconds deadline) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {};
    }
    OutputReader output{FileDescriptor(ends[0])};
    FileDescriptor writeEnd(ends[1]);
    return Run(command, deadline, writeEnd.get(), &writeEnd, output);
}

CommandResult ShellRunner::Execute(const std::string& command, milliseconds deadline) {
    OutputReader nothing{FileDescriptor()};
    return Run(command, deadline, -1, nullptr, nothing);
}

}  // namespace tovaserverutil
