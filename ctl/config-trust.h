// Who besides root could change what the service reads and runs as root.
#pragma once

#include <string>

#include "config-surroundings.h"

// Adds a warning for each place on the way to `path`, an absolute one, that somebody but root can change: it
// has another owner, or another group or everybody may write it (a folder where only owners may rename, as
// /tmp, is none). The way goes through every link on it; one that its owner, who is not root, may replace is
// such a place, too. A path that does not exist has none. `path` includes `root`, whose owner and group count
// as root's.
void CheckOnlyRootChanges(const std::string& root, const std::string& path, Surroundings& found);

// Looks at the program folder (as it is; no root goes before it), the RAID tools, the system's folders of
// programs and those in them that the service runs, the configuration file, the account files and the log
// folder below `root`, and for a forgotten test input folder.
void LookAtTrust(const std::string& root, const std::string& programFolder, Surroundings& found);
