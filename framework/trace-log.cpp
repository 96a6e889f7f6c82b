#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "file-descriptor.h"
#include "local-time.h"
#include "server-util.h"

namespace {

constexpr std::size_t kLineBuffer = 2048;
constexpr std::size_t kLineBytes = 2046;  // stamp, message and line feed together
constexpr int kBackupPathBytes = 4092;    // of the path, before ".bak"

// Writes the stamp with its blank into the buffer. Returns its length, 0 when the time cannot be had.
std::size_t Stamp(char* buffer, std::size_t size, bool milliseconds) {
    timeval now{};
    tm local{};
    tovaserverutil::FollowTimeZone();
    if (gettimeofday(&now, nullptr) != 0 || localtime_r(&now.tv_sec, &local) == nullptr) {
        return 0;
    }
    const auto year = static_cast<unsigned>(local.tm_year + 1900);
    const auto month = static_cast<unsigned>(local.tm_mon + 1);
    const auto day = static_cast<unsigned>(local.tm_mday);
    const auto hour = static_cast<unsigned>(local.tm_hour);
    const auto minute = static_cast<unsigned>(local.tm_min);
    const auto second = static_cast<unsigned>(local.tm_sec);
    const int length =
        milliseconds ? std::snprintf(buffer, size, "%04u/%02u/%02u %02u:%02u:%02u.%03u ", year, month, day,
                                     hour, minute, second, static_cast<unsigned>(now.tv_usec / 1000))
                     : std::snprintf(buffer, size, "%04u/%02u/%02u %02u:%02u:%02u ", year, month, day, hour,
                                     minute, second);
    return static_cast<std::size_t>(length);
}

// One call is one line, whatever an account's name or a URL holds.
void ReplaceControls(char* text, std::size_t length) {
    std::replace_if(
        text, text + length, [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }, '?');
}

}  // namespace

namespace tovaserverutil {

TraceLog::TraceLog(const std::string& path, std::uint64_t sizeLimitBytes, bool milliseconds)
    : m_sizeLimit(sizeLimitBytes), m_milliseconds(milliseconds) {
    std::snprintf(m_path, sizeof m_path, "%s", path.c_str());
}

bool TraceLog::Write(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const bool released = vWrite(format, args);
    va_end(args);
    return released;
}

bool TraceLog::vWrite(const char* format, va_list args) {
    char line[kLineBuffer];
    std::size_t length = Stamp(line, sizeof line, m_milliseconds);
    if (length == 0) {
        return false;
    }
    const std::size_t room = kLineBytes - length;  // for the message and its NUL, which becomes the line feed
    const int wanted = std::vsnprintf(line + length, room, format, args);
    if (wanted > 0) {
        const std::size_t written = std::min(static_cast<std::size_t>(wanted), room - 1);
        ReplaceControls(line + length, written);
        length += written;
    }
    line[length++] = '\n';

    LockGuard lock(m_lock);
    Append(line, length);
    return lock.Release();
}

void TraceLog::Append(const char* line, std::size_t length) {
    struct stat status {};
    std::uint64_t size = 0;
    if (stat(m_path, &status) == 0) {
        size = static_cast<std::uint64_t>(status.st_size);
    } else if (errno != ENOENT) {
        return;
    }
    if (size + length > m_sizeLimit) {
        char backup[kBackupPathBytes + sizeof ".bak"];
        std::snprintf(backup, sizeof backup, "%.*s.%s", kBackupPathBytes, m_path, "bak");
        if (std::remove(backup) != 0 && errno != ENOENT) {
            return;
        }
        std::rename(m_path, backup);  // when it fails, the line goes to the old file
    }
    // Whoever may write the folder could lay a link there and have root write to its target, or a pipe that
    // nobody reads and that would stop every thread. (Folders above it may be links.)
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
    const FileDescriptor file(open(m_path, kFlags, kMode));
    if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    ssize_t written = -1;
    do {
        written = write(file.get(), line, length);
    } while (written < 0 && errno == EINTR);
    if (written > 0 && static_cast<std::size_t>(written) < length) {
        // A disk that is full takes the beginning of a line; the next line would run into it.
        [[maybe_unused]] const int dropped = ftruncate(file.get(), status.st_size);
    }
}

}  // namespace tovaserverutil
