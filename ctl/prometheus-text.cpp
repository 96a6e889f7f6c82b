#include "prometheus-text.h"

namespace {

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '\\':
                escaped += "\\\\";
                break;
            case '"':
                escaped += "\\\"";
                break;
            case '\n':
                escaped += "\\n";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

}  // namespace

Metric::Metric(std::string name, const std::string& help)
    : m_name(std::move(name)), m_head("# HELP " + m_name + " " + help + "\n# TYPE " + m_name + " gauge\n") {}

void Metric::Add(const Labels& labels, const std::string& value) {
    m_samples += m_name;
    for (const auto& [name, text] : labels) {
        m_samples +=
            (name == labels.front().first ? "{" : ",") + std::string(name) + "=\"" + Escaped(text) + "\"";
    }
    m_samples += (labels.empty() ? " " : "} ") + value + "\n";
}
