// What the renderers of a HealthReport share.
#pragma once

#include <cstdint>
#include <string>

#include "health-report.h"

// "12 s", "5 min", "3 h", "4 days".
std::string AgeText(std::uint64_t seconds);
// Seconds from then to the report.
std::uint64_t AgeOf(const HealthReport& report, std::uint64_t time);
