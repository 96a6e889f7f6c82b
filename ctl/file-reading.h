// Files that an administrator names, or that lie where the service looks: read without ever waiting for them.
#pragma once

#include <cstddef>
#include <string>

// Why a file cannot be read.
struct Unreadable {
    int error;  // errno, 0 for something that is not read at all
    std::string reason;
};

inline constexpr std::size_t kMostFileBytes = std::size_t{16} * 1024 * 1024;

enum class FileKind { kRegular, kFolder, kNullDevice, kOther };

struct FileContent {
    FileKind kind = FileKind::kRegular;
    std::string text;  // empty for folders and /dev/null, as for a reader of lines
};

// The content up to its end, whatever size the file claims. Throws Unreadable, also for FIFOs, sockets and
// devices, which are not opened, and for more than kMostFileBytes.
FileContent ReadWholeFile(const std::string& file);

// True for what a reader waits at until somebody writes into it.
bool IsFifo(const std::string& path);
