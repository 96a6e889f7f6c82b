// The thread that searches for medium errors.
#pragma once

#include <cstdint>

// Limits of the search that were never put to use: part of the interface, zero for the whole run, and
// deliberately neither configured nor read. What is reported, and how often, is decided without them.
extern std::uint64_t m_media_error_count;
extern std::uint64_t m_media_error_period;
extern std::uint64_t m_media_error_intermittently_count;
extern std::uint64_t m_media_error_intermittently_period;

// Thread routine; the argument is the thread's stop Event, which is not null. Returns 0 once that event is
// set and the cycle under way has ended: up to half a minute and the tools' running time later.
std::uint64_t MediaErrorRoutine(void* stopEvent);
