// What a mistyped name was probably meant to be.
#pragma once

#include <string_view>
#include <vector>

// The known name that takes the fewest insertions, deletions and replacements of characters, upper and lower
// case being the same; empty when none is near (at most a third of the name, but two always).
std::string_view NearestName(std::string_view name, const std::vector<std::string_view>& known);
