// Searching in texts.
#pragma once

#include <string>

namespace tovaserverutil {

// Is the part somewhere in the text? An empty part is in every text.
inline bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

}  // namespace tovaserverutil
