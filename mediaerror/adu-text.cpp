#include "adu-text.h"

#include "text.h"

bool find_elements(std::string_view line, std::string_view key, std::string& value) {
    const std::size_t found = line.find(key);
    if (found == std::string_view::npos) {
        value.clear();
        return false;
    }
    value.assign(tovaserverutil::WithoutLeadingBlanks(line.substr(found + key.size())));
    return true;
}

bool isNotDigit(char character) {
    return character < '0' || character > '9';
}

void removeNonDigits(std::string& text) {
    std::erase_if(text, isNotDigit);
}
