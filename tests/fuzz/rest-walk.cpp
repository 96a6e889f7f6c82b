// Whole walks through a controller's resources, and what the rules make of one snapshot after another.
#include <algorithm>
#include <string>
#include <vector>

#include "controller-text.h"
#include "fuzz.h"
#include "message-format.h"
#include "state-rules.h"

namespace {

// A controller's key that holds "Slot" is deliberately looked up under another one.
bool HoldsSlot(const ServiceRoot& snapshot) {
    for (const auto& [id, system] : snapshot.systems) {
        for (const auto& [key, controller] : system.mirror.controllers) {
            if (key.find("Slot") != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

EventList Compared(const ServiceRoot& previous, const ServiceRoot& current) {
    EventList events;
    StateRules([](const std::string& line) {
        FuzzFailure(line.c_str(), "a walk", 0);
    }).checkAll(previous, current, events);
    return events;
}

void CheckEvents(const EventList& events) {
    for (const tovaevent::EvtData& event : events) {
        const tova_service::ReportedEvent* const reported = tova_service::FindReported(event.Id());
        FUZZ_CHECK(reported != nullptr);
        const bool isDrive = reported->subject == tova_service::Subject::kPhysicalDrive;
        FUZZ_CHECK(event.Parameters().size() == (isDrive ? 3 : 2));
    }
}

}  // namespace

void Fuzz(std::string_view input) {
    ControllerText controller(input);
    iLoRestReader reader(controller.Lend());
    reader.init("h", "a", "p", 1, 0);
    std::vector<ServiceRoot> snapshots(1);
    for (std::size_t moment = 0; moment < controller.moments(); ++moment) {
        controller.SetMoment(moment);
        Succeeds([&] { reader.setupiLOVersion_vnic("h", "a", "p"); });
        Succeeds([&] { reader.setupiLOVersion(); });
        ServiceRoot snapshot;
        if (Succeeds([&] { reader.readILoRest(snapshot); })) {
            snapshots.push_back(snapshot);
        } else {
            FUZZ_CHECK(snapshot.systems.empty() && !reader.isiLOInitialized());
        }
    }
    for (std::size_t i = 1; i < snapshots.size(); ++i) {
        CheckEvents(Compared(snapshots[i - 1], snapshots[i]));
        CheckEvents(Compared(snapshots[i], snapshots[i - 1]));
        // What has not changed is no news.
        FUZZ_CHECK(HoldsSlot(snapshots[i]) || Compared(snapshots[i], snapshots[i]).empty());
    }
}
