// A management controller in memory.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "rest-bridge.h"
#include "stop-wait.h"

// Answers from a table of resources, keyed by path, and records every call in order. A path that the table
// lacks fails as the real bridge does. Texts that it throws live in a buffer that the next call overwrites,
// and a session that is open makes init do nothing, as with the real bridge.
class FakeBridge : public RestBridge {
public:
    std::map<std::string, std::string> resources;
    // What a path answers first, one text per fetch, before `resources` takes over.
    std::map<std::string, std::deque<std::string>> firstAnswers;
    // Paths ("init" and "close" stand for those calls) that throw this text.
    std::map<std::string, std::string> failures;
    // Called before each fetch with the path; may throw.
    std::function<void(const std::string&)> onFetch;

    std::string vnicAnswer;  // of getValue_vNIC
    std::string vnicAvail = "None";
    std::vector<std::string> fetched;  // paths, in order; "vnic" for getValue_vNIC
    std::vector<std::string>
        calls;  // "init HOST ACCOUNT PASSWORD COUNT INTERVAL", "close", "reset", "clearError", ...;
                // "init ignored" for an init that an open session makes do nothing
    bool initialized = false;
    bool verified = false;
    std::string reason;       // of its failures
    std::string sessionHost;  // whom the helper module has a session with; empty for none
    bool vNIC = false;
    LastCall last;
    tovaserverutil::TraceLog* logger = nullptr;

    void init(const char* host, const char* account, const char* password, std::uint32_t retryCount,
              std::uint32_t retryInterval) override {
        last = {"initialize", host, account, "***"};
        vNIC = host == std::string(kVnicUrl);
        if (initialized) {
            calls.emplace_back("init ignored");
            return;
        }
        calls.push_back(std::string("init ") + host + " " + account + " " + password + " " +
                        std::to_string(retryCount) + " " + std::to_string(retryInterval));
        sessionHost.clear();
        FailIfTold("init");
        initialized = true;
        sessionHost = host;
    }
    std::string getValue(const char* path) override {
        fetched.emplace_back(path);
        last = {"get", path, "", ""};
        return Answer(path);
    }
    std::string isvNICAvail(const char* host, std::uint32_t retryCount,
                            std::uint32_t retryInterval) override {
        calls.push_back(std::string("isvNICAvail ") + host + " " + std::to_string(retryCount) + " " +
                        std::to_string(retryInterval));
        return vnicAvail;
    }
    std::string getValue_vNIC(const char* host, const char* account, const char* password,
                              std::uint32_t retryCount, std::uint32_t retryInterval) override {
        fetched.emplace_back("vnic");
        calls.push_back(std::string("getValue_vNIC ") + host + " " + account + " " + password + " " +
                        std::to_string(retryCount) + " " + std::to_string(retryInterval));
        last = {"get_v1", host, account, "***"};
        resources["vnic"] = vnicAnswer;
        sessionHost = host;
        return Answer("vnic");
    }
    std::string getProdGen(const char*, const char*, const char*, std::uint32_t, std::uint32_t) override {
        return {};
    }
    void close() override {
        calls.emplace_back("close");
        m_thrown = "overwritten by close";
        initialized = false;
        FailIfTold("close");
        sessionHost.clear();
    }
    void reset() override {
        calls.emplace_back("reset");
        m_thrown = "overwritten by reset";
        initialized = false;
        sessionHost.clear();
    }
    void set_vNIC(bool on) override { vNIC = on; }
    bool get_vNIC() const override { return vNIC; }
    bool isiLOInitialized() const override { return initialized; }
    bool isVerified() const override { return verified; }
    LastCall lastCall() const override { return last; }
    std::string lastReason() const override { return reason; }
    void clearError() override { calls.emplace_back("clearError"); }
    void setLogger(tovaserverutil::TraceLog* log) override { logger = log; }

private:
    void FailIfTold(const std::string& name) {
        if (const auto failure = failures.find(name); failure != failures.end()) {
            m_thrown = failure->second;
            throw m_thrown.c_str();
        }
    }
    std::string Answer(const std::string& path) {
        if (onFetch) {
            onFetch(path);
        }
        FailIfTold(path);
        if (auto& first = firstAnswers[path]; !first.empty()) {
            std::string text = std::move(first.front());
            first.pop_front();
            return text;
        }
        const auto found = resources.find(path);
        if (found == resources.end()) {
            m_thrown = "get failed: " + path;
            throw m_thrown.c_str();
        }
        return found->second;
    }

    std::string m_thrown;  // what the thrown pointers point into
};

// What an owner is given of a bridge that shall outlive it.
class LentBridge : public RestBridge {
public:
    // Both borrowed; `onEnd` may be empty and is called on destruction.
    explicit LentBridge(RestBridge& bridge, std::function<void()> onEnd = {})
        : m_bridge(bridge), m_onEnd(std::move(onEnd)) {}
    ~LentBridge() override {
        if (m_onEnd) {
            m_onEnd();
        }
    }
    LentBridge(const LentBridge&) = delete;
    LentBridge& operator=(const LentBridge&) = delete;

    void init(const char* host, const char* account, const char* password, std::uint32_t retryCount,
              std::uint32_t retryInterval) override {
        m_bridge.init(host, account, password, retryCount, retryInterval);
    }
    std::string getValue(const char* path) override { return m_bridge.getValue(path); }
    std::string isvNICAvail(const char* host, std::uint32_t retryCount,
                            std::uint32_t retryInterval) override {
        return m_bridge.isvNICAvail(host, retryCount, retryInterval);
    }
    std::string getValue_vNIC(const char* host, const char* account, const char* password,
                              std::uint32_t retryCount, std::uint32_t retryInterval) override {
        return m_bridge.getValue_vNIC(host, account, password, retryCount, retryInterval);
    }
    std::string getProdGen(const char* host, const char* account, const char* password,
                           std::uint32_t retryCount, std::uint32_t retryInterval) override {
        return m_bridge.getProdGen(host, account, password, retryCount, retryInterval);
    }
    void close() override { m_bridge.close(); }
    void reset() override { m_bridge.reset(); }
    void set_vNIC(bool on) override { m_bridge.set_vNIC(on); }
    bool get_vNIC() const override { return m_bridge.get_vNIC(); }
    bool isiLOInitialized() const override { return m_bridge.isiLOInitialized(); }
    bool isVerified() const override { return m_bridge.isVerified(); }
    LastCall lastCall() const override { return m_bridge.lastCall(); }
    std::string lastReason() const override { return m_bridge.lastReason(); }
    void clearError() override { m_bridge.clearError(); }
    void setLogger(tovaserverutil::TraceLog* log) override { m_bridge.setLogger(log); }

private:
    RestBridge& m_bridge;
    std::function<void()> m_onEnd;
};

// A stop request that never sleeps.
class FakeStopWait : public tovaserverutil::StopWait {
public:
    FakeStopWait() : StopWait(nullptr) {}

    // Asked at each wait with its milliseconds (0: only a question); true requests the stop, for good.
    std::function<bool(unsigned int)> onWait;
    std::vector<unsigned int> waits;  // the real ones, without the mere questions
    bool stopped = false;

    bool Wait(unsigned int timeoutMs) override {
        if (timeoutMs != 0) {
            waits.push_back(timeoutMs);
        }
        stopped = stopped || (onWait && onWait(timeoutMs));
        return stopped;
    }
};
