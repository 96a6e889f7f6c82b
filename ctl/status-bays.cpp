#include "status-bays.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>

#include "status-model.h"

namespace {

constexpr int kMostBay = 999;  // numbers beyond are no bays
constexpr int kMostGap = 24;   // so many missing bays are no gap but another numbering

std::optional<int> Number(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && number >= 0 && number <= kMostBay ? std::optional(number) : std::nullopt;
}

// The number behind the word and "=" or a blank.
std::optional<int> NumberBehind(std::string_view text, std::string_view word) {
    const std::size_t found = text.find(word);
    if (found == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(found + word.size());
    if (text.empty() || (text.front() != '=' && text.front() != ' ')) {
        return std::nullopt;
    }
    text.remove_prefix(1);
    return Number(text.substr(0, text.find_first_of(": ")));
}

// "PORT:BOX:BAY"; ports end in "I" inside the server and in "E" outside.
std::optional<Bay> ParseShort(std::string_view location) {
    const std::size_t first = location.find(':');
    const std::size_t second = location.find(':', first + 1);
    if (first == std::string_view::npos || first == 0 || second == std::string_view::npos) {
        return std::nullopt;
    }
    const auto box = Number(location.substr(first + 1, second - first - 1));
    const auto bay = Number(location.substr(second + 1));
    if (!box || !bay) {
        return std::nullopt;
    }
    const bool external = location[first - 1] == 'E';
    return Bay{std::to_string(*box) + (external ? " (external)" : ""), *bay};
}

struct BoxOrder {
    bool operator()(const std::string& left, const std::string& right) const {
        return ComesBefore(left, right);
    }
};

// The drives of one box with the gaps between them.
BayRow Row(const std::string& box, std::vector<BayRow::Place> drives) {
    std::stable_sort(drives.begin(), drives.end(), [](const BayRow::Place& left, const BayRow::Place& right) {
        return *left.number < *right.number;
    });
    BayRow row{box, {}};
    for (const BayRow::Place& place : drives) {
        const int before = row.places.empty() ? *place.number : *row.places.back().number;
        for (int gap = before + 1; gap < *place.number && *place.number - before <= kMostGap; ++gap) {
            row.places.push_back({gap, nullptr});
        }
        row.places.push_back(place);
    }
    return row;
}

}  // namespace

std::optional<Bay> ParseBay(const std::string& location) {
    if (const auto bay = NumberBehind(location, "Bay")) {
        const auto box = NumberBehind(location, "Box");
        return Bay{box ? std::to_string(*box) : "", *bay};
    }
    return ParseShort(location);
}

std::vector<BayRow> ArrangeBays(const ControllerStatus& controller) {
    std::map<std::string, std::vector<BayRow::Place>, BoxOrder> boxes;
    BayRow elsewhere;
    for (const DriveStatus& drive : controller.drives) {
        if (const auto bay = ParseBay(drive.location)) {
            boxes[bay->box].push_back({bay->number, &drive});
        } else {
            elsewhere.places.push_back({std::nullopt, &drive});
        }
    }
    std::vector<BayRow> rows;
    rows.reserve(boxes.size() + 1);
    for (auto& [box, drives] : boxes) {
        rows.push_back(Row(box, std::move(drives)));
    }
    if (!elsewhere.places.empty()) {
        rows.push_back(std::move(elsewhere));
    }
    return rows;
}
