// The built program, called in ways that touch no file of this machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "sanitized.h"
#include "shell.h"
#include "test-root.h"

using testing::HasSubstr;
using testing::Not;

namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome RunTool(const std::string& arguments) {
    const TestRoot root;
    tovaserverutil::ShellRunner shell;
    const auto result =
        shell.Capture("'" BAYWARD_BIN_DIR "/baywardctl' " + arguments + " 2>'" + (root / "err") + "'",
                      tovaserverutil::kListingDeadline);
    EXPECT_TRUE(result.started);
    return {result.exitStatus, result.output, root.Read("err")};
}

TEST(CommandLine, Version_IsNameAndNumber) {
    const Outcome outcome = RunTool("--version");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, testing::MatchesRegex("baywardctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandLine, HelpAtEachLevel_HasExamplesAndIsAResult) {
    for (const char* level : {"", "account ", "account set ", "account check ", "account remove ", "config ",
                              "config check ", "config show ", "events ", "status "}) {
        const Outcome outcome = RunTool(std::string(level) + "--help");
        EXPECT_EQ(outcome.status, 0) << level;
        EXPECT_THAT(outcome.out, HasSubstr("Example")) << level;
        EXPECT_THAT(outcome.out, HasSubstr("baywardctl " + std::string(level))) << level;
        EXPECT_EQ(outcome.err, "") << level;
    }
}

TEST(CommandLine, WrongUsage_IsOneSentenceOnStandardErrorAndStatusTwo) {
    for (const char* arguments : {"", "account", "unknown", "account unknown", "account set a hunter2",
                                  "account set --password=hunter2", "account est a hunter2",
                                  "account check extra", "account check --unknown", "account remove extra",
                                  "status --format xml", "status extra", "status --output", "--login"}) {
        const Outcome outcome = RunTool(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_EQ(outcome.err.rfind("baywardctl: ", 0), 0U) << arguments;
        EXPECT_THAT(outcome.err, HasSubstr("--help")) << arguments;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << arguments;
        EXPECT_THAT(outcome.err, Not(HasSubstr("hunter2"))) << arguments;
    }
}

TEST(CommandLine, WrongUsage_NamesTheFaultAndTheHelpThatAnswersIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"config show --format xml",
         "\"config show\" has no format \"xml\" (table, json); see \"baywardctl config show --help\"."},
        {"config show --format p@ss:hunter2",
         "\"config show\" has no format of that name (table, json); see \"baywardctl config show --help\"."},
        {"config show --format", "\"--format\" needs one value; see \"baywardctl config show --help\"."},
        {"config show hunter2 hunter2",
         "\"config show\" does not know one of its arguments, or has one too many; see \"baywardctl config "
         "show "
         "--help\"."},
        {"config show --password=hunter2",
         "\"config show\" knows no option \"--password\"; see \"baywardctl config show --help\"."},
        {"config hunter2",
         "\"config\" needs one of its commands (check, show); see \"baywardctl config --help\"."},
        {"events --test 337 --format json", "--test excludes --format; see \"baywardctl events --help\"."},
        {"account set a hunter2",
         "Unknown command or option, or an argument too many (passwords are asked for, they are no "
         "arguments); see "
         "\"baywardctl account set --help\"."},
    };
    for (const auto& [arguments, sentence] : cases) {
        EXPECT_EQ(RunTool(arguments).err, std::string("baywardctl: ") + sentence + "\n") << arguments;
    }
}

TEST(CommandLine, OutputWithoutAName_IsWrongUsage) {
    const std::pair<const char*, int> cases[] = {{"status", 2}, {"health", 3}};
    for (const auto& [command, status] : cases) {
        const Outcome outcome = RunTool(std::string(command) + " --output ''");
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, std::string("baywardctl: \"--output\" needs the name of a file; see "
                                           "\"baywardctl ") +
                                   command + " --help\".\n");
    }
}

TEST(CommandLine, FailureOfThePlugin_IsAResultOnStandardOutputToo) {
    struct Case {
        const char* command;
        const char* arguments;
        const char* sentence;
    };
    const Case cases[] = {
        {"status", "--output /nodir/x", "Cannot write /nodir/x: No such file or directory"},
        {"status", "--output ''", "\"--output\" needs the name of a file"},
        {"status", "--unknown", "\"status\" knows no option \"--unknown\""},
        {"health", "--output /nodir/x", "Cannot write /nodir/x: No such file or directory"},
        {"health", "--output ''", "\"--output\" needs the name of a file"},
        {"health", "--unknown", "\"health\" knows no option \"--unknown\""},
    };
    for (const auto& [command, arguments, sentence] : cases) {
        const Outcome outcome = RunTool(std::string(command) + " --format nagios " + arguments);
        const char* const plugin = command == std::string("status") ? "BAYWARD" : "BAYWARD SERVICE";
        EXPECT_EQ(outcome.status, 3) << command << arguments;
        EXPECT_EQ(outcome.out.rfind(std::string(plugin) + " UNKNOWN - " + sentence, 0), 0U) << outcome.out;
        EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << arguments;
        EXPECT_EQ(outcome.err.rfind(std::string("baywardctl: ") + sentence, 0), 0U) << outcome.err;
    }
}

TEST(CommandLine, HelpOfCommandsWithFormats_NamesDefaultAndExitStatuses) {
    for (const char* command : {"config show", "events"}) {
        const std::string help = RunTool(std::string(command) + " --help").out;
        EXPECT_THAT(help, HasSubstr("(default)")) << command;
        EXPECT_THAT(help, HasSubstr("Exit status: 0 done, 1 failed")) << command;
    }
}

TEST(CommandLine, AccountThatCannotBe_IsWrongUsage) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gets that far";
    }
    const Outcome outcome = RunTool("account set " + std::string(41, 'x') + " </dev/null");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr("The account has 41 bytes"));
}

TEST(CommandLine, WrongUsageOfTheConfigurationCheck_IsNoneOfItsFindings) {
    for (const char* arguments : {"config check --unknown", "config check one two"}) {
        const Outcome outcome = RunTool(arguments);
        EXPECT_EQ(outcome.status, 3) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << arguments;
    }
}

TEST(CommandLine, ResultsThatCannotBeWritten_AreAFailure) {
    const Outcome outcome = RunTool("events >/dev/full");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "baywardctl: The results cannot be written to standard output.\n");
    EXPECT_EQ(RunTool("config check /dev/null >/dev/full").status, 3);
    EXPECT_EQ(RunTool("events >&-").err, outcome.err);
}

TEST(CommandLine, WithoutProc_HelpIsShownAndCommandsFailInOneSentence) {
#ifdef BAYWARD_SANITIZED
    GTEST_SKIP() << "sanitizers need /proc";
#endif
    tovaserverutil::ShellRunner shell;
    const auto run = [&](const std::string& arguments) {
        return shell.Capture("unshare --mount sh -c \"mount -t tmpfs none /proc && exec '" BAYWARD_BIN_DIR
                             "/baywardctl' " +
                                 arguments + "\" 2>&1",
                             tovaserverutil::kListingDeadline);
    };
    if (!shell.Capture("unshare --mount mount -t tmpfs none /proc 2>&1", tovaserverutil::kListingDeadline)
             .Succeeded()) {
        GTEST_SKIP() << "/proc cannot be hidden by this user";
    }
    const auto help = run("--help");
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_THAT(help.output, HasSubstr("Example"));
    const auto events = run("events");
    EXPECT_EQ(events.exitStatus, 1);
    EXPECT_EQ(events.output,
              "baywardctl: Where this program lies cannot be found out (/proc/self/exe: No such file or "
              "directory); mount /proc.\n");
}

TEST(CommandLine, ReaderThatIsGone_IsAFailureThatIsSaid) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const int known = dup2(ends[1], 9);
    close(ends[1]);
    const Outcome outcome = RunTool("events >&9");
    close(known);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "baywardctl: The results cannot be written to standard output.\n");
}

TEST(CommandLine, AnyoneButRoot_FailsWithStatusOne) {
    const bool isRoot = geteuid() == 0;
    if (isRoot && access("/usr/bin/setpriv", X_OK) != 0) {
        GTEST_SKIP() << "no setpriv to give root up with";
    }
    // Another user may not be able to look into the build folder: a copy is run.
    const TestRoot folder;
    tovaserverutil::ShellRunner shell;
    const std::string copy = folder / "baywardctl";
    ASSERT_TRUE(shell
                    .Execute("cp '" BAYWARD_BIN_DIR "/baywardctl' '" + copy + "' && chmod 755 '" +
                                 folder.path() + "' '" + copy + "'",
                             tovaserverutil::kListingDeadline)
                    .Succeeded());
    const std::string prefix = isRoot ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    for (const char* command : {"set someone", "check", "remove"}) {
        const auto result = shell.Capture(prefix + "'" + copy + "' account " + command + " 2>&1 </dev/null",
                                          tovaserverutil::kListingDeadline);
        EXPECT_EQ(result.exitStatus, 1) << command;
        EXPECT_THAT(result.output, HasSubstr("needs root")) << command;
    }
    // What the user may not read says nothing about the service.
    folder.Write("private.conf", "");
    std::filesystem::permissions(folder / "private.conf", std::filesystem::perms::none);
    const auto check =
        shell.Capture(prefix + "'" + copy + "' config check '" + (folder / "private.conf") + "' 2>&1",
                      tovaserverutil::kListingDeadline);
    EXPECT_EQ(check.exitStatus, 3);
    EXPECT_THAT(check.output, HasSubstr("cannot be read by this user"));
    // Nor does what it may not look at around the configuration.
    folder.Write("public.conf", "[iLo]\nca file=" + (folder / "private/ca.pem") + "\n");
    std::filesystem::create_directory(folder / "private");
    std::filesystem::permissions(folder / "private", std::filesystem::perms::none);
    const auto around =
        shell.Capture(prefix + "'" + copy + "' config check '" + (folder / "public.conf") + "' 2>&1",
                      tovaserverutil::kListingDeadline);
    EXPECT_NE(around.exitStatus, 3);
    EXPECT_THAT(around.output, HasSubstr("Not checked as this user: "));
    EXPECT_THAT(around.output, HasSubstr("the CA file"));
    EXPECT_THAT(around.output, Not(HasSubstr("CA file cannot be used")));
}

}  // namespace
