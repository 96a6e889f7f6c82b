#include "error-times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using testing::ElementsAre;

namespace {

ErrorTimes TimesOf(std::initializer_list<std::uint64_t> values) {
    ErrorTimes times;
    for (const std::uint64_t value : values) {
        times.Add(value);
    }
    return times;
}

TEST(ErrorTimes, WithoutTimes_IsEmptyAndHasNoSpan) {
    const ErrorTimes times;
    EXPECT_TRUE(times.Empty());
    EXPECT_EQ(times.Size(), 0u);
    EXPECT_EQ(times.Newest(), 0u);
    EXPECT_EQ(times.SpanOfNewest(1), std::nullopt);
}

TEST(ErrorTimes, AddedTimes_AreKeptInTheOrderInWhichTheyCame) {
    const ErrorTimes times = TimesOf({5, 9, 5, 1});
    EXPECT_FALSE(times.Empty());
    EXPECT_EQ(times.Size(), 4u);
    EXPECT_THAT(times.Times(), ElementsAre(5, 9, 5, 1));
}

TEST(ErrorTimes, NewestAndSpan_GoByValue) {
    const ErrorTimes times = TimesOf({50, 900, 10, 880, 870});
    EXPECT_EQ(times.Newest(), 900u);
    EXPECT_EQ(times.SpanOfNewest(1), 0u);
    EXPECT_EQ(times.SpanOfNewest(3), 30u);
    EXPECT_EQ(times.SpanOfNewest(5), 890u);
    EXPECT_THAT(times.Times(), ElementsAre(50, 900, 10, 880, 870));  // asking sorts nothing
}

TEST(ErrorTimes, SpanOfMoreTimesThanThereAre_IsNothing) {
    EXPECT_EQ(TimesOf({1, 2}).SpanOfNewest(3), std::nullopt);
}

TEST(ErrorTimes, WidestSpan_DoesNotOverflow) {
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(TimesOf({kMax, 0}).SpanOfNewest(2), kMax);
}

TEST(ErrorTimes, EndlessAscendingTimes_KeepTheNewestInBoundedMemory) {
    ErrorTimes times;
    for (std::uint64_t time = 1; time <= 100000; ++time) {
        times.Add(time);
        ASSERT_LE(times.Size(), 2 * ErrorTimes::kKept);
    }
    EXPECT_EQ(times.Newest(), 100000u);
    EXPECT_EQ(times.SpanOfNewest(ErrorTimes::kKept), ErrorTimes::kKept - 1);
}

TEST(ErrorTimes, EndlessDescendingTimes_KeepTheNewest) {
    ErrorTimes times;
    for (std::uint64_t time = 100000; time >= 1; --time) {
        times.Add(time);
        ASSERT_LE(times.Size(), 2 * ErrorTimes::kKept);
    }
    EXPECT_EQ(times.Newest(), 100000u);
    EXPECT_EQ(times.SpanOfNewest(ErrorTimes::kKept), ErrorTimes::kKept - 1);
}

}  // namespace
