// A service's file root and the recording side of the system log.
#pragma once

#include <unistd.h>

#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "service-param.h"
#include "test-root.h"

class RecordingSink : public tova_service::SystemLogSink {
public:
    void Open(const char* identity, int option, int facility) override {
        calls.push_back("open " + std::string(identity) + " " + std::to_string(option) + " " +
                        std::to_string(facility));
    }
    void Write(int priority, const char* text) override { entries.emplace_back(priority, text); }
    void Close() override { calls.emplace_back("close"); }

    std::vector<std::string> calls;
    std::vector<std::pair<int, std::string>> entries;
};

// A root with configuration, catalogue, log folder and locale file. The executable's folder is ROOT/opt/bin.
class ServiceRoot : public TestRoot {
public:
    ServiceRoot() {
        Configure("");
        Write("opt/bin/bayward.msg", "[default]\nC00081D1=no login\n");
        Write("etc/locale.conf", "LANG=C\n");
        std::filesystem::create_directories(*this / "var/log/bayward");
        LinkExecutable(*this / "opt/bin/bayward");
    }
    // The parameters make the executable's folder the working directory, and it goes away.
    ~ServiceRoot() { std::filesystem::current_path("/"); }

    void Configure(const std::string& content) const { Write("etc/opt/tarn/bayward/bayward.conf", content); }

    void LinkExecutable(const std::string& target) const {
        std::filesystem::create_directories(*this / "proc/self");
        std::filesystem::remove(*this / "proc/self/exe");
        std::filesystem::create_symlink(target, *this / "proc/self/exe");
    }

    std::unique_ptr<tova_service::ServiceParameter> Initialized() const {
        auto parameter = std::make_unique<tova_service::ServiceParameter>(path());
        parameter->Initialize();
        return parameter;
    }

    // The trace log's lines without their stamps.
    std::vector<std::string> LogLines() const {
        constexpr std::size_t kStamp = 24;
        std::vector<std::string> lines;
        std::istringstream in(Read("var/log/bayward/bayward.log"));
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line.substr(std::min(kStamp, line.size())));
        }
        return lines;
    }
};
