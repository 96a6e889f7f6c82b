#include "ilo-account.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "file-descriptor.h"
#include "secret.h"

#ifdef BAYWARD_ACCOUNT_KEYS_HEADER
#include BAYWARD_ACCOUNT_KEYS_HEADER
#else
#include "account-keys.h"
#endif

using tovaserverutil::CommandResult;
using tovaserverutil::CommandRunner;
using tovaserverutil::FileDescriptor;
using tovaserverutil::ShellRunner;
using tovaserverutil::Wipe;

namespace {

constexpr const char* kUuidCommand = "dmidecode -t1";
constexpr const char* kUuidLabel = "UUID: ";
constexpr std::size_t kUuidTextLength = 36;  // with hyphens
constexpr std::size_t kUuidBytes = 16;
constexpr std::size_t kCipherBlock = 16;

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;
using Bytes = std::vector<unsigned char>;

// Wipes the bytes when the scope ends.
class WipeBytes {
public:
    explicit WipeBytes(Bytes& bytes) : m_bytes(bytes) {}
    ~WipeBytes() { Wipe(m_bytes.data(), m_bytes.size()); }
    WipeBytes(const WipeBytes&) = delete;
    WipeBytes& operator=(const WipeBytes&) = delete;

private:
    Bytes& m_bytes;
};

bool IsRecord(int record) {
    return record == kAccountNameRecord || record == kAccountPasswordRecord;
}

unsigned char HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned char>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned char>(digit - 'a' + 10);
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<unsigned char>(digit - 'A' + 10);
    }
    throw std::invalid_argument("The system UUID is no hexadecimal number.");
}

std::array<unsigned char, kUuidBytes> UuidBytes(const std::string& uuid) {
    std::array<unsigned char, kUuidBytes> bytes{};
    if (uuid.size() < 2 * bytes.size()) {
        throw std::invalid_argument("The system UUID is too short.");
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(HexDigit(uuid[2 * i]) << 4 | HexDigit(uuid[2 * i + 1]));
    }
    return bytes;
}

// The content of a regular file of 1 to maxSize bytes; empty when there is no such file or it cannot be read.
Bytes ReadSmallFile(const std::string& path, std::size_t maxSize) {
    // Without O_NONBLOCK a FIFO in the file's place would stop the thread.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0 ||
        static_cast<std::size_t>(status.st_size) > maxSize) {
        return {};
    }
    Bytes content(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t got = read(file.get(), content.data() + done, content.size() - done);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return {};
        }
        done += static_cast<std::size_t>(got);
    }
    return content;
}

// Surely, not just unreadable for the moment.
bool IsMissing(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

// Deciphers into `plain`, which is as long as the ciphertext. Returns the text's length, or -1 when any step
// fails.
int Decipher(const AccountKey& key, const Bytes& ciphertext, Bytes& plain) {
    const CipherContext context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    constexpr int kDecipher = 0;
    int length = 0;
    int rest = 0;
    if (context == nullptr ||
        EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.key(), key.iv(), kDecipher) != 1 ||
        EVP_CipherUpdate(context.get(), plain.data(), &length, ciphertext.data(),
                         static_cast<int>(ciphertext.size())) != 1 ||
        EVP_CipherFinal_ex(context.get(), plain.data() + length, &rest) != 1) {
        return -1;
    }
    return length + rest;
}

}  // namespace

const char* AccountFile(int record) {
    return record == kAccountNameRecord ? "/etc/.TARNiLO0" : "/etc/.TARNiLO1";
}

AccountKey::AccountKey(int record, const std::string& uuid) {
    if (!IsRecord(record)) {
        throw std::invalid_argument("There is no such account record.");
    }
    const auto identity = UuidBytes(uuid);
    const bool isName = record == kAccountNameRecord;
    const auto& first = isName ? identity : kPasswordKeyHalf;
    const auto& second = isName ? kNameKeyHalf : identity;
    std::copy(second.begin(), second.end(), std::copy(first.begin(), first.end(), m_key.begin()));
    m_iv = isName ? kNameIv : kPasswordIv;
}

AccountKey::~AccountKey() {
    Wipe(m_key.data(), m_key.size());
    Wipe(m_iv.data(), m_iv.size());
}

bool DecryptAccount(int record, unsigned char* buffer, std::size_t length) {
    ShellRunner shell;
    return DecryptAccount(record, buffer, length, shell, {});
}

bool DecryptAccount(int record, unsigned char* buffer, std::size_t length, CommandRunner& commands,
                    const std::string& root) {
    if (!IsRecord(record)) {
        return false;
    }
    const std::string file = root + AccountFile(record);
    std::string uuid;
    try {
        uuid = get_uuid(commands);
    } catch (const std::exception&) {
        // A command that cannot be run now says nothing about an account; that its file is gone does.
        if (IsMissing(file)) {
            return false;
        }
        throw;
    }
    const AccountKey key(record, uuid);
    const std::size_t maxText = std::min(length, kMaxAccountText);
    const Bytes ciphertext = ReadSmallFile(file, maxText + kCipherBlock);
    if (ciphertext.empty() || ciphertext.size() % kCipherBlock != 0) {
        return false;
    }
    Bytes plain(ciphertext.size() + kCipherBlock);
    const WipeBytes wipe(plain);
    const int plainLength = Decipher(key, ciphertext, plain);
    if (plainLength < 0 || static_cast<std::size_t>(plainLength) > maxText) {
        return false;
    }
    std::fill(std::copy_n(plain.begin(), plainLength, buffer), buffer + length,
              static_cast<unsigned char>(0));
    return true;
}

StoredAccount::StoredAccount(CommandRunner& commands, std::string root)
    : m_commands(commands), m_root(std::move(root)) {}

bool StoredAccount::Read(int record, unsigned char* buffer, std::size_t length) {
    if (record == kAccountNameRecord) {
        m_commands.Forget();  // the next look begins
    }
    return DecryptAccount(record, buffer, length, m_commands, m_root);
}

CommandResult StoredAccount::Repeater::Capture(const std::string& command,
                                               std::chrono::milliseconds deadline) {
    if (m_answer && m_command == command) {
        return *std::exchange(m_answer, std::nullopt);
    }
    m_command = command;
    m_answer = m_commands.Capture(command, deadline);
    return *m_answer;
}

CommandResult StoredAccount::Repeater::Execute(const std::string& command,
                                               std::chrono::milliseconds deadline) {
    return m_commands.Execute(command, deadline);
}

std::string get_uuid() {
    ShellRunner shell;
    return get_uuid(shell);
}

std::string get_uuid(CommandRunner& commands) {
    return removeCharacter(getUUIDFromDMIDecodeOutput(exec_cmd(kUuidCommand, commands)), '-');
}

std::string getUUIDFromDMIDecodeOutput(const std::string& output) {
    const std::string label = kUuidLabel;
    const std::size_t found = output.find(label);
    return found == std::string::npos ? std::string() : output.substr(found + label.size(), kUuidTextLength);
}

std::string exec_cmd(const std::string& command, CommandRunner& commands) {
    CommandResult result = commands.Capture(command, tovaserverutil::kProbeDeadline);
    if (!result.started) {
        throw std::runtime_error("popen() failed!");
    }
    if (result.timedOut) {
        throw std::runtime_error("\"" + command + "\" took too long.");
    }
    return std::move(result.output);
}

std::string removeCharacter(std::string text, char character) {
    std::erase(text, character);
    return text;
}
