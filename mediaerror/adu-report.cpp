#include "adu-report.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

#include "text.h"

namespace {

using tovaserverutil::Contains;
using tovaserverutil::Printable;
using tovaserverutil::Trimmed;

constexpr std::string_view kStatusSection = " : Physical Drive Status";
constexpr std::string_view kErrorLogSection = ": Serial SCSI Physical Drive Error Log";
constexpr std::string_view kDrive = "Physical Drive";
constexpr std::string_view kDriveWithKind = "Physical Drive (";
constexpr std::string_view kReport = "Report for ";
constexpr std::string_view kEntries = "Physical Drive Error Log Entries";
constexpr std::string_view kSenseKey = "Sense Key";
constexpr std::string_view kReferenceTime = "Reference Time";
constexpr std::string_view kMediumError = "0x03";

bool IsBlank(char character) {
    return character == ' ' || character == '\t';
}

bool IsLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool IsHexDigit(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F');
}

std::string_view WithoutLeadingBlanks(std::string_view text) {
    std::size_t blanks = 0;
    while (blanks < text.size() && IsBlank(text[blanks])) {
        ++blanks;
    }
    return text.substr(blanks);
}

// Takes the first word off the text; empty when there is none.
std::string_view TakeWord(std::string_view& text) {
    text = WithoutLeadingBlanks(text);
    std::size_t end = 0;
    while (end < text.size() && !IsBlank(text[end])) {
        ++end;
    }
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

// --- headings ---

// The device path's first part: for most headings the controller.
std::string_view TitleOf(std::string_view line) {
    return Trimmed(line.substr(0, line.find(" :")));
}

bool IsController(std::string_view title) {
    return Contains(title, " in slot ") || Contains(title, " in Slot ") ||
           Contains(title, " in Embedded Slot");
}

// The heading from the drive on: "Physical Drive (2 TB SATA HDD) 1I:1:11 : ...", in old reports "Physical
// Drive 1I:1:11 : ...". Empty when the line names no drive.
std::string_view DrivePart(std::string_view line) {
    if (const std::size_t drive = line.find(kDriveWithKind); drive != std::string_view::npos) {
        return line.substr(drive);
    }
    const std::size_t drive = line.find(kDrive);
    if (drive == std::string_view::npos) {
        return {};
    }
    std::string_view rest = line.substr(drive + kDrive.size());
    return Contains(TakeWord(rest), ":") ? line.substr(drive) : std::string_view();
}

// The last part of the device path; a drive's heading in the grouped form may end with an empty one.
std::string_view LastPart(std::string_view line) {
    constexpr std::string_view kEmptyPart = " :";
    if (line.ends_with(kEmptyPart)) {
        line.remove_suffix(kEmptyPart.size());
    }
    const std::size_t last = line.rfind(" : ");
    return last == std::string_view::npos ? line : line.substr(last + 3);
}

bool HoldsKind(std::string_view drivePart) {
    return Contains(drivePart, "HDD") || Contains(drivePart, "SSD");
}

// The location's next part, up to the colon; takes it off.
std::string_view TakePart(std::string_view& location) {
    const std::size_t colon = std::min(location.find(':'), location.size());
    const std::string_view part = location.substr(0, colon);
    location.remove_prefix(std::min(colon + 1, location.size()));
    return part;
}

struct Heading {
    std::string title;
    std::string location;
    std::string port;  // the digits of the location's parts
    std::string box;
    std::string bay;

    Heading(std::string_view line, int mode) {
        getLocation(line, title, location, port, box, bay, mode);
        title = Printable(title);
        location = Printable(location);
        for (std::string* part : {&port, &box, &bay}) {
            removeNonDigits(*part);
        }
    }
};

// --- values ---

// The trimmed value behind a key; a separator may stand between them.
std::optional<std::string> ValueOf(std::string_view line, std::string_view key) {
    std::string text;
    if (!find_elements(line, key, text)) {
        return std::nullopt;
    }
    std::string_view value(text);
    if (value.starts_with(':') || value.starts_with('=')) {
        value.remove_prefix(1);
    }
    return std::string(Trimmed(value));
}

// Nothing without digits, and for a number that is no int.
std::optional<int> NumberOf(const std::string& digits) {
    int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

// The digits of the value's first word: the value may be "1I", and "1 (0x01)" is not 1001.
std::optional<int> NumberInValue(std::string_view value) {
    std::string digits(TakeWord(value));
    removeNonDigits(digits);
    return NumberOf(digits);
}

// Is there a sense key of a medium error, and not the beginning of a longer number?
bool HoldsMediumError(std::string_view value) {
    for (std::size_t at = value.find(kMediumError); at != std::string_view::npos;
         at = value.find(kMediumError, at + 1)) {
        const std::size_t end = at + kMediumError.size();
        if (end == value.size() || !IsHexDigit(value[end])) {
            return true;
        }
    }
    return false;
}

// --- the table of errors ---

// Which words of a row hold what, from 0.
struct Columns {
    std::size_t senseKey = 4;
    std::size_t referenceTime = 9;
};

// Labels of several words stand two blanks apart. The usual columns when they do not.
Columns ColumnsOf(std::string_view header) {
    std::optional<std::size_t> senseKey;
    std::optional<std::size_t> referenceTime;
    header = Trimmed(header);
    for (std::size_t column = 0; !header.empty(); ++column) {
        const std::size_t gap = std::min({header.find("  "), header.find('\t'), header.size()});
        const std::string_view label = header.substr(0, gap);
        if (label == kSenseKey) {
            senseKey = column;
        } else if (label == kReferenceTime) {
            referenceTime = column;
        }
        header = WithoutLeadingBlanks(header.substr(gap));
    }
    return senseKey && referenceTime ? Columns{*senseKey, *referenceTime} : Columns();
}

bool IsHexWord(std::string_view word) {
    constexpr std::size_t kMaxSize = 2 + 16;  // 64 bits
    return word.size() > 2 && word.size() <= kMaxSize && word.starts_with("0x") &&
           std::all_of(word.begin() + 2, word.end(), IsHexDigit);
}

struct Row {
    std::string_view senseKey;
    std::string_view referenceTime;
};

// Nothing when a word up to the last one of interest is not hexadecimal.
std::optional<Row> ParseRow(std::string_view line, const Columns& columns) {
    Row row;
    const std::size_t last = std::max(columns.senseKey, columns.referenceTime);
    for (std::size_t column = 0; column <= last; ++column) {
        const std::string_view word = TakeWord(line);
        if (!IsHexWord(word)) {
            return std::nullopt;
        }
        if (column == columns.senseKey) {
            row.senseKey = word;
        }
        if (column == columns.referenceTime) {
            row.referenceTime = word;
        }
    }
    return row;
}

// --- sections ---

// One drive's status section.
class StatusSection {
public:
    StatusSection(int number, const Heading& heading)
        : m_port(NumberOf(heading.port)), m_box(NumberOf(heading.box)), m_bay(NumberOf(heading.bay)) {
        m_drive.number = number;
        m_drive.location = heading.location;
    }

    // The first value of each kind counts.
    void Take(std::string_view line) {
        if (const auto serial = ValueOf(line, "Drive Serial Number")) {
            if (m_drive.serial.empty()) {
                m_drive.serial = Printable(*serial);
            }
            return;
        }
        if (!Contains(line, "Physical ")) {
            return;
        }
        for (Place& place : m_places) {
            if (const auto value = ValueOf(line, place.key); value && !place.number) {
                place.number = NumberInValue(*value);
            }
        }
    }

    // Nothing without a port. A failed drive may tell no values at all: then the heading's count.
    std::optional<AduDrive> End() {
        const std::optional<int> port = m_places[0].number ? m_places[0].number : m_port;
        if (!port) {
            return std::nullopt;
        }
        m_drive.port = *port;
        m_drive.box = m_places[1].number.value_or(m_box.value_or(0));
        m_drive.bay = m_places[2].number.value_or(m_bay.value_or(0));
        return std::move(m_drive);
    }

private:
    struct Place {
        std::string_view key;
        std::optional<int> number;
    };

    AduDrive m_drive;
    std::array<Place, 3> m_places{{{"Physical Port", {}}, {"Physical Box", {}}, {"Physical Bay", {}}}};
    std::optional<int> m_port;  // the heading's
    std::optional<int> m_box;
    std::optional<int> m_bay;
};

// One drive's error log. Its entries are rows of a table, or lines of keys and values.
class ErrorLogSection {
public:
    // Throws what std::stoi throws.
    ErrorLogSection(int number, const Heading& heading) {
        m_log.port = std::stoi(heading.port);
        m_log.box = std::stoi(heading.box);
        m_log.bay = std::stoi(heading.bay);
        m_log.number = number;
        m_log.title = heading.title;
        m_log.location = heading.location;
    }

    // Throws what std::stoul throws.
    void Take(std::string_view line) {
        const std::string_view text = WithoutLeadingBlanks(line);
        if (text.empty()) {
            return;
        }
        if (text.front() == '0' && m_rows != Rows::kNone && TakeRow(text)) {
            return;
        }
        if (IsLetter(text.front()) && m_rows == Rows::kSeen) {
            m_rows = Rows::kNone;
        }
        if (Contains(text, kSenseKey)) {
            TakeSenseKey(text);
        } else if (m_pending) {
            TakeReferenceTime(text);
        } else if (Contains(text, kEntries)) {
            m_rows = Rows::kExpected;  // also without a header, or with one that is stacked over two lines
        }
    }

    const AduErrorLog& End() const { return m_log; }

private:
    // kExpected: a header may still come. kSeen: the next letter ends the table.
    enum class Rows { kNone, kExpected, kSeen };

    bool TakeRow(std::string_view text) {
        const auto row = ParseRow(text, m_columns);
        if (!row) {
            return false;
        }
        m_rows = Rows::kSeen;
        if (row->senseKey == kMediumError) {
            ++m_log.count;
            std::uint64_t time = 0;
            const std::string_view digits = row->referenceTime.substr(2);
            std::from_chars(digits.data(), digits.data() + digits.size(), time, 16);
            m_log.times.Add(time);
        }
        return true;
    }

    void TakeSenseKey(std::string_view text) {
        find_elements(text, kSenseKey, m_value);
        const bool timed = Contains(text, kReferenceTime);
        if (timed && !Contains(m_value, "0x")) {  // only labels
            m_columns = ColumnsOf(text);
            m_rows = Rows::kExpected;
            return;
        }
        const std::string_view value(m_value);
        m_pending = HoldsMediumError(value.substr(0, value.find(kReferenceTime)));
        if (m_pending) {
            ++m_log.count;
            TakeReferenceTime(text);
        }
    }

    // The log closes with a reference time of its own, which belongs to no error: only the first one after a
    // medium error counts.
    void TakeReferenceTime(std::string_view text) {
        if (const auto value = ValueOf(text, kReferenceTime)) {
            m_pending = false;
            m_log.times.Add(std::stoul(*value, nullptr, 16));
        }
    }

    AduErrorLog m_log;
    Rows m_rows = Rows::kNone;
    Columns m_columns;
    bool m_pending = false;  // a medium error waits for its time
    std::string m_value;     // kept for its memory
};

class Report {
public:
    explicit Report(const AduSink& sink) : m_sink(sink) {}

    void Take(std::string_view line) {
        // Most lines are none of these.
        if (Contains(line, ":")) {
            if (TakeHeading(line)) {
                return;
            }
        } else if (m_kind != Kind::kNone) {
            const std::string_view text = WithoutLeadingBlanks(line);
            if (text.starts_with(kReport)) {
                EndSection();
                return;
            }
            if (text.starts_with(kDriveWithKind) && TakeDrive(text)) {
                return;
            }
        }
        if (m_status) {
            m_status->Take(line);
        } else if (m_errorLog) {
            m_errorLog->Take(line);
        }
    }

    // The end of a drive's section, also at the end of the report.
    void EndDrive() {
        if (m_status) {
            const auto drive = m_status->End();
            m_status.reset();
            if (drive) {
                m_sink.drive(*drive);
            }
        }
        if (m_errorLog) {
            m_sink.errorLog(m_errorLog->End());
            m_errorLog.reset();
        }
    }

private:
    enum class Kind { kNone, kStatus, kErrorLog };

    void EndSection() {
        EndDrive();
        m_kind = Kind::kNone;
    }

    // The line holds a colon. False when it is no heading.
    bool TakeHeading(std::string_view line) {
        if (const std::size_t name = line.find(kStatusSection); name != std::string_view::npos) {
            OpenSection(Kind::kStatus, line, TitleOf(line.substr(0, name)));
            return true;
        }
        if (const std::size_t name = line.find(kErrorLogSection); name != std::string_view::npos) {
            OpenSection(Kind::kErrorLog, line, TitleOf(line.substr(0, name)));
            return true;
        }
        if (m_kind == Kind::kNone) {
            return true;
        }
        if (WithoutLeadingBlanks(line).starts_with(kReport) || IsOtherStructure(line)) {
            EndSection();
            return true;
        }
        return TakeDrive(line);
    }

    // In the interleaved form the heading names the drive as well.
    void OpenSection(Kind kind, std::string_view line, std::string_view controller) {
        EndSection();
        m_kind = kind;
        if (!Contains(controller, kDrive) && controller != m_controller) {
            m_controller.assign(controller);
            m_statusDrives = 0;
            m_errorLogs = 0;
            m_numbers.clear();
        }
        TakeDrive(line);
    }

    // A heading that does not belong to the open section. One that ends with its drive does: it is the next
    // drive of the grouped form, unless the controller is another one.
    bool IsOtherStructure(std::string_view line) const {
        if (!Contains(line, " : ")) {
            return false;
        }
        const std::string_view title = TitleOf(line);
        const bool controller = IsController(title) || title == m_controller;
        if (!controller && DrivePart(line).empty()) {
            return false;
        }
        return (controller && title != m_controller) || DrivePart(LastPart(line)).empty();
    }

    // False when the line names no drive.
    bool TakeDrive(std::string_view line) {
        const std::string_view drive = DrivePart(line);
        if (drive.empty()) {
            return false;
        }
        EndDrive();
        if (m_kind == Kind::kStatus && drive.starts_with(kDriveWithKind) && HoldsKind(drive)) {
            const Heading heading(line, kStatusHeading);
            ++m_statusDrives;
            if (!heading.location.empty()) {
                m_numbers[heading.location] = m_statusDrives;
            }
            m_status.emplace(m_statusDrives, heading);
        } else if (m_kind == Kind::kErrorLog && HoldsKind(drive)) {
            const Heading heading(line, kErrorLogHeading);
            ++m_errorLogs;
            const auto known = m_numbers.find(heading.location);
            m_errorLog.emplace(known == m_numbers.end() ? m_errorLogs : known->second, heading);
        }
        return true;
    }

    const AduSink& m_sink;
    Kind m_kind = Kind::kNone;
    std::optional<StatusSection> m_status;  // of the open drive; never both
    std::optional<ErrorLogSection> m_errorLog;

    // Of the current controller; a repeated heading of the same one goes on counting.
    std::string m_controller;
    int m_statusDrives = 0;
    int m_errorLogs = 0;
    std::map<std::string, int> m_numbers;  // of the status sections, by location
};

}  // namespace

void ReadAduReport(LineSource& lines, const AduSink& sink) {
    Report report(sink);
    while (const auto line = lines.Next()) {
        report.Take(*line);
    }
    report.EndDrive();
}

bool find_elements(std::string_view line, std::string_view key, std::string& value) {
    const std::size_t found = line.find(key);
    if (found == std::string_view::npos) {
        value.clear();
        return false;
    }
    value.assign(WithoutLeadingBlanks(line.substr(found + key.size())));
    return true;
}

bool isNotDigit(char character) {
    return character < '0' || character > '9';
}

void removeNonDigits(std::string& text) {
    std::erase_if(text, isNotDigit);
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
    // Not the line's first bracket: names of controllers and cages may hold some.
    const std::size_t bracket = line.find(") ", drive);
    if (bracket == std::string_view::npos) {
        return;
    }
    std::string_view rest = line.substr(bracket + 2);
    std::string_view place = TakeWord(rest);
    location.assign(place);
    port.assign(TakePart(place));
    box.assign(TakePart(place));
    bay.assign(TakePart(place));
}
