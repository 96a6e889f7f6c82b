// What the system shows of the running service.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct ServiceProcess {
    int pid = 0;
    bool stopped = false;  // by a signal, until another lets it go on
    std::uint64_t ageSeconds = 0;
    bool replaced = false;  // its executable is no longer the one on disk
    std::set<std::string> threads;
    std::uint64_t descriptors = 0;
    std::uint64_t mostDescriptors = 0;  // 0 for no limit
    std::uint64_t connections = 0;      // established TCP connections
    std::uint64_t residentBytes = 0;
    std::optional<std::string> timeZone;  // its environment's TZ, in which it stamps its lines
};

struct ServiceSearch {
    std::vector<ServiceProcess> instances;  // the oldest first; more than one is a mistake
    bool hidden = false;  // none was found, but one may be among what the system does not show to this user
};

// The processes that run the executable on behalf of root or of this process's user, in this process's root
// folder; not those that one of them has begun, which are tools about to start. `root` goes before /proc and
// is that root folder. Root without the capability to trace processes may not see the service.
ServiceSearch FindService(const std::string& root, const std::string& executable);
