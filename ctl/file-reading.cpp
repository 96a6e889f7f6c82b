#include "file-reading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "file-descriptor.h"
#include "secret.h"

namespace {

constexpr std::size_t kPieceBytes = 65536;

// Throws Unreadable for what is not read.
FileKind KindOf(const struct stat& status) {
    if (S_ISREG(status.st_mode)) {
        return FileKind::kRegular;
    }
    if (S_ISDIR(status.st_mode)) {
        return FileKind::kFolder;
    }
    if (S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3)) {
        return FileKind::kNullDevice;
    }
    throw Unreadable{0, S_ISFIFO(status.st_mode) ? "it is a FIFO, at which a reader waits for a writer"
                                                 : "it is a device or a socket"};
}

}  // namespace

FileContent ReadWholeFile(const std::string& file) {
    // Looked at before it is opened: opening a FIFO alone lets its writer go on.
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        throw Unreadable{errno, std::strerror(errno)};
    }
    FileContent content;
    content.kind = KindOf(status);
    const tovaserverutil::FileDescriptor in(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!in.valid() || fstat(in.get(), &status) != 0) {
        throw Unreadable{errno, std::strerror(errno)};
    }
    content.kind = KindOf(status);
    if (content.kind != FileKind::kRegular) {
        return content;
    }
    std::string& text = content.text;
    while (true) {
        if (text.size() > kMostFileBytes) {
            tovaserverutil::Wipe(text);
            throw Unreadable{0, "it is larger than 16 MiB"};
        }
        // Grown by hand, so that no text is left behind in memory that was too small.
        if (text.capacity() < text.size() + kPieceBytes) {
            std::string larger;
            larger.reserve(2 * text.size() + kPieceBytes);
            larger = text;
            tovaserverutil::Wipe(text);
            text.swap(larger);
        }
        const std::size_t done = text.size();
        text.resize(done + kPieceBytes);
        const ssize_t got = read(in.get(), text.data() + done, kPieceBytes);
        const int error = errno;
        text.resize(done + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got == 0) {
            return content;
        }
        if (got < 0 && error != EINTR) {
            tovaserverutil::Wipe(text);
            throw Unreadable{error, std::strerror(error)};
        }
    }
}

bool IsFifo(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}
