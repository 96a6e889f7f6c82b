// The files that the language is read from. The input's first character chooses the distribution's file.
#include <array>
#include <filesystem>
#include <string>

#include "fuzz.h"
#include "system-info.h"
#include "test-root.h"

namespace {

// A system of one distribution, whose locale file holds what the memory file does.
class Distribution {
public:
    Distribution(const char* marker, const char* localeFile) {
        if (marker != nullptr) {
            m_root.Write(marker, "");
        }
        const std::filesystem::path link = m_root.path() + localeFile;
        std::filesystem::create_directories(link.parent_path());
        std::filesystem::create_symlink(m_content.path(), link);
    }

    tova_service::system_info Read(std::string_view content) const {
        m_content.Write(content);
        return tova_service::system_info(m_root.path());
    }

private:
    MemoryFile m_content;
    TestRoot m_root;
};

}  // namespace

void Fuzz(std::string_view input) {
    static const std::array<Distribution, 4> distributions = {
        Distribution("/etc/SuSE-release", "/etc/sysconfig/language"),
        Distribution(nullptr, "/etc/locale.conf"), Distribution("/etc/os-release", "/etc/default/locale"),
        Distribution(nullptr, "/etc/sysconfig/i18n")};
    if (input.empty()) {
        return;
    }
    const Distribution& system =
        distributions.at(static_cast<unsigned char>(input.front()) % distributions.size());
    input.remove_prefix(1);
    const tova_service::system_info info = system.Read(input);
    const std::string& region = info.get_country_region();
    const std::string& codePage = info.get_code_page();
    FUZZ_CHECK(region == "default" || region == "ja_JP");
    FUZZ_CHECK(codePage.empty() || codePage == "eucJP");
    FUZZ_CHECK(codePage.empty() || region == "ja_JP");
    FUZZ_CHECK(region == "default" || input.find("ja_JP") != std::string_view::npos);
}
