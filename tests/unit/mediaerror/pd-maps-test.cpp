#include "pd-maps.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

// Drives 1, 2 ... with these ids, at "PORTI:1:NUMBER".
pd_addr Record(int port, const std::vector<int>& ids) {
    pd_addr record;
    int number = 0;
    for (const int id : ids) {
        ++number;
        const std::string location = std::to_string(port) + "I:1:" + std::to_string(number);
        record.add(number, id, "SERIAL" + std::to_string(id), location, port, 1, number);
    }
    return record;
}

// ---- Records ----

TEST(PdAddr, New_KnowsNoDrive) {
    const pd_addr record;
    EXPECT_EQ(record.find_number(0), 0);
    EXPECT_EQ(record.location(1), "");
    EXPECT_EQ(record.serial(1), "");
}

TEST(PdAddr, Add_KeepsTheDriveUnderItsNumber) {
    const pd_addr record = Record(1, {10, 11});
    EXPECT_EQ(record.find_number(10), 1);
    EXPECT_EQ(record.find_number(11), 2);
    EXPECT_EQ(record.find_number(12), 0);
    EXPECT_EQ(record.location(2), "1I:1:2");
    EXPECT_EQ(record.location(3), "");
    EXPECT_EQ(record.serial(2), "SERIAL11");
    EXPECT_EQ(record.serial(3), "");
}

TEST(PdAddr, SameNumberAgain_ReplacesTheDrive) {
    pd_addr record = Record(1, {10});
    record.add(1, 20, "OTHER", "2I:1:1", 2, 1, 1);
    EXPECT_EQ(record.find_number(10), 0);
    EXPECT_EQ(record.find_number(20), 1);
    EXPECT_EQ(record.location(1), "2I:1:1");
}

class PdAddrMap : public testing::Test {
protected:
    void Insert(int port, pd_addr record) { map.insert(port, record); }

    pd_addr_map map;
};

TEST_F(PdAddrMap, New_KnowsNothing) {
    EXPECT_EQ(map.find_pd_id_from_crtl_id(1, 1), 0);
    EXPECT_EQ(map.find_location(1, 1), "");
    EXPECT_EQ(map.find_serial("1I:1:1"), "");
    EXPECT_TRUE(map.find_reference_times(1, 1).Empty());
    EXPECT_FALSE(map.is_intermittent(1, 1));
    EXPECT_EQ(map.find_media_error_num("1I:1:1"), 0u);
    EXPECT_EQ(map.find_event_time("SERIAL"), 0u);
    EXPECT_EQ(map.find_trace_time("SERIAL"), 0u);
}

TEST_F(PdAddrMap, Insert_CreatesTheRecordOfThePort) {
    Insert(1, Record(1, {10, 11}));
    EXPECT_EQ(map.find_location(1, 2), "1I:1:2");
    EXPECT_EQ(map.find_location(1, 3), "");
    EXPECT_EQ(map.find_location(2, 1), "");
}

TEST_F(PdAddrMap, InsertAgain_OverwritesTheWholeRecord) {
    Insert(1, Record(1, {10, 11}));
    map.set_intermittent(1, 1);
    Insert(1, Record(1, {20}));
    EXPECT_EQ(map.find_pd_id_from_crtl_id(1, 20), 1);
    EXPECT_EQ(map.find_pd_id_from_crtl_id(1, 11), 0);
    EXPECT_FALSE(map.is_intermittent(1, 1));
}

TEST_F(PdAddrMap, Insert_TakesACopy) {
    pd_addr record = Record(1, {10});
    map.insert(1, record);
    record.add(2, 11, "", "later", 1, 1, 2);
    EXPECT_EQ(map.find_location(1, 2), "");
}

TEST_F(PdAddrMap, Insert_LeavesOtherPortsAlone) {
    Insert(1, Record(1, {10}));
    Insert(2, Record(2, {20}));
    EXPECT_EQ(map.find_location(1, 1), "1I:1:1");
    EXPECT_EQ(map.find_location(2, 1), "2I:1:1");
}

TEST_F(PdAddrMap, Merge_KeepsTheDrivesOfOtherNumbers) {
    Insert(1, Record(1, {10, 11}));
    map.set_intermittent(1, 1);
    map.set_intermittent(1, 2);
    pd_addr second;
    second.add(2, 21, "", "new", 1, 1, 2);
    second.add(3, 22, "", "newer", 1, 1, 3);
    map.merge(1, second);
    EXPECT_EQ(map.find_location(1, 1), "1I:1:1");
    EXPECT_TRUE(map.is_intermittent(1, 1));
    EXPECT_EQ(map.find_location(1, 2), "new");
    EXPECT_FALSE(map.is_intermittent(1, 2));
    EXPECT_EQ(map.find_location(1, 3), "newer");
}

TEST_F(PdAddrMap, MergeIntoNothing_CreatesTheRecord) {
    map.merge(4, Record(4, {10}));
    EXPECT_EQ(map.find_location(4, 1), "4I:1:1");
}

TEST_F(PdAddrMap, FindPdId_LooksAtTheControllersOwnDrives) {
    Insert(0, Record(1, {252, 8}));
    Insert(1, Record(1, {8}));
    EXPECT_EQ(map.find_pd_id_from_crtl_id(0, 8), 2);
    EXPECT_EQ(map.find_pd_id_from_crtl_id(1, 8), 1);
    EXPECT_EQ(map.find_pd_id_from_crtl_id(1, 252), 0);
    EXPECT_EQ(map.find_pd_id_from_crtl_id(2, 8), 0);
}

// ---- Facts of a report ----

TEST_F(PdAddrMap, Intermittent_IsMarkedPerDrive) {
    Insert(1, Record(1, {10, 11}));
    EXPECT_FALSE(map.is_intermittent(1, 1));
    map.set_intermittent(1, 2);
    EXPECT_FALSE(map.is_intermittent(1, 1));
    EXPECT_TRUE(map.is_intermittent(1, 2));
}

TEST_F(PdAddrMap, IntermittentOfAnUnknownDrive_IsNeitherKeptNorMadeUp) {
    Insert(1, Record(1, {10}));
    map.set_intermittent(1, 7);
    map.set_intermittent(9, 1);
    EXPECT_FALSE(map.is_intermittent(1, 7));
    EXPECT_FALSE(map.is_intermittent(9, 1));
    EXPECT_FALSE(map.is_intermittent(1, 1));
}

TEST_F(PdAddrMap, ReferenceTimes_AreKeptPerDrive) {
    Insert(1, Record(1, {10, 11}));
    map.add_reference_time(1, 1, "1I:1:1", 5000000000);
    map.add_reference_time(1, 1, "1I:1:1", 7);
    EXPECT_EQ(map.find_reference_times(1, 1).Size(), 2u);
    EXPECT_EQ(map.find_reference_times(1, 1).Newest(), 5000000000u);
    EXPECT_TRUE(map.find_reference_times(1, 2).Empty());
    map.add_reference_time(1, 9, "1I:1:9", 1);
    EXPECT_TRUE(map.find_reference_times(1, 9).Empty());
}

TEST_F(PdAddrMap, ReferenceTimes_AreKeptPerLocationInTheOrderFound) {
    map.add_reference_time(1, 1, "1I:1:1", 9);
    map.add_reference_time(2, 5, "1I:1:1", 7);
    EXPECT_EQ(map.find_reference_times(std::string("1I:1:1")).Times(), (std::vector<std::uint64_t>{9, 7}));
    EXPECT_TRUE(map.find_reference_times(std::string("1I:1:2")).Empty());
}

TEST_F(PdAddrMap, MediaErrorCount_IsOverwritten) {
    map.add_media_error_num_by_location("1I:1:1", 3);
    EXPECT_EQ(map.find_media_error_num("1I:1:1"), 3u);
    map.add_media_error_num_by_location("1I:1:1", UINT64_MAX);
    EXPECT_EQ(map.find_media_error_num("1I:1:1"), UINT64_MAX);
    EXPECT_EQ(map.find_media_error_num("1I:1:2"), 0u);
}

TEST_F(PdAddrMap, Serial_IsOverwritten) {
    map.set_serial("1I:1:1", "OLD");
    map.set_serial("1I:1:1", "NEW");
    EXPECT_EQ(map.find_serial("1I:1:1"), "NEW");
}

TEST_F(PdAddrMap, EventAndTraceTimes_AreMemoriesOfTheirOwn) {
    map.set_event_time("A", 5);
    map.set_trace_time("B", 6);
    EXPECT_EQ(map.find_event_time("A"), 5u);
    EXPECT_EQ(map.find_trace_time("A"), 0u);
    EXPECT_EQ(map.find_event_time("B"), 0u);
    EXPECT_EQ(map.find_trace_time("B"), 6u);
    map.set_trace_time("B", 7);
    EXPECT_EQ(map.find_trace_time("B"), 7u);
}

TEST_F(PdAddrMap, ClearMap_EmptiesTheFactsAndKeepsRecordsAndMemories) {
    Insert(1, Record(1, {10}));
    map.set_intermittent(1, 1);
    map.add_reference_time(1, 1, "1I:1:1", 5);
    map.set_serial("1I:1:1", "SERIAL10");
    map.add_media_error_num_by_location("1I:1:1", 3);
    map.set_event_time("SERIAL10", 5);
    map.set_trace_time("SERIAL10", 6);
    map.clear_map();
    EXPECT_EQ(map.find_serial("1I:1:1"), "");
    EXPECT_EQ(map.find_media_error_num("1I:1:1"), 0u);
    EXPECT_TRUE(map.find_reference_times(std::string("1I:1:1")).Empty());
    EXPECT_EQ(map.find_location(1, 1), "1I:1:1");
    EXPECT_TRUE(map.is_intermittent(1, 1));
    EXPECT_EQ(map.find_reference_times(1, 1).Size(), 1u);  // of the record
    EXPECT_EQ(map.find_event_time("SERIAL10"), 5u);
    EXPECT_EQ(map.find_trace_time("SERIAL10"), 6u);
}

TEST_F(PdAddrMap, SeveralThreads_MayUseIt) {
    std::vector<std::thread> threads;
    for (int thread = 1; thread <= 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < 200; ++round) {
                Insert(thread, Record(thread, {round, round + 1}));
                map.set_serial(std::to_string(round), "SERIAL");
                map.set_intermittent(thread, 1);
                EXPECT_TRUE(map.is_intermittent(thread, 1));
                EXPECT_EQ(map.find_pd_id_from_crtl_id(thread, round + 1), 2);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(map.find_serial("199"), "SERIAL");
}

// ---- The memory of MegaRAID drives ----

TEST(PdReportMap, Key_TellsEqualIdsOfTwoControllersApart) {
    EXPECT_EQ(pd_report_map::key(0, 10), 10);
    EXPECT_EQ(pd_report_map::key(1, 10), 65546);
    EXPECT_NE(pd_report_map::key(0, 65535), pd_report_map::key(1, 0));
}

TEST(PdReportMap, MemoryOfTheProcess_StartsEmpty) {
    for (const int key : {pd_report_map::key(0, 0), pd_report_map::key(0, 10), pd_report_map::key(1, 10)}) {
        EXPECT_EQ(m_PdReportMap_Mr.find_event_time(key), 0u);
        EXPECT_EQ(m_PdReportMap_Mr.find_trace_time(key), 0u);
    }
}

TEST(PdReportMap, Times_AreKeptPerKey) {
    pd_report_map map;
    EXPECT_EQ(map.find_event_time(1), 0u);
    EXPECT_EQ(map.find_trace_time(1), 0u);
    map.set_event_time(1, 5);
    map.set_trace_time(2, 6);
    EXPECT_EQ(map.find_event_time(1), 5u);
    EXPECT_EQ(map.find_trace_time(1), 0u);
    EXPECT_EQ(map.find_trace_time(2), 6u);
}

// ---- Limits ----

TEST(PdMapLimits, MoreDrivesThanReportsHave_TakeThePlaceOfThoseOfTheHighestPorts) {
    pd_addr_map map;
    std::vector<int> ids(1000);
    for (int port = 1; port <= 10; ++port) {
        pd_addr record = Record(port, ids);
        map.insert(port, record);
    }
    EXPECT_EQ(map.find_location(1, 1000), "1I:1:1000");
    EXPECT_EQ(map.find_location(3, 1000), "3I:1:1000");
    EXPECT_EQ(map.find_location(4, 1), "");
    EXPECT_EQ(map.find_location(9, 1), "");
    EXPECT_EQ(map.find_location(10, 1000), "10I:1:1000");  // the last one that came

    pd_addr_map merged;
    for (int port = 0; port < 100'000; ++port) {
        merged.merge(port, Record(port, {1}));
    }
    EXPECT_EQ(merged.find_location(0, 1), "0I:1:1");
    EXPECT_EQ(merged.find_location(50'000, 1), "");
    EXPECT_EQ(merged.find_location(99'999, 1), "99999I:1:1");
}

TEST(PdMapLimits, FullReportingMemory_ForgetsTheOldestTimes) {
    pd_addr_map map;
    constexpr int kRoom = 16 * 1024;
    for (int drive = 0; drive < kRoom; ++drive) {
        map.set_event_time("SN" + std::to_string(drive), 1000 + static_cast<std::uint64_t>(drive));
        map.set_trace_time("SN" + std::to_string(drive), 1000 + static_cast<std::uint64_t>(drive));
    }
    map.set_event_time("SN0", 9'000'000);
    EXPECT_EQ(map.find_event_time("SN1"), 1001u);
    map.set_event_time("ONE MORE", 9'000'001);
    map.set_trace_time("ONE MORE", 9'000'001);
    EXPECT_EQ(map.find_event_time("SN0"), 9'000'000u);
    EXPECT_EQ(map.find_event_time("SN1"), 0u);
    EXPECT_EQ(map.find_event_time("SN2"), 1002u);
    EXPECT_EQ(map.find_event_time("ONE MORE"), 9'000'001u);
    EXPECT_EQ(map.find_trace_time("SN0"), 0u);
    EXPECT_EQ(map.find_trace_time("SN1"), 1001u);
    EXPECT_EQ(map.find_trace_time("ONE MORE"), 9'000'001u);
}

TEST(PdMapLimits, FullMemory_ForgetsTheOldestTimes) {
    pd_report_map map;
    for (int key = 0; key <= 16 * 1024; ++key) {
        map.set_event_time(key, 1000 + static_cast<std::uint64_t>(key));
        map.set_trace_time(key, 1000 + static_cast<std::uint64_t>(key));
    }
    EXPECT_EQ(map.find_event_time(0), 0u);
    EXPECT_EQ(map.find_trace_time(0), 0u);
    EXPECT_EQ(map.find_event_time(1), 1001u);
    EXPECT_EQ(map.find_trace_time(16 * 1024), 1000u + 16 * 1024);
}

}  // namespace
