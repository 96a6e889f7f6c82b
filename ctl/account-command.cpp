#include "account-command.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "account-file.h"
#include "account-lock.h"
#include "account-text.h"
#include "ctl-error.h"
#include "ilo-account.h"
#include "secret.h"
#include "server-profile.h"
#include "service-param.h"

using tovaserverutil::Wipe;
using tovaserverutil::WipeOnExit;

namespace {

constexpr const char* kRegister = "register the account with \"baywardctl account set\".";
constexpr std::int32_t kMaxTrials = 100;
constexpr std::int32_t kTrialInterval = 10;  // milliseconds
// A person waits for the answer, so what the configuration says is not taken beyond these. A negative number
// is a huge one, as for the service.
constexpr std::uint32_t kMostTrials = 100;
constexpr std::uint32_t kMostTrialInterval = 1000;  // milliseconds

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

std::uint32_t Bounded(std::int32_t configured, std::uint32_t most) {
    return std::min(static_cast<std::uint32_t>(configured), most);
}

[[noreturn]] void FailUnreadable(const std::string& file) {
    throw CtlError("The account file " + file +
                   " cannot be deciphered, it is damaged or was made on another machine; " + kRegister);
}

std::string OrNone(const std::string& text) {
    return text.empty() ? kNoCredential : text;
}

}  // namespace

void AccountCommand::RequireRoot(const std::string& command) const {
    if (m_doors.user != 0) {
        throw CtlError("\"baywardctl account " + command + "\" needs root; run it with sudo.");
    }
}

std::string AccountCommand::ReadUuid() {
    constexpr const char* kWhat =
        "The system UUID, which the account files' keys depend on, cannot be read: ";
    try {
        std::string uuid = get_uuid(m_doors.commands);
        const AccountKey usable(kAccountNameRecord, uuid);
        return uuid;
    } catch (const std::runtime_error& failure) {
        throw CtlError(std::string(kWhat) + failure.what() + " Check that \"dmidecode -t1\" works.");
    } catch (const std::invalid_argument&) {
        throw CtlError(std::string(kWhat) +
                       "\"dmidecode -t1\" shows none; install dmidecode and check the firmware's UUID.");
    }
}

// ---- set ----

void AccountCommand::Set(std::optional<std::string> account) {
    RequireRoot("set");
    if (account) {
        CheckAccountText("account", *account);
    }
    const std::string uuid = ReadUuid();
    if (!account) {
        account = AskAccount();
        CheckAccountText("account", *account);
    }
    std::string password = AskPassword(*account);
    const WipeOnExit wipe(password);
    CheckAccountText("password", password);
    WriteAccountFiles(m_doors.root, uuid, *account, password);
    m_doors.out << "Account \"" << *account
                << "\" is registered; the service uses it from its next look at the controller on.\n";
}

std::string AccountCommand::AskAccount() {
    if (!m_doors.terminal.IsInteractive()) {
        throw UsageError("No account is given; name it: \"baywardctl account set ACCOUNT\".");
    }
    const auto account = m_doors.terminal.ReadLine("Account on the management controller: ");
    if (!account) {
        throw CtlError("No account was given; nothing is changed.");
    }
    return *account;
}

std::string AccountCommand::AskPassword(const std::string& account) {
    auto password = m_doors.terminal.ReadHidden("Password of \"" + account + "\": ");
    if (!password) {
        throw CtlError("No password was given; nothing is changed.");
    }
    if (m_doors.terminal.IsInteractive()) {
        auto repeated = m_doors.terminal.ReadHidden("Password again: ");
        const bool same = repeated == password;
        if (repeated) {
            Wipe(*repeated);
        }
        if (!same) {
            Wipe(*password);
            throw CtlError("The two passwords differ; nothing is changed, try again.");
        }
    }
    std::string result = *password;
    Wipe(*password);
    return result;
}

// ---- check ----

void AccountCommand::Check(bool login) {
    RequireRoot("check");
    std::string account;
    std::string password;
    const WipeOnExit wipe(password);
    ReadRegistered(account, password);
    m_doors.out << "Account \"" << account << "\" is registered.\n" << std::flush;
    if (login) {
        LogIn(account, password);
    }
}

void AccountCommand::ReadRegistered(std::string& account, std::string& password) {
    const AccountLock lock(m_doors.root, AccountLock::Use::kRead);
    const std::string nameFile = m_doors.root + AccountFile(kAccountNameRecord);
    const std::string passwordFile = m_doors.root + AccountFile(kAccountPasswordRecord);
    if (!Exists(nameFile) && !Exists(passwordFile)) {
        throw CtlError(std::string("No account is registered; ") + kRegister);
    }
    for (const std::string& file : {nameFile, passwordFile}) {
        if (!Exists(file)) {
            throw CtlError("The account file " + file + " is missing; " + kRegister);
        }
    }
    ReadUuid();
    // A file that was made elsewhere may decipher by chance; what comes out is no name then.
    if (!ReadRecord(kAccountNameRecord, account) || !IsAccountText(account)) {
        FailUnreadable(nameFile);
    }
    if (!ReadRecord(kAccountPasswordRecord, password)) {
        FailUnreadable(passwordFile);
    }
}

bool AccountCommand::ReadRecord(int record, std::string& text) {
    text.resize(kMaxAccountText);
    const bool read = DecryptAccount(record, reinterpret_cast<unsigned char*>(text.data()), text.size(),
                                     m_doors.commands, m_doors.root);
    text.resize(text.find_last_not_of('\0') + 1);
    return read;
}

void AccountCommand::LogIn(const std::string& account, const std::string& password) {
    const std::string configuration = m_doors.root + tova_service::kConfigurationFile;
    tovaserverutil::Profile profile(configuration);
    try {
        profile.ReadProfile();
    } catch (const tovabase::TOVAExcpt&) {
        throw CtlError("The configuration file " + configuration +
                       " cannot be read; without it no controller is known, so put it there.");
    }
    std::string url = profile.ReadText("iLo", "url", "");
    if (url.empty()) {
        url = kInBandUrl;
    }
    std::string failure;
    const std::unique_ptr<RestBridge> bridge = m_doors.makeBridge();
    try {
        std::string secret = OrNone(password);
        const WipeOnExit wipe(secret);
        bridge->init(
            url.c_str(), OrNone(account).c_str(), secret.c_str(),
            Bounded(profile.ReadSigned("iLo", "max trials", kMaxTrials), kMostTrials),
            Bounded(profile.ReadSigned("iLo", "trial interval", kTrialInterval), kMostTrialInterval));
    } catch (const char* text) {
        failure = *text != '\0' ? text : "no reason given";
    }
    try {
        bridge->close();
    } catch (const char*) {
        // Whether the log-in worked is known by now.
    }
    url = Printable(url);
    if (failure.find("InvalidCredentialsError") != std::string::npos) {
        throw CtlError("The controller at " + url + " refused the account (401); " + kRegister);
    }
    if (!failure.empty()) {
        throw CtlError("The controller at " + url + " could not be asked (" + Printable(failure) +
                       "); check \"url\" in " + configuration + " and the way to the controller.");
    }
    m_doors.out << "The controller at " << url << " accepted the account (200).\n";
}

// ---- remove ----

void AccountCommand::Remove() {
    RequireRoot("remove");
    m_doors.out << (RemoveAccountFiles(m_doors.root) ? "The account is removed.\n"
                                                     : "No account was registered.\n");
}
