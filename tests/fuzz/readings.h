// Runs one line reader over the same text by every road that must come to the same.
#pragma once

#include <string>

#include "fuzz.h"
#include "line-reader.h"

// `read` puts all that it finds into one text. Returns what it made of the input.
template <class Read>
std::string ReadByEveryRoad(std::string_view input, const Read& read) {
    TextLines lines(input);
    const std::string found = read(lines);

    // A longer line of a file is cut.
    if (input.size() <= FileLines::kMaxLine) {
        const MemoryFile file(input);
        const auto fileLines = FileLines::OpenFirst({file.path()});
        FUZZ_CHECK(fileLines != nullptr);
        FUZZ_CHECK(read(*fileLines) == found);
    }
    // One carriage return belongs to the line end; of two the first one is text.
    if (input.find('\r') == std::string_view::npos) {
        const std::string other = WithCarriageReturns(input);
        TextLines otherLines(other);
        FUZZ_CHECK(read(otherLines) == found);
    }
    return found;
}
