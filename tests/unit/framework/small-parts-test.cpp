#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>

#include "clock.h"
#include "file-descriptor.h"
#include "secret.h"
#include "server-util.h"
#include "test-io.h"

namespace {

using tovabase::TOVAExcpt;
using tovaserverutil::FileDescriptor;

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

int OpenNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST(TOVAExcpt, Text_IsFormattedAndCutAt1023Characters) {
    EXPECT_STREQ(TOVAExcpt(15, "%s %d", "a", 2).text(), "a 2");
    EXPECT_EQ(TOVAExcpt(15, "%s", "").code(), 15);
    const std::string longText(5000, 'x');
    EXPECT_EQ(std::string(TOVAExcpt(1, "%s", longText.c_str()).text()), std::string(1023, 'x'));
}

TEST(TOVAExcpt, Type_IsNoStandardException) {
    EXPECT_FALSE((std::is_base_of_v<std::exception, TOVAExcpt>));
}

TEST(ThrowSystemError, Text_NamesUnitLineAndError) {
    int code = 0;
    EXPECT_EQ(FailureText([] { tovabase::ThrowSystemError("unit", 12, 5); }, &code), "unit 12 (Err: 5)");
    EXPECT_EQ(code, 0x10001);
}

TEST(FileDescriptor, ScopeEnd_Closes) {
    const int descriptor = OpenNull();
    {
        const FileDescriptor owner(descriptor);
        EXPECT_TRUE(owner.valid());
        EXPECT_EQ(owner.get(), descriptor);
    }
    EXPECT_FALSE(IsOpen(descriptor));
}

TEST(FileDescriptor, Move_HandsTheDescriptorOn) {
    FileDescriptor first(OpenNull());
    const int kept = first.get();
    FileDescriptor second(std::move(first));
    EXPECT_FALSE(
        first.valid());  // NOLINT(bugprone-use-after-move): what a move leaves is part of the contract
    EXPECT_EQ(second.get(), kept);
    FileDescriptor third(OpenNull());
    const int replaced = third.get();
    third = std::move(second);
    EXPECT_FALSE(IsOpen(replaced));
    EXPECT_EQ(third.get(), kept);
    EXPECT_TRUE(IsOpen(kept));
}

TEST(FileDescriptor, Reset_ClosesTheOldOne) {
    FileDescriptor owner(OpenNull());
    const int old = owner.get();
    owner.reset();
    EXPECT_FALSE(owner.valid());
    EXPECT_FALSE(IsOpen(old));
    owner.reset();
}

TEST(Wipe, Memory_IsZeroed) {
    char secret[] = "password";
    tovaserverutil::Wipe(secret, sizeof secret);
    EXPECT_TRUE(std::all_of(std::begin(secret), std::end(secret), [](char c) { return c == '\0'; }));
}

TEST(Wipe, ShortString_IsZeroedInPlaceAndEmptied) {
    std::string text = "secret";  // lies in the object itself, so its bytes can be looked at afterwards
    tovaserverutil::Wipe(text);
    EXPECT_TRUE(text.empty());
    const char* const object = reinterpret_cast<const char*>(&text);
    EXPECT_EQ(std::string_view(object, sizeof text).find("secr"), std::string_view::npos);
    EXPECT_EQ(std::string_view(object, sizeof text).find("ecret"), std::string_view::npos);
}

TEST(Wipe, LongString_KeepsItsStorageZeroed) {
    std::string text(1000, 's');
    text.resize(10);
    const char* const memory = text.data();
    const std::size_t capacity = text.capacity();
    tovaserverutil::Wipe(text);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.data(), memory);  // wiped where it lay, not in a copy
    EXPECT_EQ(text.capacity(), capacity);
    text.append(1000, 'n');
    EXPECT_EQ(text, std::string(1000, 'n'));
}

TEST(Wipe, EmptyString_StaysEmpty) {
    std::string text;
    tovaserverutil::Wipe(text);
    EXPECT_TRUE(text.empty());
}

TEST(WipeOnExit, ScopeEnd_EmptiesTheString) {
    std::string text = "password that does not fit the small buffer";
    {
        const tovaserverutil::WipeOnExit wipe(text);
        EXPECT_FALSE(text.empty());
    }
    EXPECT_TRUE(text.empty());
}

TEST(Clock, Now_NeverGoesBack) {
    const tovaserverutil::Clock clock;
    const auto first = clock.Now();
    EXPECT_GE(clock.Now(), first);
}

}  // namespace
