// What the service needs around its configuration file.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "config-findings.h"

// An account in the configuration, which never reaches the controller. The text and the profile are those of
// the same file.
std::optional<Finding> FindAccount(const std::string& root, const ConfigText& text,
                                   const tovaserverutil::Profile& profile);

// Looks at the locale file and the log folder below `root`, on behalf of `user`.
std::vector<Finding> FindInSystem(const std::string& root, uid_t user);

// True when both account files are there; whether they can be deciphered is another question.
bool IsAccountRegistered(const std::string& root);
