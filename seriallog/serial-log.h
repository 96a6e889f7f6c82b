// The thread that saves the controllers' diagnostic archive.
#pragma once

#include <cstdint>

// Thread routine; the argument is the thread's stop Event. Returns 0 soon after that event is set; a command
// under way is waited for.
std::uint64_t SerialLogRoutine(void* stopEvent);
