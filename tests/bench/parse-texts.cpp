// Times one reader of the RAID tools' outputs in a process of its own, so that its peak memory can be told
// apart.
//
//   parse-texts report FILE      the whole search over a diagnostic report, drive maps included
//   parse-texts events FILE      the corrected medium errors of an event log, by device
//
// Prints what was found, the seconds it took and the growth of peak memory in KiB, as one line of JSON.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <system_error>

#include "megaraid.h"
#include "pd-maps.h"
#include "smart-array.h"
#include "storcli-events.h"

namespace {

// The process's peak memory.
long PeakKib() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

// Nothing is run: the report lies ready.
class NoCommands : public tovaserverutil::CommandRunner {
public:
    tovaserverutil::CommandResult Capture(const std::string&, std::chrono::milliseconds) override {
        return {};
    }
    tovaserverutil::CommandResult Execute(const std::string&, std::chrono::milliseconds) override {
        return {};
    }
};

// A new folder beside the file, so that both are on one file system; it goes with this object.
class FolderBeside {
public:
    explicit FolderBeside(const std::filesystem::path& file) {
        std::string name = file.string() + ".XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        m_path = name;
    }
    ~FolderBeside() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    FolderBeside(const FolderBeside&) = delete;
    FolderBeside& operator=(const FolderBeside&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// The file becomes the test report of a folder of its own.
std::uint64_t SearchReport(const std::filesystem::path& file) {
    const FolderBeside folder(file);
    const std::filesystem::path report = folder.Path() / "KMT_ADUReport_test/KMT_ADUReport_test.txt";
    std::filesystem::create_directory(report.parent_path());
    std::error_code failure;
    std::filesystem::create_hard_link(file, report, failure);
    if (failure) {  // a file system without hard links, or somebody else's file
        std::filesystem::create_symlink(file, report);
    }
    std::filesystem::current_path(folder.Path());
    NoCommands commands;
    pd_addr_map drives;
    std::uint64_t errors = 0;
    SearchSmartArrays(commands, drives,
                      [&](const tovaevent::EvtData&, int, int, const std::string&, std::uint32_t,
                          const std::string&, int count) { errors += static_cast<std::uint64_t>(count); });
    std::filesystem::current_path("/");
    return errors;
}

std::uint64_t ReadEvents(const std::filesystem::path& file) {
    const auto lines = FileLines::OpenFirst({file.string()});
    if (lines == nullptr) {
        throw std::system_error(errno, std::generic_category(), file.string());
    }
    std::uint64_t errors = 0;
    std::map<unsigned int, MediumErrors> byDevice;
    ReadCorrectedErrors(*lines, [&](const CorrectedError& error) {
        ++errors;
        MediumErrors& device = byDevice[error.device.value_or(0)];
        ++device.count;
        device.times.Add(error.time);
    });
    return errors;
}

void Measure(const std::string& kind, const std::filesystem::path& file) {
    const long before = PeakKib();
    const auto start = std::chrono::steady_clock::now();
    const std::uint64_t errors = kind == "report" ? SearchReport(file) : ReadEvents(file);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::printf("{\"errors\": %llu, \"seconds\": %.6f, \"growth_kib\": %ld}\n",
                static_cast<unsigned long long>(errors), seconds.count(), PeakKib() - before);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string kind = argc == 3 ? argv[1] : "";
    if ((kind != "report" && kind != "events") || !std::filesystem::is_regular_file(argv[2])) {
        std::cerr << "usage: parse-texts report|events FILE\n";
        return 2;
    }
    try {
        Measure(kind, std::filesystem::absolute(argv[2]));
    } catch (const std::exception& failure) {
        std::cerr << "parse-texts: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
