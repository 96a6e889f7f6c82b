// How commands fail: one sentence that says what is wrong, where, and what to do.
#pragma once

#include <stdexcept>

// The command could not do its work: exit status 1.
class CtlError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The command was called or answered wrongly: exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
