#include "config-text.h"

#include <algorithm>
#include <utility>

#include "secret.h"

namespace {

constexpr std::size_t kPieceBytes = 8191;           // what the service's reader takes at once
constexpr std::string_view kLineEnds{"\0\r\n", 3};  // where it cuts a piece

}  // namespace

ConfigText::ConfigText(std::string_view content) {
    // Enough, so that no text is left behind where the list once was.
    m_lines.reserve(static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n')) +
                    content.size() / kPieceBytes + 1);
    int number = 1;
    while (!content.empty()) {
        const std::size_t end = content.find('\n');
        const std::size_t length = end == std::string_view::npos ? content.size() : end + 1;
        std::string_view line = content.substr(0, length);
        content.remove_prefix(length);
        for (bool first = true; !line.empty(); first = false) {
            const std::string_view piece = line.substr(0, kPieceBytes);
            line.remove_prefix(piece.size());
            ConfigLine read;
            read.number = number;
            read.isPiece = !first;
            read.goesOn = line.find_first_not_of("\r\n") != std::string_view::npos;
            Add(std::move(read), piece);
        }
        ++number;
    }
}

ConfigText::~ConfigText() {
    for (ConfigLine& line : m_lines) {
        tovaserverutil::Wipe(line.key);
        tovaserverutil::Wipe(line.value);
    }
}

void ConfigText::Add(ConfigLine line, std::string_view piece) {
    const std::string_view text = piece.substr(0, piece.find_first_of(kLineEnds));
    const std::string_view rest = piece.substr(text.size());
    line.carriageReturn = rest == "\r\n" || rest == "\r";
    line.dropped = rest.find_first_not_of(kLineEnds) != std::string_view::npos;
    if (!m_lines.empty()) {
        line.section = m_lines.back().section;
        line.ordinal = m_lines.back().ordinal;
    }
    const std::size_t end = text.find(']');
    if (text.empty() || text.front() == '#') {
        line.kind = ConfigLine::Kind::kNothing;
    } else if (text.front() != '[') {
        const std::size_t equals = text.find('=');
        line.kind = ConfigLine::Kind::kEntry;
        line.hasEquals = equals != std::string_view::npos;
        line.key = text.substr(0, equals);
        line.value = line.hasEquals ? text.substr(equals + 1) : std::string_view();
    } else if (end == std::string_view::npos) {
        line.kind = ConfigLine::Kind::kBrokenHeader;
    } else {
        line.kind = ConfigLine::Kind::kHeader;
        line.section = text.substr(1, end - 1);
        line.behind = text.substr(end + 1);
        ++line.ordinal;
    }
    m_lines.push_back(std::move(line));
}

const ConfigLine* ConfigText::FindHeader(std::string_view section) const {
    for (const ConfigLine& line : m_lines) {
        if (line.kind == ConfigLine::Kind::kHeader && line.section == section) {
            return &line;
        }
    }
    return nullptr;
}

const ConfigLine* ConfigText::FindEntry(std::string_view section, std::string_view key) const {
    const ConfigLine* const header = FindHeader(section);
    if (header == nullptr || section.empty()) {
        return nullptr;
    }
    for (const ConfigLine& line : m_lines) {
        if (line.kind == ConfigLine::Kind::kEntry && line.ordinal == header->ordinal && line.key == key) {
            return &line;
        }
    }
    return nullptr;
}
