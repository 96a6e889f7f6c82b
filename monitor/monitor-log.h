// The thread that watches the management controller's storage resources ("OS log").
#pragma once

#include <cstdint>

// Thread routine; the argument is the thread's stop Event. Returns 0 soon after that event is set.
std::uint64_t MonitorLogRoutine(void* stopEvent);
