// One event to report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tovaevent {

// The identifiers in use. The top two bits are the severity (11 error, 10 warning, 01 information), bit 15 is
// set on every reportable identifier, the low 14 bits are the message number that the trace log shows.
inline constexpr std::uint32_t kDriveFailed = 0xC0008151;
inline constexpr std::uint32_t kDrivePredictiveFailure = 0x80008152;
inline constexpr std::uint32_t kDriveFatal = 0xC0008153;
inline constexpr std::uint32_t kMediumErrors = 0x80008159;
inline constexpr std::uint32_t kDriveWear80 =
    0x8000815B;  // the wear levels: percent of an SSD's rated life used
inline constexpr std::uint32_t kDriveWear90 = 0x80008154;
inline constexpr std::uint32_t kDriveWear95 = 0xC0008155;
inline constexpr std::uint32_t kLogicalDriveOffline = 0xC00081B7;
inline constexpr std::uint32_t kLogicalDriveFailed = 0xC00081B9;
inline constexpr std::uint32_t kLogicalDriveRebuildFailed = 0xC00081BA;
inline constexpr std::uint32_t kLogicalDriveCritical = 0x800081BB;
inline constexpr std::uint32_t kLoginFailed = 0xC00081D1;

// An event identifier (low 32 bits) and its parameter texts, in the order that the event's producer defines.
class EvtData {
public:
    EvtData() = default;
    explicit EvtData(std::uint32_t id) : m_id(id) {}

    void SetId(std::uint32_t id) { m_id = id; }
    std::uint32_t Id() const { return static_cast<std::uint32_t>(m_id); }
    void AddParameter(std::string text) {
        // Most events have as many. Growing to it one by one takes longer than all else.
        constexpr std::size_t kUsual = 3;
        m_parameters.reserve(kUsual);
        m_parameters.push_back(std::move(text));
    }
    const std::vector<std::string>& Parameters() const { return m_parameters; }

private:
    std::uint64_t m_id = 0;
    std::vector<std::string> m_parameters;
};

}  // namespace tovaevent
