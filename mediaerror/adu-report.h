// The diagnostic report of the Smart Array controllers (the ADU report) as records. The reader knows nothing
// of files and of the drive maps.
//
// Every structure of the report stands below a heading, its device path: "Smart Array P840 in slot 1 :
// Internal Drive Cage at Port 1I : Box 1 : Physical Drive (2 TB SATA HDD) 1I:1:11 : Physical Drive Status".
// Status sections and error logs may also come grouped: one heading for the controller, below it one heading
// "Physical Drive (2 TB SATA HDD) 1I:1:11 :" for each drive. Both forms are understood, and a heading of any
// other structure ends the section. Nothing depends on columns.
#pragma once

#include <functional>

#include "adu-sections.h"
#include "line-reader.h"

// Who takes the records, each at the end of its section.
struct AduSink {
    std::function<void(const AduDrive&)> drive;
    std::function<void(const AduErrorLog&)> errorLog;
};

// Reads the report in constant memory but for a few bytes for each drive of a controller. Drives that are
// neither HDD nor SSD are left out, and so are status sections without a port. A text of another form
// holds no records. Deliberately throws std::invalid_argument or std::out_of_range, as std::stoi and
// std::stoul do, when the heading of an error log has no port, box or bay, and when the time of a medium
// error is no hexadecimal number: a report that cannot be told apart any more must not be taken for one
// without errors. Else it throws what the sink throws, and std::bad_alloc.
void ReadAduReport(LineSource& lines, const AduSink& sink);
