// What the service needs around its configuration file.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "config-findings.h"
#include "shell.h"

// Whether the service finds an account to log in with.
struct AccountState {
    enum class Kind {
        kNone,      // no account file is there
        kUsable,    // both can be deciphered
        kUnusable,  // they cannot, or one is missing: for the service the same as none
        kUnknown,   // both are there; only root may look into them
    };
    Kind kind = Kind::kNone;
    std::string reason;  // of kUnusable, a sentence
};

// Looks at the account files as the service does, which needs the commands for the system's UUID.
AccountState FindAccountState(const std::string& root, uid_t user, tovaserverutil::CommandRunner& commands);

// What was found around the configuration, and what this user may not look at.
struct Surroundings {
    std::vector<Finding> findings;
    std::vector<std::string> notChecked;
};

// Looks at what the configuration's settings need: account files and CA file. The text and the profile are
// those of the same file.
void LookBehindSettings(const std::string& root, uid_t user, tovaserverutil::CommandRunner& commands,
                        const ConfigText& text, const tovaserverutil::Profile& profile, Surroundings& found);

// Looks at the locale file and the log folder below `root`, on behalf of `user`.
void LookAtSystem(const std::string& root, uid_t user, Surroundings& found);
