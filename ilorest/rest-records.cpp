#include "rest-records.h"

Odataid Odataid::below(const std::string& name) const {
    const bool slash = !id.empty() && id.back() == '/';
    return {slash ? id + name : id + "/" + name};
}

std::string PLocation::text() const {
    const PartLocation2& part = PartLocation;
    if (!part.ServiceLabel.empty() || part.LocationType.empty()) {
        return part.ServiceLabel;
    }
    return part.LocationType + " " + std::to_string(part.LocationOrdinalValue);
}

std::string Trimmed(const std::string& text) {
    constexpr const char* kBlanks = " \t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}
