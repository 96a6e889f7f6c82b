#include "line-reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "text.h"

namespace {

// The line without what ends it: one carriage return, blanks and tabs.
std::string_view WithoutEnd(std::string_view line) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    while (!line.empty() && tovaserverutil::IsBlank(line.back())) {
        line.remove_suffix(1);
    }
    return line;
}

// Where the last line feed is; npos for none. Much faster than rfind().
std::size_t LastFeed(std::string_view text) {
    const void* const feed = memrchr(text.data(), '\n', text.size());
    return feed == nullptr ? std::string_view::npos
                           : static_cast<std::size_t>(static_cast<const char*>(feed) - text.data());
}

}  // namespace

std::optional<std::string_view> LineSource::NextWith(std::string_view text) {
    auto line = Next();
    while (line && !tovaserverutil::Contains(*line, text)) {
        line = Next();
    }
    return line;
}

bool LineSource::PassOverBlocksWithout(std::string_view, std::string_view) {
    return false;
}

std::optional<std::string_view> TextLines::Next() {
    if (m_rest.empty()) {
        return std::nullopt;
    }
    const std::size_t end = std::min(m_rest.find('\n'), m_rest.size());
    const std::string_view line = m_rest.substr(0, end);
    m_rest.remove_prefix(std::min(end + 1, m_rest.size()));
    return WithoutEnd(line);
}

std::unique_ptr<FileLines> FileLines::OpenFirst(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        // Not blocking: a pipe that lies there has no writer.
        tovaserverutil::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        struct stat status {};
        if (file.valid() && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)) {
            return std::unique_ptr<FileLines>(new FileLines(std::move(file)));
        }
    }
    return nullptr;
}

std::optional<std::string_view> FileLines::Next() {
    const char* const begin = m_buffer.data() + m_begin;
    const std::size_t held = m_end - m_begin;
    // Most lines are held as a whole. (Behind the beginning of a line that is too long nothing is held.)
    if (const void* const feed = std::memchr(begin, '\n', held); feed != nullptr) {
        const auto length = static_cast<std::size_t>(static_cast<const char*>(feed) - begin);
        m_begin += length + 1;
        return WithoutEnd({begin, std::min(length, kMaxLine)});
    }
    return NextInPieces();
}

std::optional<std::string_view> FileLines::NextInPieces() {
    std::size_t searched = 0;  // of what is held, without a line feed in it
    while (true) {
        const char* const begin = m_buffer.data() + m_begin;
        const std::size_t held = m_end - m_begin;
        const void* const feed =
            held == searched ? nullptr : std::memchr(begin + searched, '\n', held - searched);
        if (feed != nullptr || held >= kMaxLine) {
            const std::size_t length =
                feed != nullptr ? static_cast<std::size_t>(static_cast<const char*>(feed) - begin) : held;
            m_begin += length + (feed != nullptr ? 1 : 0);
            searched = 0;
            const bool given = std::exchange(m_passOver, feed == nullptr);
            if (!given) {
                return WithoutEnd({begin, std::min(length, kMaxLine)});
            }
            continue;
        }
        searched = held;
        if (!Fill()) {
            m_begin = m_end;
            if (held == 0 || m_passOver) {
                return std::nullopt;
            }
            return WithoutEnd({m_buffer.data() + m_begin - held, held});
        }
    }
}

std::optional<std::string_view> FileLines::NextWith(std::string_view text) {
    std::optional<std::string_view> line;
    do {
        // On to the line that holds the text, or else to the last one that has begun.
        const std::string_view held(m_buffer.data() + m_begin, m_end - m_begin);
        const std::string_view before = held.substr(0, held.find(text));
        if (const std::size_t feed = LastFeed(before); feed != std::string_view::npos) {
            m_begin += feed + 1;
        }
        line = Next();  // its end may still have to be read, or lie beyond the limit
    } while (line && !tovaserverutil::Contains(*line, text));
    return line;
}

bool FileLines::PassOverBlocksWithout(std::string_view text, std::string_view head) {
    const std::string_view held(m_buffer.data() + m_begin, m_end - m_begin);
    const std::size_t found = held.find(text);
    std::string_view before = held.substr(0, found);
    // Back to the first line of the block that holds the text, or else of the last one that has begun.
    for (auto feed = LastFeed(before); feed != std::string_view::npos; feed = LastFeed(before)) {
        if (held.substr(feed + 1).starts_with(head)) {
            m_begin += feed + 1;
            return found != std::string_view::npos;
        }
        before = before.substr(0, feed);
    }
    return false;
}

bool FileLines::Fill() {
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    ssize_t count = 0;
    do {
        count = read(m_file.get(), m_buffer.data() + m_end, m_buffer.size() - m_end);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return false;
    }
    m_end += static_cast<std::size_t>(count);
    return true;
}
