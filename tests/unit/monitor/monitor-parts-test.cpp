#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "login-failures.h"
#include "monitor-log.h"
#include "monitor-rig.h"

namespace {

TEST(AccountCheck, TakesOverWhatIsStored) {
    struct Case {
        std::pair<std::string, std::string> current;
        std::optional<std::pair<std::string, std::string>> stored;
        AccountChange change;
    };
    const std::string longest(40, 'x');
    const Case cases[] = {
        {{"a", "b"}, {{"a", "b"}}, kAccountUnchanged},
        {{"a", "b"}, {{"a", "c"}}, kAccountChanged},
        {{"a", "b"}, {{"c", "b"}}, kAccountChanged},
        {{"", ""}, {{"a", "b"}}, kAccountChanged},
        {{"a", "b"}, std::nullopt, kAccountLost},
        {{"a", ""}, std::nullopt, kAccountLost},
        {{"", "b"}, std::nullopt, kAccountLost},
        {{"", ""}, std::nullopt, kAccountUnchanged},
        {{"", ""}, {{longest, longest}}, kAccountChanged},
        {{longest, longest}, {{longest, longest}}, kAccountUnchanged},
    };
    for (const Case& given : cases) {
        MonitorRig rig;
        rig.parameter->SetCredentials(given.current.first, given.current.second);
        rig.stored = given.stored;
        EXPECT_EQ(iLOAccountCheck(*rig.parameter, rig.Accounts()), given.change);
        const auto expected = given.stored.value_or(std::pair<std::string, std::string>());
        EXPECT_EQ(rig.parameter->account(), expected.first);
        EXPECT_EQ(rig.parameter->password(), expected.second);
    }
}

TEST(AccountCheck, SourceThatThrowsOrKnowsOnlyTheName_CountsAsUnreadable) {
    MonitorRig rig;
    rig.parameter->SetCredentials("a", "b");
    EXPECT_EQ(iLOAccountCheck(
                  *rig.parameter,
                  [](int, unsigned char*, std::size_t) -> bool { throw std::invalid_argument("no UUID"); }),
              kAccountLost);
    rig.parameter->SetCredentials("a", "b");
    EXPECT_EQ(
        iLOAccountCheck(*rig.parameter, [](int record, unsigned char*, std::size_t) { return record == 0; }),
        kAccountLost);
}

TEST(AccountCheck, SourceThatCannotLook_LeavesTheAccountInUse) {
    const std::function<void()> failures[] = {
        [] { throw std::runtime_error("popen() failed!"); },
        [] { throw std::bad_alloc(); },
    };
    for (const auto& fail : failures) {
        for (const int failing : {0, 1}) {
            MonitorRig rig;
            rig.parameter->SetCredentials("a", "b");
            const AccountSource source = [&](int record, unsigned char* buffer, std::size_t) {
                if (record == failing) {
                    fail();
                }
                buffer[0] = 'x';
                return true;
            };
            EXPECT_EQ(iLOAccountCheck(*rig.parameter, source), kAccountUnchanged);
            EXPECT_EQ(rig.parameter->account(), "a");
            EXPECT_EQ(rig.parameter->password(), "b");
        }
    }
}

TEST(AccountCheck, OneRecordThatIsGone_IsALostAccountWhateverTheOtherOneIs) {
    for (const int gone : {0, 1}) {
        MonitorRig rig;
        rig.parameter->SetCredentials("a", "b");
        EXPECT_EQ(iLOAccountCheck(*rig.parameter,
                                  [&](int record, unsigned char*, std::size_t) -> bool {
                                      if (record != gone) {
                                          throw std::runtime_error("popen() failed!");
                                      }
                                      return false;
                                  }),
                  kAccountLost);
        EXPECT_EQ(rig.parameter->account(), "");
    }
}

TEST(OneHour, IsSixtyWholeMinutes) {
    using std::chrono::milliseconds;
    using std::chrono::minutes;
    FakeClock clock;
    const auto since = clock.now;
    clock.now = since + minutes(60) - milliseconds(1);
    EXPECT_FALSE(isOneHourPassed(since, clock));
    clock.now = since + minutes(60);
    EXPECT_TRUE(isOneHourPassed(since, clock));
}

TEST(MonitorLogRoutine, StopAlreadySet_EndsWithTheOneLine) {
    MonitorRig rig;
    Parameter = rig.parameter.get();
    LocalSystemInfo = rig.system.get();
    tovaserverutil::Event stop;
    stop.Set();
    EXPECT_EQ(MonitorLogRoutine(&stop), 0U);
    EXPECT_THAT(rig.Trace(), testing::ElementsAre("<VK0900> [TR] Break MonitorLogRoutine by StopEvent."));
    Parameter = nullptr;
    LocalSystemInfo = nullptr;
}

}  // namespace
