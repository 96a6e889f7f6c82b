// walk-tree: reads a controller's storage once, through the bridge and the reader of the service, and prints
// the snapshot as tables.
//
//     walk-tree URL ACCOUNT PASSWORD TRACE
//
// TRACE is the file that the reader's trace lines are added to. The Python module is the one of the run-time
// folder beside this program's own. Exit codes: 0 read, 1 failed (the reason is on the error stream), 2 wrong
// use.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "ilorest-helper.h"
#include "ilorest-reader.h"
#include "server-util.h"
#include "stop-wait.h"
#include "storage-model.h"

namespace {

// The real bridge, which counts what is asked of it.
class CountingBridge : public iLoRestHelper {
public:
    CountingBridge(const std::string& moduleFolder, std::size_t& count)
        : iLoRestHelper(moduleFolder), m_count(count) {}

    std::string getValue(const char* path) override {
        ++m_count;
        return iLoRestHelper::getValue(path);
    }

private:
    std::size_t& m_count;
};

using Row = std::vector<std::string>;

// Columns as wide as their widest cell; a cell without text shows "-".
void PrintTable(const std::string& title, const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size(), 1);
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    std::cout << '\n' << title << '\n';
    for (const Row& row : rows) {
        std::string line = " ";
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string text = row[column].empty() ? "-" : row[column];
            line += " " + text + std::string(widths[column] - text.size() + 1, ' ');
        }
        std::cout << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
    }
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : ",") + text;
    }
    return joined;
}

// What tells the two families of controller apart.
struct Family {
    const char* name;
    bool hasGeneration;
    std::string (*size)(DiskDrive drive);  // of a copy, because one of the two operations changes the drive
    std::int64_t (*lifeLeft)(const DiskDrive& drive);  // percent
};

constexpr Family kSmartStorage = {
    "SmartStorage", false, [](DiskDrive drive) { return drive.getSizeString(); },
    [](const DiskDrive& drive) { return 100 - drive.endurance / drive.enduranceScale; }};
constexpr Family kStorage = {
    "Storage", true, [](DiskDrive drive) { return drive.getMirrorSizeString(); },
    [](const DiskDrive& drive) { return std::min<std::int64_t>(drive.endurance, 100); }};

// Collects the rows of one system.
class Tables {
public:
    void Add(const Family& family, const SmartStorage& storage) {
        for (const auto& [key, controller] : storage.controllers) {
            const std::string number = "#" + std::to_string(m_controllers.size());
            m_controllers.push_back({number, family.name, controller.model, controller.location,
                                     Trimmed(controller.serialNumber),
                                     family.hasGeneration ? std::to_string(controller.generation) : "",
                                     controller.health, controller.state});
            for (const auto& [driveKey, drive] : controller.diskDrives) {
                const bool wears = drive.mediaType.find("SSD") != std::string::npos;
                m_drives.push_back(
                    {number, drive.location, drive.model, family.size(drive), drive.mediaType, drive.health,
                     drive.state, Joined(drive.statusReasons), drive.failurePredicted ? "yes" : "no",
                     wears ? std::to_string(family.lifeLeft(drive)) + " %" : "", drive.firmwareRevision});
            }
            for (const auto& [volumeKey, volume] : controller.logicalDrives) {
                m_volumes.push_back({number, std::to_string(volume.number), volume.health, volume.state,
                                     std::to_string(volume.dataDrives.size()),
                                     std::to_string(volume.spareDrives.size())});
            }
        }
    }
    void Print() const {
        PrintTable("Controllers", m_controllers);
        PrintTable("Drives", m_drives);
        PrintTable("Volumes", m_volumes);
    }

private:
    std::vector<Row> m_controllers = {
        {"no.", "family", "model", "location", "serial number", "generation", "health", "state"}};
    std::vector<Row> m_drives = {{"on", "location", "model", "size", "media", "health", "state", "reasons",
                                  "predicted", "life left", "firmware"}};
    std::vector<Row> m_volumes = {{"on", "number", "health", "state", "members", "spares"}};
};

void PrintSnapshot(const ServiceRoot& root) {
    for (const auto& [key, system] : root.systems) {
        std::cout << "\nSystem " << key << '\n';
        Tables tables;
        tables.Add(kSmartStorage, system.smartStorage);
        tables.Add(kStorage, system.mirror);
        tables.Print();
    }
}

std::string ModuleFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin";
}

void Walk(char** arguments) {
    constexpr std::uint32_t kRetries = 3;
    constexpr std::uint32_t kRetryPauseMs = 1000;
    constexpr std::uint64_t kTraceLimit = 100'000'000;
    tovaserverutil::TraceLog trace(arguments[3], kTraceLimit, true);
    tovaserverutil::StopWait wait(nullptr);
    std::size_t requested = 0;
    iLoRestReader reader(std::make_unique<CountingBridge>(ModuleFolder(), requested));
    reader.setLogger(&trace);
    reader.setEvt(&wait);
    reader.init(arguments[0], arguments[1], arguments[2], kRetries, kRetryPauseMs);
    reader.setupiLOVersion();
    ServiceRoot root;
    reader.readILoRest(root);
    reader.close();
    std::cout << "Firmware " << reader.versionText() << '\n';
    PrintSnapshot(root);
    std::cout << "\nResources requested: " << requested << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: walk-tree URL ACCOUNT PASSWORD TRACE\n";
        return 2;
    }
    try {
        Walk(argv + 1);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "walk-tree: " << error.what() << '\n';
    } catch (const std::string& text) {
        std::cerr << "walk-tree: " << text << '\n';
    } catch (const char* text) {
        std::cerr << "walk-tree: " << text << '\n';
    }
    return 1;
}
