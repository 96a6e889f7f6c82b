// What every plugin for Nagios and its kin needs.
#pragma once

#include <string>

// The text as a plugin may say it: one line, in which "|" would begin the performance data.
inline std::string PluginText(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < ' ' || character == '\x7f') {
            character = ' ';
        } else if (character == '|') {
            character = '/';
        }
    }
    return text;
}

// The whole line. `status` is the exit status, 0 to 3; `data`, behind the "|", may be empty.
inline std::string PluginLine(const std::string& name, int status, const std::string& text,
                              const std::string& data) {
    constexpr const char* kWords[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return name + " " + kWords[status] + " - " + text + (data.empty() ? "" : " | ") + data + "\n";
}
