#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <sstream>

#include "colour.h"
#include "ctl-error.h"
#include "fake-bridge.h"
#include "fake-commands.h"
#include "fake-proc.h"
#include "health-command.h"
#include "health-process.h"
#include "health-trace.h"
#include "test-root.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

MATCHER_P(Says, text, "") {
    return arg.sentence.find(text) != std::string::npos;
}

constexpr const char* kProgram = "/opt/bin/bayward";

// ---- What the trace log tells ----

std::string At(int minute, const std::string& text) {
    char stamp[40];
    std::snprintf(stamp, sizeof stamp, "2026/01/31 12:%02d:00.123 ", minute);
    return stamp + text + "\n";
}

// A line of so many seconds ago.
std::string Ago(std::time_t seconds, const std::string& text) {
    const std::time_t then = std::time(nullptr) - seconds;
    std::tm local{};
    char stamp[40];
    std::strftime(stamp, sizeof stamp, "%Y/%m/%d %H:%M:%S.123 ", localtime_r(&then, &local));
    return stamp + text + "\n";
}

std::uint64_t Noon(int minute) {
    std::tm time{};
    time.tm_year = 126;
    time.tm_mon = 0;
    time.tm_mday = 31;
    time.tm_hour = 12;
    time.tm_min = minute;
    time.tm_isdst = -1;
    return static_cast<std::uint64_t>(std::mktime(&time));
}

ThreadTrace Tell(const std::string& lines, const std::string& thread = "OS log") {
    std::istringstream in(lines);
    TraceReading reading;
    reading.Read(in);
    return reading.Of(thread);
}

TEST(HealthTrace, NoLines_TellNothing) {
    const ThreadTrace trace = Tell("");
    EXPECT_EQ(trace.lastAt, 0U);
    EXPECT_EQ(trace.outcome, "");
    EXPECT_FALSE(trace.failing);
}

TEST(HealthTrace, FailedLogIn_IsFailingWithTheReasonBeforeIt) {
    const ThreadTrace trace = Tell(At(1, "<VK0950> [TR] Initializing RaidManager succeed.") +
                                   At(2, "<VK0888> [TR] The log-in took too long.") +
                                   At(3, "<VK0956> [ER] Failed to initialize RaidManager."));
    EXPECT_TRUE(trace.failing);
    EXPECT_EQ(trace.outcome, "Failed to initialize RaidManager. (The log-in took too long.)");
    EXPECT_EQ(trace.outcomeAt, Noon(3));
    EXPECT_EQ(trace.lastAt, Noon(3));
}

TEST(HealthTrace, LogInAfterAFailure_IsNoLongerFailing) {
    const ThreadTrace trace = Tell(
        At(1, "<VK0888> [TR] Refused.") + At(1, "<VK0954> [ER] Login to iLO was failed. Please") +
        At(2, "<VK0950> [TR] Initializing RaidManager succeed.") + At(9, "<VK0999> [TR] ilorest-reader 1 x"));
    EXPECT_FALSE(trace.failing);
    EXPECT_EQ(trace.outcome, "Initializing RaidManager succeed.");
    EXPECT_EQ(trace.outcomeAt, Noon(2));
    EXPECT_EQ(trace.lastAt, Noon(9)) << "reading the controller is activity";
}

TEST(HealthTrace, EveryKindOfFailure_IsSeen) {
    for (const char* line :
         {"<VK0910> [ER] Login", "<VK0911> [ER] Failed", "<VK0912> [ER] Failed", "<VK0913> [ER] Failed",
          "<VK0914> [ER] Login", "<VK0954> [ER] Login", "<VK0956> [ER] Failed",
          "<VK0900> [ER] Failed to build RAID information. : retry count=0",
          "<VK0900> [TR] Retry accessing vNIC.", "<VK0902> [ER] service 1450 (Err: Bad Alloc)"}) {
        EXPECT_TRUE(Tell(At(1, "<VK0900> [TR] Start to monitor.") + At(2, line)).failing) << line;
        EXPECT_FALSE(Tell(At(2, line) + At(3, "<VK0900> [TR] Start to monitor.")).failing) << line;
    }
}

TEST(HealthTrace, OtherThreads_AreToldApart) {
    const std::string lines = At(1, "<VK0900> [TR] Start cyclic serial log saving.") +
                              At(2, "<VK0900> [TR] Start cyclic Media Error search.") +
                              At(3, "<VK0902> [ER] media-error 67 (Err: Unknown)");
    EXPECT_EQ(Tell(lines, "Serial log").outcome, "Start cyclic serial log saving.");
    EXPECT_FALSE(Tell(lines, "Serial log").failing);
    EXPECT_TRUE(Tell(lines, "Media Error").failing);
    EXPECT_EQ(Tell(lines).lastAt, 0U);
}

TEST(HealthTrace, LinesOfAnEarlierRun_AreForgotten) {
    const ThreadTrace trace = Tell(At(1, "<VK0956> [ER] Failed to initialize RaidManager.") +
                                   At(2, "<VK0900> [TR] MainRoutine started."));
    EXPECT_EQ(trace.lastAt, 0U);
    EXPECT_FALSE(trace.failing);
}

TEST(HealthTrace, DiagnosticToolThatFails_IsAHintAlone) {
    const ThreadTrace trace = Tell(At(1, "<VK0900> [TR] Start cyclic Media Error search.") +
                                       At(2, "<VK0902> [ER] log-manager 118 (command: ssacli)"),
                                   "Media Error");
    EXPECT_EQ(trace.outcome, "the diagnostic tool fails");
    EXPECT_EQ(trace.outcomeAt, Noon(2));
    EXPECT_FALSE(trace.failing);
    EXPECT_FALSE(trace.works);
}

constexpr const char* kSaves = "<VK0900> [TR] Start cyclic serial log saving.";

TEST(HealthTrace, ArchiveThatCannotBeSaved_IsAHintUntilTheNextCycleIsOver) {
    ThreadTrace trace =
        Tell(At(1, kSaves) + At(2, "<VK0902> [ER] log-manager 98 (command: /opt/ssacli ctrl all diag)"),
             "Serial log");
    EXPECT_EQ(trace.outcome, "the diagnostic archive could not be saved");
    EXPECT_FALSE(trace.failing);
    EXPECT_FALSE(trace.began);
    constexpr std::uint64_t kCycle = 7200;
    constexpr std::uint64_t kToolTime = 3600;
    ForgetWhatIsOver(trace, Noon(2) + kCycle + kToolTime, kCycle);
    EXPECT_EQ(trace.outcome, "the diagnostic archive could not be saved");
    ForgetWhatIsOver(trace, Noon(2) + kCycle + kToolTime + 1, kCycle);
    EXPECT_EQ(trace.outcome, "");
    EXPECT_EQ(trace.lastAt, Noon(2));
}

TEST(HealthTrace, ArchivesThatCannotBePruned_AreAFailureUntilTheNextCycleIsOver) {
    for (const char* line : {"237 (Err: 1)", "324 (Err: 5)", "333 (Err: 5)", "340", "346 (Err: 2)", "215"}) {
        ThreadTrace trace = Tell(At(1, kSaves) + At(2, "<VK0902> [ER] log-manager 98 (command: x)") +
                                     At(2, std::string("<VK0902> [ER] log-manager ") + line),
                                 "Serial log");
        EXPECT_TRUE(trace.failing) << line;
        EXPECT_NE(trace.outcome, "") << line;
        ForgetWhatIsOver(trace, Noon(59) + 86400, 7200);
        EXPECT_FALSE(trace.failing) << line;
    }
}

TEST(HealthTrace, EndOfAThread_IsNeverOver) {
    ThreadTrace trace =
        Tell(At(1, kSaves) + At(2, "<VK0902> [ER] service 1540 (Err: Unknown)"), "Serial log");
    ForgetWhatIsOver(trace, Noon(2) + 1000000, 3600);
    EXPECT_TRUE(trace.failing);
}

constexpr const char* kCreated = "<VK0900> [TR] Create thread for OS log.";
constexpr const char* kMonitors = "<VK0900> [TR] Start to monitor.";
constexpr const char* kSmartDrive = "<VK0999> [TR] ilorest-reader 133 ssdEnduranceUtilizationPercentage=0";
constexpr const char* kRedfishDrive = "<VK0999> [TR] ilorest-reader 113 statusReasons=None, State=Enabled";

TEST(HealthTrace, ThreadThatTellsOfDrives_OwesALineFromThenOn) {
    for (const char* drive : {kSmartDrive, kRedfishDrive}) {
        EXPECT_TRUE(Tell(At(1, kCreated) + At(2, drive)).owesLine) << drive;
        EXPECT_TRUE(Tell(At(1, kCreated) + At(2, drive) + At(3, kMonitors)).owesLine) << drive;
    }
}

TEST(HealthTrace, ThreadThatWasCreated_OwesItsFirstLine) {
    EXPECT_TRUE(Tell(At(1, kCreated)).owesLine);
    const std::string created = At(1, "<VK0900> [TR] Create thread for Serial log.");
    EXPECT_TRUE(Tell(created, "Serial log").owesLine);
    EXPECT_FALSE(Tell(created + At(1, kSaves), "Serial log").owesLine);
    EXPECT_FALSE(Tell(At(1, kSaves) + created, "Serial log").owesLine) << "whichever was faster";
}

TEST(HealthTrace, ServerWithoutDrives_OwesNoLine) {
    EXPECT_FALSE(Tell(At(1, kCreated) + At(2, "<VK0999> [TR] ilorest-reader 122 mVersion=iLO 5 v2.72") +
                      At(3, kMonitors))
                     .owesLine);
}

TEST(HealthTrace, LinesThatAreNone_ArePassedOver) {
    for (const char* line : {"\n", "x\n", "2026/01/31 12:01:00.123\n", "2026/13/31 12:01:00.123 <VK0956> x\n",
                             "<VK0956> [ER] Failed, without a stamp and long enough\n",
                             "2026/01/31 12:01:00.1234<VK0956> [ER] x\n"}) {
        EXPECT_EQ(Tell(line).lastAt, 0U) << line;
    }
    EXPECT_EQ(Tell(At(1, "<VK0956> [ER] a\x1B[2J\xFF")).outcome, "a?[2J?");
}

// ---- What the system shows ----

std::uint64_t Ticks(std::uint64_t seconds) {
    return seconds * static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
}

TEST(HealthProcess, Service_IsFoundWithWhatItUses) {
    FakeProc proc;
    proc.Add(7, "/usr/bin/other", 1);
    proc.Add(41, kProgram, static_cast<long>(Ticks(4000)), {"bayward", "Signals", "OS log"});
    const auto found = FindService(proc.root.path(), kProgram).instances;
    ASSERT_EQ(found.size(), 1U);
    const ServiceProcess* const service = &found.front();
    EXPECT_EQ(service->pid, 41);
    EXPECT_EQ(service->ageSeconds, 1000U);
    EXPECT_FALSE(service->replaced);
    EXPECT_THAT(service->threads, ElementsAre("OS log", "Signals", "bayward"));
    EXPECT_EQ(service->descriptors, 4U);
    EXPECT_EQ(service->mostDescriptors, 1024U);
    EXPECT_EQ(service->connections, 1U) << "established ones, of its own";
    EXPECT_EQ(service->residentBytes, 256U * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
}

TEST(HealthProcess, ToolThatIsAboutToStart_IsNotTakenForTheService) {
    FakeProc proc;
    proc.Add(41, kProgram, 100);
    proc.parent = 41;
    proc.Add(40, kProgram, 900);
    const auto found = FindService(proc.root.path(), kProgram).instances;
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front().pid, 41);
}

TEST(HealthProcess, ReplacedExecutable_IsStillTheService) {
    FakeProc proc;
    proc.Add(41, std::string(kProgram) + " (deleted)", 100);
    EXPECT_TRUE(FindService(proc.root.path(), kProgram).instances.at(0).replaced);
}

TEST(HealthProcess, NoProcessOfTheExecutable_IsNone) {
    FakeProc proc;
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
    proc.Add(41, "/opt/bin/baywardctl", 100);
    proc.root.Write("proc/net/exe", "");
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
    EXPECT_FALSE(FindService(proc.root.path(), kProgram).hidden);
    EXPECT_THAT(FindService("/nowhere", kProgram).instances, IsEmpty());
    EXPECT_TRUE(FindService("/nowhere", kProgram).hidden) << "nothing is shown there";
    std::filesystem::remove_all(proc.root / "proc/1");
    EXPECT_TRUE(FindService(proc.root.path(), kProgram).hidden) << "not even the first process is shown";
    proc.Add(42, kProgram, 100);
    EXPECT_FALSE(FindService(proc.root.path(), kProgram).hidden);
}

TEST(HealthProcess, ProcessOfAnotherUser_IsNoneThoughItsFolderIsOurs) {
    FakeProc proc;
    proc.user = geteuid() + 1;
    proc.Add(41, kProgram, 100);
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
    for (const uid_t trusted : {uid_t{0}, geteuid()}) {
        FakeProc other;
        other.user = trusted;
        other.Add(41, kProgram, 100);
        EXPECT_EQ(FindService(other.root.path(), kProgram).instances.size(), 1U);
    }
}

TEST(HealthProcess, ProcessWhoseUserIsNotTold_IsNone) {
    FakeProc proc;
    proc.Add(41, kProgram, 100);
    proc.root.Write("proc/41/status", "Name:\tbayward\nUid:\t0\n");
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
    std::filesystem::remove(proc.root / "proc/41/status");
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
}

TEST(HealthProcess, ProcessOfAnotherRootFolder_IsNone) {
    FakeProc proc;
    std::filesystem::create_directory(proc.root / "container");
    proc.rootFolder = "container";
    proc.Add(41, kProgram, 100);
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
    proc.rootFolder = "gone";
    proc.Add(42, kProgram, 100);
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
}

TEST(HealthProcess, ProcessThatEndsMeanwhile_IsNone) {
    FakeProc proc;
    proc.Add(41, kProgram, 100);
    std::filesystem::remove(proc.root / "proc/41/stat");
    EXPECT_THAT(FindService(proc.root.path(), kProgram).instances, IsEmpty());
}

TEST(HealthProcess, ProcessThatMayNotBeLookedAt_LeavesItOpen) {
    FakeProc proc;
    std::filesystem::permissions(proc.root.path(), std::filesystem::perms(0755));
    proc.Add(41, kProgram, 100);
    std::filesystem::permissions(proc.root / "proc/41", std::filesystem::perms::none);
    const uid_t user = geteuid();
    constexpr uid_t kNobody = 65534;
    ASSERT_TRUE(user != 0 || seteuid(kNobody) == 0);
    const ServiceSearch search = FindService(proc.root.path(), kProgram);
    ASSERT_EQ(seteuid(user), 0);
    std::filesystem::permissions(proc.root / "proc/41", std::filesystem::perms(0700));
    EXPECT_THAT(search.instances, IsEmpty());
    EXPECT_TRUE(search.hidden);
}

TEST(HealthProcess, UnlimitedDescriptors_AreNoLimit) {
    FakeProc proc;
    proc.limit = "unlimited";
    proc.Add(41, kProgram, 100);
    EXPECT_EQ(FindService(proc.root.path(), kProgram).instances.at(0).mostDescriptors, 0U);
}

// ---- What it comes to ----

HealthReport Well() {
    HealthReport report;
    report.running = true;
    report.readAt = 1769860800;
    report.pid = 41;
    report.startedAt = report.readAt - 7500;
    report.descriptors = 14;
    report.mostDescriptors = 1024;
    report.connections = 1;
    report.residentBytes = 30 * 1024 * 1024;
    report.threads = {{"OS log",
                       true,
                       true,
                       {report.readAt - 12, "Start to monitor.", report.readAt - 7400, false, false, true}},
                      {"Serial log", true, true, {}},
                      {"Media Error", false, false, {}}};
    return report;
}

TEST(HealthReport, AllWell_HasNoProblems) {
    EXPECT_THAT(HealthProblems(Well()), IsEmpty());
    EXPECT_EQ(HealthLevelOf(Well()), HealthLevel::kWell);
}

TEST(HealthReport, NotRunning_IsDown) {
    EXPECT_EQ(HealthLevelOf(HealthReport{}), HealthLevel::kDown);
    EXPECT_THAT(HealthProblems(HealthReport{}), ElementsAre(Says("not running")));
}

TEST(HealthReport, HiddenService_IsUnknownEverywhere) {
    HealthReport report;
    report.unknown = "Whether the service runs cannot be found out: hidden.";
    EXPECT_EQ(HealthLevelOf(report), HealthLevel::kUnknown);
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("cannot be found out")));
    EXPECT_THAT(RenderHealthPrometheus(report), Not(HasSubstr("bayward_service_up")));
    EXPECT_THAT(RenderHealthPrometheus(report), testing::StartsWith("# Whether the service runs cannot"));
    EXPECT_THAT(RenderHealthJson(report), HasSubstr("\"running\":null"));
    EXPECT_THAT(RenderHealthNagios(report), testing::StartsWith("BAYWARD SERVICE UNKNOWN - Whether the"));
}

TEST(HealthReport, EachThingThatIsOff_IsAProblem) {
    HealthReport report = Well();
    report.threads[1].lives = false;
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("\"Serial log\" has ended")));
    EXPECT_EQ(HealthLevelOf(report), HealthLevel::kDown) << "nobody does its work";
    report.replaced = true;
    EXPECT_EQ(HealthLevelOf(report), HealthLevel::kDown) << "the worst counts";

    report = Well();
    report.threads[0].trace.failing = true;
    report.threads[0].trace.outcome = "Failed (no route)";
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("\"OS log\" fails since 2 h: Failed (no route)")));
    EXPECT_EQ(HealthLevelOf(report), HealthLevel::kOff);

    report = Well();
    report.descriptors = 820;
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("820 of 1024 descriptors")));
    report.descriptors = 819;
    EXPECT_THAT(HealthProblems(report), IsEmpty());

    report = Well();
    report.replaced = true;
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("replaced")));
}

TEST(HealthReport, ThreadThatIsSilentForTooLong_IsAProblem) {
    constexpr std::uint64_t kLongest = 3 * 60 * 60;
    HealthReport report = Well();
    ThreadTrace& trace = report.threads[0].trace;
    trace.lastAt = report.readAt - kLongest - 1;
    EXPECT_THAT(HealthProblems(report), IsEmpty()) << "it owes no line";
    trace.owesLine = true;
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("\"OS log\" is silent since 3 h; ")));
    EXPECT_EQ(HealthLevelOf(report), HealthLevel::kOff);
    EXPECT_THAT(RenderHealthJson(report), HasSubstr("\"silent\":true"));
    EXPECT_THAT(RenderHealthPrometheus(report),
                HasSubstr("\nbayward_service_thread_silent{thread=\"OS log\"} 1\n"));
    trace.lastAt = report.readAt - kLongest;
    EXPECT_THAT(HealthProblems(report), IsEmpty());
    trace.lastAt = report.readAt + 60;
    EXPECT_THAT(HealthProblems(report), IsEmpty()) << "the clock was set back";
    trace = {report.readAt - 2 * kLongest, "Refused.", report.readAt - 2 * kLongest, true};
    trace.owesLine = true;
    EXPECT_THAT(HealthProblems(report), ElementsAre(Says("fails since 6 h"))) << "told once";
}

TEST(HealthReport, ThreadThatIsNotAskedFor_MayLiveOrNot) {
    HealthReport report = Well();
    report.threads[2].lives = true;
    EXPECT_THAT(HealthProblems(report), IsEmpty());
}

// ---- Renderers ----

TEST(HealthRender, Table_ShowsThreadsAndProblems) {
    HealthReport report = Well();
    EXPECT_EQ(RenderHealthTable(report, Paint(false)),
              "bayward runs as process 41 since 2026-01-31T09:55:00Z (2 h)\n"
              "14 descriptors of 1024, 1 connection to the controller, 30 MiB of memory\n\n"
              "THREAD       STATE  LAST LINE  WHAT IT TELLS\n"
              "OS log       lives  12 s ago   began: Start to monitor. (2 h ago)\n"
              "Serial log   lives  -          -\n"
              "Media Error  off    -          -\n\n"
              "All is well.\n");
    report.threads[1].lives = false;
    EXPECT_THAT(
        RenderHealthTable(report, Paint(true)),
        testing::AllOf(HasSubstr("Serial log   ended"), HasSubstr("\033[31mThe thread \"Serial log\""),
                       Not(HasSubstr("All is well"))));
    EXPECT_EQ(RenderHealthTable(HealthReport{}, Paint(false)),
              "The service is not running; start it with \"systemctl start bayward\".\n");
}

TEST(HealthRender, Json_HasEverything) {
    EXPECT_EQ(
        RenderHealthJson(Well()),
        R"({"version":1,"read_at":"2026-01-31T12:00:00Z","running":true,"pid":41,)"
        R"("stopped":false,"started_at":"2026-01-31T09:55:00Z","uptime_seconds":7500,"executable_replaced":false,)"
        R"("descriptors":14,"descriptor_limit":1024,"connections":1,"resident_bytes":31457280,"threads":[)"
        R"({"name":"OS log","expected":true,"lives":true,"last_line_at":"2026-01-31T11:59:48Z",)"
        R"("silent":false,"failing":false,"outcome":"Start to monitor.","outcome_at":"2026-01-31T09:56:40Z"},)"
        R"({"name":"Serial log","expected":true,"lives":true,"last_line_at":null,"silent":false,"failing":false,)"
        R"("outcome":null,"outcome_at":null},)"
        R"({"name":"Media Error","expected":false,"lives":false,"last_line_at":null,"silent":false,"failing":false,)"
        R"("outcome":null,"outcome_at":null}],"problems":[]})"
        "\n");
    HealthReport gone;
    gone.readAt = 1769860800;
    EXPECT_EQ(RenderHealthJson(gone),
              R"({"version":1,"read_at":"2026-01-31T12:00:00Z","running":false,"problems":[)"
              R"("The service is not running; start it with \"systemctl start bayward\"."]})"
              "\n");
}

TEST(HealthRender, Prometheus_HasASampleForEachThread) {
    const std::string text = RenderHealthPrometheus(Well());
    for (const char* sample :
         {"bayward_service_up 1\n", "bayward_service_thread_up{thread=\"OS log\"} 1\n",
          "bayward_service_thread_up{thread=\"Media Error\"} 0\n",
          "bayward_service_thread_expected{thread=\"Media Error\"} 0\n",
          "bayward_service_thread_failing{thread=\"OS log\"} 0\n",
          "bayward_service_thread_silent{thread=\"OS log\"} 0\n",
          "bayward_service_thread_last_line_timestamp_seconds{thread=\"OS log\"} 1769860788\n",
          "bayward_service_start_time_seconds 1769853300\n", "bayward_service_open_fds 14\n",
          "bayward_service_max_fds 1024\n", "bayward_service_controller_connections 1\n",
          "bayward_service_resident_memory_bytes 31457280\n"}) {
        EXPECT_THAT(text, HasSubstr(std::string("\n") + sample));
    }
    EXPECT_THAT(text, Not(HasSubstr("timestamp_seconds{thread=\"Serial log\"}")));
    EXPECT_THAT(RenderHealthPrometheus(HealthReport{}), testing::EndsWith("\nbayward_service_up 0\n"));
}

TEST(HealthRender, Nagios_IsOneLine) {
    EXPECT_EQ(RenderHealthNagios(Well()),
              "BAYWARD SERVICE OK - running for 2 h, 2 threads | threads=2;;;0 descriptors=14;;;0 "
              "connections=1;;;0 "
              "memory=31457280B;;;0 uptime=7500s;;;0\n");
    HealthReport report = Well();
    report.threads[0].trace.failing = true;
    report.threads[0].trace.outcome = "a|b";
    EXPECT_THAT(
        RenderHealthNagios(report),
        testing::AllOf(testing::StartsWith("BAYWARD SERVICE WARNING - The thread"), HasSubstr("a/b |")));
    EXPECT_THAT(RenderHealthNagios(HealthReport{}), testing::StartsWith("BAYWARD SERVICE CRITICAL - "));
}

// ---- The command ----

class HealthCommandTest : public testing::Test {
protected:
    int Run(HealthFormat format = HealthFormat::kJson, const std::string& file = {}) {
        out.str("");
        const CtlDoors doors{.root = proc.root.path(),
                             .user = user,
                             .commands = commands,
                             .terminal = terminal,
                             .out = out,
                             .messages = out,
                             .makeBridge = {},
                             .programFolder = "/opt/bin"};
        return HealthCommand(doors, format, file).Run();
    }
    void Configure(const std::string& text) { proc.root.Write("etc/opt/tarn/bayward/bayward.conf", text); }
    void Start(const std::vector<std::string>& threads) { proc.Add(41, kProgram, 100, threads); }

    FakeProc proc;
    FakeCommands commands;
    RealTerminal terminal;
    std::ostringstream out;
    uid_t user = 0;
};

TEST_F(HealthCommandTest, NotRunning_IsTwo) {
    EXPECT_EQ(Run(), 2);
    EXPECT_THAT(out.str(), HasSubstr("\"running\":false"));
}

TEST_F(HealthCommandTest, AllThreads_IsZero) {
    Start({"bayward", "Signals", "OS log", "Serial log", "Media Error"});
    EXPECT_EQ(Run(), 0) << out.str();
}

TEST_F(HealthCommandTest, MediaErrorThread_IsExpectedUnlessSwitchedOff) {
    Start({"OS log", "Serial log"});
    EXPECT_EQ(Run(), 2);
    EXPECT_THAT(out.str(), HasSubstr("\\\"Media Error\\\" has ended"));
    Configure("[media error]\ncheck=false\n");
    EXPECT_EQ(Run(), 0) << out.str();
    Configure("[media error]\ncheck=no\n");
    EXPECT_EQ(Run(), 2);
}

TEST_F(HealthCommandTest, TraceLogs_AreReadBackupFirst) {
    Start({"OS log", "Serial log", "Media Error"});
    proc.root.Write("var/log/bayward/bayward.log.bak",
                    Ago(60, "<VK0956> [ER] Failed to initialize RaidManager."));
    EXPECT_EQ(Run(), 1);
    proc.root.Write("var/log/bayward/bayward.log",
                    Ago(30, "<VK0950> [TR] Initializing RaidManager succeed."));
    EXPECT_EQ(Run(), 0) << out.str();
}

TEST_F(HealthCommandTest, TwoInstances_AreToldAndTheWorseIsJudged) {
    Configure("[media error]\ncheck=false\n");
    Start({"OS log", "Serial log"});
    proc.Add(57, kProgram, 300, {"OS log", "Serial log"});
    EXPECT_EQ(Run(HealthFormat::kNagios), 1);
    EXPECT_THAT(out.str(), HasSubstr("The service runs more than once (process 41 and 57)"));
    proc.Add(58, kProgram, 400, {"Serial log"});
    EXPECT_EQ(Run(HealthFormat::kNagios), 2);
    EXPECT_THAT(out.str(), HasSubstr("(process 58 and 41, 57)"));
    EXPECT_THAT(out.str(), HasSubstr("\"OS log\" has ended"));
}

TEST_F(HealthCommandTest, StoppedProcess_IsDown) {
    proc.state = "T";
    Start({"OS log", "Serial log", "Media Error"});
    EXPECT_EQ(Run(HealthFormat::kNagios), 2);
    EXPECT_THAT(out.str(), testing::StartsWith("BAYWARD SERVICE CRITICAL - The service is stopped"));
    EXPECT_EQ(Run(HealthFormat::kPrometheus), 2);
    EXPECT_THAT(out.str(), HasSubstr("\nbayward_service_up 0\n"));
}

TEST_F(HealthCommandTest, LinesFromBeforeTheStart_AreNotOfThisRun) {
    constexpr std::time_t kAge = 4999;  // of the process, by its ticks and those of the system
    proc.Add(41, kProgram, static_cast<long>(Ticks(1)), {"OS log", "Serial log", "Media Error"});
    proc.root.Write("var/log/bayward/bayward.log",
                    Ago(kAge + 10, "<VK0956> [ER] Failed to initialize RaidManager."));
    EXPECT_EQ(Run(), 0) << out.str();
    proc.root.Write("var/log/bayward/bayward.log",
                    Ago(kAge, "<VK0956> [ER] Failed to initialize RaidManager."));
    EXPECT_EQ(Run(), 1) << out.str();
}

TEST_F(HealthCommandTest, TraceLogThatCannotBeRead_IsAProblem) {
    Start({"OS log", "Serial log", "Media Error"});
    const std::string log = proc.root / "var/log/bayward/bayward.log";
    std::filesystem::remove(log);
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(out.str(), HasSubstr("The trace log /var/log/bayward/bayward.log cannot be read"));
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    EXPECT_EQ(Run(), 1) << "and does not wait for a writer";
    std::filesystem::remove(log);
    std::filesystem::create_directory(log);
    EXPECT_EQ(Run(HealthFormat::kNagios), 1);
    EXPECT_THAT(out.str(), testing::StartsWith("BAYWARD SERVICE WARNING - The trace log "));
}

TEST_F(HealthCommandTest, AnyoneButRoot_CannotFindOut) {
    user = 1000;
    EXPECT_THROW(Run(), std::exception);
    EXPECT_EQ(Run(HealthFormat::kNagios), 3);
    EXPECT_EQ(out.str(), "BAYWARD SERVICE UNKNOWN - \"baywardctl health\" needs root; run it with sudo.\n");
}

TEST_F(HealthCommandTest, AnyoneButRoot_LeavesNoOldResultInTheFile) {
    user = 1000;
    const std::string file = proc.root / "health";
    for (const HealthFormat format : {HealthFormat::kTable, HealthFormat::kJson, HealthFormat::kPrometheus}) {
        proc.root.Write("health", "all well");
        EXPECT_THROW(Run(format, file), CtlError);
        EXPECT_THAT(proc.root.Read("health"),
                    testing::AllOf(HasSubstr("needs root"), Not(HasSubstr("all well"))));
        EXPECT_EQ(out.str(), "");
    }
    proc.root.Write("health", "all well");
    EXPECT_EQ(Run(HealthFormat::kNagios, file), 3);
    EXPECT_THAT(proc.root.Read("health"), testing::StartsWith("BAYWARD SERVICE UNKNOWN - "));
    EXPECT_THROW(Run(HealthFormat::kNagios, proc.root / "nowhere/health"), CtlError);
}

TEST_F(HealthCommandTest, FailedSavingOfAnArchive_IsForgottenAfterTheConfiguredCycle) {
    Configure("[serial log]\ninterval=60\n[media error]\ncheck=false\n");
    proc.Add(41, kProgram, static_cast<long>(Ticks(1)), {"OS log", "Serial log"});
    constexpr std::time_t kCycle = 3600;
    proc.root.Write("proc/uptime", "100000.25 9000.00\n");
    const std::string line = "<VK0902> [ER] log-manager 346 (Err: 2)";
    proc.root.Write("var/log/bayward/bayward.log", Ago(kCycle, line));
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(out.str(), HasSubstr("\\\"Serial log\\\" fails since 60 min: old archives cannot be"));
    proc.root.Write("var/log/bayward/bayward.log", Ago(2 * kCycle + 60, line));
    EXPECT_EQ(Run(), 0) << out.str();
}

TEST_F(HealthCommandTest, Stamps_AreReadInTheTimeZoneOfTheService) {
    Start({"OS log", "Serial log", "Media Error"});
    using namespace std::string_literals;
    proc.root.Write("proc/41/environ", "PATH=/bin\0TZ=UTC0\0LANG=C\0"s);
    setenv("TZ", "UTC0", 1);
    tzset();
    proc.root.Write("var/log/bayward/bayward.log",
                    Ago(30, "<VK0956> [ER] Failed to initialize RaidManager."));
    setenv("TZ", "JST-9", 1);  // in which that was nine hours ago, before the start
    EXPECT_EQ(Run(HealthFormat::kNagios), 1) << out.str();
    unsetenv("TZ");
    tzset();
}

TEST_F(HealthCommandTest, ZoneOfTheService_IsTakenUnlessItNamesAFileByItsPath) {
    Start({"OS log", "Serial log", "Media Error"});
    using namespace std::string_literals;
    for (const auto& [services, taken] : {std::pair("JST-9", "JST-9"), std::pair("Asia/Tokyo", "Asia/Tokyo"),
                                          std::pair(":UTC", "UTC"), std::pair("", ""), std::pair(":", "")}) {
        proc.root.Write("proc/41/environ", "TZ="s + services + '\0');
        Run();
        ASSERT_NE(getenv("TZ"), nullptr) << services;
        EXPECT_STREQ(getenv("TZ"), taken);
    }
    for (const char* const services :
         {"/tmp/zone", ":/tmp/zone", "::UTC", "../../tmp/zone", "Asia/../../../tmp/zone"}) {
        setenv("TZ", "JST-9", 1);
        proc.root.Write("proc/41/environ", "TZ="s + services + '\0');
        Run();
        EXPECT_EQ(getenv("TZ"), nullptr) << services;
    }
    tzset();
}

TEST_F(HealthCommandTest, File_GetsTheResult) {
    EXPECT_EQ(Run(HealthFormat::kPrometheus, proc.root / "health.prom"), 2);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(proc.root.Read("health.prom"), RenderHealthPrometheus(HealthReport{}));
}

}  // namespace
