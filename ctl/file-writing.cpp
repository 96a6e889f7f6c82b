#include "file-writing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "account-text.h"
#include "ctl-error.h"
#include "file-descriptor.h"

using tovaserverutil::FileDescriptor;

namespace {

const char* AdviceFor(int error) {
    switch (error) {
        case ENOSPC:
        case EDQUOT:
            return "free space there";
        case EACCES:
        case EPERM:
        case EROFS:
            return "make the folder writable";
        case ENOENT:
            return "make the folder";
        case EISDIR:
        case ENOTEMPTY:
        case ELOOP:
        case EFBIG:
            return "remove what stands in its place";
        default:
            return "check the disk";
    }
}

// The folder with its last slash; empty for a file in the working directory.
std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

bool WriteAll(int file, const void* content, std::size_t size) {
    const char* rest = static_cast<const char*>(content);
    while (size > 0) {
        const ssize_t wrote = write(file, rest, size);
        if (wrote < 0 && errno == EINTR) {
            continue;
        }
        if (wrote < 0) {
            return false;
        }
        rest += wrote;
        size -= static_cast<std::size_t>(wrote);
    }
    return true;
}

void FailOnFile(const std::string& action, const std::string& path, int error) {
    throw CtlError("Cannot " + action + " " + Printable(path) + ": " + std::strerror(error) + "; " +
                   AdviceFor(error) + ", then try again.");
}

void ReplaceFile(const std::string& path, const std::string& content) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw CtlError("Cannot write " + Printable(path) +
                       ": it is no regular file; name a file that may be replaced.");
    }
    const std::string folder = FolderOf(path);
    std::string temporary = folder + "." + path.substr(folder.size()) + ".XXXXXX";
    const FileDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.valid()) {
        FailOnFile("write", path, errno);
    }
    const bool written = WriteAll(file.get(), content.data(), content.size()) &&
                         fchmod(file.get(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) == 0 &&
                         fsync(file.get()) == 0 && rename(temporary.c_str(), path.c_str()) == 0;
    if (!written) {
        const int error = errno;
        unlink(temporary.c_str());
        FailOnFile("write", path, error);
    }
    // The content is safe by now; that the name lasts through a power failure is asked for, not insisted on.
    const FileDescriptor place(
        open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (place.valid()) {
        fsync(place.get());
    }
}

void PutResult(const std::string& text, const std::string& file, std::ostream& out) {
    if (file.empty()) {
        out << text;
    } else {
        ReplaceFile(file, text);
    }
}
