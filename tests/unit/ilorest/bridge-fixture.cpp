#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include "bridge-fixture.h"

void BridgeTest::TearDown() {
    if (m_bridge.isPyInitialized()) {
        EXPECT_EQ(PyErr_Occurred(), nullptr);
    }
    m_bridge.finalize();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

std::vector<std::string> BridgeTest::TraceLines() const {
    constexpr std::size_t kStamp = sizeof "2024/01/31 23:59:59.999" - 1;
    std::istringstream text(m_logFolder.Read("trace.log"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        const std::size_t start = line.find('<', kStamp);
        lines.push_back(start == std::string::npos ? line : line.substr(start));
    }
    return lines;
}

void BridgeTest::ExpectOneErrorLine() const {
    const std::vector<std::string> lines = TraceLines();
    ASSERT_EQ(lines.size(), 1U);
    const std::string tag = "<VK0888> [TR] ";
    ASSERT_EQ(lines[0].substr(0, tag.size()), tag);
    ExpectUnitLine(lines[0].substr(tag.size()), "PyErr_Occurred clear");
}
