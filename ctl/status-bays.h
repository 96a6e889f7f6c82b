// Where drives sit, for a picture of the bays.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "status-report.h"

struct Bay {
    std::string box;  // empty when the location names none; boxes outside the server have "(external)" in it
    int number = 0;
};

// From a location text as controllers write it: "1I:1:4", "Slot=14:Port=2:Box=1:Bay=8", "Box 2:Bay 1".
// Nothing for other texts.
std::optional<Bay> ParseBay(const std::string& location);

// One box of a controller as it is seen from the front.
struct BayRow {
    struct Place {
        std::optional<int> number;           // nothing: the location tells none
        const DriveStatus* drive = nullptr;  // null: no drive is known between its neighbours
    };

    std::string box;
    std::vector<Place> places;
};

// In the order of boxes and bays; drives whose location tells no bay come last, in a row without a box. The
// pointers are into the controller's drives.
std::vector<BayRow> ArrangeBays(const ControllerStatus& controller);
