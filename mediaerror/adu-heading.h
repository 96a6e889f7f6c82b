// The headings of the diagnostic report: device paths, whose parts are joined by " : ". The last part names
// the structure that follows; the first is the controller for most of them.
#pragma once

#include <string>
#include <string_view>

// The heading's first part.
std::string_view TitleOf(std::string_view line);

// The heading's last part. A " :" that ends the line, as it may in the grouped form, belongs to it.
std::string_view LastPart(std::string_view line);

// Does the first part look like a controller, "Smart Array P840 in slot 1"?
bool IsController(std::string_view title);

inline constexpr std::string_view kDriveWithKind = "Physical Drive (";

// The heading from its drive on: "Physical Drive (2 TB SATA HDD) 1I:1:11 : ...", in old reports "Physical
// Drive 1I:1:11 : ...". Empty when the line names no drive.
std::string_view DrivePart(std::string_view line);

// Is the drive an HDD or an SSD? Takes what DrivePart gives.
bool HoldsKind(std::string_view drivePart);

// The kinds of section whose drive headings getLocation reads.
inline constexpr int kStatusHeading = 0;    // "Physical Drive (" is required
inline constexpr int kErrorLogHeading = 1;  // "Physical Drive" is enough

// Takes a drive's heading apart: title (the text before the first " :"), location ("1I:1:11", what follows
// the drive's ") ") and the location's parts. A line that is no heading of an HDD or SSD leaves all of them
// empty; a part that the location lacks is empty.
void getLocation(std::string_view line, std::string& title, std::string& location, std::string& port,
                 std::string& box, std::string& bay, int mode);

// A drive's heading as the records need it: printable texts of at most kMaxText characters, the digits of the
// location's parts.
struct AduHeading {
    std::string title;
    std::string location;
    std::string port;
    std::string box;
    std::string bay;

    AduHeading(std::string_view line, int mode);
};
