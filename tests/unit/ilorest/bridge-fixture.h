// What the bridge's tests share: a helper module made for one test, and the text that a call throws.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ilorest-helper.h"
#include "test-root.h"

// A "baywardilorest.py" in a folder of its own. Every function answers 200 unless told otherwise and notes
// its call.
class FakeModule {
public:
    FakeModule() {
        for (const char* name :
             {"init", "get", "is_ip_assigned", "get_vnic", "get_v1", "get_prodgen", "close"}) {
            m_functions[name] = Function(name, "return 200");
        }
    }

    std::string folder() const { return m_root.path(); }

    // The function's body, which sees the tuple `arguments` and the number of calls so far, `calls` (1 for
    // the first).
    FakeModule& Does(const std::string& name, const std::string& body) {
        m_functions[name] = Function(name, body);
        return *this;
    }
    FakeModule& Answers(const std::string& name, const std::string& expression) {
        return Does(name, "return " + expression);
    }
    FakeModule& Lacks(const std::string& name) {
        m_functions.erase(name);
        return *this;
    }
    // Text at the module's top, run when it is imported.
    FakeModule& Top(const std::string& text) {
        m_top += text + "\n";
        return *this;
    }

    // Writes the file; the folder is empty before.
    FakeModule& Install() {
        std::string text =
            "import os\n"
            "_calls = {}\n"
            "def _note(*words):\n"
            "    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'calls')\n"
            "    with open(path, 'a', encoding='utf-8') as file:\n"
            "        file.write(' '.join(words) + '\\n')\n"
            "    _calls[words[0]] = _calls.get(words[0], 0) + 1\n"
            "    return _calls[words[0]]\n" +
            m_top;
        for (const auto& function : m_functions) {
            text += function.second;
        }
        InstallText(text);
        return *this;
    }
    void InstallText(const std::string& text) { m_root.Write("baywardilorest.py", text); }
    void Uninstall() { std::filesystem::remove(m_root / "baywardilorest.py"); }
    void AddFile(const std::string& below, const std::string& text) { m_root.Write(below, text); }
    bool HasFile(const std::string& below) const { return std::filesystem::exists(m_root / below); }

    // The calls so far, "name argument argument ...".
    std::vector<std::string> Calls() const {
        std::istringstream lines(m_root.Read("calls"));
        std::vector<std::string> calls;
        for (std::string line; std::getline(lines, line);) {
            calls.push_back(line);
        }
        return calls;
    }

private:
    static std::string Function(const std::string& name, const std::string& body) {
        std::string indented;
        std::istringstream lines(body);
        for (std::string line; std::getline(lines, line);) {
            indented += "    " + line + "\n";
        }
        return "def " + name + "(*arguments):\n    calls = _note('" + name + "', *arguments)\n" + indented;
    }

    TestRoot m_root;
    std::string m_top;
    std::map<std::string, std::string> m_functions;
};

// What a call threw: a text in the object's buffer (char*), a literal (const char*), or nothing.
struct Thrown {
    enum Kind { kNothing, kBuffer, kLiteral } kind = kNothing;
    std::string text;
};

template <typename Action>
Thrown TextThrownBy(Action action) {
    // Nested, because clang 14 takes the two handlers for one.
    try {
        try {
            action();
        } catch (char* text) {
            return {Thrown::kBuffer, text};
        }
    } catch (const char* text) {
        return {Thrown::kLiteral, text};
    }
    return {};
}

inline const char* const kRefusedResult =
    "value=InvalidCredentialsError, SecurityStateError, HpIloInitialError";
inline const char* const kOtherResult = "value=etc error";
inline const char* const kNotFound = "Python Function Not found.";

// `rest` follows the unit's name and the line number, as in "ilorest-helper 123 rest".
inline void ExpectUnitLine(const std::string& text, const std::string& rest) {
    const std::string unit = "ilorest-helper ";
    ASSERT_EQ(text.substr(0, unit.size()), unit) << text;
    const std::size_t digits = text.find_first_not_of("0123456789", unit.size());
    ASSERT_NE(digits, unit.size()) << text;
    ASSERT_NE(digits, std::string::npos) << text;
    EXPECT_EQ(text.substr(digits), " " + rest);
}
inline void ExpectFailure(const Thrown& thrown, const std::string& rest) {
    ASSERT_EQ(thrown.kind, Thrown::kBuffer) << thrown.text;
    ExpectUnitLine(thrown.text, rest);
}
inline void ExpectLiteral(const Thrown& thrown, const std::string& text) {
    EXPECT_EQ(thrown.kind, Thrown::kLiteral);
    EXPECT_EQ(thrown.text, text);
}

// A bridge to a fake module, with a trace log. Nothing may reach the terminal and no Python error may stay
// behind.
class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override;

    // Installs the module and opens a session to it.
    void Open(std::uint32_t retryCount = 3) {
        m_module.Install();
        m_bridge.init("https://bmc", "admin", "secret", retryCount, 1);
    }
    // The texts of the trace lines so far, without their stamps.
    std::vector<std::string> TraceLines() const;
    void ExpectOneErrorLine() const;

    using Calls = std::vector<std::string>;

    FakeModule m_module;
    TestRoot m_logFolder;
    tovaserverutil::TraceLog m_log{m_logFolder / "trace.log", 1 << 20, true};
    iLoRestHelper m_bridge{m_module.folder()};
};
