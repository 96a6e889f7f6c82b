// Finding out the generation and firmware of the management controller.
#include <exception>
#include <optional>
#include <utility>

#include "ilorest-reader.h"
#include "rest-text.h"
#include "text.h"

using tovaserverutil::Contains;

namespace {

constexpr const char* kManagers = "/redfish/v1/Managers/";
constexpr const char* kStepFailure = "iLoRestReader.readiLOVersion failed.";
constexpr const char* kVnicFailure = "Failed to get iLO version.";
constexpr std::uint32_t kOldFirmwareScale = 100;

bool IsKnownGeneration(const std::string& text) {
    return Contains(text, "iLO 5") || Contains(text, "iLO 6");
}

// Only "iLO 5" firmware older than 1.20 reports wear in hundredths of a percent; the cut is deliberate and
// exact.
std::uint32_t EnduranceScale(const std::string& versionText, const iLOVersion& version) {
    const bool old = version.major == 0 || (version.major == 1 && version.minor < 20);
    return old && Contains(versionText, "iLO 5") ? kOldFirmwareScale : 1;
}

struct Firmware {
    std::string versionString;
    iLOVersion version;
};

// "Firmware"."Current" of the object that is open.
Firmware LoadFirmware(RestText& text) {
    Firmware firmware;
    text.inside("Firmware", [&] {
        text.inside("Current", [&] {
            text.load("MajorVersion", firmware.version.major);
            text.load("MinorVersion", firmware.version.minor);
            text.load("VersionString", firmware.versionString);
        });
    });
    return firmware;
}

// Firmware generations keep it at the top or below "Oem"."Hpe"; one at the top may lack the numbers.
Firmware LoadManagerFirmware(RestText& text) {
    try {
        return LoadFirmware(text);
    } catch (const RestTextError&) {
        Firmware firmware;
        text.inside("Oem", [&] { text.inside("Hpe", [&] { firmware = LoadFirmware(text); }); });
        return firmware;
    }
}

// Runs `read` and returns the text of its failure; nothing when it succeeds. A stop passes through. The text
// is copied here because ending the session reuses the bridge's buffer.
template <class Read>
std::optional<std::string> FailureOf(Read read) {
    try {
        read();
        return std::nullopt;
    } catch (const char* text) {
        return text;
    } catch (const std::string& text) {
        return text;
    } catch (const std::exception& error) {
        return error.what();
    } catch (const tovabase::TOVAExcpt& error) {
        return error.text();
    }
}

// Lets a step name also the failures that steps do not know: exceptions with a text become that text.
template <class Read>
void WithTexts(Read read) {
    std::string text;
    try {
        read();
        return;
    } catch (const RestTextError&) {
        throw;
    } catch (const std::exception& error) {
        text = error.what();
        if (text.empty()) {
            throw;
        }
    } catch (const tovabase::TOVAExcpt& error) {
        text = error.text();
    }
    throw text;
}

}  // namespace

int iLoRestReader::setupiLOVersion() {
    const auto failure = FailureOf([this] {
        openSession();
        readiLOVersion(*m_bridge, m_version);
    });
    if (failure) {
        failVersion(*failure);
    }
    m_enduranceScale = EnduranceScale(m_versionText, m_version);
    return 1;
}

void iLoRestReader::readiLOVersion(RestBridge& bridge, iLOVersion& version) {
    step({kStepFailure, __LINE__}, [&] {
        WithTexts([&] {
            const std::vector<Odataid> managers = fetchMembers(bridge, {kManagers});
            if (managers.empty()) {
                throw RestTextError("no manager");
            }
            RestText text(fetch(bridge, managers.front().id));
            const Firmware firmware = LoadManagerFirmware(text);
            version = firmware.version;
            m_versionText = firmware.versionString;
            trace(__LINE__, "mVersion=" + m_versionText + ", mMajorVersion=" + std::to_string(version.major) +
                                ", mMinorVersion=" + std::to_string(version.minor));
        });
    });
}

int iLoRestReader::setupiLOVersion_vnic(const std::string& host, const std::string& account,
                                        const std::string& password) {
    std::string generation;
    const auto failure =
        FailureOf([&] { generation = readiLOVersion_vnic(host, account, password, *m_bridge, m_version); });
    if (failure) {
        const std::string text =
            failure->empty() ? kVnicFailure : std::string(kVnicFailure) + " : " + *failure;
        trace(__LINE__, text);
        failVersion(text);
    }
    m_unknownGeneration = IsKnownGeneration(generation) ? 0 : 1;
    if (m_unknownGeneration == 0) {
        return 0;
    }
    m_enduranceScale = 1;
    return generation.empty() ? 1 : 0;
}

std::string iLoRestReader::readiLOVersion_vnic(const std::string& host, const std::string& account,
                                               const std::string& password, RestBridge& bridge,
                                               iLOVersion& /*version*/) {
    std::string generation;
    step({kStepFailure, __LINE__}, [&] {
        WithTexts([&] {
            const std::string answer = fetch(
                [&] {
                    return bridge.getValue_vNIC(host.c_str(), account.c_str(), password.c_str(), m_retryCount,
                                                m_retryInterval);
                },
                m_notReadyAttempts);
            if (answer.empty() || answer == "None") {
                return;  // no session could be opened there
            }
            RestText text(answer);
            text.inside("Oem", [&] {
                text.inside("Hpe",
                            [&] { text.inside("Moniker", [&] { text.load("PRODGEN", generation); }); });
            });
            if (IsKnownGeneration(generation)) {
                m_versionText = generation;
            }
            trace(__LINE__, "iLO Version=" + generation);
        });
    });
    return generation;
}

void iLoRestReader::failVersion(std::string failure) {
    closeQuietly();
    m_enduranceScale = 1;
    keepFailure(failure);
    throw std::move(failure);
}
