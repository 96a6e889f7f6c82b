#include "adu-sections.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

#include "adu-text.h"
#include "kept.h"
#include "text.h"

using tovaserverutil::Contains;
using tovaserverutil::IsBlank;
using tovaserverutil::TakeWord;
using tovaserverutil::Trimmed;
using tovaserverutil::WithoutLeadingBlanks;

namespace {

constexpr std::string_view kEntries = "Physical Drive Error Log Entries";
constexpr std::string_view kSenseKey = "Sense Key";
constexpr std::string_view kReferenceTime = "Reference Time";
constexpr std::string_view kMediumError = "0x03";

bool IsLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

// By the character's code. Most of what is read of a report are rows of hexadecimal numbers.
constexpr auto kHexDigits = [] {
    std::array<bool, 256> digits{};
    for (const char digit : std::string_view("0123456789abcdefABCDEF")) {
        digits[static_cast<unsigned char>(digit)] = true;
    }
    return digits;
}();

bool IsHexDigit(char character) {
    return kHexDigits[static_cast<unsigned char>(character)];
}

// The trimmed value behind a key; a separator may stand between them.
std::optional<std::string> ValueBehind(std::string_view line, std::string_view key) {
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

// Does the key in the line begin a longer label, as in "Sense Key Specific 0x00"?
bool IsLongerLabel(std::string_view line, std::string_view key) {
    const std::string_view rest = line.substr(line.find(key) + key.size());
    return rest.size() > 1 && rest[0] == ' ' && IsLetter(rest[1]);
}

// Labels have inner blanks and stand two of them, or a tab, apart.
std::size_t LabelSize(std::string_view labels) {
    std::size_t end = 0;
    while (end < labels.size() && labels[end] != '\t' &&
           !(labels[end] == ' ' && end + 1 < labels.size() && IsBlank(labels[end + 1]))) {
        ++end;
    }
    return end;
}

// The usual columns when the labels cannot be told apart.
ErrorColumns ColumnsOf(std::string_view header) {
    std::optional<std::size_t> senseKey;
    std::optional<std::size_t> referenceTime;
    header = Trimmed(header);
    for (std::size_t column = 0; !header.empty(); ++column) {
        const std::string_view label = header.substr(0, LabelSize(header));
        if (label == kSenseKey) {
            senseKey = column;
        } else if (label == kReferenceTime) {
            referenceTime = column;
        }
        header = WithoutLeadingBlanks(header.substr(label.size()));
    }
    return senseKey && referenceTime ? ErrorColumns{*senseKey, *referenceTime} : ErrorColumns();
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
std::optional<Row> ParseRow(std::string_view line, const ErrorColumns& columns) {
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

}  // namespace

StatusSection::StatusSection(int number, const AduHeading& heading)
    : m_places{{{"Physical Port", std::nullopt, NumberOf(heading.port)},
                {"Physical Box", std::nullopt, NumberOf(heading.box)},
                {"Physical Bay", std::nullopt, NumberOf(heading.bay)}}} {
    m_drive.number = number;
    m_drive.location = heading.location;
}

void StatusSection::Take(std::string_view line) {
    if (const auto serial = ValueBehind(line, "Drive Serial Number")) {
        if (m_drive.serial.empty()) {
            m_drive.serial = KeptText(*serial);
        }
        return;
    }
    if (!Contains(line, "Physical ")) {
        return;
    }
    for (Place& place : m_places) {
        if (const auto value = ValueBehind(line, place.key); value && !place.told) {
            place.told = NumberInValue(*value);
        }
    }
}

std::optional<AduDrive> StatusSection::End() {
    const auto& [port, box, bay] = m_places;
    if (!port.told && !port.inHeading) {
        return std::nullopt;
    }
    for (const auto& [number, place] :
         {std::pair(&m_drive.port, &port), std::pair(&m_drive.box, &box), std::pair(&m_drive.bay, &bay)}) {
        *number = place->told ? *place->told : place->inHeading.value_or(0);
    }
    return std::move(m_drive);
}

ErrorLogSection::ErrorLogSection(int number, const AduHeading& heading) {
    m_log.port = std::stoi(heading.port);
    m_log.box = std::stoi(heading.box);
    m_log.bay = std::stoi(heading.bay);
    m_log.number = number;
    m_log.title = heading.title;
    m_log.location = heading.location;
}

void ErrorLogSection::Take(std::string_view line) {
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

bool ErrorLogSection::TakeRow(std::string_view text) {
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

void ErrorLogSection::TakeSenseKey(std::string_view text) {
    find_elements(text, kSenseKey, m_value);
    if (Contains(text, kReferenceTime) && !Contains(m_value, "0x")) {  // only labels
        m_columns = ColumnsOf(text);
        m_rows = Rows::kExpected;
        return;
    }
    const std::string_view value(m_value);
    if (HoldsMediumError(value.substr(0, value.find(kReferenceTime)))) {
        ++m_log.count;
        m_pending = true;
        TakeReferenceTime(text);  // in case the whole entry stands in one line
    } else if (!IsLongerLabel(text, kSenseKey)) {
        m_pending = false;  // the next error
    }
}

// The log closes with a reference time of its own, which belongs to no error: only the first one after a
// medium error counts.
void ErrorLogSection::TakeReferenceTime(std::string_view text) {
    if (const auto value = ValueBehind(text, kReferenceTime)) {
        m_pending = false;
        m_log.times.Add(std::stoul(*value, nullptr, 16));
    }
}
