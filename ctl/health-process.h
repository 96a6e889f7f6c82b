// What the system shows of the running service.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

struct ServiceProcess {
    int pid = 0;
    std::uint64_t ageSeconds = 0;
    bool replaced = false;  // its executable is no longer the one on disk
    std::set<std::string> threads;
    std::uint64_t descriptors = 0;
    std::uint64_t mostDescriptors = 0;  // 0 for no limit
    std::uint64_t connections = 0;      // established TCP connections
    std::uint64_t residentBytes = 0;
};

struct ServiceSearch {
    std::optional<ServiceProcess> service;
    bool hidden = false;  // none was found, but one may be among what the system does not show to this user
};

// The oldest process that runs the executable (a younger one is a tool that the service is about to start).
// `root` goes before /proc. Root without the capability to trace processes may not see the service.
ServiceSearch FindService(const std::string& root, const std::string& executable);
