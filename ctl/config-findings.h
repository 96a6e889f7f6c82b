// What is wrong with a configuration file: everything that the service reads in another way than it looks.
#pragma once

#include <string>
#include <vector>

#include "config-text.h"
#include "server-profile.h"

struct Finding {
    enum class Level {
        kWarning,  // the service runs, but not as the file seems to say
        kError,    // the service does not run, or lacks something that it needs
    };

    int line = 0;  // from 1; 0 when it is about no line
    Level level = Level::kWarning;
    std::string sentence;  // holds no password and no control character
    std::string file;      // what it is about; empty for the configuration file
};

// In the order of the lines. Both are the same file's: the profile is what the service reads of it.
std::vector<Finding> FindInConfig(const ConfigText& text, const tovaserverutil::Profile& profile);
