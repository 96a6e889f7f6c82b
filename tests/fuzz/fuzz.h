// What the fuzz targets share.
//
// A target is one function that takes any bytes and returns. What is wrong ends the process, by FUZZ_CHECK,
// by a sanitizer or by an exception that the code under test does not promise; libFuzzer keeps the input
// then.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "file-descriptor.h"

// Each target's own.
void Fuzz(std::string_view input);

// Ends the process and says what did not hold.
#define FUZZ_CHECK(condition) \
    ((condition) ? static_cast<void>(0) : FuzzFailure(#condition, __FILE__, __LINE__))
[[noreturn]] void FuzzFailure(const char* condition, const char* file, int line);

// A file in memory, for what reads files by their name.
class MemoryFile {
public:
    MemoryFile();
    explicit MemoryFile(std::string_view content) : MemoryFile() { Write(content); }

    // Replaces what the file holds.
    void Write(std::string_view content) const;
    // Valid as long as the object lives.
    const std::string& path() const { return m_path; }

private:
    tovaserverutil::FileDescriptor m_file;
    std::string m_path;
};

// The lines of the input, without their line feeds.
std::vector<std::string> LinesOf(std::string_view input);

// The text with CR LF for each line feed.
std::string WithCarriageReturns(std::string_view text);

// Does the text hold none but printable ASCII characters?
bool IsPrintable(std::string_view text);

// Does it hold a character that could forge or garble a line of a log: a control character below the blank,
// or DEL?
bool HoldsControl(std::string_view text);
