// A reader on a controller in memory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "fake-bridge.h"
#include "ilorest-reader.h"
#include "test-root.h"

inline const std::string kNotReadyText =
    R"({"error":{"@Message.ExtendedInfo":[{"MessageId":"iLO.2.30.ResourceNotReadyRetry"}]}})";
inline const std::string kMissingText =
    R"({"error":{"@Message.ExtendedInfo":[{"MessageId":"Base.1.18.ResourceMissingAtURI"}]}})";

inline const std::string kSystemsPath = "/redfish/v1/Systems/";
inline const std::string kSystem = "/redfish/v1/Systems/1/";
inline const std::string kArray = kSystem + "SmartStorage/ArrayControllers/";
inline const std::string kSmart = kArray + "2/";
inline const std::string kStorage = kSystem + "Storage/";
// Devices that answer for themselves give ids without a slash at the end.
inline const std::string kMr = "/redfish/v1/Systems/1/Storage/DE0AA000";
inline const std::string kMrDrives = "/redfish/v1/Chassis/DE0AA000/Drives/";

inline std::string Links(const std::vector<std::string>& ids) {
    std::string links;
    for (const std::string& id : ids) {
        links += (links.empty() ? "" : ",") + (R"({"@odata.id":")" + id + R"("})");
    }
    return "[" + links + "]";
}

inline std::string Collection(const std::vector<std::string>& ids) {
    return R"({"Members":)" + Links(ids) + R"(,"Members@odata.count":)" + std::to_string(ids.size()) + "}";
}

// The text with the first occurrence of a part replaced; a part that is not there fails the test.
inline std::string With(std::string text, const std::string& part, const std::string& by) {
    const std::size_t at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part;
    return at == std::string::npos ? text : text.replace(at, part.size(), by);
}

inline const std::string kSmartController =
    R"({"Id":"2","Model":"HPE Smart Array P408i-a SR Gen10","Location":"Slot 0","SerialNumber":"SMART001 ",)"
    R"("Status":{"Health":"OK","State":"Enabled"}})";
inline const std::string kSmartVolume =
    R"({"Id":"1","LogicalDriveNumber":7,"Status":{"Health":"Warning","State":"Enabled"},"Raid":"1"})";
inline const std::string kSmartDrive =
    R"({"Id":"0","Model":"EG000600TEST","CapacityGB":600,"CapacityMiB":572325,"BlockSizeBytes":512,)"
    R"("CapacityLogicalBlocks":1172123568,"SerialNumber":"DRIVE001","Location":"1I:3:1","MediaType":"SSD",)"
    R"("Status":{"Health":"OK","State":"Enabled"},"SSDEnduranceUtilizationPercentage":3,)"
    R"("DiskDriveStatusReasons":["None"],"FirmwareVersion":{"Current":{"VersionString":"HPD1"}}})";

inline const std::string kMrLinked =
    R"({"Id":"DE0AA000","Name":"HPE MR416i-o Gen11","Status":{"State":"Enabled","HealthRollup":"Warning"},)"
    R"("Controllers":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0AA000/Controllers"},"Drives@odata.count":9,)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Chassis/DE0AA000/Drives/0"},)"
    R"({"@odata.id":"/redfish/v1/Chassis/DE0AA000/Drives/64519"}],)"
    R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0AA000/Volumes"}})";
inline const std::string kMrEmbedded =
    R"({"Id":"DE0AA000","Name":"HPE MR416i-p Gen10+","Status":{"State":"Enabled","Health":"OK"},)"
    R"("StorageControllers":[{"MemberId":"0","Model":"HPE MR416i-p Gen10+","SerialNumber":" MR0001 ",)"
    R"("Location":{"PartLocation":{"ServiceLabel":"Slot 1","LocationType":"Slot","LocationOrdinalValue":1}}}],)"
    R"("Drives":[{"@odata.id":"/redfish/v1/Chassis/DE0AA000/Drives/0"}],)"
    R"("Volumes":{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0AA000/Volumes"}})";
inline const std::string kMrController =
    R"({"Id":"0","Name":"HPE MR416i-o Gen11","Model":"HPE MR416i-o Gen11","SerialNumber":"MR0001",)"
    R"("Location":{"PartLocation":{"ServiceLabel":"Slot=18","LocationType":"Slot","LocationOrdinalValue":18}}})";
inline const std::string kMrVolume =
    R"({"Id":"239","Name":"MR Volume 239","RAIDType":"RAID1","Status":{"State":"Enabled","Health":"OK"},)"
    R"("Links":{"Drives":[{"@odata.id":"/redfish/v1/Chassis/DE0AA000/Drives/0"}],)"
    R"("DedicatedSpareDrives":[{"@odata.id":"/redfish/v1/Chassis/DE0AA000/Drives/64519"}]}})";
inline const std::string kMrDrive =
    R"({"Id":"0","Name":"480GB 6G SATA SSD","Status":{"State":"Enabled","Health":"OK"},)"
    R"("Links":{"Volumes":[{"@odata.id":"/redfish/v1/Systems/1/Storage/DE0AA000/Volumes/239"}]},)"
    R"("PhysicalLocation":{"PartLocation":{"ServiceLabel":"Slot=18:Port=2:Box=1:Bay=8","LocationType":"Bay",)"
    R"("LocationOrdinalValue":8}},"BlockSizeBytes":512,"CapacityBytes":480103981056,"FailurePredicted":false,)"
    R"("MediaType":"SSD","Model":"XX000480TEST","PredictedMediaLifeLeftPercent":97.9,"Revision":"T001",)"
    R"("SerialNumber":"INVENTED001","StatusIndicator":"OK"})";
inline const std::string kEmptyBay =
    R"({"Id":"64520","Name":"Empty Bay","Status":{"State":"Absent","Health":"OK"},)"
    R"("PhysicalLocation":{"PartLocation":{"ServiceLabel":"Slot=18:Port=2:Box=1:Bay=3"}}})";

class ReaderTest : public testing::Test {
protected:
    ReaderTest() {
        auto owned = std::make_unique<FakeBridge>();
        bridge = owned.get();
        reader = std::make_unique<iLoRestReader>(std::move(owned));
        reader->setLogger(&log);
        reader->setEvt(&wait);
        reader->init("https://controller.test", "account", "password", 3, 10);

        auto& all = bridge->resources;
        all[kSystemsPath] = Collection({kSystem});
        all[kStorage] = Collection({});
        all[kArray] = Collection({});
    }

    // One Smart Storage controller with one logical drive and one physical one.
    void AddSmartStorage() {
        auto& all = bridge->resources;
        all[kArray] = Collection({kSmart});
        all[kSmart] = kSmartController;
        all[kSmart + "LogicalDrives/"] = Collection({kSmart + "LogicalDrives/1/"});
        all[kSmart + "LogicalDrives/1/"] = kSmartVolume;
        all[kSmart + "LogicalDrives/1/DataDrives/"] = Collection({kSmart + "DiskDrives/0/"});
        all[kSmart + "DiskDrives/"] = Collection({kSmart + "DiskDrives/0/"});
        all[kSmart + "DiskDrives/0/"] = kSmartDrive;
    }
    // One MegaRAID controller, linked, with one volume and two drives.
    void AddMr() {
        auto& all = bridge->resources;
        all[kStorage] = Collection({kMr});
        all[kMr] = kMrLinked;
        all[kMr + "/Controllers"] = Collection({kMr + "/Controllers/0"});
        all[kMr + "/Controllers/0"] = kMrController;
        all[kMr + "/Volumes"] = Collection({kMr + "/Volumes/239"});
        all[kMr + "/Volumes/239"] = kMrVolume;
        all[kMrDrives + "0"] = kMrDrive;
        all[kMrDrives + "64519"] = kMrDrive;
    }

    // The walk's snapshot; a failure fails the test.
    ServiceRoot Walk() {
        ServiceRoot root;
        try {
            EXPECT_TRUE(reader->readILoRest(root));
        } catch (const std::string& text) {
            ADD_FAILURE() << text;
        }
        return root;
    }
    // The text that the walk fails with.
    std::string WalkFailure() {
        ServiceRoot root;
        try {
            reader->readILoRest(root);
        } catch (const std::string& text) {
            EXPECT_TRUE(root.systems.empty());
            return text;
        }
        return "(no failure)";
    }

    // The trace lines without their stamps; line numbers of the reader's sources become N.
    std::vector<std::string> Trace() const {
        static const std::regex line("^\\S+ \\S+ (.*)$");
        static const std::regex number("ilorest-reader [0-9]+ ");
        std::vector<std::string> lines;
        std::istringstream in(files.Read("trace"));
        for (std::string text; std::getline(in, text);) {
            lines.push_back(
                std::regex_replace(std::regex_replace(text, line, "$1"), number, "ilorest-reader N "));
        }
        return lines;
    }

    TestRoot files;
    tovaserverutil::TraceLog log{files / "trace", 1000000, true};
    FakeStopWait wait;
    FakeBridge* bridge = nullptr;  // owned by the reader
    std::unique_ptr<iLoRestReader> reader;
};

// The text that a call throws as std::string.
template <class Call>
std::string FailureText(Call call) {
    try {
        call();
    } catch (const std::string& text) {
        return text;
    }
    return "(no failure)";
}
