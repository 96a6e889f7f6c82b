// Colours for people: only on a terminal, and never against the user's wish.
#pragma once

#include <string>
#include <string_view>

// True when the descriptor is a terminal that knows colours (TERM is neither empty nor "dumb") and NO_COLOR
// is unset or empty.
bool WantsColour(int descriptor);

// Puts texts into colour; off, it hands them back as they are.
class Paint {
public:
    explicit Paint(bool on) : m_on(on) {}

    bool IsOn() const { return m_on; }
    std::string Red(std::string_view text) const { return Wrapped("31", text); }
    std::string Green(std::string_view text) const { return Wrapped("32", text); }
    std::string Yellow(std::string_view text) const { return Wrapped("33", text); }
    std::string Bold(std::string_view text) const { return Wrapped("1", text); }
    std::string Faint(std::string_view text) const { return Wrapped("2", text); }

private:
    std::string Wrapped(std::string_view code, std::string_view text) const;

    bool m_on;
};
