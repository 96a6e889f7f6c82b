// Telling a person that a long read goes on.
#pragma once

#include <mutex>
#include <string>

// One line on a terminal, rewritten in place and cleared at the end. For any thread.
class Progress {
public:
    // The terminal's descriptor, borrowed; -1 for none, then nothing is shown.
    explicit Progress(int descriptor) : m_descriptor(descriptor) {}
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(unsigned resources);
    void Clear();

private:
    void Write(const std::string& text) const;

    int m_descriptor;
    std::mutex m_lock;  // for what follows, and what the terminal shows
    std::string m_shown;
};
