// Host name and language of the system, found out once at start.
#pragma once

#include <string>

namespace tova_service {

// Read-only after construction, any thread may read it.
class system_info {
public:
    // Detects the language from the distribution's locale files below `root` (empty: the real file system).
    // Throws TOVAExcpt when the host name cannot be had or the chosen locale file cannot be opened.
    explicit system_info(const std::string& root = {});

    // The file that the detection reads on this system, without the root.
    static const char* LocaleFile(const std::string& root = {});

    // "default" or "ja_JP".
    const std::string& get_country_region() const { return m_countryRegion; }
    // Empty or "eucJP".
    const std::string& get_code_page() const { return m_codePage; }
    const char* get_host_name() const { return m_hostName; }

private:
    char m_hostName[256] = {};
    std::string m_countryRegion = "default";
    std::string m_codePage;
};

}  // namespace tova_service

// The system information of the running service; owned by the main routine and set before any monitoring
// thread starts.
extern tova_service::system_info* LocalSystemInfo;
