// Aligned tables for people.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "colour.h"

// Columns as wide as their widest text, two blanks between them, none at the end of a line. Widths count
// characters, not bytes; every character is taken as one column wide.
class TextTable {
public:
    explicit TextTable(std::vector<std::string> titles) : m_rows{std::move(titles)} {}

    // Of as many texts as there are titles.
    void Add(std::vector<std::string> row) { m_rows.push_back(std::move(row)); }
    // With the titles in bold.
    void Write(std::ostream& out, const Paint& paint) const;

private:
    std::vector<std::vector<std::string>> m_rows;
};
