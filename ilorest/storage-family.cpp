#include "storage-family.h"

#include <algorithm>
#include <iterator>

#include "text.h"

using tovaserverutil::Contains;

namespace {

using Test = StorageFamily::Test;
using Volumes = StorageFamily::Volumes;

// In this order: the first row that matches decides.
constexpr StorageFamily kFamilies[] = {
    {Test::NameContains, kBootDeviceName, false, DriveReader::Mirror, Volumes::ByShape},  // boot device
    {Test::NameStartsWith, "SATA Storage System", true, DriveReader::Vroc, Volumes::ByShape},
    {Test::NameContains, "VROC", true, DriveReader::Vroc, Volumes::ByShape},
    {Test::NameContains, "NVMe Storage System", false, DriveReader::Mirror,
     Volumes::None},  // one drive, no RAID
    {Test::ModelContains, kMegaRaidModel, false, DriveReader::Bcm, Volumes::Bcm},
    {Test::NameContains, "", false, DriveReader::Mc, Volumes::Bcm},  // everything else
};

constexpr RedfishDriveReader kDriveReaders[] = {
    {DriveReader::Mirror, "iLoRestReader.readMirrorDiskDrive failed.", 0},
    {DriveReader::Bcm, "iLoRestReader.readBCMDiskDrive failed.", 0},
    {DriveReader::Mc, "iLoRestReader.readMCDiskDrive failed.", 0},
    {DriveReader::Vroc, "iLoRestReader.readVROCDiskDrive failed.", 20},
};

constexpr RedfishVolumeReader kVolumeReaders[] = {
    {VolumeReader::Volume, false, "iLoRestReader.readVolumeDrives failed.",
     "iLoRestReader.readVolumeDrive failed."},
    {VolumeReader::UVolume, false, "iLoRestReader.readUVolumeDrives failed.",
     "iLoRestReader.readUVolumeDrive failed."},
    {VolumeReader::Bcm, true, "iLoRestReader.readBCMVolumeDrives failed.",
     "iLoRestReader.readBCMVolumeDrive failed."},
};

bool Matches(const StorageFamily& family, const std::string& name, const std::string& model) {
    switch (family.test) {
        case Test::NameContains:
            return Contains(name, family.word);
        case Test::NameStartsWith:
            return name.starts_with(family.word);
        case Test::ModelContains:
            return Contains(model, family.word);
    }
    return false;
}

template <class Row, std::size_t Count, class Variant>
const Row& FindRow(const Row (&rows)[Count], Variant variant) {
    return *std::find_if(std::begin(rows), std::end(rows) - 1,
                         [&](const Row& row) { return row.variant == variant; });
}

}  // namespace

const StorageFamily& ClassifyStorage(const std::string& name, const std::string& model) {
    return *std::find_if(std::begin(kFamilies), std::end(kFamilies) - 1,
                         [&](const StorageFamily& family) { return Matches(family, name, model); });
}

VolumeReader ChooseVolumeReader(const StorageFamily& family, const std::string& version, bool embedded) {
    switch (family.volumes) {
        case Volumes::None:
            return VolumeReader::None;
        case Volumes::Bcm:
            return VolumeReader::Bcm;
        case Volumes::ByShape:
            break;
    }
    if (Contains(version, "iLO 5")) {
        return VolumeReader::Volume;
    }
    if (Contains(version, "iLO 6")) {
        return VolumeReader::UVolume;
    }
    return embedded ? VolumeReader::Volume : VolumeReader::UVolume;
}

std::int32_t StorageGeneration(const std::string& name, const std::string& model) {
    return Contains(name, "Gen11") || Contains(model, "Gen11") ? 110 : 101;
}

bool IsEmbeddedSata(const std::string& name, const std::string& model) {
    return Contains(name, kEmbeddedSataName) || Contains(model, kEmbeddedSataName) ||
           Contains(name, "VROC") || Contains(model, "VROC");
}

const RedfishDriveReader& FindDriveReader(DriveReader variant) {
    return FindRow(kDriveReaders, variant);
}

const RedfishVolumeReader& FindVolumeReader(VolumeReader variant) {
    return FindRow(kVolumeReaders, variant);
}
