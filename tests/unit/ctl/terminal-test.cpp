#include "terminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace {

// A child on a terminal of its own; the test is the person in front of it. The child's exit status is what
// `body` returns.
class Person {
public:
    explicit Person(const std::function<int()>& body) {
        m_child = forkpty(&m_screen, nullptr, nullptr, nullptr);
        if (m_child == 0) {
            _exit(body());
        }
    }
    ~Person() {
        if (m_child > 0) {
            kill(m_child, SIGKILL);
            waitpid(m_child, nullptr, 0);
        }
        close(m_screen);
    }
    Person(const Person&) = delete;
    Person& operator=(const Person&) = delete;

    void Type(const std::string& text) const {
        ASSERT_EQ(write(m_screen, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // Reads the screen until the text shows up.
    bool Sees(const std::string& text) {
        while (m_seen.find(text) == std::string::npos) {
            pollfd screen{m_screen, POLLIN, 0};
            char buffer[256];
            if (poll(&screen, 1, 10000) <= 0) {
                return false;
            }
            const ssize_t got = read(m_screen, buffer, sizeof buffer);
            if (got <= 0) {
                return false;
            }
            m_seen.append(buffer, static_cast<std::size_t>(got));
        }
        return true;
    }
    const std::string& seen() const { return m_seen; }
    // What Sees() finds from now on is new.
    void ForgetScreen() { m_seen.clear(); }
    pid_t child() const { return m_child; }
    bool Echoes() const {
        termios settings{};
        tcgetattr(m_screen, &settings);
        return (settings.c_lflag & ECHO) != 0;
    }
    int Wait() {
        int status = 0;
        waitpid(m_child, &status, 0);
        m_child = -1;
        return status;
    }

private:
    int m_screen = -1;
    pid_t m_child = -1;
    std::string m_seen;
};

TEST(RealTerminal, HiddenLine_IsReadAndNotShown) {
    Person person([] {
        RealTerminal terminal;
        const auto line = terminal.ReadHidden("Password: ");
        return line == "se cret" ? 7 : 8;
    });
    ASSERT_TRUE(person.Sees("Password: "));
    EXPECT_FALSE(person.Echoes());
    person.Type("se cret\n");
    ASSERT_TRUE(person.Sees("\n"));
    EXPECT_EQ(person.seen().find("cret"), std::string::npos);
    EXPECT_EQ(WEXITSTATUS(person.Wait()), 7);
    EXPECT_TRUE(person.Echoes());
}

TEST(RealTerminal, VisibleLine_IsReadWithEcho) {
    Person person([] {
        RealTerminal terminal;
        return terminal.IsInteractive() && terminal.ReadLine("Account: ") == "name" ? 7 : 8;
    });
    ASSERT_TRUE(person.Sees("Account: "));
    EXPECT_TRUE(person.Echoes());
    person.Type("name\n");
    EXPECT_TRUE(person.Sees("name"));
    EXPECT_EQ(WEXITSTATUS(person.Wait()), 7);
}

TEST(RealTerminal, CtrlCAtTheHiddenPrompt_BringsTheEchoBackAndEndsTheProcess) {
    Person person([] {
        signal(SIGINT, SIG_DFL);
        RealTerminal terminal;
        terminal.ReadHidden("Password: ");
        return 7;
    });
    ASSERT_TRUE(person.Sees("Password: "));
    ASSERT_FALSE(person.Echoes());
    person.Type("half\x03");
    const int status = person.Wait();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    EXPECT_TRUE(person.Echoes());
}

TEST(RealTerminal, AnyEndingSignalAtTheHiddenPrompt_BringsTheEchoBackAndEndsTheProcess) {
    for (const int ending : {SIGTERM, SIGHUP, SIGQUIT}) {
        Person person([&] {
            signal(ending, SIG_DFL);
            RealTerminal terminal;
            terminal.ReadHidden("Password: ");
            return 7;
        });
        ASSERT_TRUE(person.Sees("Password: "));
        ASSERT_FALSE(person.Echoes());
        kill(person.child(), ending);
        const int status = person.Wait();
        EXPECT_TRUE(WIFSIGNALED(status)) << ending;
        EXPECT_EQ(WTERMSIG(status), ending);
        EXPECT_TRUE(person.Echoes()) << ending;
    }
}

// As below nohup.
TEST(RealTerminal, IgnoredSignalAtTheHiddenPrompt_StaysIgnored) {
    Person person([] {
        signal(SIGHUP, SIG_IGN);
        RealTerminal terminal;
        const auto line = terminal.ReadHidden("Password: ");
        return line == "whole" && signal(SIGHUP, SIG_DFL) == SIG_IGN ? 7 : 8;
    });
    ASSERT_TRUE(person.Sees("Password: "));
    kill(person.child(), SIGHUP);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(person.Echoes()) << "still asking";
    person.Type("whole\n");
    EXPECT_EQ(WEXITSTATUS(person.Wait()), 7);
}

// A shell with job control, as far as Ctrl+Z and "fg" need it. Its exit status is that of the job.
int RunAsJob(const std::function<int()>& body) {
    signal(SIGTTOU, SIG_IGN);  // it takes the terminal back while the job has it
    const pid_t job = fork();
    if (job == 0) {
        setpgid(0, 0);
        tcsetpgrp(0, getpid());
        signal(SIGTTOU, SIG_DFL);
        signal(SIGTSTP, SIG_DFL);
        _exit(body());
    }
    setpgid(job, job);
    int status = 0;
    waitpid(job, &status, WUNTRACED);
    tcsetpgrp(0, getpgrp());
    if (!WIFSTOPPED(status) || WSTOPSIG(status) != SIGTSTP) {
        return 9;
    }
    RealTerminal terminal;
    terminal.ReadLine("stopped> ");
    tcsetpgrp(0, job);
    kill(-job, SIGCONT);
    waitpid(job, &status, 0);
    tcsetpgrp(0, getpgrp());
    return WEXITSTATUS(status);
}

TEST(RealTerminal, CtrlZAtTheHiddenPrompt_StopsWithTheEchoBackAndAsksAfreshLater) {
    Person person([] {
        return RunAsJob([] {
            RealTerminal terminal;
            return terminal.ReadHidden("Password: ") == "afresh" ? 7 : 8;
        });
    });
    ASSERT_TRUE(person.Sees("Password: "));
    ASSERT_FALSE(person.Echoes());
    person.Type("half\x1A");
    ASSERT_TRUE(person.Sees("stopped> "));
    EXPECT_TRUE(person.Echoes());
    person.ForgetScreen();
    person.Type("fg\n");
    ASSERT_TRUE(person.Sees("Password: "));
    EXPECT_FALSE(person.Echoes());
    person.Type("afresh\n");
    EXPECT_EQ(WEXITSTATUS(person.Wait()), 7);
    EXPECT_TRUE(person.Echoes());
}

TEST(RealTerminal, CtrlDAtTheHiddenPrompt_GivesNothing) {
    Person person([] {
        RealTerminal terminal;
        return terminal.ReadHidden("Password: ") ? 8 : 7;
    });
    ASSERT_TRUE(person.Sees("Password: "));
    person.Type("\x04");
    EXPECT_EQ(WEXITSTATUS(person.Wait()), 7);
    EXPECT_TRUE(person.Echoes());
}

// Standard input that is no terminal.
std::optional<std::string> ReadFromPipe(const std::string& content, std::string* rest = nullptr) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(ends[1]);
    RealTerminal terminal(ends[0]);
    EXPECT_FALSE(terminal.IsInteractive());
    const auto line = terminal.ReadHidden("not shown");
    if (rest != nullptr) {
        char buffer[64];
        const ssize_t got = read(ends[0], buffer, sizeof buffer);
        rest->assign(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    return line;
}

TEST(RealTerminal, Pipe_GivesItsFirstLineWithoutTheLineFeed) {
    std::string rest;
    EXPECT_EQ(ReadFromPipe("first\nsecond\n", &rest), "first");
    EXPECT_EQ(rest, "second\n") << "the next reader finds the rest";
    EXPECT_EQ(ReadFromPipe("without line feed"), "without line feed");
    EXPECT_EQ(ReadFromPipe("\n"), "");
    EXPECT_EQ(ReadFromPipe(""), std::nullopt);
}

TEST(RealTerminal, EndlessLine_IsCut) {
    EXPECT_EQ(ReadFromPipe(std::string(9000, 'x') + "\n")->size(), 4096U);
}

}  // namespace
