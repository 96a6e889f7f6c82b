#include "system-info.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "server-util.h"

tova_service::system_info* LocalSystemInfo = nullptr;

namespace {

constexpr const char* kUnit = "system-info";
constexpr std::size_t kHostNameBuffer = 255;
constexpr int kLineBuffer = 1024;
constexpr const char* kJapanese = "ja_JP";
constexpr const char* kEucCodePage = "eucJP";

struct LocaleSource {
    const char* marker;  // the source is taken when this file exists; null: always
    const char* file;
    const char* variable;
};

// The first match wins. A system with /etc/os-release but without /etc/default/locale fails instead of going
// on to the last source: the order is deliberate, such a system has no locale setting that could be read.
constexpr LocaleSource kSources[] = {
    {"/etc/SuSE-release", "/etc/sysconfig/language", "RC_LANG"},
    {"/etc/locale.conf", "/etc/locale.conf", "LANG"},
    {"/etc/os-release", "/etc/default/locale", "LANG"},
    {nullptr, "/etc/sysconfig/i18n", "LANG"},
};

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

const LocaleSource& ChooseSource(const std::string& root) {
    const LocaleSource* source = kSources;
    while (source->marker != nullptr && !Exists(root + source->marker)) {
        ++source;
    }
    return *source;
}

bool StartsWith(const char* text, const char* prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

namespace tova_service {

const char* system_info::LocaleFile(const std::string& root) {
    return ChooseSource(root).file;
}

system_info::system_info(const std::string& root) {
    char hostName[kHostNameBuffer] = {};
    if (gethostname(hostName, sizeof hostName) != 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, errno);
    }
    std::snprintf(m_hostName, sizeof m_hostName, "%.*s", static_cast<int>(sizeof hostName), hostName);

    const LocaleSource& source = ChooseSource(root);
    const std::string path = root + source.file;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), &std::fclose);
    if (file == nullptr) {
        throw tovabase::TOVAExcpt(tovabase::TOVAExcpt::kSystemCall, "%s %d (Err: %d, lang_path: %s)", kUnit,
                                  __LINE__, errno, path.c_str());
    }
    char line[kLineBuffer];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        // A plain prefix: a line that begins with LANGUAGE= counts for LANG, too.
        if (!StartsWith(line, source.variable) || std::strstr(line, kJapanese) == nullptr) {
            continue;
        }
        m_countryRegion = kJapanese;
        const char* dot = std::strchr(line, '.');
        if (dot != nullptr && StartsWith(dot + 1, kEucCodePage)) {
            m_codePage = kEucCodePage;
        }
    }
}

}  // namespace tova_service
