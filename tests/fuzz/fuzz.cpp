#include "fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// The same input does the same everywhere.
int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return setenv("TZ", "UTC", 1);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz({reinterpret_cast<const char*>(data), size});
    return 0;
}

void FuzzFailure(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: this does not hold: %s\n", file, line, condition);
    std::abort();
}

MemoryFile::MemoryFile() : m_file(memfd_create("input", MFD_CLOEXEC)) {
    FUZZ_CHECK(m_file.valid());
    m_path = "/proc/self/fd/" + std::to_string(m_file.get());
}

void MemoryFile::Write(std::string_view content) const {
    FUZZ_CHECK(ftruncate(m_file.get(), 0) == 0);
    FUZZ_CHECK(pwrite(m_file.get(), content.data(), content.size(), 0) ==
               static_cast<ssize_t>(content.size()));
}

std::vector<std::string> LinesOf(std::string_view input) {
    std::vector<std::string> lines;
    while (!input.empty()) {
        const std::size_t end = std::min(input.find('\n'), input.size());
        lines.emplace_back(input.substr(0, end));
        input.remove_prefix(std::min(end + 1, input.size()));
    }
    return lines;
}

std::string WithCarriageReturns(std::string_view text) {
    std::string result;
    for (const char character : text) {
        if (character == '\n') {
            result += '\r';
        }
        result += character;
    }
    return result;
}

bool IsPrintable(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char character) { return character >= ' ' && character <= '~'; });
}

bool HoldsControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < ' ' || character == '\x7F';
    });
}
