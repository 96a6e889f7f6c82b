#include "account-text.h"

#include <gtest/gtest.h>

#include "ctl-error.h"

namespace {

TEST(AccountText, AcceptsOneToFortyBytesOfUtf8WithoutControlCharacters) {
    for (const std::string& text :
         {std::string("a"), std::string(40, 'x'), std::string("with blank"), std::string("\xC2\xA0"),
          std::string("\xE3\x82\xAB"), std::string("\xF0\x9F\x94\x92"), std::string("\xF4\x8F\xBF\xBF")}) {
        EXPECT_NO_THROW(CheckAccountText("account", text)) << text;
        EXPECT_TRUE(IsAccountText(text)) << text;
    }
}

TEST(AccountText, RefusesEverythingElseWithoutShowingIt) {
    for (const std::string& text : {std::string(),
                                    std::string(41, 'x'),
                                    std::string("a\nb"),
                                    std::string("tab\t"),
                                    std::string("a\0b", 3),
                                    std::string("\x7F"),
                                    std::string("\xC2\x85"),
                                    std::string("\xC2\x9F"),
                                    std::string("\xFF"),
                                    std::string("\x80"),
                                    std::string("\xC3"),
                                    std::string("\xC3("),
                                    std::string("\xC0\x80"),
                                    std::string("\xC1\xBF"),
                                    std::string("\xE0\x80\xAF"),
                                    std::string("\xED\xA0\x80"),
                                    std::string("\xF0\x80\x80\x80"),
                                    std::string("\xF4\x90\x80\x80"),
                                    std::string("\xF8\x88\x80\x80\x80"),
                                    std::string("\xE3\x82")}) {
        EXPECT_FALSE(IsAccountText(text)) << text;
        try {
            CheckAccountText("password", text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const UsageError& failure) {
            const std::string sentence = failure.what();
            EXPECT_EQ(sentence.rfind("The password ", 0), 0U);
            EXPECT_EQ(sentence.find('\n'), std::string::npos);
            if (text.size() > 2) {
                EXPECT_EQ(sentence.find(text), std::string::npos);
            }
        }
    }
}

TEST(Printable, ReplacesControlCharactersAndWhatIsNoUtf8) {
    EXPECT_EQ(Printable("m\xC3\xBCller \xE3\x82\xAB"), "m\xC3\xBCller \xE3\x82\xAB");
    EXPECT_EQ(Printable("\x1B[2J\n\x7F"), "?[2J??");
    EXPECT_EQ(Printable("\xC2\x9B\x9B\xC3"), "???");
    EXPECT_EQ(Printable(std::string("a\0b", 3)), "a?b");
    EXPECT_EQ(Printable(""), "");
}

}  // namespace
