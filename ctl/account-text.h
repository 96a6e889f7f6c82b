// Names and passwords as people type them, and what a terminal may be shown.
#pragma once

#include <string>

// True for a text that can be registered: 1 to 40 bytes of UTF-8 without control characters (neither those
// below the blank nor DEL to U+009F).
bool IsAccountText(const std::string& text);

// Throws UsageError unless IsAccountText. `what` names it in the message ("account", "password"); the text
// itself is not shown.
void CheckAccountText(const std::string& what, const std::string& text);

// The text with "?" for each control character and each byte that is not UTF-8.
std::string Printable(const std::string& text);
