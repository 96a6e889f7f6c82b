#include "status-command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <thread>

#include "account-command.h"
#include "ctl-error.h"
#include "fake-bridge.h"
#include "fake-commands.h"
#include "fake-proc.h"
#include "file-descriptor.h"
#include "file-writing.h"
#include "status-progress.h"
#include "status-signals.h"
#include "test-root.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class NoTerminal : public Terminal {
public:
    bool IsInteractive() override { return false; }
    std::optional<std::string> ReadLine(const std::string&) override { return std::nullopt; }
    std::optional<std::string> ReadHidden(const std::string&) override { return "secret"; }
};

class StatusCommandTest : public testing::Test {
protected:
    StatusCommandTest() {
        std::filesystem::create_directories(root / "run");
        root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\nurl=https://ilo\n");
        root.Write("program/bayward.msg", "[default]\nC0008151=A drive has failed: %2\n");
        bridge.resources = {
            {"/redfish/v1/Managers/", R"({"Members":[{"@odata.id":"/redfish/v1/Managers/1/"}]})"},
            {"/redfish/v1/Managers/1/",
             R"({"Firmware":{"Current":{"MajorVersion":2,"MinorVersion":72,"VersionString":"iLO 5 v2.72"}}})"},
            {"/redfish/v1/Systems/", R"({"Members":[{"@odata.id":"/redfish/v1/Systems/1/"}]})"},
            {kArrays, R"({"Members":[{"@odata.id":"/a/"}]})"},
            {"/redfish/v1/Systems/1/Storage/", R"({"Members":[]})"},
            {"/a/", R"({"Model":"Array","Location":"Slot 0","SerialNumber":"S","Id":"0"})"},
            {"/a/LogicalDrives/", R"({"Members":[]})"},
            {"/a/DiskDrives/", R"({"Members":[{"@odata.id":"/d/"}]})"},
            {"/d/", kDrive},
        };
        commands.result = {.started = true,
                           .timedOut = false,
                           .exitStatus = 0,
                           .output = "UUID: 00112233-4455-6677-8899-aabbccddeeff\n"};
        AccountCommand(Doors()).Set("monitor");
        out.str("");
        // Of the commands that follow only dmidecode succeeds: this host has no virtual NIC.
        commands.answers["dmidecode"] = commands.result;
        commands.result.exitStatus = 1;
    }
    CtlDoors Doors() {
        return {.root = root.path(),
                .user = user,
                .commands = commands,
                .terminal = terminal,
                .out = out,
                .messages = messages,
                .makeBridge = [this] { return std::make_unique<LentBridge>(bridge); },
                .programFolder = root / "program"};
    }
    int Run(StatusFormat format, const std::string& file = {}) {
        const CtlDoors doors = Doors();
        return StatusCommand(doors, format, file).Run();
    }
    std::string FailureOf(StatusFormat format, const std::string& file = {}) {
        try {
            Run(format, file);
        } catch (const CtlError& failure) {
            EXPECT_THAT(failure.what(), Not(HasSubstr("secret")));
            EXPECT_THAT(failure.what(), Not(HasSubstr("\n")));
            return failure.what();
        }
        ADD_FAILURE() << "did not fail";
        return {};
    }

    static constexpr const char* kDrive =
        R"({"Id":"0","Model":"M","CapacityGB":600,"CapacityMiB":572325,"BlockSizeBytes":512,)"
        R"("CapacityLogicalBlocks":1172123568,"SerialNumber":"D1","Location":"1I:3:1","MediaType":"HDD",)"
        R"("Status":{"Health":"Critical","State":"Enabled"},"DiskDriveStatusReasons":["Failed"],)"
        R"("FirmwareVersion":{"Current":{"VersionString":"HPD1"}}})";
    static inline const std::string kArrays = "/redfish/v1/Systems/1/SmartStorage/ArrayControllers/";

    // Tells commands apart by a word in them.
    class Commands : public FakeCommands {
    public:
        std::map<std::string, tovaserverutil::CommandResult> answers;
        tovaserverutil::CommandResult Capture(const std::string& command,
                                              std::chrono::milliseconds limit) override {
            const auto usual = FakeCommands::Capture(command, limit);
            for (const auto& [word, answer] : answers) {
                if (command.find(word) != std::string::npos) {
                    return answer;
                }
            }
            return usual;
        }
    };

    FakeProc proc;
    TestRoot& root = proc.root;
    Commands commands;
    NoTerminal terminal;
    FakeBridge bridge;
    std::ostringstream out;
    std::ostringstream messages;
    uid_t user = 0;
};

TEST_F(StatusCommandTest, Table_ShowsTheDriveAndEndsTheSession) {
    EXPECT_EQ(Run(StatusFormat::kTable), kDone);
    EXPECT_THAT(out.str(), HasSubstr("iLO 5 v2.72 at https://ilo, connection not verified\n"));
    EXPECT_THAT(out.str(), HasSubstr(" 9 resources\n"));
    EXPECT_THAT(out.str(), HasSubstr("1I:3:1  M      D1      600 GB HDD  Critical  -     failed"));
    EXPECT_THAT(out.str(), HasSubstr("A drive has failed: PD(1I:3:1)\n"));
    EXPECT_EQ(bridge.fetched.size(), 9U);
    EXPECT_EQ(bridge.sessionHost, "");
    EXPECT_EQ(messages.str(), "");
}

TEST_F(StatusCommandTest, VerifiedConnection_IsSaid) {
    bridge.verified = true;
    EXPECT_EQ(Run(StatusFormat::kPrometheus), kDone);
    EXPECT_THAT(out.str(), HasSubstr("\nbayward_connection_verified 1\n"));
}

TEST_F(StatusCommandTest, Prometheus_TellsWhetherTheServiceRuns) {
    Run(StatusFormat::kPrometheus);
    EXPECT_THAT(out.str(), HasSubstr("\nbayward_service_up 0\n"));
    bridge.failures["init"] = "etc error";
    FailureOf(StatusFormat::kPrometheus);
    EXPECT_THAT(out.str(), HasSubstr("\nbayward_service_up 0\n"));
}

TEST_F(StatusCommandTest, Nagios_EndsWithTheStateOfTheServer) {
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosCritical);
    EXPECT_THAT(out.str(), HasSubstr("; Array [Slot 0] drive 1I:3:1 failed ("));
}

TEST_F(StatusCommandTest, Nagios_EndsWithTheHealthOfTheService) {
    std::string good = kDrive;
    good.replace(good.find("Critical"), 8, "OK");
    bridge.resources["/d/"] = good.replace(good.find("[\"Failed\"]"), 10, "[\"None\"]");
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosCritical);
    EXPECT_THAT(out.str(), StartsWith("BAYWARD CRITICAL - The service is not running; "));

    proc.Add(41, root / "program/bayward", 100, {"OS log", "Serial log", "Media Error"});
    out.str("");
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosOk);
    EXPECT_THAT(out.str(), StartsWith("BAYWARD OK - 1 drive, 0 logical drives, all well | "));
    EXPECT_THAT(out.str(), HasSubstr(" threads=3;;;0 descriptors=4;;;0 "));

    std::filesystem::remove_all(root / "proc/41/task/42");
    out.str("");
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosCritical);
    EXPECT_THAT(out.str(), StartsWith("BAYWARD CRITICAL - The thread \"Serial log\" has ended"));
}

TEST_F(StatusCommandTest, NagiosFailure_EndsWithTheWorst) {
    bridge.failures["init"] = "etc error";
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosCritical);
    proc.Add(41, root / "program/bayward", 100, {"OS log", "Serial log", "Media Error"});
    out.str("");
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosUnknown);
    EXPECT_THAT(out.str(),
                StartsWith("BAYWARD UNKNOWN - The controller at https://ilo could not be asked (etc "));
    EXPECT_THAT(out.str(), HasSubstr(" | threads=3;;;0 "));
}

TEST_F(StatusCommandTest, File_GetsTheResultInsteadOfStandardOutput) {
    const std::string file = root / "status.html";
    root.Write("status.html", "old");
    EXPECT_EQ(Run(StatusFormat::kHtml, file), kDone);
    EXPECT_EQ(out.str(), "");
    EXPECT_THAT(root.Read("status.html"), StartsWith("<!DOCTYPE html>"));
}

TEST_F(StatusCommandTest, AnyoneButRoot_Fails) {
    user = 1000;
    EXPECT_EQ(FailureOf(StatusFormat::kTable), "\"baywardctl status\" needs root; run it with sudo.");
    EXPECT_THAT(bridge.calls, IsEmpty());
    EXPECT_EQ(Run(StatusFormat::kNagios), kNagiosUnknown);
    EXPECT_EQ(out.str(), "BAYWARD UNKNOWN - \"baywardctl status\" needs root; run it with sudo.\n");
}

TEST_F(StatusCommandTest, WithoutConfiguration_Fails) {
    std::filesystem::remove(root / "etc/opt/tarn/bayward/bayward.conf");
    EXPECT_THAT(FailureOf(StatusFormat::kJson),
                HasSubstr("cannot be read; without it no controller is known"));
    EXPECT_EQ(out.str(), "");
}

TEST_F(StatusCommandTest, WithoutCatalogue_Fails) {
    std::filesystem::remove(root / "program/bayward.msg");
    EXPECT_THAT(FailureOf(StatusFormat::kJson), HasSubstr("The message catalogue "));
}

TEST_F(StatusCommandTest, WithoutAccount_Fails) {
    std::filesystem::remove_all(root / "etc");
    root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\nurl=https://ilo\n");
    EXPECT_THAT(FailureOf(StatusFormat::kTable), StartsWith("No account is registered; "));
}

TEST_F(StatusCommandTest, RefusedAccount_IsToldApart) {
    bridge.failures["init"] = "result=value=InvalidCredentialsError, SecurityStateError, HpIloInitialError";
    EXPECT_THAT(FailureOf(StatusFormat::kTable),
                StartsWith("The controller at https://ilo refused the account"));
    bridge.failures["init"] = "etc error";
    EXPECT_THAT(FailureOf(StatusFormat::kTable),
                StartsWith("The controller at https://ilo could not be asked (etc error); "));
    bridge.reason = "ilo: No route to \x1Bhost.";
    EXPECT_THAT(FailureOf(StatusFormat::kTable),
                StartsWith("The controller at https://ilo could not be asked (ilo: No route to ?host); "));
}

TEST_F(StatusCommandTest, FailureInTheMiddle_EndsTheSession) {
    bridge.failures["/d/"] = "get failed";
    EXPECT_THAT(FailureOf(StatusFormat::kTable), HasSubstr("readDiskDrive failed.get failed"));
    EXPECT_EQ(bridge.sessionHost, "");
    EXPECT_EQ(out.str(), "");
}

TEST_F(StatusCommandTest, Prometheus_WritesAFailure) {
    bridge.failures["init"] = "etc error";
    FailureOf(StatusFormat::kPrometheus);
    EXPECT_THAT(out.str(), HasSubstr("\nbayward_up 0\n"));
    const std::string file = root / "bayward.prom";
    FailureOf(StatusFormat::kPrometheus, file);
    EXPECT_THAT(root.Read("bayward.prom"), HasSubstr("\nbayward_up 0\n"));
}

TEST_F(StatusCommandTest, FailureInOtherFormats_LeavesTheFile) {
    bridge.failures["init"] = "etc error";
    root.Write("status.json", "old");
    FailureOf(StatusFormat::kJson, root / "status.json");
    EXPECT_EQ(root.Read("status.json"), "old");
}

TEST_F(StatusCommandTest, Signal_EndsTheReadAndTheSession) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        bridge.fetched.clear();
        bridge.onFetch = [&](const std::string& path) {
            if (path == "/a/") {
                raise(signal);
            }
        };
        EXPECT_EQ(Run(StatusFormat::kTable), 128 + signal);
        EXPECT_EQ(bridge.fetched.back(), "/a/");
        EXPECT_EQ(bridge.sessionHost, "");
        EXPECT_EQ(out.str(), "");
        EXPECT_THAT(messages.str(), HasSubstr("Stopped before the controller was read"));
    }
}

TEST_F(StatusCommandTest, SignalDuringARequestThatFails_IsNoFailureOfTheController) {
    bridge.failures["/a/"] = "timed out";
    bridge.onFetch = [](const std::string& path) {
        if (path == "/a/") {
            raise(SIGTERM);
        }
    };
    for (const StatusFormat format :
         {StatusFormat::kTable, StatusFormat::kNagios, StatusFormat::kPrometheus}) {
        messages.str("");
        EXPECT_EQ(Run(format), 128 + SIGTERM);
        EXPECT_EQ(messages.str(), "baywardctl: Stopped before the controller was read.\n");
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(bridge.sessionHost, "");
    }
}

TEST_F(StatusCommandTest, SignalAtTheLastRequest_ComesTooLateToStopIt) {
    bridge.onFetch = [](const std::string& path) {
        if (path == "/d/") {
            raise(SIGTERM);
        }
    };
    EXPECT_EQ(Run(StatusFormat::kTable), kDone);
    EXPECT_THAT(out.str(), HasSubstr("1I:3:1"));
    EXPECT_EQ(bridge.sessionHost, "");
}

TEST_F(StatusCommandTest, RequestThatHangsForGood_EndsTheProcessAtTheLimit) {
    bridge.onFetch = [](const std::string& path) {
        if (path == "/a/") {
            raise(SIGTERM);
            pause();
        }
    };
    CtlDoors doors = Doors();
    const CtlDoors ends{.root = doors.root,
                        .user = doors.user,
                        .commands = doors.commands,
                        .terminal = doors.terminal,
                        .out = doors.out,
                        .messages = std::cerr,
                        .makeBridge = doors.makeBridge,
                        .programFolder = doors.programFolder,
                        .progress = STDERR_FILENO};
    RequestCutter::Limits limits;
    limits.all = std::chrono::milliseconds(50);
    EXPECT_EXIT(StatusCommand(ends, StatusFormat::kTable, {}, limits).Run(),
                testing::ExitedWithCode(128 + SIGTERM),
                "resources\r +\rbaywardctl: Stopped before the controller was read; it does not answer, so a "
                "session may "
                "stay there until it expires\\.\n$");
}

// A reader of the results who takes longer than the limit of the read.
class SlowReader : public std::stringbuf {
protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        if (!m_waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
            m_waited = true;
        }
        return std::stringbuf::xsputn(text, size);
    }

private:
    bool m_waited = false;
};

TEST_F(StatusCommandTest, LimitOfAStoppedRead_SparesTheResultsOfACompleteOne) {
    bridge.onFetch = [](const std::string& path) {
        if (path == "/d/") {
            raise(SIGTERM);
        }
    };
    SlowReader reader;
    std::ostream slow(&reader);
    const CtlDoors doors = Doors();
    const CtlDoors behind{.root = doors.root,
                          .user = doors.user,
                          .commands = doors.commands,
                          .terminal = doors.terminal,
                          .out = slow,
                          .messages = std::cerr,
                          .makeBridge = doors.makeBridge,
                          .programFolder = doors.programFolder};
    RequestCutter::Limits limits;
    limits.all = std::chrono::milliseconds(1000);
    const auto runs = [&] {
        const int status = StatusCommand(behind, StatusFormat::kTable, {}, limits).Run();
        _exit(reader.str().find("1I:3:1") == std::string::npos ? kFailed : status);
    };
    EXPECT_EXIT(runs(), testing::ExitedWithCode(kDone), "^$");
}

// ---- Signals ----

constexpr std::chrono::milliseconds kNever = std::chrono::hours(1);
constexpr RequestCutter::Limits kNoLimits{kNever, kNever, kNever};

TEST(SignalStopTest, IgnoredSignal_StaysIgnored) {
    struct sigaction ignore {
    }, before{};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGHUP, &ignore, &before);
    {
        SignalStop stop({}, [](int) { FAIL() << "nothing was to stop"; });
        raise(SIGHUP);
        EXPECT_EQ(stop.signal(), 0);
        EXPECT_FALSE(stop.wait().IsRequested());
    }
    sigaction(SIGHUP, &before, nullptr);
}

TEST(SignalStopTest, Dispositions_AreAsBeforeAfterwards) {
    {
        SignalStop stop(kNoLimits, [](int) {});
        raise(SIGTERM);
        EXPECT_EQ(stop.signal(), SIGTERM);
        EXPECT_TRUE(stop.wait().IsRequested());
        for (const int second : {SIGINT, SIGTERM, SIGHUP}) {  // ends the process
            struct sigaction now {};
            sigaction(second, nullptr, &now);
            EXPECT_EQ(now.sa_handler, SIG_DFL) << second;
        }
    }
    struct sigaction now {};
    sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
}

// ---- Progress ----

TEST(ProgressTest, Line_IsRewrittenAndCleared) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const tovaserverutil::FileDescriptor reader(ends[0]);
    const tovaserverutil::FileDescriptor writer(ends[1]);
    {
        Progress progress(writer.get());
        progress.Show(9);
        progress.Show(10);
    }
    char buffer[512] = {};
    ASSERT_GT(read(reader.get(), buffer, sizeof buffer - 1), 0);
    const std::string blanks(36, ' ');
    EXPECT_EQ(
        std::string(buffer),
        "\rReading the controller: 9 resources\rReading the controller: 10 resources\r" + blanks + "\r");
}

TEST(ProgressTest, NoTerminal_NothingIsShown) {
    Progress progress(-1);
    progress.Show(1);
}

// ---- Files ----

TEST(ReplaceFileTest, Content_IsReplacedWithReadableMode) {
    const TestRoot folder;
    folder.Write("file", "old");
    ASSERT_EQ(chmod((folder / "file").c_str(), 0600), 0);
    ReplaceFile(folder / "file", "new");
    EXPECT_EQ(folder.Read("file"), "new");
    struct stat status {};
    ASSERT_EQ(stat((folder / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    const std::filesystem::directory_iterator files(folder.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST(ReplaceFileTest, WhatIsNoRegularFile_Stays) {
    const TestRoot folder;
    std::filesystem::create_directory(folder / "folder");
    std::filesystem::create_symlink("/dev/null", folder / "link");
    for (const char* name : {"folder", "link"}) {
        EXPECT_THROW(ReplaceFile(folder / name, "new"), CtlError) << name;
    }
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
}

TEST(ReplaceFileTest, MissingFolder_IsASentence) {
    const TestRoot folder;
    try {
        ReplaceFile(folder / "missing/file", "new");
        FAIL() << "did not fail";
    } catch (const CtlError& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("No such file or directory; make the folder, then try again."));
    }
}

}  // namespace
