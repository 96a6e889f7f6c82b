// Ownership of one file descriptor.
#pragma once

#include <utility>

namespace tovaserverutil {

// Closes its descriptor on destruction. Movable, not copyable; -1 means none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(std::exchange(other.m_descriptor, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return m_descriptor; }
    bool valid() const { return m_descriptor >= 0; }
    // Closes the descriptor held and takes the given one.
    void reset(int descriptor = -1);

private:
    int m_descriptor = -1;
};

}  // namespace tovaserverutil
