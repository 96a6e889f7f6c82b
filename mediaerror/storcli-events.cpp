#include "storcli-events.h"

#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

using tovaserverutil::Contains;
using tovaserverutil::Trimmed;
using tovaserverutil::WithoutLeadingBlanks;

constexpr std::string_view kBlock = "seqNum: ";
constexpr std::string_view kSlotMark = "/s";  // in a description
constexpr std::string_view kDescription = "Event Description:";
constexpr std::string_view kError = "um error";  // in every description that counts, and found fast
// The tool's own words, before or right behind the events.
constexpr std::string_view kEnvelope[] = {"CLI Version = ", "Controller = "};

// The number that the whole text is. One that is too large is as good as the largest one.
std::optional<long long> ParseNumber(std::string_view text, int base) {
    long long number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (error == std::errc::invalid_argument || stop != end) {
        return std::nullopt;
    }
    return error == std::errc() ? number : std::numeric_limits<long long>::max();
}

std::optional<long long> ParseHexadecimal(std::string_view text) {
    text = Trimmed(text);
    if (text.starts_with("0x")) {
        text.remove_prefix(2);
    }
    return ParseNumber(text, 16);
}

// What one block has told so far.
struct Block {
    std::optional<long long> device;
    std::optional<unsigned int> enclosure;
    std::optional<unsigned int> slot;
    bool timed = false;
};

// Patrol reads, consistency checks, initialisations and recoveries count alike.
bool NamesCorrectedError(std::string_view description) {
    return Contains(description, kError) &&  // found fast
           (Contains(description, "corrected medium error") ||
            Contains(description, "Corrected medium error"));
}

// The parts of "... on PD 0a(e0xfc/s3) at 1aea556". Device id and enclosure are hexadecimal here, with or
// without "0x"; the slot is decimal, as everything is in the event's data. First, of what precedes the
// bracket:
std::optional<long long> DeviceIn(std::string_view before) {
    constexpr std::string_view kPhysicalDrive = "PD ";
    const std::size_t name = before.rfind(kPhysicalDrive);
    return name == std::string_view::npos ? std::nullopt
                                          : ParseHexadecimal(before.substr(name + kPhysicalDrive.size()));
}

// Of "0xfc/s3".
std::optional<unsigned int> EnclosureIn(std::string_view place) {
    const auto enclosure = ParseHexadecimal(place.substr(0, place.find(kSlotMark)));
    return enclosure && *enclosure >= 0 && *enclosure <= kMaxPlace
               ? std::optional(static_cast<unsigned int>(*enclosure))
               : std::nullopt;
}

// Of the same.
std::optional<unsigned int> SlotIn(std::string_view place) {
    const std::size_t mark = place.find(kSlotMark);
    return mark == std::string_view::npos
               ? std::nullopt
               : ParseDecimal(Trimmed(place.substr(mark + kSlotMark.size())), kMaxPlace);
}

// Fills in what the event's data left open.
void CompleteFromDescription(Block& block, std::string_view description) {
    if (block.device && block.enclosure && block.slot) {
        return;
    }
    constexpr std::string_view kBracket = "(e";
    const std::size_t open = description.find(kBracket);
    if (open == std::string_view::npos) {
        return;
    }
    if (!block.device) {
        block.device = DeviceIn(description.substr(0, open));
    }
    std::string_view place = description.substr(open + kBracket.size());
    place = place.substr(0, place.find(')'));
    if (!block.enclosure) {
        block.enclosure = EnclosureIn(place);
    }
    if (!block.slot) {
        block.slot = SlotIn(place);
    }
}

class EventLog {
public:
    explicit EventLog(const std::function<void(const CorrectedError&)>& found) : m_found(found) {}

    void Take(std::string_view line) {
        line = WithoutLeadingBlanks(line);
        if (line.empty()) {
            return;
        }
        if (line.front() == kBlock.front() && (line.starts_with(kBlock) || line == Trimmed(kBlock))) {
            End();
            m_part = Part::kHead;
        } else if (m_part != Part::kNone) {
            TakeOfBlock(line);
        }
    }

    // The end of a block, also at the end of the log.
    void End() {
        const bool counts = m_part == Part::kData;
        m_part = Part::kNone;
        if (counts) {
            Report();
        }
        m_block = {};
    }

private:
    // kNone: in no block, or in one that does not count. kData: the description has been read, and counts.
    enum class Part { kNone, kHead, kData };

    // What is read of a line shows in its first character. Most lines tell nothing.
    // What is read of a line shows in its first character. Most lines tell nothing.
    void TakeOfBlock(std::string_view line) {
        switch (line.front()) {
            case 'C':
                TakeEnvelope(line);
                break;
            case 'T':
                TakeTime(line);
                break;
            default:
                if (m_part == Part::kData) {
                    TakeData(line);
                } else if (line.starts_with(kDescription)) {
                    m_part = NamesCorrectedError(line) ? Part::kData : Part::kNone;
                    m_description.assign(m_part == Part::kData ? line : std::string_view());
                }
                break;
        }
    }

    void TakeData(std::string_view line) {
        switch (line.front()) {
            case 'D':
                TakeDevice(line);
                break;
            case 'E':
                if (const auto enclosure = ValueOf(line, "Enclosure Index: ")) {
                    m_block.enclosure = ParseDecimal(*enclosure, kMaxPlace);
                }
                break;
            case 'B':
                if (const auto bay = ValueOf(line, "Bay Number: ")) {
                    m_block.slot = ParseDecimal(*bay, kMaxPlace);
                }
                break;
            case 'S':
                if (const auto slot = ValueOf(line, "Slot Number: "); slot && !m_block.slot) {
                    m_block.slot = ParseDecimal(*slot, kMaxPlace);
                }
                break;
            default:
                break;
        }
    }

    void TakeEnvelope(std::string_view line) {
        if (line.starts_with(kEnvelope[0]) || line.starts_with(kEnvelope[1])) {
            End();
        }
    }

    void TakeTime(std::string_view line) {
        if (const auto time = ValueOf(line, "Time: "); time && !m_block.timed) {
            m_block.timed = true;
            m_time.assign(*time);
        }
    }

    // "Device ID: " or "Device Id: "
    void TakeDevice(std::string_view line) {
        const std::size_t colon = line.starts_with("Device I") ? line.find(": ") : std::string_view::npos;
        if (!m_block.device && colon != std::string_view::npos) {
            m_block.device = ParseNumber(Trimmed(line.substr(colon + 1)), 10);
        }
    }

    void Report() {
        CompleteFromDescription(m_block, m_description);
        CorrectedError error;
        if (m_block.device) {
            if (*m_block.device < 0 || *m_block.device > kMaxDevice) {
                return;
            }
            error.device = static_cast<unsigned int>(*m_block.device);
        }
        error.enclosure = m_block.enclosure;
        error.slot = m_block.slot;
        // Only now: the conversion costs more than reading the block. An event from before the controller
        // got its clock has no time at all.
        error.time = m_times.Seconds(m_block.timed ? m_time : std::string_view());
        m_found(error);
    }

    const std::function<void(const CorrectedError&)>& m_found;
    EventTimes m_times;
    Part m_part = Part::kNone;
    Block m_block;
    // The block's texts, kept from block to block for their memory.
    std::string m_time;
    std::string m_description;
};

}  // namespace

void ReadCorrectedErrors(LineSource& lines, const std::function<void(const CorrectedError&)>& found) {
    EventLog log(found);
    bool holdsError = false;  // the block that the next line begins
    while (const auto line = lines.Next()) {
        log.Take(*line);
        if (line->starts_with(kBlock) && !std::exchange(holdsError, false)) {
            holdsError = lines.PassOverBlocksWithout(kError, kBlock);
        }
    }
    log.End();
}
