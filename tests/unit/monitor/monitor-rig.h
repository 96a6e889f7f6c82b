// A monitoring thread without hardware, waiting or system log: everything around it in memory or below a
// temporary root.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fake-bridge.h"
#include "fake-commands.h"
#include "monitor-loop.h"
#include "test-root.h"

class FakeClock : public tovaserverutil::Clock {
public:
    TimePoint now{};
    TimePoint Now() const override { return now; }
};

class RecordingSink : public tova_service::SystemLogSink {
public:
    std::vector<std::string> entries;

    void Open(const char*, int, int) override {}
    void Write(int, const char* text) override { entries.emplace_back(text); }
    void Close() override {}
};

class RigCommands : public FakeCommands {
public:
    std::function<void()> onCommand;  // called before each command; may throw

    tovaserverutil::CommandResult Capture(const std::string& command,
                                          std::chrono::milliseconds limit) override {
        if (onCommand) {
            onCommand();
        }
        return FakeCommands::Capture(command, limit);
    }
};

// JSON of a collection with these members.
inline std::string Collection(const std::vector<std::string>& members) {
    std::string list;
    for (const std::string& member : members) {
        list += (list.empty() ? "" : ",") + std::string("{\"@odata.id\":\"") + member + "\"}";
    }
    return "{\"Members@odata.count\":" + std::to_string(members.size()) + ",\"Members\":[" + list + "]}";
}

// A controller with one Smart Array controller and one drive behind it.
class ControllerContent {
public:
    static constexpr const char* kSystems = "/redfish/v1/Systems/";
    static constexpr const char* kManagers = "/redfish/v1/Managers/";

    static void Fill(FakeBridge& bridge) {
        const std::string system = "/redfish/v1/Systems/1/";
        const std::string array = system + "SmartStorage/ArrayControllers/0/";
        bridge.resources[kManagers] = Collection({"/redfish/v1/Managers/1/"});
        bridge.resources["/redfish/v1/Managers/1/"] =
            R"({"Firmware":{"Current":{"MajorVersion":2,"MinorVersion":72,"VersionString":"iLO 5 v2.72"}}})";
        bridge.resources[kSystems] = Collection({system});
        bridge.resources[system + "Storage/"] = Collection({});
        bridge.resources[system + "SmartStorage/ArrayControllers/"] = Collection({array});
        bridge.resources[array] =
            R"({"Model":"HPE Smart Array P408i-a","Location":"Slot 0","SerialNumber":"C",)"
            R"("Id":"0","Status":{"Health":"OK","State":"Enabled"}})";
        bridge.resources[array + "LogicalDrives/"] = Collection({});
        bridge.resources[array + "DiskDrives/"] = Collection({array + "DiskDrives/0/"});
        SetDrive(bridge, "None");
    }
    static void SetDrive(FakeBridge& bridge, const std::string& reason) {
        bridge.resources["/redfish/v1/Systems/1/SmartStorage/ArrayControllers/0/DiskDrives/0/"] =
            R"({"Model":"M","CapacityGB":1000,"CapacityMiB":953,"BlockSizeBytes":512,"CapacityLogicalBlocks":1,)"
            R"("SerialNumber":"S","Location":"1I:1:1","MediaType":"HDD","Status":{"Health":"OK","State":"Enabled"},)"
            R"("DiskDriveStatusReasons":[")" +
            reason + R"("],"FirmwareVersion":{"Current":{"VersionString":"F"}},"Id":"0"})";
    }
};

class MonitorRig {
public:
    // `settings` goes into section "iLo", `host` into "iLO host" of the configuration.
    explicit MonitorRig(const std::string& settings = "interval=60000\nurl=https://ilo\n",
                        const std::string& host = "") {
        root.Write("bin/bayward.msg",
                   "[default]\nC00081D1=login failed\nC0008151=drive failed %1 %2%3\nC0008153=drive fatal\n");
        root.Write("etc/locale.conf", "LANG=C\n");
        root.Write("etc/opt/tarn/bayward/bayward.conf", "[iLo]\n" + settings + "[iLO host]\n" + host);
        std::filesystem::create_directories(root / "var/log/bayward");
        std::filesystem::create_directories(root / "proc/self");
        std::filesystem::create_symlink(root / "bin/bayward", root / "proc/self/exe");
        parameter = std::make_unique<tova_service::ServiceParameter>(root.path());
        parameter->Initialize();
        parameter->PrepareMessage();
        system = std::make_unique<tova_service::system_info>(root.path());
        parameter->PrepareSysLog(*system, sink);
        ControllerContent::Fill(*bridge);
        auto lent = std::make_unique<LentBridge>(*bridge, [this] {
            if (onManagerEnd) {
                onManagerEnd();
            }
        });
        manager = std::make_unique<iLoRestManager>(
            &parameter->Log(), std::make_unique<iLoRestReader>(std::move(lent)), commands);
        wait.onWait = [this](unsigned int milliseconds) { return OnWait(milliseconds); };
        m_traceStart = root.Read(kTrace).size();
    }

    // Does something when the thread begins its nth wait (1 is the first); what is done then takes effect
    // after it.
    void At(std::size_t nth, std::function<void()> action) { m_actions[nth] = std::move(action); }
    // The nth wait sees the stop.
    void StopAt(std::size_t nth) { m_stopAt = nth; }
    // The stop is set; whichever wait or question comes next sees it.
    void RequestStop() { m_stopNow = true; }
    // Each wait also takes that long on the clock.
    std::chrono::milliseconds extraTimePerWait{0};

    void RunMonitorUntilStop(std::size_t nth) {
        StopAt(nth);
        RunMonitor(*parameter, *system, std::move(manager), wait, clock, Accounts());
    }
    bool StartUpUntilStop(std::size_t nth) {
        StopAt(nth);
        MonitorLoop loop(*parameter, *system, *manager, wait, clock, Accounts());
        return loop.initILoRestManager();
    }

    AccountSource Accounts() {
        return [this](int record, unsigned char* buffer, std::size_t length) {
            if (!stored) {
                return false;
            }
            const std::string& text = record == 0 ? stored->first : stored->second;
            std::fill(std::copy(text.begin(), text.end(), buffer), buffer + length,
                      static_cast<unsigned char>(0));
            return true;
        };
    }

    // The thread's own trace lines, without time stamps and without the reader's lines.
    std::vector<std::string> Trace() const {
        std::istringstream text(root.Read(kTrace).substr(m_traceStart));
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            const std::size_t start = line.find("<VK");
            if (start != std::string::npos && line.find("<VK0999>") == std::string::npos) {
                lines.push_back(line.substr(start));
            }
        }
        return lines;
    }
    bool TraceHolds(const std::string& part) const {
        return root.Read(kTrace).substr(m_traceStart).find(part) != std::string::npos;
    }

    // This host has its address on the virtual-NIC link, and the controller answers there.
    void HaveVnic(const std::string& answer = R"({"Oem":{"Hpe":{"Moniker":{"PRODGEN":"iLO 6"}}}})") {
        commands.result.exitStatus = 0;
        bridge->vnicAnswer = answer;
    }
    void RefuseLogins() { bridge->failures["init"] = "failed. result=value=InvalidCredentialsError"; }
    void FailLogins(const std::string& text) { bridge->failures["init"] = text; }
    void AcceptLogins() { bridge->failures.erase("init"); }
    // Walks fail, log-ins do not.
    void FailWalks(const std::string& text) { bridge->failures[ControllerContent::kSystems] = text; }
    void AllowWalks() { bridge->failures.erase(ControllerContent::kSystems); }
    std::size_t CountCalls(const std::string& start) const {
        std::size_t count = 0;
        for (const std::string& call : bridge->calls) {
            count += call.rfind(start, 0) == 0 ? 1 : 0;
        }
        return count;
    }

    TestRoot root;
    RecordingSink sink;
    FakeClock clock;
    RigCommands commands;
    FakeStopWait wait;
    std::optional<std::pair<std::string, std::string>> stored{{"user", "secret"}};  // the account files
    std::unique_ptr<tova_service::ServiceParameter> parameter;
    std::unique_ptr<tova_service::system_info> system;
    std::unique_ptr<FakeBridge> bridge = std::make_unique<FakeBridge>();  // outlives the manager
    std::function<void()> onManagerEnd;  // called when the manager is destroyed
    std::unique_ptr<iLoRestManager> manager;

private:
    static constexpr const char* kTrace = "var/log/bayward/bayward.log";

    bool OnWait(unsigned int milliseconds) {
        if (m_stopNow) {
            return true;
        }
        if (milliseconds == 0) {
            return false;
        }
        clock.now += std::chrono::milliseconds(milliseconds) + extraTimePerWait;
        const std::size_t nth = wait.waits.size();
        if (const auto action = m_actions.find(nth); action != m_actions.end()) {
            action->second();
        }
        if (nth > kTooMany) {
            throw std::runtime_error("the test's stop never came");
        }
        return nth == m_stopAt;
    }

    static constexpr std::size_t kTooMany = 2000;

    std::map<std::size_t, std::function<void()>> m_actions;
    std::size_t m_stopAt = 0;
    bool m_stopNow = false;
    std::size_t m_traceStart = 0;
};
