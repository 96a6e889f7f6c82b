// A temporary file root for one test.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

// A fresh folder that stands for "/" and goes away with the object.
class TestRoot {
public:
    TestRoot() {
        std::string name = (std::filesystem::temp_directory_path() / "bayward-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        m_path = name;
    }
    ~TestRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TestRoot(const TestRoot&) = delete;
    TestRoot& operator=(const TestRoot&) = delete;

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& below) const { return m_path + "/" + below; }

    // Makes the folders above it as needed; `below` may start with "/".
    void Write(const std::string& below, const std::string& content) const {
        const std::string file = m_path + "/" + below;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << content;
    }
    // Empty when there is no such file.
    std::string Read(const std::string& below) const {
        std::ifstream in(m_path + "/" + below, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::string m_path;
};
