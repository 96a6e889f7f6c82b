#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "monitor-rig.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* kBreak = "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.";
constexpr const char* kLoginFailed =
    "<VK0910> [ER] Login to iLO was failed. Please input an account of iLO using iLO account registration "
    "tool.";
constexpr const char* kReported = "<VK0465> [EV] 0xc00081d1 reported.";
constexpr std::size_t kNever = 0;

std::string Failed(const std::string& number, const std::string& retry) {
    return "<" + number + " [ER] Failed to initialize RaidManager. : " + retry;
}

TEST(StartUp, ControllerAnswers_LogsInFirstAndBuildsInTheNextPass) {
    MonitorRig rig("max trials=7\ntrial interval=15\nurl=https://ilo\n");
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, ElementsAre(10000U, 10000U));
    EXPECT_THAT(rig.bridge->calls, ElementsAre("init https://ilo user secret 7 15"));
    EXPECT_THAT(rig.Trace(), IsEmpty());
    EXPECT_THAT(rig.sink.entries, IsEmpty());
}

TEST(StartUp, StopInTheFirstWait_EndsWithOneLineAndNoLogIn) {
    MonitorRig rig;
    EXPECT_FALSE(rig.StartUpUntilStop(1));
    EXPECT_THAT(rig.Trace(), ElementsAre(kBreak));
    EXPECT_THAT(rig.bridge->calls, IsEmpty());
}

TEST(StartUp, EveryLogInFails_EndsAfterTwentyPasses) {
    MonitorRig rig;
    rig.FailLogins("controller is down");
    EXPECT_FALSE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(20));
    const auto trace = rig.Trace();
    ASSERT_EQ(trace.size(), 20U);
    for (std::size_t i = 0; i < trace.size(); ++i) {
        EXPECT_EQ(trace[i], Failed("VK0911>", "retry count=" + std::to_string(i)));
    }
    EXPECT_THAT(rig.sink.entries, IsEmpty());
}

TEST(StartUp, FirstCredentialFailure_WritesNothing) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.StartUpUntilStop(2);
    EXPECT_THAT(rig.Trace(), ElementsAre(kBreak));
    EXPECT_THAT(rig.sink.entries, IsEmpty());
    EXPECT_FALSE(rig.manager->getiLOLoginFailed());
}

TEST(StartUp, SecondCredentialFailure_ReportsTheEvent) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(kLoginFailed, kReported, kBreak));
    EXPECT_THAT(rig.sink.entries, ElementsAre("login failed"));
    EXPECT_TRUE(rig.manager->getiLOLoginFailed());
}

TEST(StartUp, SecurityStateError_IsACredentialError) {
    MonitorRig rig;
    rig.FailLogins("SecurityStateError");
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(kLoginFailed, kReported, kBreak));
}

TEST(StartUp, AdministratorText_IsNoCredentialErrorYet) {
    MonitorRig rig;
    rig.FailLogins("root/Administrator");
    rig.StartUpUntilStop(2);
    EXPECT_THAT(rig.Trace(), ElementsAre(Failed("VK0911>", "retry count=0"), kBreak));
}

TEST(StartUp, ReportSwitchedOff_WritesTheTraceLineOnlyAndSetsTheLatch) {
    MonitorRig rig("url=https://ilo\n", "report=false\n");
    rig.RefuseLogins();
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(kLoginFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, IsEmpty());
    EXPECT_TRUE(rig.manager->getiLOLoginFailed());
}

// Passes come every 10 seconds; the second failure is that of pass 2, an hour after it is pass 362.
TEST(StartUp, AfterTwoCredentialFailures_LogInsPauseForSixtyWholeMinutes) {
    for (const auto& [stopAt, logIns] :
         {std::pair(362U, 2U), std::pair(363U, 3U), std::pair(722U, 3U), std::pair(723U, 4U)}) {
        MonitorRig rig;
        rig.RefuseLogins();
        EXPECT_FALSE(rig.StartUpUntilStop(stopAt)) << "the pause uses up no retry";
        EXPECT_EQ(rig.CountCalls("init"), logIns) << stopAt;
        EXPECT_THAT(rig.wait.waits, Each(10000U));
    }
}

TEST(StartUp, FailureAfterThePause_IsTracedButNotReportedAgain) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.StartUpUntilStop(363);
    EXPECT_THAT(rig.Trace(), ElementsAre(kLoginFailed, kReported, kLoginFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, SizeIs(1));
}

TEST(StartUp, LogInAfterThePause_ClearsTheLatch) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.At(300, [&] { rig.AcceptLogins(); });
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(363));
    EXPECT_FALSE(rig.manager->getiLOLoginFailed());
}

TEST(StartUp, AccountChangeDuringThePause_LogsInAtOnce) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.At(5, [&] {
        rig.stored = {"user", "better"};
        rig.AcceptLogins();
    });
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(6));
    EXPECT_EQ(rig.bridge->calls.back(), "init https://ilo user better 100 10");
}

TEST(StartUp, AccountChangeAfterTheLogIn_ClosesAndLogsInAgain) {
    MonitorRig rig;
    rig.At(2, [&] { rig.stored = {"other", "word"}; });
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.bridge->calls, ElementsAre("init https://ilo user secret 100 10", "close",
                                               "init https://ilo other word 100 10"));
    EXPECT_THAT(rig.wait.waits, SizeIs(3));
}

TEST(StartUp, AccountChangeWithTheLatchSet_ReportsNoSecondEvent) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.At(5, [&] { rig.stored = {"user", "still wrong"}; });
    rig.StartUpUntilStop(7);
    EXPECT_EQ(rig.CountCalls("init"), 4U) << "two with each account";
    EXPECT_THAT(rig.Trace(), ElementsAre(kLoginFailed, kReported, kLoginFailed, kBreak));
    EXPECT_THAT(rig.sink.entries, ElementsAre("login failed"));
}

TEST(StartUp, SessionThatCannotBeClosed_IsGivenUpAllTheSame) {
    MonitorRig rig;
    rig.bridge->failures["close"] = "close failed";
    rig.At(2, [&] { rig.stored = {"other", "word"}; });
    rig.At(3, [&] { rig.FailWalks("gone"); });
    rig.At(4, [&] { rig.AllowWalks(); });
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(4));
    EXPECT_EQ(rig.CountCalls("init https://ilo other word"), 2U);
    EXPECT_THAT(rig.Trace(), IsEmpty());
}

// The counter that the lines show: a credential error uses up no retry, but makes a counter of 0 a 1.
TEST(StartUp, CredentialErrorAtCounterZero_MakesItOne) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.At(2, [&] { rig.FailLogins("down"); });
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(Failed("VK0911>", "retry count=1"), kBreak));
}

TEST(StartUp, CredentialErrorAtLaterCounter_LeavesItAlone) {
    MonitorRig rig;
    rig.FailLogins("down");
    rig.At(3, [&] { rig.RefuseLogins(); });
    rig.At(4, [&] { rig.FailLogins("down"); });
    rig.StartUpUntilStop(5);
    EXPECT_THAT(rig.Trace(),
                ElementsAre(Failed("VK0911>", "retry count=0"), Failed("VK0911>", "retry count=1"),
                            Failed("VK0911>", "retry count=2"), kBreak));
}

TEST(StartUp, OtherFailureBetweenCredentialErrors_StartsTheirCountAfresh) {
    MonitorRig rig;
    rig.RefuseLogins();
    rig.At(2, [&] { rig.FailLogins("down"); });
    rig.At(3, [&] { rig.RefuseLogins(); });
    rig.StartUpUntilStop(4);
    EXPECT_THAT(rig.Trace(), ElementsAre(Failed("VK0911>", "retry count=1"), kBreak));
}

TEST(StartUp, SystemCallFailureOfALogIn_IsWrittenWithItsText) {
    MonitorRig rig;
    rig.commands.onCommand = [] { throw "unit 12 (Err: 5)"; };
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(Failed("VK0912>", "unit 12 (Err: 5) : retry count=0"),
                                         Failed("VK0912>", "unit 12 (Err: 5) : retry count=1"), kBreak));
}

TEST(StartUp, AnyOtherFailureOfALogIn_IsWrittenAsUnknown) {
    MonitorRig rig;
    rig.bridge->onFetch = [](const std::string&) { throw 5; };
    rig.StartUpUntilStop(2);
    EXPECT_THAT(rig.Trace(), ElementsAre(Failed("VK0913>", "Unknown error : retry count=0"), kBreak));
}

// ---- First snapshot ----

TEST(StartUp, SnapshotThatCannotBeRead_IsTracedAndUsesUpARetry) {
    MonitorRig rig;
    rig.At(2, [&] { rig.bridge->onFetch = [](const std::string&) { throw 5; }; });
    rig.At(4, [&] { rig.bridge->onFetch = nullptr; });
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    const auto trace = rig.Trace();
    ASSERT_EQ(trace.size(), 4U);
    EXPECT_EQ(trace[1], "<VK0900> [ER] Failed to build RAID information. : retry count=1");
    EXPECT_EQ(trace[3], "<VK0900> [ER] Failed to build RAID information. : retry count=2");
    EXPECT_EQ(rig.CountCalls("close"), 0U) << "the loop still counts as logged in";
}

TEST(StartUp, SnapshotsThatCanNeverBeRead_EndAfterTwentyPasses) {
    MonitorRig rig;
    rig.At(2, [&] { rig.bridge->onFetch = [](const std::string&) { throw 5; }; });
    EXPECT_FALSE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(20));
    EXPECT_EQ(rig.Trace().back(), "<VK0900> [ER] Failed to build RAID information. : retry count=19");
}

TEST(StartUp, TextFailureOfASnapshot_WritesNothingAndLogsInAgain) {
    MonitorRig rig;
    rig.FailWalks("gone");
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(kBreak));
    EXPECT_THAT(rig.bridge->calls, ElementsAre("init https://ilo user secret 100 10", "close", "reset",
                                               "close", "init https://ilo user secret 100 10"));
}

TEST(StartUp, TextFailuresOfSnapshots_UseUpTheirRetries) {
    MonitorRig rig;
    rig.FailWalks("gone");
    EXPECT_FALSE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(20));
}

TEST(StartUp, CredentialErrorsOfSnapshots_UseUpNoRetry) {
    MonitorRig rig;
    rig.FailWalks("SecurityStateError");
    rig.At(50, [&] { rig.AllowWalks(); });
    EXPECT_TRUE(rig.StartUpUntilStop(kNever));
    EXPECT_THAT(rig.wait.waits, SizeIs(50));
    EXPECT_THAT(rig.Trace(), IsEmpty()) << "the log-in in between has cleared the count";
    EXPECT_THAT(rig.sink.entries, IsEmpty());
}

TEST(StartUp, CredentialErrorOfASnapshotThenOfTheLogIn_ReportsTheEvent) {
    MonitorRig rig;
    rig.At(2, [&] {
        rig.FailWalks("InvalidCredentialsError");
        rig.RefuseLogins();
    });
    rig.StartUpUntilStop(3);
    EXPECT_THAT(rig.Trace(), ElementsAre(kLoginFailed, kReported, kBreak));
}

TEST(StartUp, StopInsideALogInOrSnapshot_EndsWithOneLineAndNoFailureLine) {
    for (const std::string where : {"/redfish/v1/Managers/", "/redfish/v1/Systems/",
                                    "/redfish/v1/Systems/1/SmartStorage/ArrayControllers/0/DiskDrives/"}) {
        MonitorRig rig;
        rig.bridge->onFetch = [&](const std::string& path) {
            if (path == where) {
                rig.RequestStop();
            }
        };
        EXPECT_FALSE(rig.StartUpUntilStop(kNever)) << where;
        EXPECT_THAT(rig.Trace(), ElementsAre(kBreak)) << where;
    }
}

TEST(StartUp, StopWhileASnapshotFails_EndsWithoutTheFailureLineOfTheLoop) {
    MonitorRig rig;
    rig.At(2, [&] {
        rig.bridge->onFetch = [&](const std::string&) {
            rig.RequestStop();
            throw 5;
        };
    });
    EXPECT_FALSE(rig.StartUpUntilStop(kNever));
    ASSERT_THAT(rig.Trace(), SizeIs(2));
    EXPECT_THAT(rig.Trace()[0], testing::HasSubstr("iLoRestReader failed."));
    EXPECT_EQ(rig.Trace()[1], kBreak);
}

}  // namespace
