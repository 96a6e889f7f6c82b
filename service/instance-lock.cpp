#include "instance-lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace {
constexpr std::chrono::milliseconds kPause{50};  // between two tries
}  // namespace

InstanceLock::InstanceLock(const std::string& folder, std::chrono::milliseconds patience)
    : m_folder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    for (std::chrono::milliseconds left = patience; m_folder.valid(); left -= kPause) {
        m_taken = flock(m_folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        if (!m_taken || left <= std::chrono::milliseconds(0)) {
            return;
        }
        std::this_thread::sleep_for(std::min(left, kPause));
    }
}
