#include "account-command.h"

#include <memory>

#include "account-file.h"
#include "account-text.h"
#include "ctl-error.h"
#include "secret.h"

using tovaserverutil::Wipe;
using tovaserverutil::WipeOnExit;

namespace {

std::string OrNone(const std::string& text) {
    return text.empty() ? kNoCredential : text;
}

}  // namespace

void AccountCommand::RequireRoot(const std::string& command) const {
    if (m_doors.user != 0) {
        throw CtlError("\"baywardctl account " + command + "\" needs root; run it with sudo.");
    }
}

// ---- set ----

void AccountCommand::Set(std::optional<std::string> account) {
    RequireRoot("set");
    if (account) {
        CheckAccountText("account", *account);
    }
    const std::string uuid = ReadUsableUuid(m_doors.commands);
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
    RegisteredAccount registered;
    ReadRegisteredAccount(m_doors.root, m_doors.commands, registered);
    m_doors.out << "Account \"" << registered.account << "\" is registered.\n" << std::flush;
    if (login) {
        LogIn(registered);
    }
}

void AccountCommand::LogIn(const RegisteredAccount& registered) {
    const ControllerSettings settings = ReadControllerSettings(m_doors.root);
    std::string failure;
    bool verified = false;
    const std::unique_ptr<RestBridge> bridge = m_doors.makeBridge();
    try {
        std::string secret = OrNone(registered.password);
        const WipeOnExit wipe(secret);
        bridge->init(settings.url.c_str(), OrNone(registered.account).c_str(), secret.c_str(),
                     settings.trials, settings.trialInterval);
        verified = bridge->isVerified();
    } catch (const char* text) {
        failure = *text != '\0' ? text : "no reason given";
    }
    try {
        bridge->close();
    } catch (const char*) {
        // Whether the log-in worked is known by now.
    }
    if (!failure.empty()) {
        FailOnController(settings, failure, bridge->lastReason());
    }
    m_doors.out << "The controller at " << Printable(settings.url) << " accepted the account (200).\n"
                << (verified ? "Its certificate is verified.\n" : "");
}

// ---- remove ----

void AccountCommand::Remove() {
    RequireRoot("remove");
    m_doors.out << (RemoveAccountFiles(m_doors.root) ? "The account is removed.\n"
                                                     : "No account was registered.\n");
}
