// The corrected medium errors in a MegaRAID controller's event log.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "event-time.h"
#include "line-reader.h"
#include "storcli-text.h"

// What the log says of one error. An event names its drive by device id, by place, or by both.
struct CorrectedError {
    std::optional<unsigned int> device;     // at most kMaxDevice
    std::optional<unsigned int> enclosure;  // the number that the drive table shows; kNoEnclosure for none
    std::optional<unsigned int> slot;
    std::uint64_t time = 0;  // see datestr_to_num

    static constexpr unsigned int kNoEnclosure = 255;
};

// Reads the log in constant memory and hands out every corrected medium error, in the order of the log.
// Events whose device id is negative or above kMaxDevice are left out: the reporting memory could not tell
// them from those of another controller. Takes any text; throws what `found` throws and std::bad_alloc.
void ReadCorrectedErrors(LineSource& lines, const std::function<void(const CorrectedError&)>& found);
