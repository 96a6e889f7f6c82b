#include "server-util.h"

namespace {
constexpr const char* kUnit = "server-util";
constexpr int kLockLine = 649;  // the line that the failure of any lock is traced with
}  // namespace

namespace tovaserverutil {

Mutex::Mutex() {
    const int result = pthread_mutex_init(&m_mutex, nullptr);
    if (result != 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, result);
    }
}

Mutex::~Mutex() {
    pthread_mutex_destroy(&m_mutex);
}

bool Mutex::WaitOne(unsigned int /*timeout*/) {
    const int result = pthread_mutex_lock(&m_mutex);
    if (result != 0) {
        tovabase::ThrowSystemError(kUnit, kLockLine, result);
    }
    return true;
}

bool Mutex::Release() {
    const int result = pthread_mutex_unlock(&m_mutex);
    if (result != 0) {
        tovabase::ThrowSystemError(kUnit, __LINE__, result);
    }
    return true;
}

LockGuard::~LockGuard() {
    if (m_lock == nullptr) {
        return;
    }
    try {
        m_lock->Release();
    } catch (const tovabase::TOVAExcpt&) {
        // Only a lock that this thread does not hold cannot be released.
    }
}

}  // namespace tovaserverutil
