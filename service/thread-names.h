// What the service's threads are called in /proc/PID/task/*/comm, so that others can see which of them live.
// At most 15 bytes each.
#pragma once

inline constexpr const char* kOsLogThread = "OS log";
inline constexpr const char* kSerialLogThread = "Serial log";
inline constexpr const char* kMediaErrorThread = "Media Error";
inline constexpr const char* kSignalThread = "Signals";
