#include "health-process.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr const char* kReplaced = " (deleted)";  // how the kernel marks an executable that is gone

// A process may end while it is looked at: what cannot be read is empty.
std::string Content(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string Target(const fs::path& link, std::error_code& error) {
    const fs::path target = fs::read_symlink(link, error);
    return error ? std::string() : target.string();
}

std::string Target(const fs::path& link) {
    std::error_code ignored;
    return Target(link, ignored);
}

std::vector<fs::path> Entries(const fs::path& folder) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        entries.push_back(entry->path());
    }
    return entries;
}

struct Candidate {
    fs::path folder;
    int pid = 0;
    char state = '?';  // as the kernel abbreviates it
    int parent = 0;
    std::uint64_t startTicks = 0;  // clock ticks since the system's start
};

// Nothing when the process has ended. The second field, the program's name in parentheses, may hold anything.
std::optional<Candidate> ReadCandidate(const fs::path& process) {
    constexpr int kFieldsToStart = 17;  // from the parent to the start
    const std::string stat = Content(process / "stat");
    const std::size_t name = stat.rfind(')');
    if (name == std::string::npos) {
        return std::nullopt;
    }
    Candidate candidate{process, std::stoi(process.filename().string())};
    std::istringstream fields(stat.substr(name + 1));
    fields >> candidate.state >> candidate.parent;
    std::string skipped;
    for (int i = 0; i < kFieldsToStart; ++i) {
        fields >> skipped;
    }
    return fields >> candidate.startTicks ? std::optional(candidate) : std::nullopt;
}

std::uint64_t AgeSeconds(const fs::path& proc, std::uint64_t startTicks) {
    double sinceStart = 0;
    std::istringstream(Content(proc / "uptime")) >> sinceStart;
    const double started = static_cast<double>(startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return static_cast<std::uint64_t>(std::max(0.0, sinceStart - started));
}

std::uint64_t DescriptorLimit(const fs::path& process) {
    constexpr const char* kLimit = "Max open files";
    std::istringstream limits(Content(process / "limits"));
    for (std::string line; std::getline(limits, line);) {
        if (line.rfind(kLimit, 0) == 0) {
            std::uint64_t soft = 0;
            std::istringstream(line.substr(std::char_traits<char>::length(kLimit))) >> soft;
            return soft;  // 0 for "unlimited"
        }
    }
    return 0;
}

// Inodes of the established TCP connections of the process's network.
std::set<std::string> EstablishedInodes(const fs::path& process) {
    constexpr const char* kEstablished = "01";
    std::set<std::string> inodes;
    for (const char* file : {"net/tcp", "net/tcp6"}) {
        std::istringstream rows(Content(process / file));
        std::string row;
        std::getline(rows, row);  // titles
        while (std::getline(rows, row)) {
            std::istringstream words(row);
            std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
            if (fields.size() > 9 && fields[3] == kEstablished) {
                inodes.insert(fields[9]);
            }
        }
    }
    return inodes;
}

void CountDescriptors(const fs::path& process, ServiceProcess& service) {
    constexpr const char* kSocket = "socket:[";
    const std::set<std::string> established = EstablishedInodes(process);
    for (const fs::path& descriptor : Entries(process / "fd")) {
        ++service.descriptors;
        std::string target = Target(descriptor);
        if (target.rfind(kSocket, 0) == 0) {
            target = target.substr(std::char_traits<char>::length(kSocket));
            target.pop_back();
            service.connections += established.count(target);
        }
    }
}

std::uint64_t ResidentBytes(const fs::path& process) {
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    std::istringstream(Content(process / "statm")) >> all >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

std::optional<std::string> TimeZone(const fs::path& process) {
    constexpr const char* kVariable = "TZ=";
    std::istringstream variables(Content(process / "environ"));
    for (std::string variable; std::getline(variables, variable, '\0');) {
        if (variable.rfind(kVariable, 0) == 0) {
            return variable.substr(std::char_traits<char>::length(kVariable));
        }
    }
    return std::nullopt;
}

std::string NameOf(const fs::path& task) {
    std::string name = Content(task / "comm");
    name.resize(std::min(name.find('\n'), name.size()));
    return name;
}

// Whether a process whose executable may not be looked at can be the service. Its name is mostly shown
// nevertheless: without that look, a service that is down would be in doubt beside any guarded process.
bool MayBe(const fs::path& process, const std::string& executable) {
    constexpr std::size_t kNameBytes = 15;  // the kernel keeps no more
    const std::string name = NameOf(process);
    return name.empty() || name == fs::path(executable).filename().string().substr(0, kNameBytes);
}

// The effective user, as the kernel tells it in every state of the process. The owner of the process's folder
// is not enough: a process may give that away to root.
std::optional<uid_t> UserOf(const fs::path& process) {
    constexpr const char* kUsers = "Uid:";  // real, effective, saved, of the file system
    std::istringstream lines(Content(process / "status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(kUsers, 0) == 0) {
            std::istringstream users(line.substr(std::char_traits<char>::length(kUsers)));
            uid_t real = 0;
            uid_t effective = 0;
            return users >> real >> effective ? std::optional(effective) : std::nullopt;
        }
    }
    return std::nullopt;
}

bool AreSameFolder(const fs::path& one, const fs::path& other) {
    struct stat first {};
    struct stat second {};
    return stat((one / "").c_str(), &first) == 0 && stat((other / "").c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// The name of an executable is not enough: another user may start the program, too, and in another root
// folder, as a container has it, the same name stands for something else.
bool IsOfThisSystem(const fs::path& root, const fs::path& process) {
    const std::optional<uid_t> user = UserOf(process);
    return user && (*user == 0 || *user == geteuid()) && AreSameFolder(process / "root", root);
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

ServiceProcess Describe(const fs::path& proc, const Candidate& candidate, const std::string& executable) {
    const fs::path& process = candidate.folder;
    ServiceProcess service;
    service.pid = candidate.pid;
    // Not 't', which a tracer causes at every system call that it looks at.
    service.stopped = candidate.state == 'T';
    service.ageSeconds = AgeSeconds(proc, candidate.startTicks);
    service.replaced = Target(process / "exe") != executable;
    for (const fs::path& task : Entries(process / "task")) {
        service.threads.insert(NameOf(task));
    }
    CountDescriptors(process, service);
    service.mostDescriptors = DescriptorLimit(process);
    service.residentBytes = ResidentBytes(process);
    service.timeZone = TimeZone(process);
    return service;
}

}  // namespace

ServiceSearch FindService(const std::string& root, const std::string& executable) {
    const fs::path proc = root + "/proc";
    ServiceSearch search;
    std::error_code none;
    // There always is a first process: where it is not shown, others are not, either (hidepid).
    search.hidden = !fs::exists(proc / "1", none);
    std::map<int, Candidate> candidates;
    for (const fs::path& entry : Entries(proc)) {
        if (!IsNumber(entry.filename().string())) {
            continue;
        }
        std::error_code error;
        const std::string target = Target(entry / "exe", error);
        if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted) {
            search.hidden = search.hidden || MayBe(entry, executable);
        }
        const bool runsIt = target == executable || target == executable + kReplaced;
        if (!runsIt || !IsOfThisSystem(root + "/", entry)) {
            continue;
        }
        if (const std::optional<Candidate> candidate = ReadCandidate(entry)) {
            candidates.emplace(candidate->pid, *candidate);
        }
    }
    for (const auto& [pid, candidate] : candidates) {
        if (candidates.count(candidate.parent) == 0) {
            search.instances.push_back(Describe(proc, candidate, executable));
        }
    }
    std::stable_sort(
        search.instances.begin(), search.instances.end(),
        [](const ServiceProcess& a, const ServiceProcess& b) { return a.ageSeconds > b.ageSeconds; });
    search.hidden = search.hidden && search.instances.empty();
    return search;
}
