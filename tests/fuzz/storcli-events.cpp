// The event log of a MegaRAID controller, and the times in it.
#include "storcli-events.h"

#include <algorithm>
#include <string>

#include "megaraid.h"
#include "readings.h"

namespace {

std::string Read(LineSource& lines) {
    std::string text;
    MediumErrors all;
    ReadCorrectedErrors(lines, [&](const CorrectedError& error) {
        FUZZ_CHECK(!error.device || *error.device <= kMaxDevice);
        FUZZ_CHECK(!error.enclosure || *error.enclosure <= kMaxPlace);
        FUZZ_CHECK(!error.slot || *error.slot <= kMaxPlace);
        ++all.count;
        all.times.Add(error.time);
        for (const auto& number : {error.device, error.enclosure, error.slot}) {
            text += (number ? std::to_string(*number) : "-") + " ";
        }
        text += std::to_string(error.time) + "\n";
    });
    return text + (ErrsRepeatedly(all) ? "repeatedly" : "");
}

}  // namespace

void Fuzz(std::string_view input) {
    const std::string found = ReadByEveryRoad(input, Read);
    // An event takes more than one line.
    FUZZ_CHECK(std::count(found.begin(), found.end(), '\n') <=
               std::count(input.begin(), input.end(), '\n') + 1);
    datestr_to_num(std::string(input.substr(0, input.find('\n'))));
}
