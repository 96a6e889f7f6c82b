// What it takes to log in to the management controller as the service does.
#pragma once

#include <cstdint>
#include <string>

#include "rest-bridge.h"
#include "shell.h"

// The account that the service logs in with. Its password is wiped on destruction.
struct RegisteredAccount {
    RegisteredAccount() = default;
    ~RegisteredAccount();
    RegisteredAccount(const RegisteredAccount&) = delete;
    RegisteredAccount& operator=(const RegisteredAccount&) = delete;

    std::string account;
    std::string password;
};

// The system UUID (no hyphens), usable as the account files' key. Throws CtlError.
std::string ReadUsableUuid(tovaserverutil::CommandRunner& commands);

// Both texts as the service reads them; `root` goes before the files' paths. Throws CtlError.
void ReadRegisteredAccount(const std::string& root, tovaserverutil::CommandRunner& commands,
                           RegisteredAccount& registered);

// Where the controller is and how it is asked.
struct ControllerSettings {
    std::string configuration;  // the file that says so
    std::string url;            // never empty
    // A person waits for the answer, so these are held to what a person waits for.
    std::uint32_t trials = 0;
    std::uint32_t trialInterval = 0;  // milliseconds
};

// As the service reads them; `root` goes before the configuration file's path. Throws CtlError.
ControllerSettings ReadControllerSettings(const std::string& root);

// How the service connects to it. Throws CtlError.
ConnectionSettings ReadConnectionSettings(const std::string& root);

// Throws the CtlError that tells why the controller gave nothing. `failure` is the bridge's text, `reason`
// its lastReason(), which people are told instead where there is one.
[[noreturn]] void FailOnController(const ControllerSettings& settings, const std::string& failure,
                                   const std::string& reason);
