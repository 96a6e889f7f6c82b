#include "error-times.h"

#include <algorithm>
#include <functional>

namespace {

// Moves the `count` newest times to the front, the oldest of them last.
void NewestFirst(std::vector<std::uint64_t>& times, std::size_t count) {
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(count - 1), times.end(),
                     std::greater<>());
}

}  // namespace

void ErrorTimes::Add(std::uint64_t time) {
    if (m_times.size() == 2 * kKept) {  // half of them at once, so that adding stays cheap
        NewestFirst(m_times, kKept);
        m_times.resize(kKept);
    }
    m_times.push_back(time);
}

std::uint64_t ErrorTimes::Newest() const {
    return m_times.empty() ? 0 : *std::max_element(m_times.begin(), m_times.end());
}

std::optional<std::uint64_t> ErrorTimes::SpanOfNewest(std::size_t count) const {
    if (m_times.size() < count) {
        return std::nullopt;
    }
    std::vector<std::uint64_t> times = m_times;
    NewestFirst(times, count);
    return Newest() - times[count - 1];
}
