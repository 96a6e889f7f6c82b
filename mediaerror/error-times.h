// The times of one drive's medium errors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// Times in the order in which they were found. Only the newest ones decide anything, so an endless log loses
// its oldest times (by value), and the order with them: memory stays bounded. Used by one thread at a time.
class ErrorTimes {
public:
    static constexpr std::size_t kKept = 1024;  // the newest times that are certain to be held

    void Add(std::uint64_t time);
    bool Empty() const { return m_times.empty(); }
    std::size_t Size() const { return m_times.size(); }
    // What is held; at most twice kKept.
    const std::vector<std::uint64_t>& Times() const { return m_times; }
    // The newest time by value; 0 when there is none.
    std::uint64_t Newest() const;
    // The newest time minus the `count`-th newest; nothing when fewer than `count` times are held. `count` is
    // at least 1 and at most kKept.
    std::optional<std::uint64_t> SpanOfNewest(std::size_t count) const;

private:
    std::vector<std::uint64_t> m_times;
};
