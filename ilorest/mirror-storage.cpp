// The reader's steps for the controllers of the Redfish Storage collection.
#include "ilorest-reader.h"
#include "rest-text.h"
#include "storage-family.h"

namespace {

// The parts of reading one controller that fail under a number of their own.
constexpr const char* kEmbeddedController =
    "iLoRestReader.readController 2 failed.";  // "StorageControllers" array
constexpr const char* kControllerLink =
    "iLoRestReader.readController 3 failed.";  // "Controllers" and its collection
constexpr const char* kLinkedController =
    "iLoRestReader.readController 4 failed.";                                 // the collection's first member
constexpr const char* kDriveList = "iLoRestReader.readController 5 failed.";  // "Drives" array
constexpr const char* kVolumes = "iLoRestReader.readController 6 failed.";  // "Volumes" and what it links to
constexpr const char* kDrives = "iLoRestReader.readController 7 failed.";   // the drives themselves

// What the subsystem's own text says, without its controllers, volumes and drives.
void LoadStorage(RestText& text, Storage& storage) {
    text.load("Name", storage.Name);
    if (text.hasShape("Id")) {
        text.loadOptional("Id", storage.Id);
    }
    text.insideOptional("Status", [&] {
        text.loadOptional("Health", storage.Health);
        text.loadOptional("HealthRollup", storage.HealthRollup);
        text.loadOptional("State", storage.State);
    });
}

}  // namespace

// Has no failure text of its own: it is nothing but the collection.
void iLoRestReader::readStorage(RestBridge& bridge, const Odataid& collection, ComputerSystem& system) {
    readMirrorControllers(bridge, collection, system.mirror);
}

void iLoRestReader::readMirrorControllers(RestBridge& bridge, const Odataid& collection,
                                          SmartStorage& storage) {
    step({"iLoRestReader.readMirrorControllers failed.", __LINE__}, [&] {
        for (const Odataid& id : fetchMembers(bridge, collection)) {
            ArrayController controller;
            readMirrorController(bridge, id, controller);
            storage.addController(id, controller);
        }
    });
}

void iLoRestReader::readMirrorController(RestBridge& bridge, const Odataid& id, ArrayController& controller) {
    step({"iLoRestReader.readMirrorController failed.", __LINE__}, [&] {
        RestText text(fetch(bridge, id.id));
        Storage storage;
        LoadStorage(text, storage);
        readStorageController(bridge, text, storage);

        controller.Id = storage.Id;
        controller.model = storage.Model;
        controller.location = storage.ServiceLabel;
        controller.serialNumber = storage.SerialNumber;
        const MStatus status = storage.status();
        controller.health = status.Health;
        controller.state = status.State;
        controller.generation = storage.generation;

        const StorageFamily& family = ClassifyStorage(storage.Name, storage.Model);
        const VolumeReader volumes =
            ChooseVolumeReader(family, m_versionText, text.hasShape("StorageControllers"));
        if (text.hasShape("Drives")) {
            step({kDriveList, __LINE__}, [&] { text.loadOptional("Drives", storage.Drives); });
        }
        if (volumes != VolumeReader::None && text.hasShape("Volumes")) {
            step({kVolumes, __LINE__}, [&] {
                text.loadOptional("Volumes", storage.Volumes);
                if (!storage.Volumes.id.empty()) {
                    readRedfishVolumes(FindVolumeReader(volumes), bridge, storage.Volumes, controller);
                }
            });
        }
        step({kDrives, __LINE__},
             [&] { readRedfishDrives(FindDriveReader(family.drives), bridge, storage.Drives, controller); });
    });
}

void iLoRestReader::readStorageController(RestBridge& bridge, RestText& text, Storage& storage) {
    StorageController found;
    // Embedded controllers come first where a subsystem has both: the same contents for two fetches less.
    if (!readEmbeddedController(text, ClassifyStorage(storage.Name, "").scansControllers, found)) {
        readLinkedController(bridge, text, storage.Controllers, found);
    }
    storage.Model = found.Model.empty() ? storage.Name : found.Model;
    storage.SerialNumber = Trimmed(found.SerialNumber);
    storage.ServiceLabel = found.Location.text();
    storage.generation = StorageGeneration(storage.Name, storage.Model);
}

bool iLoRestReader::readEmbeddedController(RestText& text, bool scan, StorageController& controller) {
    if (!text.hasShape("StorageControllers")) {
        return false;
    }
    bool any = false;
    step({kEmbeddedController, __LINE__}, [&] {
        text.insideEachOptional("StorageControllers", [&] {
            any = true;
            controller = {};
            LoadStorageController(text, controller);
            return scan && !IsEmbeddedSata(controller.Name, controller.Model);
        });
    });
    return any;
}

void iLoRestReader::readLinkedController(RestBridge& bridge, RestText& text, Odataid& collection,
                                         StorageController& controller) {
    if (!text.hasShape("Controllers")) {
        return;
    }
    std::vector<Odataid> members;
    step({kControllerLink, __LINE__}, [&] {
        text.loadOptional("Controllers", collection);
        if (!collection.id.empty()) {
            members = fetchMembers(bridge, collection);
        }
    });
    if (members.empty()) {
        return;
    }
    step({kLinkedController, __LINE__}, [&] {
        RestText member(fetch(bridge, members.front().id));
        LoadStorageController(member, controller);
    });
}
