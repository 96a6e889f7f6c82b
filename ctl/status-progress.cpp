#include "status-progress.h"

#include <unistd.h>

void Progress::Show(unsigned resources) {
    if (m_descriptor < 0) {
        return;
    }
    const std::lock_guard lock(m_lock);
    m_shown = "Reading the controller: " + std::to_string(resources) + " resources";
    Write("\r" + m_shown);
}

void Progress::Clear() {
    const std::lock_guard lock(m_lock);
    if (!m_shown.empty()) {
        Write("\r" + std::string(m_shown.size(), ' ') + "\r");
        m_shown.clear();
    }
}

// A terminal that is gone is not missed.
void Progress::Write(const std::string& text) const {
    [[maybe_unused]] const ssize_t wrote = write(m_descriptor, text.data(), text.size());
}
