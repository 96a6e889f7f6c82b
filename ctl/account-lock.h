// Keeping runs of the tool apart.
#pragma once

#include <signal.h>

#include <string>

#include "file-descriptor.h"

// Held while the account files are read or changed: any number of readers, or one writer. Waiting for it can
// be broken off with a signal; a writer then holds back the signals that end or stop the process until the
// lock is gone, so that no half-done change stays behind.
class AccountLock {
public:
    enum class Use { kRead, kWrite };

    // `root` goes before the lock file's path. Throws CtlError when a writer cannot have a lock file; a
    // reader, which spoils nothing, goes on without. On a file system without locks nothing is kept apart.
    AccountLock(const std::string& root, Use use);
    ~AccountLock();
    AccountLock(const AccountLock&) = delete;
    AccountLock& operator=(const AccountLock&) = delete;

private:
    tovaserverutil::FileDescriptor m_file;
    sigset_t m_mask{};
};
