#include "ilorest-manager.h"

#include <utility>

#include "ilorest-helper.h"
#include "secret.h"

using tovabase::TOVAExcpt;
using tovaserverutil::CommandRunner;
using tovaserverutil::TraceLog;
using tovaserverutil::WipeOnExit;

namespace {

constexpr const char* kUnit = "ilorest-manager";

constexpr const char* kAddressCommand = "ip addr show | grep ";

std::string TextOr(const std::string& text, const char* replacement) {
    return text.empty() ? replacement : text;
}

// A drive that is listed but tells nothing this time is taken as it was the last time. As it is by default it
// would be well and part of no volume: a failed one would fail again with the next look, and a pulled one
// leave without a word.
void KeepUntoldDrives(const ServiceRoot& previous, ServiceRoot& current) {
    for (auto& [systemKey, system] : current.systems) {
        for (auto& [key, controller] : system.mirror.controllers) {
            const ArrayController* const before =
                previous.findController(systemKey, &ComputerSystem::mirror, key);
            if (before == nullptr) {
                continue;
            }
            for (auto& [driveKey, drive] : controller.diskDrives) {
                const auto known = before->diskDrives.find(driveKey);
                if (drive.untold && known != before->diskDrives.end()) {
                    drive = known->second;
                }
            }
        }
    }
}

}  // namespace

iLoRestManager::iLoRestManager() : iLoRestManager(nullptr) {}

iLoRestManager::iLoRestManager(TraceLog* log) : iLoRestManager(log, ConnectionSettings{}) {}

iLoRestManager::iLoRestManager(TraceLog* log, const ConnectionSettings& settings)
    : m_log(log),
      m_commands(m_shell),
      m_reader(std::make_unique<iLoRestReader>(std::make_unique<iLoRestHelper>(kModuleFolder, settings))),
      m_rules([this](const std::string& text) { writeLog(text); }) {}

iLoRestManager::iLoRestManager(TraceLog* log, std::unique_ptr<iLoRestReader> reader, CommandRunner& commands)
    : m_log(log),
      m_commands(commands),
      m_reader(std::move(reader)),
      m_rules([this](const std::string& text) { writeLog(text); }) {}

iLoRestManager::~iLoRestManager() {
    closeQuietly();
}

void iLoRestManager::closeQuietly() {
    try {
        m_reader->close();
    } catch (const char*) {
        // The session is given up either way; the controller ends one that nobody uses by itself.
    }
}

bool iLoRestManager::init(const std::string& url, const std::string& account, const std::string& password,
                          std::int32_t maxTrials, std::int32_t trialInterval) {
    try {
        m_reader->setLogger(m_log);
        std::string host = TextOr(url, kInBandUrl);
        std::string secret = TextOr(password, kNoCredential);
        const WipeOnExit wipe(secret);
        if (ipExists(kVnicHostAddress) && SetUpOverVnic(account, password, maxTrials, trialInterval)) {
            m_vNICEverEnabled = true;
            host = kVnicUrl;
        }
        m_reader->init(host, TextOr(account, kNoCredential), secret, static_cast<std::uint32_t>(maxTrials),
                       static_cast<std::uint32_t>(trialInterval));
        return m_reader->setupiLOVersion() != 0;
    } catch (const char* text) {
        throw TOVAExcpt(TOVAExcpt::kSystemCall, "%s", text);
    }
}

bool iLoRestManager::isVNICAvail(const std::string&, const std::string& account, const std::string& password,
                                 std::int32_t maxTrials, std::int32_t trialInterval) {
    const std::string answer = m_reader->is_vNIC_Avail(
        kVnicHostAddress, static_cast<std::uint32_t>(maxTrials), static_cast<std::uint32_t>(trialInterval));
    return answer != "False" && SetUpOverVnic(account, password, maxTrials, trialInterval);
}

// Which generation answers does not matter: the set-up has succeeded when nothing is thrown. A failure is
// only traced, and the caller goes on without the virtual NIC.
bool iLoRestManager::SetUpOverVnic(const std::string& account, const std::string& password,
                                   std::int32_t maxTrials, std::int32_t trialInterval) {
    const std::string user = TextOr(account, kNoCredential);
    std::string secret = TextOr(password, kNoCredential);
    const WipeOnExit wipe(secret);
    m_reader->init(kVnicUrl, user, secret, static_cast<std::uint32_t>(maxTrials),
                   static_cast<std::uint32_t>(trialInterval));
    try {
        m_reader->setupiLOVersion_vnic(kVnicUrl, user, secret);
        return true;
    } catch (const std::string&) {
        return false;
    }
}

bool iLoRestManager::ipExists(const std::string& address) {
    return m_commands.Capture(kAddressCommand + address, tovaserverutil::kProbeDeadline).Succeeded();
}

bool iLoRestManager::build() {
    m_previous.clear();
    ServiceRoot snapshot;
    if (!buildRaidControllers(snapshot)) {
        return false;
    }
    m_previous = std::move(snapshot);
    return true;
}

bool iLoRestManager::buildRaidControllers(ServiceRoot& snapshot) {
    try {
        return m_reader->readILoRest(snapshot);
    } catch (const std::string&) {
        m_reader->reset();
        throw;
    } catch (const char* text) {
        writeLog(text);  // before the reset, which reuses the buffer that the text lies in
    } catch (...) {
        writeLog(std::string(kUnit) + " " + std::to_string(__LINE__) + " iLoRestReader failed.");
    }
    m_reader->reset();
    return false;
}

bool iLoRestManager::check(EventList& events) {
    ServiceRoot current;
    if (!buildRaidControllers(current)) {
        return false;
    }
    KeepUntoldDrives(m_previous, current);
    m_rules.checkAll(m_previous, current, events);
    m_previous = std::move(current);
    return true;
}

void iLoRestManager::writeLog(const std::string& message) {
    if (m_log != nullptr) {
        m_log->Write("<VK0902> [ER] %s", message.c_str());
    }
}
