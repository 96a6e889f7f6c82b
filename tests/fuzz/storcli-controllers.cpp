// storcli64's list of controllers.
#include <set>
#include <string>

#include "readings.h"
#include "storcli-listings.h"

namespace {

std::string Read(LineSource& lines) {
    std::string text;
    std::set<unsigned int> known;
    for (const unsigned int number : ParseControllers(lines)) {
        FUZZ_CHECK(number <= kMaxController && known.insert(number).second);
        text += std::to_string(number) + "\n";
    }
    return text;
}

}  // namespace

void Fuzz(std::string_view input) {
    ReadByEveryRoad(input, Read);
}
