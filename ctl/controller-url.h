// Which addresses of a controller the helper module takes.
#pragma once

#include <string>
#include <string_view>

// Whether it names the local in-band channel; an empty one, which means that channel to the service, does
// not.
bool IsInBandUrl(std::string_view url);

// What is wrong with the URL, as the rest of a sentence that begins with "it"; empty for one that is taken.
// The URL itself is not repeated: it may hold a password.
std::string FaultOfUrl(std::string_view url);
