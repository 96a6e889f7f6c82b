// What "baywardctl account ..." does.
#pragma once

#include <optional>
#include <string>

#include "commands.h"
#include "controller-access.h"

// Each throws UsageError or CtlError with the one sentence to show. No password is ever shown.
class AccountCommand {
public:
    explicit AccountCommand(CtlDoors doors) : m_doors(std::move(doors)) {}

    // Registers the account, asking for what is not given: the account from a person only, the password from
    // a person (twice, without echo) or as the first line of standard input.
    void Set(std::optional<std::string> account);
    // Shows the registered account's name; with `login` tries it on the configured controller.
    void Check(bool login);
    // Removes the registered account.
    void Remove();

private:
    void RequireRoot(const std::string& command) const;
    std::string AskAccount();
    std::string AskPassword(const std::string& account);
    void LogIn(const RegisteredAccount& registered);

    CtlDoors m_doors;
};
