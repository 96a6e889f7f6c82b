#include "table-text.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::size_t kGap = 2;

// UTF-8 characters.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

void TextTable::Write(std::ostream& out, const Paint& paint) const {
    std::vector<std::size_t> widths(m_rows.front().size(), 0);
    for (const auto& row : m_rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(row[i]));
        }
    }
    for (const auto& row : m_rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - Width(row[i]) + kGap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << (&row == &m_rows.front() ? paint.Bold(line) : line) << '\n';
    }
}
