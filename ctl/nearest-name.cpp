#include "nearest-name.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <numeric>

namespace {

// No known name is longer, and the work grows with the product of both lengths.
constexpr std::size_t kLongestName = 64;

char Lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::size_t Distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (Lower(one[i]) == Lower(other[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string_view NearestName(std::string_view name, const std::vector<std::string_view>& known) {
    if (name.size() > kLongestName) {
        return {};
    }
    std::string_view nearest;
    std::size_t least = std::numeric_limits<std::size_t>::max();
    for (const std::string_view candidate : known) {
        const std::size_t distance = Distance(name, candidate);
        if (distance < least && distance <= std::max<std::size_t>(2, name.size() / 3)) {
            nearest = candidate;
            least = distance;
        }
    }
    return nearest;
}
