// The controller account that the account-registration tool left for the service, and the system identity
// that opens it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "shell.h"

inline constexpr int kAccountNameRecord = 0;
inline constexpr int kAccountPasswordRecord = 1;
inline constexpr std::size_t kMaxAccountText = 40;  // bytes of a name or password

// Where a record lies, below the file root. `record` is 0 or 1.
const char* AccountFile(int record);

// Key and initialisation vector (AES-256-CBC) of one record on one machine. Wiped on destruction.
class AccountKey {
public:
    // `record` is 0 or 1; `uuid` is the system UUID without hyphens, digits in either case, of which the
    // first 32 count. Throws std::invalid_argument when the record is another one, or when the text is too
    // short or no hexadecimal number.
    AccountKey(int record, const std::string& uuid);
    ~AccountKey();
    AccountKey(const AccountKey&) = delete;
    AccountKey& operator=(const AccountKey&) = delete;

    const unsigned char* key() const { return m_key.data(); }
    const unsigned char* iv() const { return m_iv.data(); }

private:
    std::array<unsigned char, 32> m_key{};
    std::array<unsigned char, 16> m_iv{};
};

// Deciphers record 0 (name) or 1 (password) into the buffer and fills the rest of it with zero bytes; a text
// that fills the buffer has no zero behind it. False when there is no such record or file, when it was made
// on another machine or is damaged, and when the text is longer than the buffer or than kMaxAccountText; the
// buffer's content is undefined then, but never overrun. Throws what get_uuid throws, unless
// there is no file, and std::invalid_argument when the system has no usable UUID.
bool DecryptAccount(int record, unsigned char* buffer, std::size_t length);
// With other doors: `root` goes before the file's path.
bool DecryptAccount(int record, unsigned char* buffer, std::size_t length,
                    tovaserverutil::CommandRunner& commands, const std::string& root);

// Reads both records as DecryptAccount does, one look after the other: the name, then the password if there
// is a name. dmidecode runs once for both. For one thread; the doors must outlive it.
class StoredAccount {
public:
    explicit StoredAccount(tovaserverutil::CommandRunner& commands, std::string root = {});

    bool Read(int record, unsigned char* buffer, std::size_t length);

private:
    // Gives the answer to the last command once more, unless that is forgotten.
    class Repeater final : public tovaserverutil::CommandRunner {
    public:
        explicit Repeater(tovaserverutil::CommandRunner& commands) : m_commands(commands) {}
        void Forget() { m_answer.reset(); }
        tovaserverutil::CommandResult Capture(const std::string& command,
                                              std::chrono::milliseconds deadline) override;
        tovaserverutil::CommandResult Execute(const std::string& command,
                                              std::chrono::milliseconds deadline) override;

    private:
        tovaserverutil::CommandRunner& m_commands;
        std::string m_command;
        std::optional<tovaserverutil::CommandResult> m_answer;
    };

    Repeater m_commands;
    std::string m_root;
};

// The system UUID as dmidecode tells it, without hyphens; empty when it tells none. Throws what exec_cmd
// throws.
std::string get_uuid();
std::string get_uuid(tovaserverutil::CommandRunner& commands);

// The at most 36 characters behind the first "UUID: "; empty when there is none.
std::string getUUIDFromDMIDecodeOutput(const std::string& output);

// What the command line writes to its standard output. Throws std::runtime_error: "popen() failed!" when it
// cannot be started, and when it has to be ended because its time is over.
std::string exec_cmd(const std::string& command, tovaserverutil::CommandRunner& commands);

// The text without the character.
std::string removeCharacter(std::string text, char character);
