// Texts as JSON has them.
#pragma once

#include <string>
#include <string_view>

// The text between quotation marks, with escapes where JSON needs them. The text has to be UTF-8.
std::string JsonString(std::string_view text);
