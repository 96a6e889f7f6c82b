#include "account-file.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "ctl-error.h"
#include "file-descriptor.h"
#include "ilo-account.h"

using tovaserverutil::FileDescriptor;

namespace {

using Bytes = std::vector<unsigned char>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// The next character of UTF-8 text, and how many bytes it takes; nothing for bytes that are not UTF-8.
std::optional<std::pair<char32_t, std::size_t>> DecodeCharacter(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        return std::pair{static_cast<char32_t>(lead), std::size_t{1}};
    }
    struct Form {
        unsigned char mask, mark;
        char32_t least;  // shorter forms exist for characters below
    };
    constexpr Form kForms[] = {{0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    std::size_t length = 2;
    for (const Form& form : kForms) {
        if ((lead & form.mask) == form.mark) {
            auto character = static_cast<char32_t>(lead & static_cast<unsigned char>(~form.mask));
            if (text.size() - at < length) {
                return std::nullopt;
            }
            for (std::size_t i = at + 1; i < at + length; ++i) {
                if ((byte(i) & 0xC0) != 0x80) {
                    return std::nullopt;
                }
                character = character << 6 | (byte(i) & 0x3F);
            }
            const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
            if (character < form.least || character > 0x10FFFF || surrogate) {
                return std::nullopt;
            }
            return std::pair{character, length};
        }
        ++length;
    }
    return std::nullopt;
}

bool IsControl(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

[[noreturn]] void Fail(const std::string& action, const std::string& path, int error) {
    throw CtlError("Cannot " + action + " " + path + ": " + std::strerror(error) +
                   "; free space or make the folder writable, then try again.");
}

Bytes Encipher(int record, const std::string& uuid, const std::string& text) {
    const AccountKey key(record, uuid);
    const CipherContext context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    constexpr int kEncipher = 1;
    Bytes ciphertext(text.size() + EVP_MAX_BLOCK_LENGTH);
    int length = 0;
    int rest = 0;
    if (context == nullptr ||
        EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.key(), key.iv(), kEncipher) != 1 ||
        EVP_CipherUpdate(context.get(), ciphertext.data(), &length,
                         reinterpret_cast<const unsigned char*>(text.data()),
                         static_cast<int>(text.size())) != 1 ||
        EVP_CipherFinal_ex(context.get(), ciphertext.data() + length, &rest) != 1) {
        throw CtlError(
            "The account cannot be enciphered: OpenSSL offers no AES-256-CBC; check its configuration.");
    }
    ciphertext.resize(static_cast<std::size_t>(length + rest));
    return ciphertext;
}

void SyncFolder(const std::string& path) {
    const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.valid() || fsync(folder.get()) != 0) {
        Fail("write", path, errno);
    }
}

// A complete new file beside the one that it is to replace; removed on destruction unless it has taken its
// place.
class Replacement {
public:
    Replacement(std::string target, const Bytes& content)
        : m_target(std::move(target)), m_path(m_target + ".XXXXXX") {
        const FileDescriptor file(mkostemp(m_path.data(), O_CLOEXEC));
        if (!file.valid()) {
            const int error = errno;
            m_path.clear();
            Fail("write", m_target, error);
        }
        const bool written =
            fchmod(file.get(), S_IRUSR | S_IWUSR) == 0 && (geteuid() != 0 || fchown(file.get(), 0, 0) == 0) &&
            write(file.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
            fsync(file.get()) == 0;
        if (!written) {
            const int error = errno;
            unlink(m_path.c_str());
            Fail("write", m_target, error);
        }
    }
    ~Replacement() {
        if (!m_path.empty()) {
            unlink(m_path.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void TakePlace() {
        if (rename(m_path.c_str(), m_target.c_str()) != 0) {
            Fail("replace", m_target, errno);
        }
        m_path.clear();
    }

private:
    std::string m_target;
    std::string m_path;
};

// Keeps a second name of a file, so that it can be put back; gone on destruction.
class Keepsake {
public:
    explicit Keepsake(std::string target) : m_target(std::move(target)), m_path(m_target + ".previous") {
        unlink(m_path.c_str());  // left by a run that was cut short
        m_kept = link(m_target.c_str(), m_path.c_str()) == 0;
        if (!m_kept && errno != ENOENT) {
            Fail("keep a copy of", m_target, errno);
        }
    }
    ~Keepsake() {
        if (m_kept) {
            unlink(m_path.c_str());
        }
    }
    Keepsake(const Keepsake&) = delete;
    Keepsake& operator=(const Keepsake&) = delete;

    void PutBack() {
        if (!m_kept) {
            unlink(m_target.c_str());
        } else if (rename(m_path.c_str(), m_target.c_str()) == 0) {
            m_kept = false;
        }
    }

private:
    std::string m_target;
    std::string m_path;
    bool m_kept = false;
};

}  // namespace

void CheckAccountText(const std::string& what, const std::string& text) {
    if (text.empty()) {
        throw UsageError("The " + what + " is empty; give one of 1 to " + std::to_string(kMaxAccountText) +
                         " bytes.");
    }
    if (text.size() > kMaxAccountText) {
        throw UsageError("The " + what + " has " + std::to_string(text.size()) +
                         " bytes; give one of at most " + std::to_string(kMaxAccountText) + ".");
    }
    for (std::size_t at = 0; at < text.size();) {
        const auto character = DecodeCharacter(text, at);
        if (!character) {
            throw UsageError("The " + what + " is not UTF-8; give it in a UTF-8 locale.");
        }
        if (IsControl(character->first)) {
            throw UsageError("The " + what + " holds a control character; give one without.");
        }
        at += character->second;
    }
}

void WriteAccountFiles(const std::string& root, const std::string& uuid, const std::string& account,
                       const std::string& password) {
    const std::string nameFile = root + AccountFile(kAccountNameRecord);
    Bytes name;
    Bytes secret;
    try {
        name = Encipher(kAccountNameRecord, uuid, account);
        secret = Encipher(kAccountPasswordRecord, uuid, password);
    } catch (const std::invalid_argument& failure) {
        throw CtlError(std::string("The account cannot be enciphered for this machine: ") + failure.what() +
                       " Check what \"dmidecode -t1\" shows as UUID.");
    }
    Replacement newName(nameFile, name);
    Replacement newPassword(root + AccountFile(kAccountPasswordRecord), secret);
    Keepsake oldName(nameFile);
    newName.TakePlace();
    try {
        newPassword.TakePlace();
    } catch (const CtlError&) {
        oldName.PutBack();
        throw;
    }
    SyncFolder(root + "/etc");
}

bool RemoveAccountFiles(const std::string& root) {
    bool removed = false;
    for (const int record : {kAccountNameRecord, kAccountPasswordRecord}) {
        const std::string file = root + AccountFile(record);
        if (unlink(file.c_str()) == 0) {
            removed = true;
        } else if (errno != ENOENT) {
            Fail("remove", file, errno);
        }
    }
    if (removed) {
        SyncFolder(root + "/etc");
    }
    return removed;
}
