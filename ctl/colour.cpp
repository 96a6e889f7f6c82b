#include "colour.h"

#include <unistd.h>

#include <cstdlib>

namespace {

std::string_view Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string_view() : value;
}

}  // namespace

bool WantsColour(int descriptor) {
    const std::string_view terminal = Environment("TERM");
    return Environment("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb" &&
           isatty(descriptor) == 1;
}

std::string Paint::Wrapped(std::string_view code, std::string_view text) const {
    if (!m_on || text.empty()) {
        return std::string(text);
    }
    return "\033[" + std::string(code) + "m" + std::string(text) + "\033[0m";
}
