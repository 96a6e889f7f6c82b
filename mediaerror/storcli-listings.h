// storcli64's listings of controllers and drives as records. The parsers know nothing of files and commands,
// take any text and throw nothing but std::bad_alloc. Numbers are decimal; a row that lacks one, or has one
// beyond its limit, is passed over. Texts are printable and trimmed, and have at most kMaxText characters.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "line-reader.h"
#include "storcli-text.h"

struct StorcliDrive {
    std::optional<unsigned int> enclosure;  // none: the drive is cabled to the controller directly
    unsigned int slot = 0;
    unsigned int device = 0;  // at most kMaxDevice
};

struct StorcliController {
    std::string product;
    std::string slot;  // of the PCI bus; empty when the listing does not say
    std::vector<StorcliDrive> drives;
};

// A drive's place as its listing prints it ("1" or "1I"); empty when the listing does not say.
struct StorcliPlace {
    std::string port;
    std::string box;
};

// The first kMaxControllers numbers, each at most kMaxController, in the order of the listing ("show") and
// without repetition: RAID controllers and plain host adapters stand in tables of their own.
std::vector<unsigned int> ParseControllers(LineSource& lines);

// One controller ("/c0 show") with its first kMaxDrives drives, without repetition: each costs a command.
StorcliController ParseController(LineSource& lines);

// One drive's place ("/c0/e252/s3 show all").
StorcliPlace ParsePlace(LineSource& lines);
