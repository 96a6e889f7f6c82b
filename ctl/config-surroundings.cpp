#include "config-surroundings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ilo-account.h"
#include "service-param.h"
#include "settings.h"
#include "system-info.h"

using tova_service::kAccount;
using tova_service::kPassword;
using tova_service::Setting;
using tovaserverutil::Profile;

namespace {

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

void CheckLocale(const std::string& root, std::vector<Finding>& findings) {
    const std::string file = root + tova_service::system_info::LocaleFile(root);
    try {
        const tova_service::system_info detected(root);
    } catch (const tovabase::TOVAExcpt&) {
        findings.push_back({0, Finding::Level::kError,
                            Exists(file)
                                ? "the language cannot be detected, because the file cannot be read; "
                                  "the service would watch nothing"
                                : "the language is detected from this file, but it does not exist; "
                                  "without it the service watches nothing: make it, it may be empty",
                            file});
    }
}

void CheckLogFolder(const std::string& root, uid_t user, std::vector<Finding>& findings) {
    const std::string folder = root + tova_service::kLogDirectory;
    const auto add = [&](const std::string& sentence) {
        findings.push_back({0, Finding::Level::kError, sentence, folder});
    };
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        const int error = errno;
        if (error != ENOENT) {
            add(std::string("the log folder cannot be looked at: ") + std::strerror(error));
            return;
        }
        add("there is no such folder, so the service keeps no trace log and saves no diagnostic archives; "
            "make "
            "it with \"install -d -m 0750 " +
            std::string(tova_service::kLogDirectory) + "\"");
        return;
    }
    if (!S_ISDIR(status.st_mode)) {
        add("the log folder is no folder, so the service keeps no trace log and saves no diagnostic "
            "archives");
        return;
    }
    // The service runs as root; what another user may write says nothing about it.
    if (user == 0 && access(folder.c_str(), W_OK | X_OK) != 0) {
        add(std::string("the log folder cannot be written: ") + std::strerror(errno));
    }
}

}  // namespace

bool IsAccountRegistered(const std::string& root) {
    return Exists(root + AccountFile(kAccountNameRecord)) &&
           Exists(root + AccountFile(kAccountPasswordRecord));
}

std::optional<Finding> FindAccount(const std::string& root, const ConfigText& text, const Profile& profile) {
    const char* const sentence =
        IsAccountRegistered(root)
            ? "the account that is registered replaces the one in the configuration; take \"account\" and "
              "\"password\" out of the file"
            : "no account is registered, so the service empties the one in the configuration at its first "
              "look; "
              "register it with \"baywardctl account set\"";
    // The first of the two that is set stands for both.
    for (const Setting* setting : {&kAccount, &kPassword}) {
        if (!ReadText(profile, *setting).empty()) {
            const ConfigLine* const line = text.FindEntry(setting->section, setting->key);
            return Finding{line == nullptr ? 0 : line->number, Finding::Level::kWarning, sentence, {}};
        }
    }
    return std::nullopt;
}

std::vector<Finding> FindInSystem(const std::string& root, uid_t user) {
    std::vector<Finding> findings;
    CheckLocale(root, findings);
    CheckLogFolder(root, user, findings);
    return findings;
}
