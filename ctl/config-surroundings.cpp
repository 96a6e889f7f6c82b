#include "config-surroundings.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "account-text.h"
#include "config-trust.h"
#include "controller-access.h"
#include "controller-url.h"
#include "ctl-error.h"
#include "file-reading.h"
#include "ilo-account.h"
#include "service-param.h"
#include "settings.h"
#include "system-info.h"

using tova_service::kAccount;
using tova_service::kCaFile;
using tova_service::kControllerUrl;
using tova_service::kPassword;
using tova_service::Setting;
using tovaserverutil::Profile;

namespace {

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

int LineOf(const ConfigText& text, const Setting& setting) {
    const ConfigLine* const line = text.FindEntry(setting.section, setting.key);
    return line == nullptr ? 0 : line->number;
}

// Another user's lack of permission says nothing about the service, which runs as root.
bool IsForbidden(int error, uid_t user) {
    return (error == EACCES || error == EPERM) && user != 0;
}

// ---- Account ----

// What becomes of an account in the configuration.
const char* FateOfAccount(AccountState::Kind kind) {
    switch (kind) {
        case AccountState::Kind::kUsable:
            return "the account that is registered replaces the one in the configuration; take \"account\" "
                   "and "
                   "\"password\" out of the file";
        case AccountState::Kind::kUnknown:
            return "the account in the configuration is replaced by the registered one, or emptied when that "
                   "cannot be deciphered; take \"account\" and \"password\" out of the file";
        case AccountState::Kind::kUnusable:
            return "the registered account cannot be used, and the service empties the one in the "
                   "configuration "
                   "at its first look";
        case AccountState::Kind::kNone:
            break;
    }
    return "no account is registered, so the service empties the one in the configuration at its first look; "
           "register it with \"baywardctl account set\"";
}

void CheckAccount(const AccountState& state, const ConfigText& text, const Profile& profile,
                  Surroundings& found) {
    const auto warn = [&](const Setting& setting, const char* sentence) {
        found.findings.push_back({LineOf(text, setting), Finding::Level::kWarning, sentence, {}});
    };
    const std::string url = ReadText(profile, kControllerUrl);
    // The first of the two that is set stands for both.
    if (!ReadText(profile, kAccount).empty()) {
        warn(kAccount, FateOfAccount(state.kind));
    } else if (!ReadText(profile, kPassword).empty()) {
        warn(kPassword, FateOfAccount(state.kind));
    } else if (state.kind == AccountState::Kind::kNone && !url.empty() && !IsInBandUrl(url)) {
        warn(kControllerUrl,
             "no account is registered; without one no log-in over the network succeeds: register it with "
             "\"baywardctl account set\"");
    }
    if (state.kind == AccountState::Kind::kUnusable) {
        found.findings.push_back(
            {0, Finding::Level::kError, "no usable account: " + Printable(state.reason), {}});
    } else if (state.kind == AccountState::Kind::kUnknown) {
        found.notChecked.push_back("the account files");
    }
}

// ---- CA file ----

struct FreeInfos {
    void operator()(STACK_OF(X509_INFO) * infos) const { sk_X509_INFO_pop_free(infos, X509_INFO_free); }
};

// As the helper module's TLS library takes it: certificates in PEM form, one at least.
bool HoldsCertificate(FILE* file) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> in(BIO_new_fp(file, BIO_NOCLOSE), &BIO_free);
    const std::unique_ptr<STACK_OF(X509_INFO), FreeInfos> infos(
        in == nullptr ? nullptr : PEM_X509_INFO_read_bio(in.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    for (int i = 0; infos != nullptr && i < sk_X509_INFO_num(infos.get()); ++i) {
        if (sk_X509_INFO_value(infos.get(), i)->x509 != nullptr) {
            return true;
        }
    }
    return false;
}

// Throws Unreadable when the file is of no use.
void TryCaFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw Unreadable{errno, std::strerror(errno)};
    }
    if (!S_ISREG(status.st_mode)) {
        throw Unreadable{0, "it is no file"};
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), &std::fclose);
    if (file == nullptr) {
        throw Unreadable{errno, std::strerror(errno)};
    }
    if (!HoldsCertificate(file.get())) {
        throw Unreadable{0, "it holds no certificate in PEM form"};
    }
}

void CheckCaFile(const std::string& root, uid_t user, const ConfigText& text, const Profile& profile,
                 Surroundings& found) {
    const std::string path = ReadText(profile, kCaFile);
    if (path.empty()) {
        return;
    }
    try {
        if (path.front() != '/') {
            throw Unreadable{0, "it is no absolute path"};
        }
        TryCaFile(root + path);
        CheckOnlyRootChanges(root, root + path, found);
    } catch (const Unreadable& failure) {
        if (IsForbidden(failure.error, user)) {
            found.notChecked.push_back("the CA file");
            return;
        }
        found.findings.push_back(
            {LineOf(text, kCaFile),
             Finding::Level::kError,
             "the CA file cannot be used, so no log-in over the network succeeds: " + failure.reason,
             {}});
    }
}

// ---- System ----

void CheckLocale(const std::string& root, uid_t user, Surroundings& found) {
    const std::string file = root + tova_service::system_info::LocaleFile(root);
    const auto add = [&](const std::string& sentence) {
        found.findings.push_back({0, Finding::Level::kError, sentence, file});
    };
    if (IsFifo(file)) {
        add("the language is detected from this file, but it is a FIFO, at which the service would wait");
        return;
    }
    try {
        const tova_service::system_info detected(root);
    } catch (const tovabase::TOVAExcpt&) {
        struct stat status {};
        const int error = stat(file.c_str(), &status) == 0 && access(file.c_str(), R_OK) == 0 ? 0 : errno;
        if (IsForbidden(error, user)) {
            found.notChecked.push_back("the locale file");
        } else if (error == ENOENT) {
            add("the language is detected from this file, but it does not exist; "
                "without it the service watches nothing: make it, it may be empty");
        } else {
            add("the language cannot be detected, because the file cannot be read; "
                "the service would watch nothing");
        }
    }
}

void CheckLogFolder(const std::string& root, uid_t user, Surroundings& found) {
    const std::string folder = root + tova_service::kLogDirectory;
    const auto add = [&](Finding::Level level, const std::string& sentence) {
        found.findings.push_back({0, level, sentence, folder});
    };
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        const int error = errno;
        if (IsForbidden(error, user)) {
            found.notChecked.push_back("the log folder");
        } else if (error == ENOENT) {
            add(Finding::Level::kWarning,
                "there is no such folder; without it the service drops its trace log lines, unless its "
                "systemd "
                "unit makes the folder (LogsDirectory=)");
        } else {
            add(Finding::Level::kError,
                std::string("the log folder cannot be looked at: ") + std::strerror(error));
        }
        return;
    }
    if (!S_ISDIR(status.st_mode)) {
        add(Finding::Level::kError, "the log folder is no folder, so the service drops its trace log lines");
        return;
    }
    // The service runs as root; what another user may write says nothing about it.
    if (user == 0 && access(folder.c_str(), W_OK | X_OK) != 0) {
        add(Finding::Level::kError, std::string("the log folder cannot be written: ") + std::strerror(errno));
    }
}

}  // namespace

AccountState FindAccountState(const std::string& root, uid_t user, tovaserverutil::CommandRunner& commands) {
    const bool hasName = Exists(root + AccountFile(kAccountNameRecord));
    const bool hasPassword = Exists(root + AccountFile(kAccountPasswordRecord));
    if (!hasName && !hasPassword) {
        return {AccountState::Kind::kNone, {}};
    }
    if (user != 0 && hasName && hasPassword) {
        return {AccountState::Kind::kUnknown, {}};
    }
    try {
        RegisteredAccount registered;
        ReadRegisteredAccount(root, commands, registered);
        return {AccountState::Kind::kUsable, {}};
    } catch (const CtlError& failure) {
        return {AccountState::Kind::kUnusable, failure.what()};
    }
}

void LookBehindSettings(const std::string& root, uid_t user, tovaserverutil::CommandRunner& commands,
                        const ConfigText& text, const Profile& profile, Surroundings& found) {
    CheckAccount(FindAccountState(root, user, commands), text, profile, found);
    CheckCaFile(root, user, text, profile, found);
}

void LookAtSystem(const std::string& root, uid_t user, Surroundings& found) {
    CheckLocale(root, user, found);
    CheckLogFolder(root, user, found);
}
