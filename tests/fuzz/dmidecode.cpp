// What dmidecode prints, on its way to the keys of the account files.
#include <stdexcept>
#include <string>

#include "fake-commands.h"
#include "fuzz.h"
#include "ilo-account.h"

void Fuzz(std::string_view input) {
    FakeCommands commands;
    commands.result.output = input;
    const std::string uuid = get_uuid(commands);
    constexpr std::size_t kLongest = 36;
    FUZZ_CHECK(uuid.size() <= kLongest && uuid.find('-') == std::string::npos);
    for (const int record : {kAccountNameRecord, kAccountPasswordRecord}) {
        bool usable = true;
        try {
            const AccountKey key(record, uuid);
        } catch (const std::invalid_argument&) {
            usable = false;
        }
        constexpr std::size_t kDigits = 32;
        const std::string counted = uuid.substr(0, kDigits);
        FUZZ_CHECK(usable == (counted.size() == kDigits &&
                              counted.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos));
    }
}
