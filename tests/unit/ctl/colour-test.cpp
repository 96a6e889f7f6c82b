#include "colour.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// A pseudo-terminal and the two variables that matter, restored at the end.
class ColourTest : public testing::Test {
protected:
    ColourTest() {
        EXPECT_EQ(openpty(&m_master, &terminal, nullptr, nullptr, nullptr), 0);
        setenv("TERM", "xterm", 1);
        unsetenv("NO_COLOR");
    }
    ~ColourTest() override {
        close(m_master);
        close(terminal);
        for (const auto& [name, before] : m_before) {
            before.empty() ? unsetenv(name) : setenv(name, before.c_str(), 1);
        }
    }

    int terminal = -1;

private:
    static std::string Before(const char* name) {
        const char* const value = std::getenv(name);
        return value == nullptr ? "" : value;
    }
    int m_master = -1;
    std::pair<const char*, std::string> m_before[2] = {{"TERM", Before("TERM")},
                                                       {"NO_COLOR", Before("NO_COLOR")}};
};

TEST_F(ColourTest, Terminal_WantsColour) {
    EXPECT_TRUE(WantsColour(terminal));
}

TEST_F(ColourTest, Pipe_DoesNot) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_FALSE(WantsColour(ends[1]));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ColourTest, NoColor_WinsUnlessItIsEmpty) {
    setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(WantsColour(terminal));
    setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(WantsColour(terminal));
}

TEST_F(ColourTest, TerminalWithoutColours_DoesNot) {
    setenv("TERM", "dumb", 1);
    EXPECT_FALSE(WantsColour(terminal));
    unsetenv("TERM");
    EXPECT_FALSE(WantsColour(terminal));
}

TEST(Paint, Off_HandsTextsBack) {
    EXPECT_EQ(Paint(false).Red("failed"), "failed");
}

TEST(Paint, On_WrapsTextsButNotEmptyOnes) {
    const Paint paint(true);
    EXPECT_EQ(paint.Red("failed"), "\033[31mfailed\033[0m");
    EXPECT_EQ(paint.Green("ok"), "\033[32mok\033[0m");
    EXPECT_EQ(paint.Yellow(""), "");
}

}  // namespace
