#include "account-file.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "account-lock.h"
#include "ctl-error.h"
#include "file-descriptor.h"
#include "file-writing.h"
#include "ilo-account.h"

using tovaserverutil::FileDescriptor;

namespace {

using Bytes = std::vector<unsigned char>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

constexpr const char* kFolder = "/etc";
// What is written beside an account file while it is replaced; found later only when a run was killed.
constexpr const char* kNew = ".new";
constexpr const char* kPrevious = ".previous";

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
    ciphertext.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(rest));
    return ciphertext;
}

// A file's content; nothing when there is no such file. What is too large for an account file fails.
std::optional<Bytes> ReadAll(const std::string& path) {
    constexpr std::size_t kMost = 65536;  // bytes
    constexpr const char* kAction = "keep a copy of";
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        FailOnFile(kAction, path, errno);
    }
    Bytes content(kMost);
    std::size_t done = 0;
    while (done < kMost) {
        const ssize_t got = read(file.get(), content.data() + done, kMost - done);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            FailOnFile(kAction, path, errno);
        }
        if (got == 0) {
            content.resize(done);
            return content;
        }
        done += static_cast<std::size_t>(got);
    }
    FailOnFile(kAction, path, EFBIG);
}

// A complete file beside the one whose place it is to take; removed on destruction unless it has.
class Replacement {
public:
    Replacement(std::string target, const char* suffix, const Bytes& content)
        : m_target(std::move(target)), m_path(m_target + suffix) {
        const FileDescriptor file(
            open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (!file.valid()) {
            FailOnFile("write", m_path, errno);
        }
        const bool written = fchmod(file.get(), S_IRUSR | S_IWUSR) == 0 &&
                             (geteuid() != 0 || fchown(file.get(), 0, 0) == 0) &&
                             WriteAll(file.get(), content.data(), content.size()) && fsync(file.get()) == 0;
        if (!written) {
            const int error = errno;
            unlink(m_path.c_str());
            FailOnFile("write", m_path, error);
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
            FailOnFile("replace", m_target, errno);
        }
        m_path.clear();
    }

private:
    std::string m_target;
    std::string m_path;
};

// A copy of a file, complete on the disk before the file is touched, so that it can be put back.
class Keepsake {
public:
    explicit Keepsake(std::string target) : m_target(std::move(target)) {
        if (const auto content = ReadAll(m_target)) {
            m_copy.emplace(m_target, kPrevious, *content);
        }
    }
    void PutBack() {
        if (m_copy) {
            m_copy->TakePlace();
        } else {
            unlink(m_target.c_str());
        }
    }

private:
    std::string m_target;
    std::optional<Replacement> m_copy;
};

// True when there was such a file.
bool Remove(const std::string& path) {
    if (unlink(path.c_str()) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        FailOnFile("remove", path, errno);
    }
    return false;
}

// Of runs that were killed. The lock is held: nobody is using them.
void RemoveLeftovers(const std::string& root) {
    for (const int record : {kAccountNameRecord, kAccountPasswordRecord}) {
        for (const char* suffix : {kNew, kPrevious}) {
            Remove(root + AccountFile(record) + suffix);
        }
    }
}

// Makes the names in the folder last. `done` says what has been done by now, whatever comes.
void SyncFolder(const std::string& root, const std::string& done) {
    const std::string path = root + kFolder;
    const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // EINVAL: this file system cannot be asked for it.
    if (folder.valid() && (fsync(folder.get()) == 0 || errno == EINVAL)) {
        return;
    }
    throw CtlError(done + ", but " + path + " cannot be written to the disk at once: " +
                   std::strerror(errno) + "; a power failure may undo it, so check the disk.");
}

}  // namespace

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
    const AccountLock lock(root, AccountLock::Use::kWrite);
    RemoveLeftovers(root);
    Replacement newName(nameFile, kNew, name);
    Replacement newPassword(root + AccountFile(kAccountPasswordRecord), kNew, secret);
    Keepsake oldName(nameFile);
    newName.TakePlace();
    try {
        newPassword.TakePlace();
    } catch (const CtlError&) {
        oldName.PutBack();
        throw;
    }
    SyncFolder(root, "The account is registered");
}

bool RemoveAccountFiles(const std::string& root) {
    const AccountLock lock(root, AccountLock::Use::kWrite);
    bool removed = false;
    for (const int record : {kAccountNameRecord, kAccountPasswordRecord}) {
        removed |= Remove(root + AccountFile(record));
    }
    RemoveLeftovers(root);
    if (removed) {
        SyncFolder(root, "The account is removed");
    }
    return removed;
}
