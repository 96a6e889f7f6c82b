#include "config-trust.h"

#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <system_error>

#include "ilo-account.h"
#include "service-param.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kTraceLog = "/bayward.log";
constexpr const char* kTestInput = "/KMT_ADUReport_test";
constexpr const char* kTools[] = {"/opt/smartstorageadmin/ssacli/bin/ssacli",
                                  "/opt/MegaRAID/storcli/storcli64"};
// On the PATH of whatever the service runs. What else it was started with is not known here.
constexpr const char* kSystemFolders[] = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                          "/usr/bin",        "/sbin",          "/bin"};
// What the service runs by its name alone, by way of the shell.
constexpr const char* kPrograms[] = {"dmidecode", "grep", "ip", "rm", "sh", "unzip"};

// Root's user and group, and those of the root folder, which in production are the same.
class Root {
public:
    explicit Root(const std::string& root) {
        if (stat((root + "/").c_str(), &m_folder) != 0) {
            m_folder = {};
        }
    }
    bool IsUser(uid_t user) const { return user == 0 || user == m_folder.st_uid; }
    bool IsGroup(gid_t group) const { return group == 0 || group == m_folder.st_gid; }

private:
    struct stat m_folder {};
};

void Warn(const std::string& file, const std::string& sentence, Surroundings& found) {
    const bool known = std::any_of(found.findings.begin(), found.findings.end(), [&](const Finding& one) {
        return one.file == file && one.sentence == sentence;
    });
    if (!known) {
        found.findings.push_back({0, Finding::Level::kWarning, sentence, file});
    }
}

bool OthersWrite(const Root& root, const struct stat& status) {
    return (status.st_mode & S_IWOTH) != 0 ||
           ((status.st_mode & S_IWGRP) != 0 && !root.IsGroup(status.st_gid));
}

// The status is the place's, which is no link.
void CheckPlace(const Root& root, const std::string& place, const struct stat& status, Surroundings& found) {
    const bool onlyOwnersRename = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    if (!root.IsUser(status.st_uid)) {
        Warn(place,
             "it belongs to another user than root, who can change what the service does as root; \"chown "
             "root\" it",
             found);
    } else if (OthersWrite(root, status) && !onlyOwnersRename) {
        Warn(place,
             "others than root may write it and so change what the service does as root; \"chmod go-w\" it",
             found);
    }
}

// Nobody writes a link; who may write its folder replaces it, and where only owners rename, its owner does.
void CheckLink(const Root& root, const fs::path& link, const struct stat& status, Surroundings& found) {
    struct stat folder {};
    if (!root.IsUser(status.st_uid) && stat(link.parent_path().c_str(), &folder) == 0 &&
        OthersWrite(root, folder)) {
        Warn(link.string(),
             "it is a link of another user than root, who can put anything in its place and so change what "
             "the service does as root; \"chown -h root\" it",
             found);
    }
}

// Goes the absolute path as the kernel does, link by link. A way that does not reach its end adds nothing.
void CheckWay(const Root& root, const std::string& path, Surroundings& found) {
    constexpr int kMostLinks = 40;  // the kernel follows no more
    Surroundings onTheWay;
    const fs::path whole = path;
    std::deque<fs::path> ahead(whole.begin(), whole.end());
    fs::path place;  // without links
    int links = 0;
    while (!ahead.empty()) {
        const fs::path name = ahead.front();
        ahead.pop_front();
        if (name.empty() || name == ".") {
            continue;  // empty behind a last slash
        }
        if (name == "..") {
            place = place.parent_path();
            continue;
        }
        const fs::path next = place / name;  // of an absolute link the first name is "/", which begins anew
        struct stat status {};
        if (lstat(next.c_str(), &status) != 0) {
            return;
        }
        if (!S_ISLNK(status.st_mode)) {
            CheckPlace(root, next.string(), status, onTheWay);
            place = next;
            continue;
        }
        CheckLink(root, next, status, onTheWay);
        std::error_code error;
        const fs::path target = fs::read_symlink(next, error);
        if (error || ++links > kMostLinks) {
            return;
        }
        ahead.insert(ahead.begin(), target.begin(), target.end());
    }
    for (const Finding& one : onTheWay.findings) {
        Warn(one.file, one.sentence, found);
    }
}

void CheckProgramFolder(const Root& root, const std::string& folder, Surroundings& found) {
    CheckWay(root, folder, found);
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        CheckWay(root, entry->path().string(), found);
    }
    struct stat status {};
    const std::string input = folder + kTestInput;
    if (stat(input.c_str(), &status) == 0) {
        Warn(input,
             "the service reads the files in this folder, for tests, instead of what ssacli and storcli64 "
             "tell, and so misses the medium errors of the real drives; remove it",
             found);
    }
}

// A folder without any of them, too: what is put there may come before the right one.
void CheckProgramsByName(const Root& trusted, const std::string& root, Surroundings& found) {
    for (const char* const folder : kSystemFolders) {
        CheckWay(trusted, root + folder, found);
        for (const char* const program : kPrograms) {
            CheckWay(trusted, root + folder + "/" + program, found);
        }
    }
}

void CheckAccountFile(const Root& root, const std::string& file, Surroundings& found) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return;
    }
    CheckWay(root, file, found);
    if ((status.st_mode & (S_IRGRP | S_IROTH)) != 0) {
        Warn(
            file,
            "others than root may read it, and with the system's UUID they can decipher it; \"chmod 600\" it",
            found);
    }
}

// Not the folders above it: some distributions let the system log's own group write /var/log.
void CheckLogs(const Root& root, const std::string& folder, Surroundings& found) {
    struct stat status {};
    if (stat(folder.c_str(), &status) == 0) {
        CheckPlace(root, folder, status, found);
        if (S_ISDIR(status.st_mode) && (status.st_mode & S_IRWXO) != 0 && !OthersWrite(root, status)) {
            Warn(folder,
                 "others than root and its group may open it, and where anybody could hold the lock, the "
                 "service takes none: two would run side by side; \"chmod o-rwx\" it",
                 found);
        }
    }
    const std::string log = folder + kTraceLog;
    if (lstat(log.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        Warn(log, "it is no regular file, so the service drops its trace log lines; remove it", found);
    }
}

}  // namespace

void CheckOnlyRootChanges(const std::string& root, const std::string& path, Surroundings& found) {
    CheckWay(Root(root), path, found);
}

void LookAtTrust(const std::string& root, const std::string& programFolder, Surroundings& found) {
    const Root trusted(root);
    if (!programFolder.empty()) {
        CheckProgramFolder(trusted, programFolder, found);
    }
    for (const char* const tool : kTools) {
        CheckWay(trusted, root + tool, found);
    }
    CheckProgramsByName(trusted, root, found);
    CheckWay(trusted, root + tova_service::kConfigurationFile, found);
    for (const int record : {kAccountNameRecord, kAccountPasswordRecord}) {
        CheckAccountFile(trusted, root + AccountFile(record), found);
    }
    CheckLogs(trusted, root + tova_service::kLogDirectory, found);
}
