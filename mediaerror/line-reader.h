// Reading a text line by line in constant memory.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "file-descriptor.h"

// Where a parser takes its lines from.
class LineSource {
public:
    virtual ~LineSource() = default;
    // The next line without its line end (LF or CR LF) and without trailing blanks; nothing at the end. The
    // view holds until the next call. It may contain any byte, NUL as well.
    virtual std::optional<std::string_view> Next() = 0;
    // The next line that holds the text, which is not empty, has no line feed and ends with no blank; nothing
    // when there is none any more. What a parser has no use for is passed over much faster than line by line,
    // fastest when the text begins with a character that is rare in the lines to be passed over.
    virtual std::optional<std::string_view> NextWith(std::string_view text);
    // Only behind the first line of a block, and for who wants nothing of a block that does not hold the
    // text: passes over such blocks, this one and the next ones, as far as that can be told fast, perhaps not
    // at all. A block begins with a line that begins with `head`; text and head are not empty and have no
    // line feed. If true, the next line begins a block that holds the text, and behind that line it need not
    // be called.
    virtual bool PassOverBlocksWithout(std::string_view text, std::string_view head);
};

// Lines of a text in memory; the text is borrowed.
class TextLines : public LineSource {
public:
    explicit TextLines(std::string_view text) : m_rest(text) {}
    std::optional<std::string_view> Next() override;

private:
    std::string_view m_rest;
};

// Lines of a file. Of a line longer than kMaxLine bytes only its beginning is given; the rest is passed over.
// A read error counts as the end of the file.
class FileLines : public LineSource {
public:
    static constexpr std::size_t kMaxLine = 64 * 1024;

    // The first of the paths that can be opened for reading; nothing when none can. Relative paths are meant
    // from the working directory. Only regular files are read.
    static std::unique_ptr<FileLines> OpenFirst(const std::vector<std::string>& paths);

    std::optional<std::string_view> Next() override;
    std::optional<std::string_view> NextWith(std::string_view text) override;
    bool PassOverBlocksWithout(std::string_view text, std::string_view head) override;

private:
    explicit FileLines(tovaserverutil::FileDescriptor file) : m_file(std::move(file)) {}

    // As Next(), for a line that is not held as a whole.
    std::optional<std::string_view> NextInPieces();
    // Moves the line that has begun to the front of the buffer and reads behind it. False at the end of the
    // file.
    bool Fill();

    tovaserverutil::FileDescriptor m_file;
    std::vector<char> m_buffer = std::vector<char>(4 * kMaxLine);
    std::size_t m_begin = 0;  // what has not been given yet: [m_begin, m_end) of the buffer
    std::size_t m_end = 0;
    // The beginning of a line has been given already, and its end not yet seen: nothing is held then.
    bool m_passOver = false;
};
