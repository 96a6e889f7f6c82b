// A root folder of its own for tests of the account files.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "fake-commands.h"
#include "ilo-account.h"
#include "test-root.h"

inline constexpr const char* kUuid = "00112233445566778899aabbccddeeff";

class AccountRoot : public testing::Test {
protected:
    AccountRoot() {
        std::filesystem::create_directories(root / "etc");
        std::filesystem::create_directories(root / "run");
        commands.result.output = "UUID: 00112233-4455-6677-8899-aabbccddeeff\n";
    }

    // As the service reads it; empty when it cannot.
    std::string Record(int record) {
        std::string text(kMaxAccountText, 'x');
        const bool done = DecryptAccount(record, reinterpret_cast<unsigned char*>(text.data()), text.size(),
                                         commands, root.path());
        return done ? std::string(text.c_str()) : std::string();
    }
    std::size_t FilesInEtc() const {
        const std::filesystem::directory_iterator files(root / "etc");
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    TestRoot root;
    FakeCommands commands;
};
