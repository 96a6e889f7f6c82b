#include "adu-heading.h"

#include <algorithm>

#include "adu-text.h"
#include "kept.h"
#include "text.h"

using tovaserverutil::Contains;
using tovaserverutil::TakeWord;
using tovaserverutil::Trimmed;

namespace {

constexpr std::string_view kDrive = "Physical Drive";

// The location's next part, up to the colon; takes it off.
std::string_view TakePart(std::string_view& location) {
    const std::size_t colon = std::min(location.find(':'), location.size());
    const std::string_view part = location.substr(0, colon);
    location.remove_prefix(std::min(colon + 1, location.size()));
    return part;
}

}  // namespace

std::string_view TitleOf(std::string_view line) {
    return Trimmed(line.substr(0, line.find(" :")));
}

std::string_view LastPart(std::string_view line) {
    constexpr std::string_view kJoint = " : ";
    const std::size_t last = line.rfind(kJoint);
    return last == std::string_view::npos ? line : line.substr(last + kJoint.size());
}

bool IsController(std::string_view title) {
    return Contains(title, " in slot ") || Contains(title, " in Slot ") ||
           Contains(title, " in Embedded Slot");
}

std::string_view DrivePart(std::string_view line) {
    if (const std::size_t drive = line.find(kDriveWithKind); drive != std::string_view::npos) {
        return line.substr(drive);
    }
    const std::size_t drive = line.find(kDrive);
    if (drive == std::string_view::npos) {
        return {};
    }
    // Two colons make a place: "Physical Drive Type: SSD" is a value.
    std::string_view rest = line.substr(drive + kDrive.size());
    for (std::string_view word = TakeWord(rest); !word.empty(); word = TakeWord(rest)) {
        if (std::count(word.begin(), word.end(), ':') >= 2) {
            return line.substr(drive);
        }
    }
    return {};
}

bool HoldsKind(std::string_view drivePart) {
    return Contains(drivePart, "HDD") || Contains(drivePart, "SSD");
}

void getLocation(std::string_view line, std::string& title, std::string& location, std::string& port,
                 std::string& box, std::string& bay, int mode) {
    for (std::string* const text : {&title, &location, &port, &box, &bay}) {
        text->clear();
    }
    std::size_t drive = line.find(kDriveWithKind);
    if (drive == std::string_view::npos && mode == kErrorLogHeading) {
        drive = line.find(kDrive);
    }
    if (drive == std::string_view::npos || !HoldsKind(line.substr(drive))) {
        return;
    }
    title.assign(TitleOf(line));
    // The drive's last bracket: its size may hold some, and so may the names of controllers and cages.
    std::string_view rest = line.substr(drive);
    rest = rest.substr(0, rest.find(" : "));
    const std::size_t bracket = rest.rfind(") ");
    if (bracket == std::string_view::npos) {
        return;
    }
    rest.remove_prefix(bracket + 2);
    std::string_view place = TakeWord(rest);
    location.assign(place);
    port.assign(TakePart(place));
    box.assign(TakePart(place));
    bay.assign(TakePart(place));
}

AduHeading::AduHeading(std::string_view line, int mode) {
    getLocation(line, title, location, port, box, bay, mode);
    title = KeptText(title);
    location = KeptText(location);
    for (std::string* const part : {&port, &box, &bay}) {
        removeNonDigits(*part);
    }
}
