#include "controller-access.h"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "account-lock.h"
#include "account-text.h"
#include "ctl-error.h"
#include "ilo-account.h"
#include "secret.h"
#include "server-profile.h"
#include "service-param.h"
#include "settings.h"

namespace {

constexpr const char* kRegister = "register the account with \"baywardctl account set\".";
constexpr std::uint32_t kMostTrials = 100;
constexpr std::uint32_t kMostTrialInterval = 1000;  // milliseconds

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

// A negative number is a huge one, as for the service.
std::uint32_t Bounded(std::int32_t configured, std::uint32_t most) {
    return std::min(static_cast<std::uint32_t>(configured), most);
}

[[noreturn]] void FailUnreadable(const std::string& file) {
    throw CtlError("The account file " + file +
                   " cannot be deciphered, it is damaged or was made on another machine; " + kRegister);
}

void ReadConfiguration(const std::string& file, tovaserverutil::Profile& profile) {
    try {
        profile.ReadProfile();
    } catch (const tovabase::TOVAExcpt&) {
        throw CtlError("The configuration file " + file +
                       " cannot be read; without it no controller is known, so put it there.");
    }
}

bool ReadRecord(int record, const std::string& root, tovaserverutil::CommandRunner& commands,
                std::string& text) {
    text.resize(kMaxAccountText);
    const bool read =
        DecryptAccount(record, reinterpret_cast<unsigned char*>(text.data()), text.size(), commands, root);
    text.resize(text.find_last_not_of('\0') + 1);
    return read;
}

}  // namespace

RegisteredAccount::~RegisteredAccount() {
    tovaserverutil::Wipe(password);
}

std::string ReadUsableUuid(tovaserverutil::CommandRunner& commands) {
    constexpr const char* kWhat =
        "The system UUID, which the account files' keys depend on, cannot be read: ";
    try {
        std::string uuid = get_uuid(commands);
        const AccountKey usable(kAccountNameRecord, uuid);
        return uuid;
    } catch (const std::runtime_error& failure) {
        throw CtlError(std::string(kWhat) + failure.what() + " Check that \"dmidecode -t1\" works.");
    } catch (const std::invalid_argument&) {
        throw CtlError(std::string(kWhat) +
                       "\"dmidecode -t1\" shows none; install dmidecode and check the firmware's UUID.");
    }
}

void ReadRegisteredAccount(const std::string& root, tovaserverutil::CommandRunner& commands,
                           RegisteredAccount& registered) {
    const AccountLock lock(root, AccountLock::Use::kRead);
    const std::string nameFile = root + AccountFile(kAccountNameRecord);
    const std::string passwordFile = root + AccountFile(kAccountPasswordRecord);
    if (!Exists(nameFile) && !Exists(passwordFile)) {
        throw CtlError(std::string("No account is registered; ") + kRegister);
    }
    for (const std::string& file : {nameFile, passwordFile}) {
        if (!Exists(file)) {
            throw CtlError("The account file " + file + " is missing; " + kRegister);
        }
    }
    ReadUsableUuid(commands);
    // A file that was made elsewhere may decipher by chance; what comes out is no name then.
    if (!ReadRecord(kAccountNameRecord, root, commands, registered.account) ||
        !IsAccountText(registered.account)) {
        FailUnreadable(nameFile);
    }
    if (!ReadRecord(kAccountPasswordRecord, root, commands, registered.password)) {
        FailUnreadable(passwordFile);
    }
}

ControllerSettings ReadControllerSettings(const std::string& root) {
    ControllerSettings settings;
    settings.configuration = root + tova_service::kConfigurationFile;
    tovaserverutil::Profile profile(settings.configuration);
    ReadConfiguration(settings.configuration, profile);
    settings.url = ReadText(profile, tova_service::kControllerUrl);
    if (settings.url.empty()) {
        settings.url = kInBandUrl;
    }
    settings.trials = Bounded(ReadSigned(profile, tova_service::kMaxTrials), kMostTrials);
    settings.trialInterval = Bounded(ReadSigned(profile, tova_service::kTrialInterval), kMostTrialInterval);
    return settings;
}

ConnectionSettings ReadConnectionSettings(const std::string& root) {
    const std::string file = root + tova_service::kConfigurationFile;
    tovaserverutil::Profile profile(file);
    ReadConfiguration(file, profile);
    ConnectionSettings settings;
    settings.caFile = ReadText(profile, tova_service::kCaFile);
    settings.expand = ReadFlag(profile, tova_service::kExpand);
    return settings;
}

void FailOnController(const ControllerSettings& settings, const std::string& failure,
                      const std::string& reason) {
    const std::string url = Printable(settings.url);
    if (failure.find("InvalidCredentialsError") != std::string::npos) {
        throw CtlError("The controller at " + url + " refused the account (401); " + kRegister);
    }
    std::string why = Printable(reason.empty() ? failure : reason);
    if (!why.empty() && why.back() == '.') {
        why.pop_back();
    }
    throw CtlError("The controller at " + url + " could not be asked (" + why + "); check \"url\" in " +
                   settings.configuration + " and the way to the controller.");
}
