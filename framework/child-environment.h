// What a program that the service runs finds in its environment.
#pragma once

#include <string>
#include <vector>

namespace tovaserverutil {

// The variables of `own` (as `environ` has them, ended by a null pointer) without those that make a shell or
// unzip do something else than their command line says. PATH keeps its absolute folders, each once, followed
// by the system's: the working folder is no place for tools, and root's tools are not on everybody's PATH.
// What the loader reads (LD_...) is left: it has done its work on the service itself by now.
std::vector<std::string> ChildEnvironment(const char* const* own);

}  // namespace tovaserverutil
