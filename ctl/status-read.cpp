#include "status-read.h"

#include <optional>
#include <utility>

#include "ilorest-manager.h"

namespace {

// Counts what is asked of the controller, and marks the log-out.
class FollowedBridge : public RestBridge {
public:
    FollowedBridge(std::unique_ptr<RestBridge> bridge, const ReadControl& control, unsigned& requests)
        : m_bridge(std::move(bridge)), m_control(control), m_requests(requests) {}

    void init(const char* host, const char* account, const char* password, std::uint32_t retryCount,
              std::uint32_t retryInterval) override {
        m_bridge->init(host, account, password, retryCount, retryInterval);
    }
    std::string getValue(const char* path) override {
        Count();
        return m_bridge->getValue(path);
    }
    std::string isvNICAvail(const char* host, std::uint32_t retryCount,
                            std::uint32_t retryInterval) override {
        return m_bridge->isvNICAvail(host, retryCount, retryInterval);
    }
    std::string getValue_vNIC(const char* host, const char* account, const char* password,
                              std::uint32_t retryCount, std::uint32_t retryInterval) override {
        Count();
        return m_bridge->getValue_vNIC(host, account, password, retryCount, retryInterval);
    }
    std::string getProdGen(const char* host, const char* account, const char* password,
                           std::uint32_t retryCount, std::uint32_t retryInterval) override {
        Count();
        return m_bridge->getProdGen(host, account, password, retryCount, retryInterval);
    }
    void close() override {
        const RequestCutter::LogOut spared(m_control.cutter);
        m_bridge->close();
    }
    void reset() override {
        const RequestCutter::LogOut spared(m_control.cutter);
        m_bridge->reset();
    }
    void set_vNIC(bool vNIC) override { m_bridge->set_vNIC(vNIC); }
    bool get_vNIC() const override { return m_bridge->get_vNIC(); }
    bool isiLOInitialized() const override { return m_bridge->isiLOInitialized(); }
    bool isVerified() const override { return m_bridge->isVerified(); }
    std::string lastReason() const override { return m_bridge->lastReason(); }
    LastCall lastCall() const override { return m_bridge->lastCall(); }
    void clearError() override { m_bridge->clearError(); }
    void setLogger(tovaserverutil::TraceLog* logger) override { m_bridge->setLogger(logger); }

private:
    void Count() { m_control.onRequest(++m_requests); }

    std::unique_ptr<RestBridge> m_bridge;
    const ReadControl& m_control;
    unsigned& m_requests;
};

// Runs one step and returns the text of its failure; nothing when it succeeds or a stop was seen.
template <typename Step>
std::optional<std::string> FailureOf(const Step& step) {
    std::string text;
    try {
        step();
        return std::nullopt;
    } catch (const iLoRestReader::StopSeen&) {
        return std::nullopt;
    } catch (const std::string& failure) {
        text = failure;
    } catch (const char* failure) {
        text = failure;
    } catch (const tovabase::TOVAExcpt& failure) {
        text = failure.text();
    }
    return text.empty() ? "no reason given" : text;
}

}  // namespace

ControllerRead ReadController(std::unique_ptr<RestBridge> bridge, tovaserverutil::CommandRunner& commands,
                              const ControllerSettings& settings, const RegisteredAccount& account,
                              const ReadControl& control) {
    const auto begin = std::chrono::steady_clock::now();
    ControllerRead read;
    std::optional<std::string> failure;
    std::string reason;
    {
        auto followed = std::make_unique<FollowedBridge>(std::move(bridge), control, read.requests);
        const RestBridge& session = *followed;
        auto owned = std::make_unique<iLoRestReader>(std::move(followed));
        iLoRestReader& reader = *owned;
        iLoRestManager manager(nullptr, std::move(owned), commands);
        manager.setEvt(&control.stop);
        failure = FailureOf([&] {
            manager.init(settings.url, account.account, account.password,
                         static_cast<std::int32_t>(settings.trials),
                         static_cast<std::int32_t>(settings.trialInterval));
            read.complete = reader.readILoRest(read.snapshot);
            read.verified = session.isVerified();
        });
        reason = session.lastReason();
        read.url = manager.isVNICEverEnabled() ? kVnicUrl : settings.url;
        read.version = reader.versionText();
    }
    if (failure) {
        FailOnController(settings, *failure, reason);
    }
    read.duration =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    return read;
}
