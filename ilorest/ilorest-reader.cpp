#include "ilorest-reader.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <set>
#include <utility>

#include "ilorest-helper.h"
#include "rest-text.h"
#include "secret.h"

namespace {

// Of all sources of the reader: it is one unit to whoever reads its log lines.
constexpr const char* kUnit = "ilorest-reader";

constexpr const char* kSystems = "/redfish/v1/Systems/";
// The controller says so that a resource is not ready yet.
constexpr const char* kNotReady[] = {"ResourceNotReadyRetry", "ResourceMissingAtURI"};
// Failures after which the session cannot even be closed: the interpreter and the module start afresh.
constexpr const char* kNeedsReset[] = {"HpIloChifPacketExchangeError", "InvalidCredentialsError"};

template <class Words>
bool ContainsAny(const std::string& text, const Words& words) {
    return std::any_of(std::begin(words), std::end(words),
                       [&](const char* word) { return text.find(word) != std::string::npos; });
}

std::string& LastFailure() {
    static std::string text;
    return text;
}

}  // namespace

iLoRestReader::iLoRestReader() : iLoRestReader(std::make_unique<iLoRestHelper>()) {}

iLoRestReader::iLoRestReader(std::unique_ptr<RestBridge> bridge) : m_bridge(std::move(bridge)) {}

iLoRestReader::~iLoRestReader() {
    tovaserverutil::Wipe(m_account);
    tovaserverutil::Wipe(m_password);
}

void iLoRestReader::init(const std::string& host, const std::string& account, const std::string& password,
                         std::uint32_t retryCount, std::uint32_t retryInterval) {
    m_host = host;
    tovaserverutil::Wipe(m_account);
    m_account = account;
    tovaserverutil::Wipe(m_password);
    m_password = password;
    m_retryCount = retryCount;
    m_retryInterval = retryInterval;
}

bool iLoRestReader::readILoRest(ServiceRoot& snapshot) {
    snapshot.clear();
    std::string failure;
    try {
        if (!m_bridge->isiLOInitialized()) {
            openSession();
        }
        ServiceRoot root;
        readSystems(*m_bridge, {kSystems}, root);
        snapshot = std::move(root);
        return true;
    } catch (const StopSeen&) {
        return false;
    } catch (const std::exception&) {
        const RestBridge::LastCall last = m_bridge->lastCall();
        std::snprintf(m_message, sizeof m_message,
                      "%s %u iLoRestReader failed.(fnc=%s para1=%s para2=%s para3=%s)", kUnit,
                      static_cast<unsigned>(__LINE__), last.fnc.c_str(), last.para1.c_str(),
                      last.para2.c_str(), last.para3.c_str());
        m_bridge->clearError();
        closeQuietly();
        throw static_cast<char*>(m_message);
    } catch (const tovabase::TOVAExcpt&) {
        closeQuietly();  // a wait that failed; it is no answer of the controller's
        throw;
    } catch (const char* text) {
        failure = text;  // a copy: ending the session reuses the buffer
    } catch (const std::string& text) {
        failure = text;
    }
    LastFailure() = failure;
    if (ContainsAny(failure, kNeedsReset)) {
        m_bridge->reset();
    } else {
        closeQuietly();
    }
    throw failure;
}

void iLoRestReader::openSession() {
    m_bridge->init(m_host.c_str(), m_account.c_str(), m_password.c_str(), m_retryCount, m_retryInterval);
}

void iLoRestReader::closeQuietly() {
    try {
        m_bridge->close();
    } catch (...) {
        // The session is given up either way; the failure that led here is the one to report.
    }
}

void iLoRestReader::setLogger(tovaserverutil::TraceLog* logger) {
    m_logger = logger;
    m_bridge->setLogger(logger);
}

void iLoRestReader::writeLog(const std::string& text) {
    if (m_logger != nullptr) {
        m_logger->Write("<VK0999> [TR] %s", text.c_str());
    }
}

void iLoRestReader::trace(int line, const std::string& text) {
    writeLog(std::string(kUnit) + " " + std::to_string(line) + " " + text);
}

std::string iLoRestReader::is_vNIC_Avail(const std::string& host, std::uint32_t retryCount,
                                         std::uint32_t retryInterval) {
    return m_bridge->isvNICAvail(host.c_str(), retryCount, retryInterval);
}

void iLoRestReader::setNotReadyRule(std::int32_t attempts, std::uint32_t waitMs) {
    m_notReadyAttempts = attempts;
    m_notReadyWait = waitMs;
}

const std::string& iLoRestReader::lastFailure() {
    return LastFailure();
}

void iLoRestReader::keepFailure(const std::string& text) {
    LastFailure() = text;
}

void iLoRestReader::step(const Step& where, const std::function<void()>& body) {
    try {
        body();
    } catch (const char* inner) {
        throw std::string(where.failure) + inner;
    } catch (const std::string& inner) {
        throw std::string(where.failure) + inner;
    } catch (const RestTextError& error) {
        trace(where.line, error.what());
        throw std::string(where.failure);
    }
}

bool iLoRestReader::isNotReady(const std::string& text) {
    return ContainsAny(text, kNotReady);
}

std::string iLoRestReader::fetch(const std::function<std::string()>& get, std::int32_t attempts) {
    for (std::int32_t attempt = 1;; ++attempt) {
        if (m_wait != nullptr && m_wait->IsRequested()) {
            throw StopSeen{};
        }
        std::string text = get();
        if (!isNotReady(text)) {
            return text;
        }
        if (m_wait != nullptr && m_wait->Wait(m_notReadyWait)) {
            throw StopSeen{};
        }
        if (attempt >= attempts) {
            return text;
        }
    }
}

std::string iLoRestReader::fetch(RestBridge& bridge, const std::string& path, std::int32_t attempts) {
    return fetch([&] { return bridge.getValue(path.c_str()); }, attempts);
}

std::string iLoRestReader::fetch(RestBridge& bridge, const std::string& path) {
    return fetch(bridge, path, m_notReadyAttempts);
}

std::vector<Odataid> iLoRestReader::fetchMembers(RestBridge& bridge, const Odataid& collection) {
    RestText text(fetch(bridge, collection.id));
    std::vector<Odataid> members;
    text.load("Members", members);
    return members;
}

void iLoRestReader::readSystems(RestBridge& bridge, const Odataid& collection, ServiceRoot& root) {
    step({"iLoRestReader.readSystems failed.", __LINE__}, [&] {
        for (const Odataid& id : fetchMembers(bridge, collection)) {
            ComputerSystem system;
            readComputerSystem(bridge, id, system);
            root.addComputerSystem(id, system);
        }
    });
}

void iLoRestReader::readComputerSystem(RestBridge& bridge, const Odataid& id, ComputerSystem& system) {
    step({"iLoRestReader.readComputerSystem failed.", __LINE__}, [&] {
        readStorage(bridge, id.below("Storage/"), system);
        readSmartStorage(bridge, id.below("SmartStorage/"), system.smartStorage);
    });
    // Some controllers answer in both families. They count once, or each failure would be reported twice.
    std::set<std::string> serialNumbers;
    for (const auto& [key, controller] : system.smartStorage.controllers) {
        serialNumbers.insert(Trimmed(controller.serialNumber));
    }
    serialNumbers.erase("");
    std::erase_if(system.mirror.controllers, [&](const auto& entry) {
        return serialNumbers.contains(Trimmed(entry.second.serialNumber));
    });
}
