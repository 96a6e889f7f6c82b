// What "baywardctl config ..." does.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "config-surroundings.h"

// Exit statuses of "config check". Whatever keeps it from checking is none of the findings.
enum ConfigCheckStatus : int { kClean = 0, kWarnings = 1, kErrors = 2, kNotChecked = 3 };

class ConfigCommand {
public:
    enum class Format { kTable, kJson };

    // Without a file the service's own configuration is meant.
    ConfigCommand(CtlDoors doors, const std::optional<std::string>& file);

    // Writes the findings and returns a ConfigCheckStatus. Throws CtlError when the file changes meanwhile.
    int Check();
    // Writes every setting with its effective value, its default and where it came from. Throws CtlError.
    void Show(Format format);

private:
    // Everything that is to be said, in its order. Throws CtlError.
    Surroundings Look() const;
    void WriteNotChecked(const std::vector<std::string>& names) const;

    CtlDoors m_doors;
    std::string m_file;
    bool m_isServices;  // the file that the service itself reads
};
