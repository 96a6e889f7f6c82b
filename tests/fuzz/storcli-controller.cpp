// storcli64's listing of one controller.
#include <string>

#include "readings.h"
#include "storcli-listings.h"

namespace {

std::string Read(LineSource& lines) {
    const StorcliController controller = ParseController(lines);
    FUZZ_CHECK(IsPrintable(controller.product) && IsPrintable(controller.slot));
    std::string text = controller.product + "|" + controller.slot + "\n";
    for (const StorcliDrive& drive : controller.drives) {
        FUZZ_CHECK(drive.slot <= kMaxPlace && drive.device <= kMaxDevice);
        FUZZ_CHECK(!drive.enclosure || *drive.enclosure <= kMaxPlace);
        text += (drive.enclosure ? std::to_string(*drive.enclosure) : "") + ":" + std::to_string(drive.slot) +
                " " + std::to_string(drive.device) + "\n";
    }
    return text;
}

}  // namespace

void Fuzz(std::string_view input) {
    ReadByEveryRoad(input, Read);
}
