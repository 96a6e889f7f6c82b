// The diagnostic report of the Smart Array controllers (the ADU report) as records. The reader knows nothing
// of files and of the drive maps.
//
// Every structure of the report stands below a heading, its device path: "Smart Array P840 in slot 1 :
// Internal Drive Cage at Port 1I : Box 1 : Physical Drive (2 TB SATA HDD) 1I:1:11 : Physical Drive Status".
// Status sections and error logs may also come grouped: one heading for the controller, below it one heading
// "Physical Drive (2 TB SATA HDD) 1I:1:11 :" for each drive. Both forms are understood, and a heading of any
// other structure ends the section. Nothing depends on columns.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "error-times.h"
#include "line-reader.h"

// A drive's status section. Texts are printable.
struct AduDrive {
    int number = 0;        // the drive's order among those of its controller, from 1
    std::string serial;    // empty when the drive does not tell it
    std::string location;  // as the heading prints it, "1I:1:11"
    int port = 0;
    int box = 0;
    int bay = 0;
};

// A drive's error log. Texts are printable.
struct AduErrorLog {
    // The number that the status section gave the location; when there was none, the drive's order among the
    // error logs of its controller.
    int number = 0;
    std::string title;  // the heading before its first " :"
    std::string location;
    int port = 0;
    int box = 0;
    int bay = 0;
    std::uint64_t count = 0;  // of medium errors; 0 is possible
    ErrorTimes times;         // theirs, in minutes of the drive's service; an error may have none
};

// Who takes the records, each at the end of its section.
struct AduSink {
    std::function<void(const AduDrive&)> drive;
    std::function<void(const AduErrorLog&)> errorLog;
};

// Reads the report in constant memory but for a few bytes for each drive of a controller. Drives that are
// neither HDD nor SSD are left out, and so are status sections without a port. Takes any text. Deliberately
// throws std::invalid_argument or std::out_of_range, as std::stoi and std::stoul do, when the heading of an
// error log has no port, box or bay, and when the time of a medium error is no hexadecimal number: a report
// that cannot be told apart any more must not be taken for one without errors. Else it throws what the sink
// throws, and std::bad_alloc.
void ReadAduReport(LineSource& lines, const AduSink& sink);

// When the line holds the key: true, and the value is the text behind the key without leading blanks. Else
// false and an empty value.
bool find_elements(std::string_view line, std::string_view key, std::string& value);

bool isNotDigit(char character);

// Removes everything but the decimal digits.
void removeNonDigits(std::string& text);

// The kinds of section whose drive headings getLocation reads.
inline constexpr int kStatusHeading = 0;    // "Physical Drive (" is required
inline constexpr int kErrorLogHeading = 1;  // "Physical Drive" is enough

// Takes a drive's heading apart: title (the text before the first " :"), location ("1I:1:11", what follows
// the drive's ") ") and the location's parts. A line that is no heading of an HDD or SSD leaves all of them
// empty; a part that the location lacks is empty.
void getLocation(std::string_view line, std::string& title, std::string& location, std::string& port,
                 std::string& box, std::string& bay, int mode);
