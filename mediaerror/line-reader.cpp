#include "line-reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// The line without what ends it: one carriage return, blanks and tabs.
std::string_view WithoutEnd(std::string_view line) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    const std::size_t last = line.find_last_not_of(" \t");
    return line.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

}  // namespace

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
