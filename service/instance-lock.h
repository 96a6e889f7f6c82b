// One service for each log folder.
#pragma once

#include <string>

#include "file-descriptor.h"

// Two services would report every event twice and take each other's working files away in the middle of a
// search. The lock lies on the log folder itself, so there is no file that a killed service could leave
// behind: it ends with the process, and the tools that the process has started do not hold it. Where the
// folder is missing or cannot be locked there is no lock, and nobody is kept away; nor is there one in a
// folder that everybody may open, for anybody could hold it for ever. Throws nothing.
class InstanceLock {
public:
    // Takes the lock for the object's life, or finds that another process has it.
    explicit InstanceLock(const std::string& folder) noexcept;

    bool IsTaken() const noexcept { return m_taken; }
    // Waits, without limit, until the other process has ended or given the lock up, and takes it.
    void Wait() noexcept;

private:
    tovaserverutil::FileDescriptor m_folder;
    bool m_taken = false;  // by another process
};
