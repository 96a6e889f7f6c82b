#include "ilo-account.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "fake-commands.h"
#include "test-root.h"

namespace {

constexpr const char* kUuid = "00112233-4455-6677-8899-aabbccddeeff";
constexpr const char* kDigits = "00112233445566778899aabbccddeeff";

std::string DmiOutput(const std::string& uuid) {
    return "# dmidecode 3.3\nHandle 0x0001, DMI type 1, 27 bytes\nSystem Information\n\tSerial Number: "
           "X\n\tUUID: " +
           uuid + "\n\tWake-up Type: Power Switch\n";
}

// What a registration tool writes.
std::string Encipher(int record, const std::string& text, const std::string& uuid = kDigits) {
    const AccountKey key(record, uuid);
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  &EVP_CIPHER_CTX_free);
    std::vector<unsigned char> out(text.size() + 32);
    int length = 0;
    int rest = 0;
    EXPECT_EQ(EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.key(), key.iv(), 1), 1);
    EXPECT_EQ(
        EVP_CipherUpdate(context.get(), out.data(), &length,
                         reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())),
        1);
    EXPECT_EQ(EVP_CipherFinal_ex(context.get(), out.data() + length, &rest), 1);
    return {out.begin(), out.begin() + length + rest};
}

class AccountTest : public testing::Test {
protected:
    AccountTest() { SetUuid(kUuid); }

    void SetUuid(const std::string& uuid) {
        commands.result = {.started = true, .timedOut = false, .exitStatus = 0, .output = DmiOutput(uuid)};
    }
    bool Decrypt(int record, std::size_t length = kMaxAccountText) {
        // Guard bytes behind the buffer show an overrun.
        buffer.assign(length + 16, 0xA5);
        const bool done = DecryptAccount(record, buffer.data(), length, commands, root.path());
        EXPECT_TRUE(std::all_of(buffer.begin() + static_cast<std::ptrdiff_t>(length), buffer.end(),
                                [](unsigned char byte) { return byte == 0xA5; }))
            << "behind the buffer";
        buffer.resize(length);
        return done;
    }
    std::string Text() const { return {buffer.begin(), buffer.end()}; }
    static std::string Padded(std::string text, std::size_t length = kMaxAccountText) {
        text.resize(length);
        return text;
    }

    TestRoot root;
    FakeCommands commands;
    std::vector<unsigned char> buffer;
};

TEST(AccountKey, Destroyed_LeavesNeitherKeyNorVectorBehind) {
    alignas(AccountKey) unsigned char memory[sizeof(AccountKey)];
    for (const int record : {kAccountNameRecord, kAccountPasswordRecord}) {
        auto* const key = new (memory) AccountKey(record, kDigits);
        EXPECT_TRUE(std::any_of(key->iv(), key->iv() + 16, [](unsigned char byte) { return byte != 0; }));
        std::destroy_at(key);
        EXPECT_TRUE(
            std::all_of(std::begin(memory), std::end(memory), [](unsigned char byte) { return byte == 0; }));
    }
}

TEST_F(AccountTest, BothRecords_DecipherAndAreFilledWithZeros) {
    root.Write("etc/.TARNiLO0", Encipher(0, "Administrator"));
    root.Write("etc/.TARNiLO1", Encipher(1, "p\xC3\xA4ssword"));
    ASSERT_TRUE(Decrypt(0));
    EXPECT_EQ(Text(), Padded("Administrator"));
    ASSERT_TRUE(Decrypt(1));
    EXPECT_EQ(Text(), Padded("p\xC3\xA4ssword"));
    EXPECT_EQ(commands.commands, std::vector<std::string>(2, "dmidecode -t1"));
    EXPECT_EQ(commands.deadline, std::chrono::seconds(10));
}

TEST_F(AccountTest, EveryLengthUpToForty_IsAcceptedAndNoneAbove) {
    for (std::size_t length = 0; length <= 64; ++length) {
        const std::string text(length, 'x');
        root.Write("etc/.TARNiLO1", Encipher(1, text));
        const bool done = Decrypt(1);
        EXPECT_EQ(done, length <= 40) << length;
        if (done) {
            EXPECT_EQ(Text(), Padded(text)) << length;
        }
    }
}

TEST_F(AccountTest, TextLongerThanTheBuffer_IsRefused) {
    root.Write("etc/.TARNiLO0", Encipher(0, "123456789"));
    EXPECT_FALSE(Decrypt(0, 8));
    EXPECT_TRUE(Decrypt(0, 9));
    EXPECT_EQ(Text(), "123456789");
}

TEST_F(AccountTest, LargerBuffer_StillTakesFortyBytesAtMost) {
    root.Write("etc/.TARNiLO0", Encipher(0, std::string(41, 'x')));
    EXPECT_FALSE(Decrypt(0, 100));
    root.Write("etc/.TARNiLO0", Encipher(0, std::string(40, 'x')));
    EXPECT_TRUE(Decrypt(0, 100));
    EXPECT_EQ(Text(), Padded(std::string(40, 'x'), 100));
}

TEST_F(AccountTest, DigitsOfTheUuidInEitherCase_GiveTheSameKey) {
    root.Write("etc/.TARNiLO0", Encipher(0, "user"));
    SetUuid("00112233-4455-6677-8899-AABBCCDDEEFF");
    EXPECT_TRUE(Decrypt(0));
    EXPECT_EQ(Text(), Padded("user"));
}

TEST_F(AccountTest, FileOfAnotherMachine_IsRefused) {
    // Padding that fits by chance under a wrong key is possible, about once in 256; this UUID is one of the
    // others.
    root.Write("etc/.TARNiLO0", Encipher(0, "user"));
    SetUuid("10112233-4455-6677-8899-aabbccddeeff");
    EXPECT_FALSE(Decrypt(0));
}

TEST_F(AccountTest, RecordOfTheOtherKind_IsRefused) {
    root.Write("etc/.TARNiLO1", Encipher(0, "user"));
    EXPECT_FALSE(Decrypt(1));
}

TEST_F(AccountTest, DamagedFiles_AreRefused) {
    const std::string whole = Encipher(0, "a user name of some length");  // two blocks
    EXPECT_FALSE(Decrypt(0)) << "no file";
    for (const std::string& content :
         {std::string(), whole.substr(0, 1), whole.substr(0, 16), whole.substr(0, 31), whole + "x",
          whole + whole, std::string(48, '\0'), std::string(1 << 20, 'x')}) {
        root.Write("etc/.TARNiLO0", content);
        EXPECT_FALSE(Decrypt(0)) << content.size();
    }
}

TEST_F(AccountTest, FolderOrPipeInTheFilesPlace_IsRefusedWithoutWaiting) {
    std::filesystem::create_directories(root / "etc/.TARNiLO0");
    EXPECT_FALSE(Decrypt(0));
    ASSERT_EQ(mkfifo((root / "etc/.TARNiLO1").c_str(), 0600), 0);
    EXPECT_FALSE(Decrypt(1));
}

TEST_F(AccountTest, RecordThatDoesNotExist_Fails) {
    EXPECT_FALSE(Decrypt(2));
    EXPECT_FALSE(Decrypt(-1));
    EXPECT_THROW(AccountKey(2, kDigits), std::invalid_argument);
}

TEST_F(AccountTest, UnusableUuid_EndsWithTheConversionsError) {
    root.Write("etc/.TARNiLO0", Encipher(0, "user"));
    for (const char* uuid :
         {"", "Not Settable", "00112233-4455-6677-8899-aabbccddeef", "0x112233-4455-6677-8899-aabbccddeeff",
          "00112233-4455-6677-8899-aabbccddeeg0", "+0112233-4455-6677-8899-aabbccddeeff"}) {
        SetUuid(uuid);
        EXPECT_THROW(Decrypt(0), std::invalid_argument) << uuid;
    }
    commands.result.output = "\xFF\xFEgarbage without the line";
    EXPECT_THROW(Decrypt(0), std::invalid_argument);
}

TEST_F(AccountTest, DmidecodeThatCannotRunOrHangs_ThrowsAsLongAsThereIsAFile) {
    root.Write("etc/.TARNiLO0", Encipher(0, "user"));
    const std::array<tovaserverutil::CommandResult, 2> unusable = {
        tovaserverutil::CommandResult{},
        tovaserverutil::CommandResult{
            .started = true, .timedOut = true, .exitStatus = -1, .output = DmiOutput(kUuid)}};
    for (const auto& result : unusable) {
        commands.result = result;
        EXPECT_THROW(Decrypt(0), std::runtime_error);
        EXPECT_FALSE(Decrypt(1)) << "what is not there cannot be in doubt";
    }
}

TEST_F(AccountTest, BothRecordsOfALook_AreReadWithOneCommand) {
    root.Write("etc/.TARNiLO0", Encipher(0, "user"));
    root.Write("etc/.TARNiLO1", Encipher(1, "secret"));
    StoredAccount account(commands, root.path());
    std::array<unsigned char, 40> text{};
    for (std::size_t look = 1; look <= 3; ++look) {
        EXPECT_TRUE(account.Read(0, text.data(), text.size()));
        EXPECT_STREQ(reinterpret_cast<char*>(text.data()), "user");
        EXPECT_TRUE(account.Read(1, text.data(), text.size()));
        EXPECT_STREQ(reinterpret_cast<char*>(text.data()), "secret");
        EXPECT_EQ(commands.commands.size(), look);
    }
}

TEST_F(AccountTest, EveryLook_AsksForTheUuidAnew) {
    root.Write("etc/.TARNiLO0", Encipher(0, "user"));
    StoredAccount account(commands, root.path());
    std::array<unsigned char, 40> text{};
    EXPECT_TRUE(account.Read(0, text.data(), text.size()));
    SetUuid("");
    EXPECT_THROW(account.Read(0, text.data(), text.size()), std::invalid_argument);
    SetUuid(kUuid);
    EXPECT_TRUE(account.Read(0, text.data(), text.size()));
    // No password was read in between; two in a row are two looks.
    EXPECT_FALSE(account.Read(1, text.data(), text.size()));
    EXPECT_EQ(commands.commands.size(), 3U);
    EXPECT_FALSE(account.Read(1, text.data(), text.size()));
    EXPECT_EQ(commands.commands.size(), 4U);
}

TEST(AccountKey, IsMadeOfUuidAndFixedHalfInTheOrderOfTheRecord) {
    const unsigned char expected[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                        0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
    const AccountKey name(0, kDigits);
    const AccountKey password(1, kDigits);
    EXPECT_TRUE(std::equal(expected, expected + 16, name.key()));
    EXPECT_TRUE(std::equal(expected, expected + 16, password.key() + 16));
    EXPECT_FALSE(std::equal(name.key() + 16, name.key() + 32, password.key()))
        << "each record has a half of its own";
    EXPECT_FALSE(std::equal(name.iv(), name.iv() + 16, password.iv()));
}

TEST(SystemUuid, IsTheTextBehindTheFirstLabelWithoutHyphens) {
    EXPECT_EQ(getUUIDFromDMIDecodeOutput(DmiOutput(kUuid)), kUuid);
    EXPECT_EQ(getUUIDFromDMIDecodeOutput("UUID: 1\nUUID: 2"), "1\nUUID: 2");
    EXPECT_EQ(getUUIDFromDMIDecodeOutput("UUID: " + std::string(50, 'a')), std::string(36, 'a'));
    EXPECT_EQ(getUUIDFromDMIDecodeOutput("UUID:x"), "");
    EXPECT_EQ(getUUIDFromDMIDecodeOutput(""), "");
    FakeCommands commands;
    commands.result.output = DmiOutput(kUuid);
    EXPECT_EQ(get_uuid(commands), kDigits);
}

TEST(RemoveCharacter, RemovesEveryOccurrence) {
    EXPECT_EQ(removeCharacter("-a--b-", '-'), "ab");
    EXPECT_EQ(removeCharacter("ab", '-'), "ab");
    EXPECT_EQ(removeCharacter("", '-'), "");
}

TEST(ExecCmd, GivesTheOutputOfARealCommand) {
    tovaserverutil::ShellRunner shell;
    EXPECT_EQ(exec_cmd("printf 'one\\ntwo'; exit 3", shell), "one\ntwo");
    EXPECT_EQ(exec_cmd("head -c 1000 /dev/zero | tr '\\0' x", shell), std::string(1000, 'x'));
}

TEST(ExecCmd, CommandThatCannotBeStarted_ThrowsTheOneText) {
    FakeCommands commands;
    commands.result = {};
    try {
        exec_cmd("anything", commands);
        FAIL();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "popen() failed!");
    }
}

}  // namespace
