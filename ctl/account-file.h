// Writing and removing the two enciphered account files that the service reads.
#pragma once

#include <string>

// Throws UsageError unless the text can be registered: 1 to 40 bytes of UTF-8 without control characters.
// `what` names it in the message ("account", "password"); the text itself is not shown.
void CheckAccountText(const std::string& what, const std::string& text);

// Enciphers both texts for the machine with this UUID (no hyphens) and replaces both files, mode 0600, owned
// by root when run by root. Both or neither: a failure leaves the files as they were. `root` goes before the
// paths. Throws CtlError.
void WriteAccountFiles(const std::string& root, const std::string& uuid, const std::string& account,
                       const std::string& password);

// Removes both files. False when there was none. Throws CtlError.
bool RemoveAccountFiles(const std::string& root);
