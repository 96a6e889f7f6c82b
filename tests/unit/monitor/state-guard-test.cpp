// Walks that fail in the middle, by running out of memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "snapshots.h"
#include "state-rules.h"

namespace {

// The allocation that fails, counted from now on; 0 for none.
std::size_t s_failing = 0;

void* Allocate(std::size_t size) {
    if (s_failing != 0 && --s_failing == 0) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

// Of the whole test program. The array forms and those without size come here too.
void* operator new(std::size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

// Each of the six walks has one thing to raise, told apart by what the event is about: a drive's location or
// a volume's number.
class GuardTest : public testing::Test {
protected:
    GuardTest() {
        Snapshot before(Family::kMirror, kMegaRaid);
        before.Drive(kOtherDrive).location = "vanished drive";
        before.Drive(kOtherDrive).volumes = {Odataid{kVolume}};
        before.Volume(kVolume).number = 1;
        before.Volume(kOtherVolume).number = 2;
        previous = before.root;

        Snapshot now(Family::kMirror, kMegaRaid);
        now.Drive().location = "mirror drive";
        now.Drive().failurePredicted = true;
        now.Volume().number = 1;
        now.Volume().health = "Critical";
        now.Volume().state = "Disabled";
        current = now.root;

        Snapshot plain(Family::kPlain, kSmart);
        plain.Drive().location = "plain drive";
        plain.Drive().statusReasons = {"Failed"};
        plain.Volume().number = 3;
        plain.Volume().health = "Critical";
        current.systems[kSystem].smartStorage = plain.root.systems[kSystem].smartStorage;
    }

    struct Outcome {
        std::vector<std::string> subjects;
        std::vector<std::string> lines;
        bool failed;  // the allocation that was to fail has
    };
    Outcome CheckAll(std::size_t failingAllocation) const {
        Outcome outcome;
        const StateRules rules([&](const std::string& text) { outcome.lines.push_back(text); });
        EventList events;
        s_failing = failingAllocation;
        rules.checkAll(previous, current, events);
        outcome.failed = failingAllocation != 0 && s_failing == 0;
        s_failing = 0;
        for (const tovaevent::EvtData& event : events) {
            outcome.subjects.push_back(event.Parameters().at(1));
        }
        return outcome;
    }

    const std::vector<std::string> kAll = {"mirror drive", "1", "vanished drive", "2", "plain drive", "3"};
    ServiceRoot previous;
    ServiceRoot current;
};

TEST_F(GuardTest, Walks_RunInTheirOrder) {
    const Outcome outcome = CheckAll(0);
    EXPECT_EQ(outcome.subjects, kAll);
    EXPECT_THAT(outcome.lines, testing::IsEmpty());
}

TEST_F(GuardTest, AnyWalkFails_IsWrittenOnceAndTheOthersRun) {
    std::set<std::string> missed;
    for (std::size_t nth = 1;; ++nth) {
        const Outcome outcome = CheckAll(nth);
        if (!outcome.failed) {
            EXPECT_EQ(outcome.subjects, kAll);
            break;
        }
        EXPECT_THAT(outcome.lines, testing::ElementsAre("Fatal error.")) << nth;
        std::vector<std::string> expected;
        for (const std::string& subject : kAll) {
            if (testing::Value(outcome.subjects, testing::Contains(subject))) {
                expected.push_back(subject);
            } else {
                missed.insert(subject);
            }
        }
        EXPECT_EQ(outcome.subjects, expected) << nth;
        EXPECT_GE(outcome.subjects.size(), kAll.size() - 1) << nth;
    }
    EXPECT_EQ(missed, std::set<std::string>(kAll.begin(), kAll.end())) << "each walk has failed once";
}

}  // namespace
