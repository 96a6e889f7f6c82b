#include "server-profile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "secret.h"
#include "server-util.h"

namespace {

constexpr const char* kUnit = "server-profile";
constexpr int kLineBuffer = 8192;  // a longer line is read as several

// The line's text: up to its first NUL, line feed or carriage return.
std::string_view CutLine(const char* line) {
    return {line, std::strcspn(line, "\n\r")};
}

}  // namespace

namespace tovaserverutil {

Profile::~Profile() {
    for (ProfileSection& section : m_sections) {
        for (auto& entry : section.entries) {
            Wipe(entry.second);
        }
    }
}

void Profile::ReadProfile() {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(m_path.c_str(), "re"), &std::fclose);
    if (file == nullptr) {
        throw tovabase::TOVAExcpt(tovabase::TOVAExcpt::kFileOpen, "%s %d (Err: %d FileName: %s)", kUnit,
                                  __LINE__, errno, m_path.c_str());
    }
    m_sections.clear();
    ProfileSection current;
    char buffer[kLineBuffer] = {};
    while (std::fgets(buffer, sizeof buffer, file.get()) != nullptr) {
        const std::string_view line = CutLine(buffer);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            const std::size_t end = line.find(']');
            if (end == std::string_view::npos) {
                continue;
            }
            if (!current.name.empty()) {
                m_sections.push_back(std::move(current));
            }
            current = ProfileSection{std::string(line.substr(1, end - 1)), {}};
            continue;
        }
        const std::size_t equals = line.find('=');
        current.entries.emplace_back(line.substr(0, equals),
                                     equals == std::string_view::npos ? "" : line.substr(equals + 1));
    }
    Wipe(buffer, sizeof buffer);
    if (!current.name.empty() && !current.entries.empty()) {
        m_sections.push_back(std::move(current));
    }
}

const std::string* Profile::Find(std::string_view section, std::string_view key) const {
    for (const ProfileSection& candidate : m_sections) {
        if (candidate.name != section) {
            continue;
        }
        for (const auto& [name, value] : candidate.entries) {
            if (name == key) {
                return &value;
            }
        }
        return nullptr;
    }
    return nullptr;
}

std::uint32_t Profile::ReadUnsigned(std::string_view section, std::string_view key,
                                    std::uint32_t defaultValue) const {
    return static_cast<std::uint32_t>(ReadSigned(section, key, static_cast<std::int32_t>(defaultValue)));
}

std::int32_t Profile::ReadSigned(std::string_view section, std::string_view key,
                                 std::int32_t defaultValue) const {
    const std::string* value = Find(section, key);
    if (value == nullptr || value->empty()) {
        return defaultValue;
    }
    return static_cast<std::int32_t>(std::strtol(value->c_str(), nullptr, 10));
}

std::string Profile::ReadText(std::string_view section, std::string_view key,
                              const std::string& defaultValue) const {
    const std::string* value = Find(section, key);
    return value == nullptr ? defaultValue : *value;
}

bool Profile::ReadFlag(std::string_view section, std::string_view key) const {
    const std::string* value = Find(section, key);
    return value == nullptr || *value != "false";
}

}  // namespace tovaserverutil
