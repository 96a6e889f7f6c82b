// A management controller whose resources are the input: a line "@PATH" begins the resource of that path,
// "@*" the one of every path that has no other. A line "@@" begins the resources of another moment.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fake-bridge.h"
#include "fuzz.h"
#include "ilorest-reader.h"

class ControllerText {
public:
    explicit ControllerText(std::string_view input) : m_moments(1) {
        for (const std::string& line : LinesOf(input)) {
            if (line == "@@") {
                m_moments.emplace_back();
            } else if (line.starts_with('@')) {
                m_moments.back().emplace_back(line.substr(1), "");
            } else if (!m_moments.back().empty()) {
                m_moments.back().back().second += line + "\n";
            }
        }
        m_bridge.onFetch = [this](const std::string& path) { Prepare(path); };
    }
    ControllerText(const ControllerText&) = delete;
    ControllerText& operator=(const ControllerText&) = delete;

    std::size_t moments() const { return m_moments.size(); }
    // From now on the controller answers as at that moment.
    void SetMoment(std::size_t moment) {
        m_bridge.resources.clear();
        m_hasOther = false;
        for (const auto& [path, text] : m_moments.at(moment)) {
            m_hasOther = m_hasOther || path == "*";
            m_bridge.resources[path] = text;
        }
        m_bridge.vnicAnswer = m_bridge.resources["vnic"];
        m_fetches = 0;
    }
    FakeBridge& bridge() { return m_bridge; }
    std::unique_ptr<RestBridge> Lend() { return std::make_unique<LentBridge>(m_bridge); }

private:
    // The real bridge cuts a resource off here.
    static constexpr std::size_t kMostBytes = 18195;
    // A collection may link itself, and the reader follows every link. The helper module gives such a walk up
    // by the bytes that it has handed out; here it would only take long.
    static constexpr int kMostFetches = 200;

    void Prepare(const std::string& path) {
        m_bridge.fetched.clear();
        if (++m_fetches > kMostFetches) {
            throw "get failed: the controller is tired";
        }
        if (m_hasOther && !m_bridge.resources.contains(path)) {
            m_bridge.resources[path] = m_bridge.resources["*"];
        }
        if (m_bridge.resources[path].size() > kMostBytes) {
            throw "get failed: too long";
        }
    }

    std::vector<std::vector<std::pair<std::string, std::string>>> m_moments;
    FakeBridge m_bridge;
    bool m_hasOther = false;
    int m_fetches = 0;
};

// Runs what fails with a text. False when it has failed.
template <class Body>
bool Succeeds(const Body& body) {
    try {
        body();
        return true;
    } catch (const std::string&) {
        return false;
    } catch (const char*) {
        return false;
    }
}
