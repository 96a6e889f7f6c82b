// Small parts that the readers of the diagnostic report share.
#pragma once

#include <string>
#include <string_view>

// When the line holds the key: true, and the value is the text behind the key without leading blanks. Else
// false and an empty value.
bool find_elements(std::string_view line, std::string_view key, std::string& value);

bool isNotDigit(char character);

// Removes everything but the decimal digits.
void removeNonDigits(std::string& text);
