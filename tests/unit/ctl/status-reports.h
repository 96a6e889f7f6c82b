// Reports for the tests of what "baywardctl status" shows.
#pragma once

#include <string>

#include "evt-data.h"
#include "status-report.h"

// What people and attackers may have written into a drive.
inline constexpr const char* kHostile = "<script>alert(\"x\")</script> 'q' & 100%s|\\ \n{}\t\x1b[31m";

inline DriveStatus GoodDrive(const std::string& location) {
    DriveStatus drive;
    drive.id = "/redfish/v1/Drives/" + location;
    drive.location = location;
    drive.model = "VK000960GWTEST";
    drive.serialNumber = "SERIAL" + location;
    drive.firmware = "HPG3";
    drive.mediaType = "SSD";
    drive.size = "960 GB";
    drive.bytes = 960197124096;
    drive.health = "OK";
    drive.state = "Enabled";
    drive.lifeLeft = 98;
    return drive;
}

inline DriveStatus FailedDrive(const std::string& location) {
    DriveStatus drive = GoodDrive(location);
    drive.mediaType = "HDD";
    drive.lifeLeft.reset();
    drive.health = "Critical";
    drive.reasons = {"Failed"};
    drive.level = Level::kCritical;
    drive.reported = {{tovaevent::kDriveFailed, Level::kCritical, "failed",
                       "A physical drive has failed: PD(" + location + ")\nReplace the drive now."}};
    return drive;
}

inline StatusReport EmptyReport() {
    StatusReport report;
    report.host = "server01";
    report.url = "https://192.0.2.10";
    report.version = "iLO 5 v2.72";
    report.readAt = 1769903999;
    report.duration = std::chrono::milliseconds(1234);
    report.requests = 38;
    return report;
}

// One controller with a good drive, a failed one and an offline logical drive.
inline StatusReport BadReport() {
    StatusReport report = EmptyReport();
    ControllerStatus controller;
    controller.id = "/redfish/v1/Controllers/0";
    controller.model = "HPE Smart Array P408i-a SR Gen10";
    controller.location = "Slot 0";
    controller.serialNumber = "PEYHB0";
    controller.health = "OK";
    controller.state = "Enabled";
    controller.drives = {GoodDrive("1I:1:1"), FailedDrive("1I:1:2")};
    LogicalDriveStatus logical;
    logical.id = "/redfish/v1/LogicalDrives/1";
    logical.number = 1;
    logical.raid = "RAID1";
    logical.memberDrives = 2;
    logical.health = "Critical";
    logical.state = "Disabled";
    logical.level = Level::kCritical;
    logical.reported = {
        {tovaevent::kLogicalDriveOffline, Level::kCritical, "offline", "A logical drive is offline: LD(1)"}};
    controller.logicalDrives = {logical};
    report.systems = {{"/redfish/v1/Systems/1", {controller}}};
    return report;
}

inline StatusReport GoodReport() {
    StatusReport report = BadReport();
    ControllerStatus& controller = report.systems.front().controllers.front();
    controller.drives = {GoodDrive("1I:1:1"), GoodDrive("1I:1:2")};
    LogicalDriveStatus& logical = controller.logicalDrives.front();
    logical.health = "OK";
    logical.state = "Enabled";
    logical.level = Level::kOk;
    logical.reported.clear();
    return report;
}

// Every text of it is hostile.
inline StatusReport HostileReport() {
    StatusReport report = BadReport();
    report.host = report.url = report.version = kHostile;
    ControllerStatus& controller = report.systems.front().controllers.front();
    for (std::string* text : {&controller.id, &controller.model, &controller.location,
                              &controller.serialNumber, &controller.health, &controller.state}) {
        *text = kHostile;
    }
    for (DriveStatus& drive : controller.drives) {
        for (std::string* text : {&drive.location, &drive.model, &drive.serialNumber, &drive.firmware,
                                  &drive.mediaType, &drive.size, &drive.health, &drive.state}) {
            *text = kHostile;
        }
        drive.id += kHostile;
        drive.reasons = {kHostile};
        drive.level = Level::kWarning;
    }
    controller.drives.back().reported.front().sentence = kHostile;
    LogicalDriveStatus& logical = controller.logicalDrives.front();
    for (std::string* text : {&logical.id, &logical.raid, &logical.health, &logical.state}) {
        *text = kHostile;
    }
    logical.reported.front().sentence = std::string(5000, 'x') + kHostile;
    return report;
}
