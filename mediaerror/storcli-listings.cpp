#include "storcli-listings.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "kept.h"

namespace {

using tovaserverutil::Contains;
using tovaserverutil::TakeWord;
using tovaserverutil::Trimmed;

constexpr std::string_view kDashes = "------------";

// Finds the rows of every table whose header line holds a given text. Header and rows stand between three
// lines of dashes.
class Table {
public:
    explicit Table(std::string_view header) : m_header(header) {}

    // Is this line, the next one of the listing, a row?
    bool IsRow(std::string_view line) {
        if (Contains(line, m_header)) {
            m_part = Part::kHeader;
            return false;
        }
        if (Trimmed(line).starts_with(kDashes)) {
            m_part = m_part == Part::kHeader ? Part::kRows : Part::kNone;
            return false;
        }
        return m_part == Part::kRows;
    }

private:
    enum class Part { kNone, kHeader, kRows };

    std::string_view m_header;
    Part m_part = Part::kNone;
};

// Columns are as wide as their contents and models hold blanks: only the first two words of a row are
// reliable, "252:3" (or ":3" without enclosure) and the device id.
std::optional<StorcliDrive> ParseDrive(std::string_view row) {
    const std::string_view place = TakeWord(row);
    const std::size_t colon = place.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    const auto enclosure = ParseDecimal(place.substr(0, colon), kMaxPlace);
    const auto slot = ParseDecimal(place.substr(colon + 1), kMaxPlace);
    const auto device = ParseDecimal(TakeWord(row), kMaxDevice);
    if ((colon != 0 && !enclosure) || !slot || !device) {
        return std::nullopt;
    }
    return StorcliDrive{enclosure, *slot, *device};
}

// Keeps the first value that the key has in the listing.
class FirstValue {
public:
    explicit FirstValue(std::string_view key) : m_key(key) {}

    void Look(std::string_view line) {
        if (m_found) {
            return;
        }
        if (const auto value = ValueOf(line, m_key)) {
            m_found = true;
            m_text = KeptText(*value);
        }
    }
    const std::string& Text() const { return m_text; }

private:
    std::string_view m_key;
    bool m_found = false;
    std::string m_text;
};

}  // namespace

std::vector<unsigned int> ParseControllers(LineSource& lines) {
    Table table("Ctl Model");
    std::vector<unsigned int> controllers;
    std::set<unsigned int> known;
    while (auto line = lines.Next()) {
        if (!table.IsRow(*line)) {
            continue;
        }
        const auto number = ParseDecimal(TakeWord(*line), kMaxController);
        if (number && known.size() < kMaxControllers && known.insert(*number).second) {
            controllers.push_back(*number);
        }
    }
    return controllers;
}

StorcliController ParseController(LineSource& lines) {
    // The header of the drive groups, "EID:Slot DID", is another one.
    Table table("EID:Slt DID");
    FirstValue product("Product Name = ");
    FirstValue slot("PCI Slot Number = ");
    StorcliController controller;
    std::set<std::tuple<std::optional<unsigned int>, unsigned int, unsigned int>> known;
    while (const auto line = lines.Next()) {
        if (table.IsRow(*line)) {
            const auto drive = ParseDrive(*line);
            if (drive && known.size() < kMaxDrives &&
                known.insert({drive->enclosure, drive->slot, drive->device}).second) {
                controller.drives.push_back(*drive);
            }
        } else {
            product.Look(*line);
            slot.Look(*line);
        }
    }
    controller.product = product.Text();
    controller.slot = slot.Text();
    return controller;
}

StorcliPlace ParsePlace(LineSource& lines) {
    // Only at the beginning of a line: "Connected Port Number = " is something else.
    FirstValue port("Port Number = ");
    FirstValue box("Box = ");
    while (const auto line = lines.Next()) {
        port.Look(*line);
        box.Look(*line);
    }
    return {port.Text(), box.Text()};
}
