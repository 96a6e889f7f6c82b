// The two sections of a drive in the diagnostic report, line by line into records.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "adu-heading.h"
#include "error-times.h"

// A drive's status section. Its texts have at most kMaxText characters; all but `controller` are printable.
struct AduDrive {
    // The beginning of its title byte for byte, as it stands in the headings: only a key, which tells equal
    // places on several controllers apart, and nothing to be shown.
    std::string controller;
    int number = 0;        // the drive's order among those of its controller, from 1
    std::string serial;    // empty when the drive does not tell it
    std::string location;  // as the heading prints it, "1I:1:11"
    int port = 0;
    int box = 0;
    int bay = 0;
};

// A drive's error log. Its texts are like those of AduDrive.
struct AduErrorLog {
    std::string controller;  // as in AduDrive
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

// Reads one drive's status section.
class StatusSection {
public:
    StatusSection(int number, const AduHeading& heading);

    // The first value of each kind counts.
    void Take(std::string_view line);
    // To be called once. Nothing for a drive without a port. A failed drive may tell no values at all: then
    // the place in its heading counts.
    std::optional<AduDrive> End();

private:
    struct Place {
        std::string_view key;
        std::optional<int> told;
        std::optional<int> inHeading;
    };

    AduDrive m_drive;
    std::array<Place, 3> m_places;  // port, box, bay
};

// Which words of a row of the table of errors hold what, from 0.
struct ErrorColumns {
    std::size_t senseKey = 4;
    std::size_t referenceTime = 9;
};

// Reads one drive's error log. Its entries are rows of a table, or lines of keys and values.
class ErrorLogSection {
public:
    // Throws what std::stoi throws when a part of the heading's location is no number.
    ErrorLogSection(int number, const AduHeading& heading);

    // Throws what std::stoul throws when the time behind the sense key of a medium error is no hexadecimal
    // number; a line of the table with such a word is no row.
    void Take(std::string_view line);
    AduErrorLog End() { return std::move(m_log); }  // to be called once

private:
    // kExpected: a header may still come. kSeen: the next letter ends the table.
    enum class Rows { kNone, kExpected, kSeen };

    // False when the text is no row.
    bool TakeRow(std::string_view text);
    void TakeSenseKey(std::string_view text);
    void TakeReferenceTime(std::string_view text);

    AduErrorLog m_log;
    Rows m_rows = Rows::kNone;
    ErrorColumns m_columns;
    bool m_pending = false;  // a medium error waits for its time
    std::string m_value;     // kept for its memory
};
