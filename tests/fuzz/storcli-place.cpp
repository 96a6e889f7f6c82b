// storcli64's listing of one drive.
#include <string>

#include "readings.h"
#include "storcli-listings.h"

namespace {

std::string Read(LineSource& lines) {
    const StorcliPlace place = ParsePlace(lines);
    for (const std::string& text : {place.port, place.box}) {
        FUZZ_CHECK(IsPrintable(text));
        FUZZ_CHECK(text.empty() || (text.front() != ' ' && text.back() != ' '));
    }
    return place.port + "|" + place.box;
}

}  // namespace

void Fuzz(std::string_view input) {
    ReadByEveryRoad(input, Read);
}
