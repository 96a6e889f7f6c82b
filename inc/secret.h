// Wiping of passwords and keys.
#pragma once

#include <cstddef>
#include <string>

namespace tovaserverutil {

// Overwrites the memory so that the compiler cannot leave the overwriting out.
void Wipe(void* memory, std::size_t size);
// Overwrites the characters (all of the string's capacity) and empties the string.
void Wipe(std::string& text);

// Wipes a string when the scope ends.
class WipeOnExit {
public:
    explicit WipeOnExit(std::string& text) : m_text(text) {}
    ~WipeOnExit() { Wipe(m_text); }
    WipeOnExit(const WipeOnExit&) = delete;
    WipeOnExit& operator=(const WipeOnExit&) = delete;

private:
    std::string& m_text;
};

}  // namespace tovaserverutil
