// Writing and removing the two enciphered account files that the service reads.
#pragma once

#include <string>

// Both take the AccountLock. `root` goes before the paths. A run that was killed in the middle may leave
// files beside the two, named as they are with ".new" or ".previous" behind; the next run removes them.

// Enciphers both texts for the machine with this UUID (no hyphens) and replaces both files, mode 0600, owned
// by root when run by root. Both or neither: a failure leaves the files as they were, and a signal that ends
// the process waits. Throws CtlError.
void WriteAccountFiles(const std::string& root, const std::string& uuid, const std::string& account,
                       const std::string& password);

// Removes both files. False when there was none. Throws CtlError.
bool RemoveAccountFiles(const std::string& root);
