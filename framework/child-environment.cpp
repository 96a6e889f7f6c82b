#include "child-environment.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::string_view kPath = "PATH=";
constexpr std::array<std::string_view, 6> kSystemFolders = {
    "/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin",
};

// Functions that bash takes over from whoever started it; one may be named like a program.
constexpr std::string_view kShellFunction = "BASH_FUNC_";

// Read by a shell before its command, or options that unzip adds to its own (one of them lets names in an
// archive lead out of the folder).
constexpr std::array<std::string_view, 12> kRefused = {
    "BASHOPTS=", "BASH_ENV=",  "CDPATH=", "ENV=",      "GLOBIGNORE=", "IFS=",
    "PS4=",      "SHELLOPTS=", "UNZIP=",  "UNZIPOPT=", "ZIPINFO=",    "ZIPINFOOPT=",
};

bool IsRefused(std::string_view variable) {
    return variable.starts_with(kShellFunction) ||
           std::any_of(kRefused.begin(), kRefused.end(),
                       [&](std::string_view name) { return variable.starts_with(name); });
}

std::string CleanPath(std::string_view folders) {
    std::vector<std::string_view> kept;
    const auto keep = [&](std::string_view folder) {
        if (folder.starts_with('/') && std::find(kept.begin(), kept.end(), folder) == kept.end()) {
            kept.push_back(folder);
        }
    };
    while (!folders.empty()) {
        const std::size_t end = std::min(folders.find(':'), folders.size());
        keep(folders.substr(0, end));
        folders.remove_prefix(std::min(end + 1, folders.size()));
    }
    std::for_each(kSystemFolders.begin(), kSystemFolders.end(), keep);
    std::string path(kPath);
    for (const std::string_view folder : kept) {
        path.append(folder).push_back(':');
    }
    path.pop_back();
    return path;
}

}  // namespace

namespace tovaserverutil {

std::vector<std::string> ChildEnvironment(const char* const* own) {
    std::vector<std::string> variables;
    std::string_view folders;
    for (; own != nullptr && *own != nullptr; ++own) {
        const std::string_view variable = *own;
        if (variable.starts_with(kPath)) {
            folders = variable.substr(kPath.size());
        } else if (!IsRefused(variable)) {
            variables.emplace_back(variable);
        }
    }
    variables.push_back(CleanPath(folders));
    return variables;
}

}  // namespace tovaserverutil
