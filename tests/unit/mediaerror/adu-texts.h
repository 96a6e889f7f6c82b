// Pieces of diagnostic reports, in the layouts of the real ones.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

inline const std::string kP840 = "Smart Array P840 in slot 1";
inline const std::string kStatus = "Physical Drive Status";
inline const std::string kErrorLog = "Serial SCSI Physical Drive Error Log";

inline std::string Hex(unsigned int number, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*x", digits, number);
    return text;
}

inline std::string DriveHeading(const std::string& controller, const std::string& location,
                                const std::string& structure) {
    return controller + " : Internal Drive Cage at Port 1I : Box 1 : Physical Drive (2 TB SAS HDD) " +
           location + " : " + structure;
}

// A structure of one drive, as it stands in the interleaved form.
inline std::string DriveSection(const std::string& controller, const std::string& location,
                                const std::string& structure, const std::string& lines) {
    return "\n" + DriveHeading(controller, location, structure) + "\n\n" + lines;
}

// One drive below the heading of a grouped section.
inline std::string GroupedDrive(const std::string& location, const std::string& lines) {
    return "   Physical Drive (2 TB SAS HDD) " + location + " :\n" + lines;
}

inline std::string StatusLines(const std::string& serial, const std::string& port, int box, int bay) {
    return "   SCSI Bus                             0x00\n"
           "   Drive Model                          TESTMAKE TESTMODEL2000\n"
           "   Drive Serial Number                  " +
           serial +
           "            \n"
           "   Drive Firmware Revision              TST1\n"
           "   Hot Plug Count                       0x0000\n"
           "   Physical Port                        " +
           port + "\n   Physical Box                         " + std::to_string(box) +
           "\n   Physical Bay                         " + std::to_string(bay) + "\n";
}

// An error entry of keys and values.
inline std::string Entry(unsigned int senseKey, unsigned int time) {
    return "      Error Type                        0x01\n      Sense Key                         " +
           Hex(senseKey, 2) + "\n      ASC                               0x11\n" +
           "      Reference Time                    " + Hex(time, 8) + "\n";
}

inline const std::string kTableHead =
    "   Physical Drive Error Log Entries\n\n"
    "      Error Type   SCSI Operation Code   SCSI Status   CAM Status   Sense Key   ASC    ASCQ   Block "
    "Valid   "
    "Block        Reference Time   Additional Information\n"
    "      ----------   -------------------   -----------   ----------   ---------   ----   ----   "
    "-----------   "
    "----------   --------------   ----------------------\n";

inline std::string Row(unsigned int senseKey, unsigned int time) {
    return "      0x01         0x28                  0x02          0x04         " + Hex(senseKey, 2) +
           "        0x11   0x00   0x01          0x0d6d2ba0   " + Hex(time, 8) + "       0x0000\n";
}

// An error log with its entries, sense key and time, as a table.
inline std::string Table(const std::vector<std::pair<unsigned int, unsigned int>>& entries) {
    std::string lines = "   Errors Logged                        " + std::to_string(entries.size()) + "\n\n";
    if (!entries.empty()) {
        lines += kTableHead;
    }
    for (const auto& [senseKey, time] : entries) {
        lines += Row(senseKey, time);
    }
    return lines + "\n   Reference Time                       0x0005f000\n";
}

// What stands between a drive's status section and its error log.
inline std::string OtherSections(const std::string& controller, const std::string& location) {
    std::string sections;
    for (const char* const name : {"Monitor and Performance Statistics (Since Factory)", "Mode Sense 10",
                                   "VPD Page 80 - Serial Number"}) {
        sections += DriveSection(controller, location, name,
                                 "   Serial Number                        WRONG\n"
                                 "   Sense Key                            0x03\n"
                                 "   Reference Time                       0x0005f000\n");
    }
    return sections;
}

inline std::string Head(const std::string& controller) {
    return "ADU Version                          8.60-8.0\n"
           "Time Generated                       Sunday March 13, 2011 10:30:59PM\n\nDevice Summary:\n   " +
           controller + "\n\nConsolidated Error Report:\n   Controller: " + controller +
           "\n   Device: Physical Drive 1I:1:1\n   Message: The physical drive has failed.\n\nReport for " +
           controller + "\n-------------------------------------\n\n" + controller +
           " : Device Error Report\nDevice                             Severity Error\n"
           "---------------------------------- -------- -------------\n" +
           controller + "         Warning  Physical Drive (2 TB SAS HDD) 1I:1:1\n\n" + controller +
           " : Identify Controller\n   Configured Logical Drives            1 (0x01)\n";
}

// Two controllers with two drives each, interleaved and with a table the one, grouped and with keys and
// values the other: eight records.
inline std::string FullReport() {
    const std::string other = "Smart Array P410i in Embedded Slot";
    std::string report = Head(kP840);
    for (const int bay : {1, 2}) {
        const std::string location = "1I:1:" + std::to_string(bay);
        report +=
            DriveSection(kP840, location, kStatus, StatusLines("SN" + std::to_string(bay), "1I", 1, bay)) +
            OtherSections(kP840, location) +
            DriveSection(kP840, location, kErrorLog, Table({{3, 0x100}, {5, 0x200}, {3, 0x300}})) +
            OtherSections(kP840, location);
    }
    return report + Head(other) + other + " : " + kStatus + "\n" +
           GroupedDrive("1I:1:1", StatusLines("SN3", "1I", 1, 1)) +
           GroupedDrive("2I:1:2", StatusLines("SN4", "2I", 1, 2)) + other + " : " + kErrorLog + "\n" +
           GroupedDrive("1I:1:1", Entry(3, 0x10) + Entry(1, 0x20)) + GroupedDrive("2I:1:2", Entry(3, 0x30));
}
