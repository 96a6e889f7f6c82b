// The reader's steps for the Smart Storage family.
#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>

#include "ilorest-reader.h"
#include "rest-text.h"

namespace {

// The status reasons worth a line.
constexpr std::string_view kTracedReasons[] = {"Failed",
                                               "FailedDueToPredictiveSpareActivation",
                                               "CommunicationFailure",
                                               "CarrierCommunicationFailure",
                                               "Unrecoverable",
                                               "PredictiveFail"};

bool IsTraced(const std::string& reason) {
    return std::find(std::begin(kTracedReasons), std::end(kTracedReasons), reason) !=
           std::end(kTracedReasons);
}

// Real drives send null for members that do not apply to them; such a member keeps its default. A member that
// is missing is a failure, but for the wear, which only solid-state drives have.
void LoadDrive(RestText& text, DiskDrive& drive) {
    text.loadUnlessNull("Model", drive.model);
    text.loadUnlessNull("CapacityGB", drive.capacityGB);
    text.loadUnlessNull("CapacityMiB", drive.capacityMiB);
    text.loadUnlessNull("BlockSizeBytes", drive.blockSize);
    text.loadUnlessNull("CapacityLogicalBlocks", drive.logicalBlocks);
    text.loadUnlessNull("SerialNumber", drive.serialNumber);
    text.loadUnlessNull("Location", drive.location);
    text.loadUnlessNull("MediaType", drive.mediaType);
    text.insideUnlessNull("Status", [&] {
        text.loadUnlessNull("Health", drive.health);
        text.loadUnlessNull("State", drive.state);
    });
    const std::int64_t silent = std::numeric_limits<std::int64_t>::min();
    std::int64_t told = silent;
    text.loadOptional("SSDEnduranceUtilizationPercentage", told);
    drive.enduranceTold = told != silent;
    drive.endurance = drive.enduranceTold ? told : drive.endurance;
    text.loadUnlessNull("DiskDriveStatusReasons", drive.statusReasons);
    text.insideUnlessNull("FirmwareVersion", [&] {
        text.insideUnlessNull("Current",
                              [&] { text.loadUnlessNull("VersionString", drive.firmwareRevision); });
    });
    text.loadUnlessNull("Id", drive.Id);
}

}  // namespace

void iLoRestReader::readSmartStorage(RestBridge& bridge, const Odataid& id, SmartStorage& storage) {
    step({"iLoRestReader.readSmartStorage failed.", __LINE__},
         [&] { readArrayControllers(bridge, id.below("ArrayControllers/"), storage); });
}

void iLoRestReader::readArrayControllers(RestBridge& bridge, const Odataid& collection,
                                         SmartStorage& storage) {
    step({"iLoRestReader.readArrayControllers failed.", __LINE__}, [&] {
        for (const Odataid& id : fetchMembers(bridge, collection)) {
            ArrayController controller;
            readController(bridge, id, controller);
            storage.addController(id, controller);
        }
    });
}

void iLoRestReader::readController(RestBridge& bridge, const Odataid& id, ArrayController& controller) {
    step({"iLoRestReader.readController failed.", __LINE__}, [&] {
        RestText text(fetch(bridge, id.id));
        text.load("Model", controller.model);
        text.load("Location", controller.location);
        text.load("SerialNumber", controller.serialNumber);
        text.load("Id", controller.Id);
        Status status;
        LoadStatus(text, status);
        controller.health = status.Health;
        controller.state = status.State;
        readLogicalDrives(bridge, id.below("LogicalDrives/"), controller);
        readDiskDrives(bridge, id.below("DiskDrives/"), controller);
    });
}

void iLoRestReader::readLogicalDrives(RestBridge& bridge, const Odataid& collection,
                                      ArrayController& controller) {
    step({"iLoRestReader.readLogicalDrives failed.", __LINE__}, [&] {
        for (const Odataid& id : fetchMembers(bridge, collection)) {
            LogicalDrive drive;
            readLogicalDrive(bridge, id, drive);
            controller.addLogicalDrive(id, drive);
        }
    });
}

void iLoRestReader::readLogicalDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive) {
    step({"iLoRestReader.readLogicalDrive failed.", __LINE__}, [&] {
        RestText text(fetch(bridge, id.id));
        text.inside("Status", [&] {
            text.load("Health", drive.health);
            text.load("State", drive.state);
        });
        text.load("LogicalDriveNumber", drive.number);
        text.load("Id", drive.Id);
        readLogicalDriveDataDrives(bridge, id.below("DataDrives/"), drive);
    });
}

void iLoRestReader::readLogicalDriveDataDrives(RestBridge& bridge, const Odataid& collection,
                                               LogicalDrive& drive) {
    step({"iLoRestReader.readLogicalDriveDataDrives failed.", __LINE__},
         [&] { drive.dataDrives = fetchMembers(bridge, collection); });
}

void iLoRestReader::readDiskDrives(RestBridge& bridge, const Odataid& collection,
                                   ArrayController& controller) {
    step({"iLoRestReader.readDiskDrives failed.", __LINE__}, [&] {
        for (const Odataid& id : fetchMembers(bridge, collection)) {
            DiskDrive drive;
            readDiskDrive(bridge, id, drive);
            controller.addDiskDrive(id, drive);
        }
    });
}

void iLoRestReader::readDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive) {
    step({"iLoRestReader.readDiskDrive failed.", __LINE__}, [&] {
        RestText text(fetch(bridge, id.id));
        LoadDrive(text, drive);
        drive.enduranceScale = m_enduranceScale;
        trace(__LINE__, "ssdEnduranceUtilizationPercentage=" + std::to_string(drive.endurance));
        for (const std::string& reason : drive.statusReasons) {
            if (IsTraced(reason)) {
                trace(__LINE__, "statusReasons=" + reason);
            }
        }
    });
}
