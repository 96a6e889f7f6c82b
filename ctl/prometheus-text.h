// Metrics in the Prometheus text format.
#pragma once

#include <string>
#include <utility>
#include <vector>

// One gauge: its samples stand together below its description.
class Metric {
public:
    using Labels = std::vector<std::pair<const char*, std::string>>;

    Metric(std::string name, const std::string& help);

    // The labels' texts may hold anything.
    void Add(const Labels& labels, const std::string& value);
    // Empty without samples.
    std::string Text() const { return m_samples.empty() ? std::string() : m_head + m_samples; }

private:
    std::string m_name;
    std::string m_head;
    std::string m_samples;
};
