// A folder of archives, a trace log beside it and commands that are not run.
#pragma once

#include <algorithm>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fake-commands.h"
#include "log-manager.h"
#include "test-root.h"

class ArchiveFolder {
public:
    tovaserverutil::LogManager Manager(std::uint32_t maxFileCount = 10) {
        return {&m_log, {"serial_log_", ".zip", root / "archives/", maxFileCount}, commands};
    }

    void Add(const std::string& name) const { root.Write("archives/" + name, "archive"); }
    // Archives of one day, the older first.
    void AddArchives(int count) const {
        for (int number = 0; number < count; ++number) {
            Add(Archive(number));
        }
    }
    static std::string Archive(int number) {
        std::string digits = std::to_string(number);
        return "serial_log_20240131_" + std::string(6 - digits.size(), '0') + digits + ".zip";
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(root / "archives")) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // The trace log's lines without their stamps.
    std::vector<std::string> Lines() const {
        constexpr std::size_t kStamp = 24;
        std::vector<std::string> lines;
        std::istringstream in(root.Read("trace.log"));
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line.substr(std::min(kStamp, line.size())));
        }
        return lines;
    }

    TestRoot root;
    FakeCommands commands;

private:
    tovaserverutil::TraceLog m_log{root / "trace.log", std::numeric_limits<std::uint64_t>::max(), true};
};
