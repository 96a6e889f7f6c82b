#include "instance-lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

InstanceLock::InstanceLock(const std::string& folder) noexcept
    : m_folder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    struct stat status {};
    if (!m_folder.valid() || fstat(m_folder.get(), &status) != 0 || (status.st_mode & S_IRWXO) != 0) {
        m_folder.reset();
        return;
    }
    m_taken = flock(m_folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

void InstanceLock::Wait() noexcept {
    if (!m_taken) {
        return;
    }
    while (flock(m_folder.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    m_taken = false;
}
