// What is known of each event beyond its texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One for each event that is reported.
struct EventInfo {
    std::uint32_t id;
    const char* when;  // it is raised; of one that never is: why
    bool isRaised = true;
};

// In the order of their numbers.
const std::vector<EventInfo>& EventTable();

// The event that a person names: by identifier ("0xC0008151", "3221258577", "c0008151") or by number as the
// trace log shows it ("337", "VK0337"). Null when there is none.
const EventInfo* FindEvent(const std::string& name);

// "error", "warning" or "information", by the identifier's top two bits.
const char* SeverityName(std::uint32_t id);

// "VK0337" for 0xC0008151.
std::string TraceName(std::uint32_t id);

// "0xC0008151".
std::string IdentifierText(std::uint32_t id);
