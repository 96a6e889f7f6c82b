// Cutting a file into lines, also into lines that are too long for the reader, and passing lines over. The
// input is the file, but for its characters 1 to 8: each stands for a run of "x" as long as the reader's
// limit, less four characters up to and with three more.
#include <cstddef>
#include <string>
#include <string_view>

#include "fuzz.h"
#include "line-reader.h"

namespace {

std::string Unfolded(std::string_view input) {
    constexpr std::size_t kLeast = FileLines::kMaxLine - 4;
    constexpr int kMostRuns = 3;
    std::string text;
    int runs = 0;
    for (const char character : input) {
        if (character >= 1 && character <= 8 && runs < kMostRuns) {
            text.append(kLeast + static_cast<std::size_t>(character) - 1, 'x');
            ++runs;
        } else {
            text += character;
        }
    }
    return text;
}

// What a reader of files gives for a line: it looks at no more than its limit, and drops the line end and the
// blanks of what it has seen.
std::string Given(std::string line) {
    if (line.size() > FileLines::kMaxLine) {
        line.resize(FileLines::kMaxLine);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    line.erase(line.find_last_not_of(" \t") + 1);
    return line;
}

// Every line with the key is found, and so is the line behind it where that is asked for: every other time.
void CheckPassingOver(const std::string& text, const std::string& path) {
    constexpr std::string_view kKey = "xk:";
    const auto reader = FileLines::OpenFirst({path});
    std::size_t found = 0;
    bool askForNext = false;
    for (const std::string& line : LinesOf(text)) {
        const std::string wanted = Given(line);
        if (askForNext) {
            const auto given = reader->Next();
            FUZZ_CHECK(given && *given == wanted);
            askForNext = false;
        } else if (wanted.find(kKey) != std::string::npos) {
            const auto given = reader->NextWith(kKey);
            FUZZ_CHECK(given && *given == wanted);
            askForNext = ++found % 2 == 1;
        }
    }
    FUZZ_CHECK(!reader->NextWith(kKey));
    FUZZ_CHECK(!reader->NextWith(kKey));
}

}  // namespace

void Fuzz(std::string_view input) {
    const std::string text = Unfolded(input);
    const MemoryFile file(text);
    const auto reader = FileLines::OpenFirst({file.path()});
    FUZZ_CHECK(reader != nullptr);
    for (const std::string& line : LinesOf(text)) {
        const auto given = reader->Next();
        FUZZ_CHECK(given && *given == Given(line));
    }
    FUZZ_CHECK(!reader->Next());
    FUZZ_CHECK(!reader->Next());
    CheckPassingOver(text, file.path());
}
