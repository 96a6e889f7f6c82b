// How much of the tools' outputs is kept. The tools are not trusted: whatever a listing or a report holds,
// what is kept of it stays small. What lies beyond a limit is ignored; no real server comes near one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "text.h"

// Drives of one report, or of one MegaRAID controller. A full controller has 240, a full server a few
// hundred.
inline constexpr std::size_t kMaxDrives = 1024;

// MegaRAID controllers, each of which takes a few commands. A server has fewer slots than these.
inline constexpr std::size_t kMaxControllers = 32;

// Characters of a serial number, a place or a controller's title. SCSI's own limit for a serial number is
// 252.
inline constexpr std::size_t kMaxText = 256;

// What is kept of such a text, made printable.
inline std::string KeptText(std::string_view text) {
    return tovaserverutil::Printable(text.substr(0, kMaxText));
}
