// The diagnostic report of the Smart Array controllers.
#include "adu-report.h"

#include <stdexcept>
#include <string>

#include "readings.h"

namespace {

void CheckPlace(const std::string& location, int number) {
    FUZZ_CHECK(IsPrintable(location));
    FUZZ_CHECK(location.find(' ') == std::string::npos);
    FUZZ_CHECK(number >= 1);
}

std::string Told(const AduDrive& drive) {
    CheckPlace(drive.location, drive.number);
    FUZZ_CHECK(IsPrintable(drive.serial));
    FUZZ_CHECK(drive.port >= 0 && drive.box >= 0 && drive.bay >= 0);
    return "drive " + drive.controller + "|" + std::to_string(drive.number) + "|" + drive.serial + "|" +
           drive.location + "|" + std::to_string(drive.port) + ":" + std::to_string(drive.box) + ":" +
           std::to_string(drive.bay) + "\n";
}

std::string Told(const AduErrorLog& log) {
    CheckPlace(log.location, log.number);
    FUZZ_CHECK(IsPrintable(log.title));
    FUZZ_CHECK(log.times.Size() <= log.count && log.times.Size() <= 2 * ErrorTimes::kKept);
    std::string text = "log " + log.controller + "|" + std::to_string(log.number) + "|" + log.title + "|" +
                       log.location + "|" + std::to_string(log.port) + ":" + std::to_string(log.box) + ":" +
                       std::to_string(log.bay) + "|" + std::to_string(log.count);
    for (const std::uint64_t time : log.times.Times()) {
        text += " " + std::to_string(time);
    }
    return text + "\n";
}

std::string Read(LineSource& lines) {
    std::string text;
    try {
        ReadAduReport(lines, {[&](const AduDrive& drive) { text += Told(drive); },
                              [&](const AduErrorLog& log) { text += Told(log); }});
    } catch (const std::invalid_argument&) {
        text += "invalid\n";
    } catch (const std::out_of_range&) {
        text += "out of range\n";
    }
    return text;
}

}  // namespace

void Fuzz(std::string_view input) {
    ReadByEveryRoad(input, Read);
}
