// The drive maps' lock: this program leads pthread_mutex_lock and pthread_mutex_unlock here (--wrap).
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "pd-maps.h"

namespace {

// Of the calling thread.
thread_local int lockResult = 0;  // other than 0: nothing is locked
thread_local int locks = 0;
thread_local int held = 0;

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (lockResult != 0) {
        return lockResult;
    }
    ++locks;
    ++held;
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    --held;
    return __real_pthread_mutex_unlock(mutex);
}

}  // extern "C"

namespace {

struct Operation {
    const char* name;
    std::function<void(pd_addr_map&)> run;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

void Insert(pd_addr_map& map) {
    pd_addr record;
    map.insert(1, record);
}

const std::vector<Operation> kLocking{
    {"insert", &Insert},
    {"merge", [](pd_addr_map& map) { map.merge(1, pd_addr()); }},
    {"clear_map", [](pd_addr_map& map) { map.clear_map(); }},
    {"find_pd_id_from_crtl_id", [](pd_addr_map& map) { map.find_pd_id_from_crtl_id(1, 1); }},
    {"find_location", [](pd_addr_map& map) { map.find_location(1, 1); }},
    {"set_serial", [](pd_addr_map& map) { map.set_serial("1I:1:1", "SERIAL"); }},
    {"find_serial", [](pd_addr_map& map) { map.find_serial("1I:1:1"); }},
    {"add_reference_time", [](pd_addr_map& map) { map.add_reference_time(1, 1, "1I:1:1", 1); }},
    {"find_reference_times", [](pd_addr_map& map) { map.find_reference_times(1, 1); }},
    {"find_reference_times_by_location",
     [](pd_addr_map& map) { map.find_reference_times(std::string("1I:1:1")); }},
    {"set_intermittent", [](pd_addr_map& map) { map.set_intermittent(1, 1); }},
    {"is_intermittent", [](pd_addr_map& map) { map.is_intermittent(1, 1); }},
    {"find_media_error_num", [](pd_addr_map& map) { map.find_media_error_num("1I:1:1"); }},
    {"find_event_time", [](pd_addr_map& map) { map.find_event_time("SERIAL"); }},
    {"set_event_time", [](pd_addr_map& map) { map.set_event_time("SERIAL", 1); }},
    {"find_trace_time", [](pd_addr_map& map) { map.find_trace_time("SERIAL"); }},
    {"set_trace_time", [](pd_addr_map& map) { map.set_trace_time("SERIAL", 1); }},
};

class PdAddrMapLock : public testing::TestWithParam<Operation> {
protected:
    pd_addr_map map;
};

TEST_P(PdAddrMapLock, Refused_ThrowsTheResult) {
    std::pair<int, std::string> failure;
    lockResult = EINVAL;
    try {
        GetParam().run(map);
    } catch (const tovabase::TOVAExcpt& thrown) {
        failure = {thrown.code(), thrown.text()};
    }
    lockResult = 0;
    EXPECT_EQ(failure.first, 0x10001);
    EXPECT_EQ(failure.second, "server-util 649 (Err: 22)");
}

TEST_P(PdAddrMapLock, Operation_TakesItOnceAndReleasesIt) {
    locks = held = 0;
    GetParam().run(map);
    EXPECT_EQ(std::exchange(locks, 0), 1);
    EXPECT_EQ(held, 0);
}

INSTANTIATE_TEST_SUITE_P(Operations, PdAddrMapLock, testing::ValuesIn(kLocking),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST(PdAddrMapWithoutLock, MediaErrorCount_IsStoredWithoutIt) {
    pd_addr_map map;
    lockResult = EINVAL;
    map.add_media_error_num_by_location("1I:1:1", 4);
    lockResult = 0;
    EXPECT_EQ(map.find_media_error_num("1I:1:1"), 4u);
}

}  // namespace
