// The values of the configuration: what the service makes of them.
#pragma once

#include <string>
#include <vector>

#include "server-profile.h"
#include "settings.h"

// What is wrong with a value that the service reads, one sentence each. The value is that of the setting in
// the profile; one that may be a secret is not repeated.
std::vector<std::string> FaultsOfValue(const tova_service::Setting& setting, const std::string& value,
                                       const tovaserverutil::Profile& profile);

// The value that the service works with, fit to be shown: numbers after their ranges, in their unit and with
// decimals where it comes to that; flags "true" or "false"; "***" for a password, here and inside a URL.
std::string EffectiveText(const tova_service::Setting& setting, const tovaserverutil::Profile& profile);

// The same for a key that is absent.
std::string DefaultText(const tova_service::Setting& setting);

// True for settings whose values are numbers.
bool IsNumber(const tova_service::Setting& setting);
