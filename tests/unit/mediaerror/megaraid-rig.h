// A server with MegaRAID controllers for the tests of the search: shell and tool, listings, a service to
// report to.
#pragma once

#include <gtest/gtest.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "../service/service-fixture.h"
#include "megaraid.h"

inline constexpr std::uint64_t kSevenDays = 604800;
inline constexpr std::uint64_t kBegin = 1'790'000'000;

inline const std::string kTool = "/opt/MegaRAID/storcli/storcli64";
inline const std::string kDashes(60, '-');

class FakeWallClock : public tovaserverutil::WallClock {
public:
    std::uint64_t Now() const override { return now; }
    std::uint64_t now = kBegin;
};

// Plays the shell and storcli64: records every command, writes the answer into the file that the command's
// output is redirected to, removes what it shall remove.
class FakeTool : public tovaserverutil::CommandRunner {
public:
    tovaserverutil::CommandResult Capture(const std::string&, std::chrono::milliseconds) override {
        throw std::logic_error("the listings go into files");
    }
    tovaserverutil::CommandResult Execute(const std::string& command,
                                          std::chrono::milliseconds deadline) override {
        commands.push_back(command);
        during(command);
        EXPECT_EQ(deadline, tovaserverutil::kListingDeadline);
        tovaserverutil::CommandResult result;
        result.started = failing.count(command) == 0;
        result.timedOut = hanging.count(command) != 0;
        result.exitStatus = statuses.count(command) == 0 ? 0 : statuses[command];
        if (result.started) {
            Perform(command);
        }
        return result;
    }

    std::map<std::string, std::string> answers;  // by the tool's arguments; empty when not given
    std::map<std::string, int> statuses;         // by whole command; 0 when not given
    std::set<std::string> silent;                // arguments whose output does not even leave a file
    std::set<std::string> failing;               // whole commands that cannot be started
    std::set<std::string> hanging;               // whole commands that are ended at the deadline
    std::vector<std::string> commands;
    std::function<void(const std::string&)> during = [](const std::string&) {};  // a command is run

private:
    void Perform(const std::string& command) {
        const std::string redirection = " > ";
        const std::string removal = "rm -rf \"";
        const std::size_t at = command.find(redirection);
        if (at != std::string::npos) {
            ASSERT_EQ(command.find(kTool + " "), 0u);
            const std::string arguments = command.substr(kTool.size() + 1, at - kTool.size() - 1);
            if (silent.count(arguments) == 0) {
                std::ofstream(command.substr(at + redirection.size()), std::ios::binary)
                    << answers[arguments];
            }
        } else {
            ASSERT_EQ(command.find(removal), 0u);
            std::filesystem::remove(command.substr(removal.size(), command.size() - removal.size() - 1));
        }
    }
};

inline std::string ControllerTable(const std::vector<std::string>& rows) {
    std::string text = kDashes + "\nCtl Model     Ports PDs \n" + kDashes + "\n";
    for (const std::string& row : rows) {
        text += "  " + row + " TestModel 8 2 \n";
    }
    return text + kDashes + "\n";
}

inline std::string ControllerListing(const std::string& keys, const std::vector<std::string>& rows) {
    std::string text =
        "Status = Success\n" + keys + "\n" + kDashes + "\nEID:Slt DID State DG \n" + kDashes + "\n";
    for (const std::string& row : rows) {
        text += row + " Onln 0 \n";
    }
    return text + kDashes + "\n";
}

inline std::string TimeText(std::uint64_t time) {
    const auto seconds = static_cast<time_t>(time);
    tm local{};
    localtime_r(&seconds, &local);
    char text[64] = {};
    std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &local);
    return text;
}

inline std::string Event(const std::string& data, std::uint64_t time,
                         const std::string& description = "Corrected medium error during recovery") {
    return "\nseqNum: 0x01\nTime: " + TimeText(time) + "\n\nEvent Description: " + description +
           "\nEvent Data:\n===========\n" + data + "\n";
}

// Events of one device, the oldest at `first`, the others `spacing` seconds apart.
inline std::string Events(int count, std::uint64_t first, std::uint64_t spacing = 60, int device = 10) {
    std::string text;
    for (int event = 0; event < count; ++event) {
        text += Event("Device ID: " + std::to_string(device),
                      first + static_cast<std::uint64_t>(event) * spacing);
    }
    return text;
}

// A server with one controller, 0, and one drive, device 10 in enclosure 252, slot 3.
class MegaRaidRig : public testing::Test {
protected:
    MegaRaidRig() : parameter(root.Initialized()) {
        root.Write("opt/bin/bayward.msg",
                   "[default]\n80008159=Medium errors recur on a physical drive: %1 %2%3\n"
                   "[ja_JP]\n80008159=ja %1 %2%3\n");
        parameter->PrepareMessage();
        tova_service::system_info info(root.path());
        parameter->PrepareSysLog(info, sink);
        known = root.LogLines().size();
        tool.answers["show"] = ControllerTable({"0"});
        tool.answers["/c0 show"] =
            ControllerListing("Product Name = RAID Card\nPCI Slot Number = 4\n", {"252:3 10"});
        tool.answers["/c0/e252/s3 show all"] = "Port Number = 1I\nBox = 2\n";
    }
    ~MegaRaidRig() override { parameter->Finalize(); }  // before the sink goes

    void Search() {
        tool.commands.clear();
        MegaRaidSearch({tool, reports, *parameter, language, clock, &stop}).Run();
    }
    void Search(const std::string& events) {
        tool.answers["/c0 show events"] = events;
        Search();
    }

    // The trace lines of the searches since the last call.
    std::vector<std::string> NewLines() {
        std::vector<std::string> lines = root.LogLines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(known));
        known += lines.size();
        return lines;
    }
    // The system log's sentences since the last call.
    std::vector<std::string> NewSentences() {
        std::vector<std::string> sentences;
        for (const auto& [priority, text] : sink.entries) {
            sentences.push_back(text);
        }
        sink.entries.clear();
        return sentences;
    }
    static std::vector<std::string> FilesLeft() {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(".")) {
            if (entry.path().filename().string().find("storcli") == 0) {
                files.push_back(entry.path().filename());
            }
        }
        return files;
    }

    ServiceRoot root;
    RecordingSink sink;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    std::string language = "default";
    FakeWallClock clock;
    tovaserverutil::Event stop;
    FakeTool tool;
    pd_report_map reports;
    std::size_t known = 0;
};
