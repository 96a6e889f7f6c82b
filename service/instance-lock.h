// One service for each log folder.
#pragma once

#include <chrono>
#include <string>

#include "file-descriptor.h"

// Two services would report every event twice and take each other's working files away in the middle of a
// search. The lock lies on the log folder itself, so there is no file that a killed service could leave
// behind: it ends with the process, and the tools that the process has started do not hold it. Where the
// folder is missing or cannot be locked there is no lock, and nobody is kept away.
class InstanceLock {
public:
    // Takes the lock for the object's life, or finds it taken. Waits up to `patience` for one that is about
    // to end.
    InstanceLock(const std::string& folder, std::chrono::milliseconds patience);

    // Another process has it.
    bool IsTaken() const { return m_taken; }

private:
    tovaserverutil::FileDescriptor m_folder;
    bool m_taken = false;
};
