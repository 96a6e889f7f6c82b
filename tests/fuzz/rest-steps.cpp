// Every step of the reader by itself, so that no other one keeps the input from it. The input's first
// character chooses the step.
#include <array>
#include <functional>
#include <string>

#include "controller-text.h"
#include "fuzz.h"

namespace {

using Step = void (*)(iLoRestReader& reader, RestBridge& bridge, const Odataid& id);

template <class Item, void (iLoRestReader::*kRead)(RestBridge&, const Odataid&, Item&)>
void Read(iLoRestReader& reader, RestBridge& bridge, const Odataid& id) {
    Item item;
    (reader.*kRead)(bridge, id, item);
}

void ReadVersion(iLoRestReader& reader, RestBridge& bridge, const Odataid&) {
    iLOVersion version;
    reader.readiLOVersion(bridge, version);
}

void ReadVnicVersion(iLoRestReader& reader, RestBridge& bridge, const Odataid&) {
    iLOVersion version;
    reader.readiLOVersion_vnic("h", "a", "p", bridge, version);
}

constexpr Step kSteps[] = {
    Read<ServiceRoot, &iLoRestReader::readSystems>,
    Read<ComputerSystem, &iLoRestReader::readComputerSystem>,
    Read<SmartStorage, &iLoRestReader::readSmartStorage>,
    Read<SmartStorage, &iLoRestReader::readArrayControllers>,
    Read<ArrayController, &iLoRestReader::readController>,
    Read<ArrayController, &iLoRestReader::readLogicalDrives>,
    Read<LogicalDrive, &iLoRestReader::readLogicalDrive>,
    Read<LogicalDrive, &iLoRestReader::readLogicalDriveDataDrives>,
    Read<ArrayController, &iLoRestReader::readDiskDrives>,
    Read<DiskDrive, &iLoRestReader::readDiskDrive>,
    Read<ComputerSystem, &iLoRestReader::readStorage>,
    Read<SmartStorage, &iLoRestReader::readMirrorControllers>,
    Read<ArrayController, &iLoRestReader::readMirrorController>,
    Read<DiskDrive, &iLoRestReader::readMirrorDiskDrive>,
    Read<DiskDrive, &iLoRestReader::readBCMDiskDrive>,
    Read<DiskDrive, &iLoRestReader::readMCDiskDrive>,
    Read<DiskDrive, &iLoRestReader::readVROCDiskDrive>,
    Read<ArrayController, &iLoRestReader::readVolumeDrives>,
    Read<LogicalDrive, &iLoRestReader::readVolumeDrive>,
    Read<ArrayController, &iLoRestReader::readUVolumeDrives>,
    Read<LogicalDrive, &iLoRestReader::readUVolumeDrive>,
    Read<ArrayController, &iLoRestReader::readBCMVolumeDrives>,
    Read<LogicalDrive, &iLoRestReader::readBCMVolumeDrive>,
    ReadVersion,
    ReadVnicVersion,
};

}  // namespace

void Fuzz(std::string_view input) {
    if (input.empty()) {
        return;
    }
    const Step step = kSteps[static_cast<unsigned char>(input.front()) % std::size(kSteps)];
    ControllerText controller(input.substr(1));
    iLoRestReader reader(controller.Lend());
    for (std::size_t moment = 0; moment < controller.moments(); ++moment) {
        controller.SetMoment(moment);
        Succeeds([&] { step(reader, controller.bridge(), {"/x"}); });
    }
}
