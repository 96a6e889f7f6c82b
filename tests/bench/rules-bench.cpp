// What one look at the controller costs once its snapshot has been read: the rules over two snapshots, and
// what a copy of a snapshot costs beside them.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "state-rules.h"

namespace {

constexpr std::int64_t kDrivesPerController = 50;
constexpr std::int64_t kDrivesPerVolume = 5;

DiskDrive Drive(const std::string& id) {
    DiskDrive drive;
    drive.Id = id;
    drive.model = "VK000960GWTTB";
    drive.serialNumber = "S3J7NX0M" + id;
    drive.firmwareRevision = "HPG1";
    drive.location = "1I:1:" + id;
    drive.mediaType = "SSD";
    drive.health = "OK";
    drive.state = "Enabled";
    drive.statusReasons = {"None"};
    drive.capacityGB = 960;
    drive.capacityMiB = 915715;
    drive.blockSize = 512;
    drive.logicalBlocks = 1875385008;
    drive.enduranceTold = true;
    return drive;
}

// Controllers with 50 drives and 10 volumes each, the ids as long as real ones.
SmartStorage Storage(const std::string& root, const std::string& model, std::int64_t drives,
                     std::int64_t endurance) {
    SmartStorage storage;
    for (std::int64_t number = 0; number < drives; ++number) {
        const std::string slot = std::to_string(number / kDrivesPerController);
        const std::string controllerKey = root + slot + "/";
        const std::string driveKey = controllerKey + "DiskDrives/" + std::to_string(number) + "/";
        const std::int64_t volumeNumber = number / kDrivesPerVolume;
        const std::string volumeKey = controllerKey + "LogicalDrives/" + std::to_string(volumeNumber) + "/";

        ArrayController& controller = storage.controllers[controllerKey];
        controller.model = model;
        controller.location = "Slot " + slot;
        DiskDrive& drive = controller.diskDrives[driveKey];
        drive = Drive(std::to_string(number));
        drive.endurance = endurance;
        drive.volumes.push_back({volumeKey});
        LogicalDrive& volume = controller.logicalDrives[volumeKey];
        volume.number = static_cast<std::int32_t>(volumeNumber);
        volume.health = "OK";
        volume.state = "Enabled";
        volume.dataDrives.push_back({driveKey});
    }
    return storage;
}

// Half of the drives belong to Smart Array controllers, half to MegaRAID ones, so that every walk has its
// share.
ServiceRoot Snapshot(std::int64_t drives) {
    ComputerSystem system;
    system.smartStorage = Storage("/redfish/v1/Systems/1/SmartStorage/ArrayControllers/",
                                  "HPE Smart Array P408i-a SR Gen10", drives / 2, 3);
    system.mirror =
        Storage("/redfish/v1/Systems/1/Storage/DE00A", "HPE MR416i-p Gen10+", drives - drives / 2, 97);
    ServiceRoot root;
    root.systems.emplace("/redfish/v1/Systems/1/", system);
    return root;
}

void FailEveryTenth(SmartStorage& storage) {
    int number = 0;
    for (auto& [controllerKey, controller] : storage.controllers) {
        for (auto& [key, drive] : controller.diskDrives) {
            if (number++ % 10 == 0) {
                drive.statusReasons = {"Failed"};
                drive.health = "Critical";
            }
        }
    }
}

// So many snapshots that those of every size fill the same memory, far more than the processor's caches hold.
// The service comes back to its snapshots after seconds: it finds nothing of them there either.
std::vector<ServiceRoot> Snapshots(std::int64_t drives) {
    constexpr std::int64_t kDrivesInMemory = 10000;
    return std::vector<ServiceRoot>(static_cast<std::size_t>(kDrivesInMemory / drives), Snapshot(drives));
}

// Compares snapshots with those that `change` makes of them.
template <typename Change>
void Compare(benchmark::State& state, const Change& change) {
    const std::vector<ServiceRoot> previous = Snapshots(state.range(0));
    std::vector<ServiceRoot> current = previous;
    for (ServiceRoot& snapshot : current) {
        change(snapshot.systems.begin()->second);
    }
    const StateRules rules([&](const std::string& text) { state.SkipWithError(text.c_str()); });
    std::size_t raised = 0;
    std::size_t pair = 0;
    for (auto _ : state) {
        EventList events;
        rules.checkAll(previous[pair], current[pair], events);
        raised = events.size();
        benchmark::DoNotOptimize(events.data());
        pair = (pair + 1) % previous.size();
    }
    state.counters["events"] = static_cast<double>(raised);
    state.SetComplexityN(state.range(0));
}

void RulesNothingChanged(benchmark::State& state) {
    Compare(state, [](ComputerSystem&) {});
}

// Every tenth drive has failed since, which makes as many events.
void RulesTenthFails(benchmark::State& state) {
    Compare(state, [](ComputerSystem& system) {
        for (SmartStorage* const storage : {&system.smartStorage, &system.mirror}) {
            FailEveryTenth(*storage);
        }
    });
}

// Of the MegaRAID controllers all drives and volumes have vanished since: the most that there is to look up,
// and an event for each of them.
void RulesMegaRaidVanishes(benchmark::State& state) {
    Compare(state, [](ComputerSystem& system) {
        for (auto& [key, controller] : system.mirror.controllers) {
            controller.diskDrives.clear();
            controller.logicalDrives.clear();
        }
    });
}

void SnapshotCopy(benchmark::State& state) {
    const std::vector<ServiceRoot> snapshots = Snapshots(state.range(0));
    std::size_t number = 0;
    for (auto _ : state) {
        ServiceRoot copy = snapshots[number];
        benchmark::DoNotOptimize(copy.systems.size());
        number = (number + 1) % snapshots.size();
    }
    state.SetComplexityN(state.range(0));
}

void ByDrives(benchmark::internal::Benchmark* benchmark) {
    for (const std::int64_t drives : {100, 200, 500, 1000, 2000, 5000, 10000}) {
        benchmark->Arg(drives);
    }
    benchmark->ArgName("drives")->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);
}

BENCHMARK(RulesNothingChanged)->Apply(ByDrives);
BENCHMARK(RulesTenthFails)->Apply(ByDrives);
BENCHMARK(RulesMegaRaidVanishes)->Apply(ByDrives);
BENCHMARK(SnapshotCopy)->Apply(ByDrives);

}  // namespace
