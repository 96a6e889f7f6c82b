// The enciphered account files: any bytes as a file, and any text enciphered as the registration tool does
// it. The input's first character chooses the record, the second one the length of the buffer.
#include <openssl/evp.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "fake-commands.h"
#include "fuzz.h"
#include "ilo-account.h"
#include "test-root.h"

namespace {

constexpr const char* kUuid = "00112233445566778899aabbccddeeff";

using Bytes = std::vector<unsigned char>;

std::string Enciphered(int record, std::string_view text) {
    const AccountKey key(record, kUuid);
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  &EVP_CIPHER_CTX_free);
    Bytes result(text.size() + EVP_MAX_BLOCK_LENGTH);
    int length = 0;
    int rest = 0;
    FUZZ_CHECK(EVP_EncryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.key(), key.iv()) == 1);
    FUZZ_CHECK(EVP_EncryptUpdate(context.get(), result.data(), &length,
                                 reinterpret_cast<const unsigned char*>(text.data()),
                                 static_cast<int>(text.size())) == 1);
    FUZZ_CHECK(EVP_EncryptFinal_ex(context.get(), result.data() + length, &rest) == 1);
    return {result.begin(), result.begin() + length + rest};
}

class Machine {
public:
    Machine() {
        m_commands.result.exitStatus = 0;
        m_commands.result.output = std::string("\tUUID: ") + kUuid + "\n";
        std::filesystem::create_directory(m_root / "etc");
    }

    // Into a buffer that ends where its memory ends.
    bool Read(int record, const std::string& file, Bytes& buffer) {
        m_root.Write(AccountFile(record), file);
        return DecryptAccount(record, buffer.data(), buffer.size(), m_commands, m_root.path());
    }

private:
    TestRoot m_root;
    FakeCommands m_commands;
};

}  // namespace

void Fuzz(std::string_view input) {
    static Machine machine;
    if (input.size() < 2) {
        return;
    }
    const int record = input[0] % 2 == 0 ? kAccountNameRecord : kAccountPasswordRecord;
    Bytes buffer(static_cast<unsigned char>(input[1]) % 64);
    const std::string content(input.substr(2));

    machine.Read(record, content, buffer);

    const bool opened = machine.Read(record, Enciphered(record, content), buffer);
    FUZZ_CHECK(opened == (content.size() <= std::min(buffer.size(), kMaxAccountText)));
    if (opened) {
        Bytes expected(content.begin(), content.end());
        expected.resize(buffer.size());
        FUZZ_CHECK(buffer == expected);
    }
}
