#include "account-lock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "ctl-error.h"

namespace {

// Root's alone: whoever can open the file could hold the lock for ever.
constexpr const char* kLockFile = "/run/baywardctl.lock";
constexpr int kHeldBack[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

}  // namespace

AccountLock::AccountLock(const std::string& root, Use use) {
    const std::string path = root + kLockFile;
    m_file.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    pthread_sigmask(SIG_BLOCK, nullptr, &m_mask);
    if (!m_file.valid()) {
        if (use == Use::kRead) {
            return;
        }
        throw CtlError("Cannot open the lock file " + path + ": " + std::strerror(errno) +
                       "; make its folder writable, then try again.");
    }
    if (use == Use::kWrite) {
        sigset_t heldBack;
        sigemptyset(&heldBack);
        for (const int signal : kHeldBack) {
            sigaddset(&heldBack, signal);
        }
        pthread_sigmask(SIG_BLOCK, &heldBack, nullptr);
    }
    // Signals come through only between the attempts: a process that is stopped never has the lock.
    const int mode = (use == Use::kRead ? LOCK_SH : LOCK_EX) | LOCK_NB;
    while (flock(m_file.get(), mode) != 0 && (errno == EWOULDBLOCK || errno == EINTR)) {
        constexpr timespec kPause{0, 20'000'000};
        ppoll(nullptr, 0, &kPause, &m_mask);
    }
}

AccountLock::~AccountLock() {
    m_file.reset();  // first, so that a process that is stopped now does not keep the others waiting
    pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
}
