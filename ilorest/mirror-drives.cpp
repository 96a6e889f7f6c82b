// The reader's steps for the drives and volumes of the Redfish Storage controllers. The variants load the
// same members; what tells them apart is in the tables of storage-family.
#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>

#include "ilorest-reader.h"
#include "rest-text.h"
#include "storage-family.h"

namespace {

constexpr const char* kNoReason = "None";

// The reasons that the Mirror rules look for in a drive's health, the gravest last.
constexpr std::string_view kHealthWords[] = {"Critical", "FailedDueToPredictiveSpareActivation",
                                             "CommunicationFailure", "CarrierCommunicationFailure",
                                             "Unrecoverable"};

void LoadDriveStatus(RestText& text, DiskDrive& drive) {
    Status status{"OK", kNoReason, "Enabled"};
    LoadStatus(text, status);
    if (status.Health != "OK" && !status.Health.empty()) {
        status.Reason = status.Health;
    }
    drive.health = status.Health;
    drive.state = status.State;
    drive.statusReasons = {status.Reason};
    // A list that says nothing does not take the health's word away.
    std::vector<std::string> listed;
    text.loadOptional("DiskDriveStatusReasons", listed);
    if (!listed.empty() && listed != std::vector<std::string>{kNoReason}) {
        drive.statusReasons = std::move(listed);
    }
    // One health stands for all reasons: the gravest.
    for (const std::string_view word : kHealthWords) {
        if (std::find(drive.statusReasons.begin(), drive.statusReasons.end(), word) !=
            drive.statusReasons.end()) {
            drive.health = word;
        }
    }
    text.loadOptional("StatusIndicator", drive.statusIndicator);
    text.loadTolerant("FailurePredicted", drive.failurePredicted);
}

void LoadDrive(RestText& text, DiskDrive& drive) {
    constexpr std::int64_t kBytesPerGB = 1000 * 1000 * 1000;
    text.loadTolerant("Id", drive.Id);
    text.loadTolerant("Model", drive.model);
    text.loadTolerant("SerialNumber", drive.serialNumber);
    text.loadTolerant("MediaType", drive.mediaType);
    text.loadTolerant("Revision", drive.firmwareRevision);
    text.loadTolerant("BlockSizeBytes", drive.blockSize);
    std::int64_t bytes = 0;
    text.loadTolerant("CapacityBytes", bytes);
    drive.capacityGB = bytes / kBytesPerGB;
    // A drive that tells no wear is not a worn one, whatever the scale of the thresholds.
    drive.endurance = 100 * static_cast<std::int64_t>(drive.enduranceScale);
    if (drive.mediaType.find("SSD") != std::string::npos) {
        const std::int64_t silent = std::numeric_limits<std::int64_t>::min();
        std::int64_t told = silent;
        text.loadTolerant("PredictedMediaLifeLeftPercent", told);
        drive.enduranceTold = told != silent;
        drive.endurance = drive.enduranceTold ? told : drive.endurance;
    }
    PLocation location;
    LoadLocation(text, "PhysicalLocation", location);
    drive.location = location.text();
    text.insideOptional("Links", [&] { text.loadOptional("Volumes", drive.volumes); });
}

bool IsEmptyBay(const DiskDrive& drive) {
    return drive.state == "Absent" && drive.model.empty() && drive.serialNumber.empty();
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : ",") + text;
    }
    return joined;
}

// 0 when the text is no whole number of 32 bits.
std::int32_t NumberOf(const std::string& text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

}  // namespace

void iLoRestReader::readRedfishDrives(const RedfishDriveReader& reader, RestBridge& bridge,
                                      const std::vector<Odataid>& ids, ArrayController& controller) {
    for (const Odataid& id : ids) {
        DiskDrive drive;
        readRedfishDrive(reader, bridge, id, drive);
        if (!IsEmptyBay(drive)) {
            controller.addDiskDrive(id, drive);
        }
    }
}

void iLoRestReader::readRedfishDrive(const RedfishDriveReader& reader, RestBridge& bridge, const Odataid& id,
                                     DiskDrive& drive) {
    step({reader.failure, __LINE__}, [&] {
        const std::string told =
            fetch(bridge, id.id, reader.attempts != 0 ? reader.attempts : m_notReadyAttempts);
        drive.untold = isNotReady(told);
        RestText text(told);
        drive.enduranceScale = m_enduranceScale;
        LoadDrive(text, drive);
        LoadDriveStatus(text, drive);
        trace(__LINE__, "statusReasons=" + Joined(drive.statusReasons) + ", State=" + drive.state +
                            ", failurePredicted=" + (drive.failurePredicted ? "1" : "0"));
    });
}

void iLoRestReader::readRedfishVolumes(const RedfishVolumeReader& reader, RestBridge& bridge,
                                       const Odataid& collection, ArrayController& controller) {
    step({reader.collectionFailure, __LINE__}, [&] {
        for (const Odataid& id : fetchMembers(bridge, collection)) {
            LogicalDrive drive;
            readRedfishVolume(reader, bridge, id, drive);
            controller.addLogicalDrive(id, drive);
        }
    });
}

void iLoRestReader::readRedfishVolume(const RedfishVolumeReader& reader, RestBridge& bridge,
                                      const Odataid& id, LogicalDrive& drive) {
    step({reader.failure, __LINE__}, [&] {
        RestText text(fetch(bridge, id.id));
        text.load("Id", drive.Id);
        drive.number = NumberOf(drive.Id);
        text.inside("Status", [&] {
            text.loadOptional("Health", drive.health);
            text.loadOptional("State", drive.state);
        });
        text.loadOptional("RAIDType", drive.raidType);
        text.insideOptional("Links", [&] {
            text.loadOptional("Drives", drive.dataDrives);
            if (reader.spares) {
                text.loadOptional("DedicatedSpareDrives", drive.spareDrives);
            }
        });
    });
}

void iLoRestReader::readMirrorDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive) {
    readRedfishDrive(FindDriveReader(DriveReader::Mirror), bridge, id, drive);
}

void iLoRestReader::readBCMDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive) {
    readRedfishDrive(FindDriveReader(DriveReader::Bcm), bridge, id, drive);
}

void iLoRestReader::readMCDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive) {
    readRedfishDrive(FindDriveReader(DriveReader::Mc), bridge, id, drive);
}

void iLoRestReader::readVROCDiskDrive(RestBridge& bridge, const Odataid& id, DiskDrive& drive) {
    readRedfishDrive(FindDriveReader(DriveReader::Vroc), bridge, id, drive);
}

void iLoRestReader::readVolumeDrives(RestBridge& bridge, const Odataid& collection,
                                     ArrayController& controller) {
    readRedfishVolumes(FindVolumeReader(VolumeReader::Volume), bridge, collection, controller);
}

void iLoRestReader::readVolumeDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive) {
    readRedfishVolume(FindVolumeReader(VolumeReader::Volume), bridge, id, drive);
}

void iLoRestReader::readUVolumeDrives(RestBridge& bridge, const Odataid& collection,
                                      ArrayController& controller) {
    readRedfishVolumes(FindVolumeReader(VolumeReader::UVolume), bridge, collection, controller);
}

void iLoRestReader::readUVolumeDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive) {
    readRedfishVolume(FindVolumeReader(VolumeReader::UVolume), bridge, id, drive);
}

void iLoRestReader::readBCMVolumeDrives(RestBridge& bridge, const Odataid& collection,
                                        ArrayController& controller) {
    readRedfishVolumes(FindVolumeReader(VolumeReader::Bcm), bridge, collection, controller);
}

void iLoRestReader::readBCMVolumeDrive(RestBridge& bridge, const Odataid& id, LogicalDrive& drive) {
    readRedfishVolume(FindVolumeReader(VolumeReader::Bcm), bridge, id, drive);
}
