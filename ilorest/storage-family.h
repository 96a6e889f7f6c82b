// Which readers a Redfish Storage controller gets.
#pragma once

#include <cstdint>
#include <string>

// What the names and models of the controllers that are treated in ways of their own hold.
inline constexpr const char* kBootDeviceName = "HPE NS204i-";
inline constexpr const char* kEmbeddedSataName = "Embedded SATA Controller";
inline constexpr const char* kMegaRaidModel = "HPE MR";

enum class DriveReader { Mirror, Bcm, Mc, Vroc };
enum class VolumeReader { None, Volume, UVolume, Bcm };

// One row of the decision table.
struct StorageFamily {
    enum class Test { NameContains, NameStartsWith, ModelContains };
    enum class Volumes { None, ByShape, Bcm };

    Test test;
    const char* word;
    bool scansControllers;  // of an embedded array: take the first that is an embedded SATA or VROC one, not
                            // simply the first
    DriveReader drives;
    Volumes volumes;
};

// The first row that the subsystem's name and its controller's model match; there always is one.
const StorageFamily& ClassifyStorage(const std::string& name, const std::string& model);

// `version` is the management controller's version text; `embedded` says whether the subsystem's text holds
// its controllers itself, which older device firmware does and which decides where the version is silent.
VolumeReader ChooseVolumeReader(const StorageFamily& family, const std::string& version, bool embedded);

// 110 for "Gen11" in the subsystem's name or its controller's model, otherwise 101.
std::int32_t StorageGeneration(const std::string& name, const std::string& model);

// The controller of an embedded array that ends the scan.
bool IsEmbeddedSata(const std::string& name, const std::string& model);

// The readers of drives and volumes differ only in these details.
struct RedfishDriveReader {
    DriveReader variant;
    const char* failure;    // the step's failure text
    std::int32_t attempts;  // fetches of a drive that is not ready; 0 for the reader's usual number
};
const RedfishDriveReader& FindDriveReader(DriveReader variant);

struct RedfishVolumeReader {
    VolumeReader variant;
    bool spares;                    // loads the dedicated spares; boot devices have none
    const char* collectionFailure;  // failure texts of the two steps
    const char* failure;
};
// Not for VolumeReader::None, which reads nothing.
const RedfishVolumeReader& FindVolumeReader(VolumeReader variant);
