#include "pd-maps.h"

#include <algorithm>

#include "kept.h"

pd_addr_map m_PdAddrMap;
pd_report_map m_PdReportMap_Mr;

using tovaserverutil::LockGuard;

namespace {

// The value of the key; an empty one when the map does not hold it.
template <typename Key, typename Value>
Value Find(const std::map<Key, Value>& map, const Key& key) {
    const auto found = map.find(key);
    return found == map.end() ? Value{} : found->second;
}

// Drives that have been reported, of all reports together. Serial numbers that change from report to report
// must not fill the memory in the years that the service runs.
constexpr std::size_t kMaxRemembered = 16 * kMaxDrives;

// Records of ports, and drives in them, that are kept: room for a report whose status sections and error
// logs, kMaxDrives of each, are all of different ports.
constexpr std::size_t kMaxRecorded = 4 * kMaxDrives;

// When the memory is full, the oldest time in it makes room: a report is repeated then, and none held back.
template <typename Key>
void Remember(std::map<Key, std::uint64_t>& times, const Key& key, std::uint64_t time) {
    if (times.size() >= kMaxRemembered && times.count(key) == 0) {
        times.erase(std::min_element(times.begin(), times.end(), [](const auto& left, const auto& right) {
            return left.second < right.second;
        }));
    }
    times[key] = time;
}

}  // namespace

pd_addr::pd_addr() = default;
pd_addr::~pd_addr() = default;

void pd_addr::add(int number, int id, const std::string& serial, const std::string& location, int /*port*/,
                  int /*box*/, int /*bay*/, const std::vector<unsigned char>& /*bytes*/,
                  const std::string& /*text*/) {
    Drive drive;
    drive.id = id;
    drive.serial = serial;
    drive.location = location;
    m_drives[number] = std::move(drive);
}

int pd_addr::find_number(int id) const {
    const auto found = std::find_if(m_drives.begin(), m_drives.end(),
                                    [&](const auto& drive) { return drive.second.id == id; });
    return found == m_drives.end() ? 0 : found->first;
}

std::string pd_addr::location(int number) const {
    const auto found = m_drives.find(number);
    return found == m_drives.end() ? std::string() : found->second.location;
}

std::string pd_addr::serial(int number) const {
    const auto found = m_drives.find(number);
    return found == m_drives.end() ? std::string() : found->second.serial;
}

void pd_addr_map::insert(int port, pd_addr& record) {
    const LockGuard lock(m_lock);
    m_records[port] = record;
    MakeRoom(port);
}

void pd_addr_map::merge(int port, const pd_addr& record) {
    const LockGuard lock(m_lock);
    for (const auto& [number, drive] : record.m_drives) {
        m_records[port].m_drives[number] = drive;
    }
    MakeRoom(port);
}

void pd_addr_map::clear_map() {
    const LockGuard lock(m_lock);
    m_serials.clear();
    m_referenceTimes.clear();
    m_counts.clear();
}

int pd_addr_map::find_pd_id_from_crtl_id(int controller, int id) {
    const LockGuard lock(m_lock);
    const auto found = m_records.find(controller);
    return found == m_records.end() ? 0 : found->second.find_number(id);
}

std::string pd_addr_map::find_location(int port, int number) {
    const LockGuard lock(m_lock);
    const auto found = m_records.find(port);
    return found == m_records.end() ? std::string() : found->second.location(number);
}

void pd_addr_map::set_serial(const std::string& location, const std::string& serial) {
    const LockGuard lock(m_lock);
    m_serials[location] = serial;
}

std::string pd_addr_map::find_serial(const std::string& location) {
    const LockGuard lock(m_lock);
    return Find(m_serials, location);
}

void pd_addr_map::add_reference_time(int port, int number, const std::string& location, std::uint64_t time) {
    const LockGuard lock(m_lock);
    if (pd_addr::Drive* const drive = FindDrive(port, number)) {
        drive->times.Add(time);
    }
    m_referenceTimes[location].Add(time);
}

ErrorTimes pd_addr_map::find_reference_times(int port, int number) {
    const LockGuard lock(m_lock);
    const pd_addr::Drive* const drive = FindDrive(port, number);
    return drive == nullptr ? ErrorTimes() : drive->times;
}

ErrorTimes pd_addr_map::find_reference_times(const std::string& location) {
    const LockGuard lock(m_lock);
    return Find(m_referenceTimes, location);
}

void pd_addr_map::set_intermittent(int port, int number) {
    const LockGuard lock(m_lock);
    if (pd_addr::Drive* const drive = FindDrive(port, number)) {
        drive->intermittent = 1;
    }
}

bool pd_addr_map::is_intermittent(int port, int number) {
    const LockGuard lock(m_lock);
    const pd_addr::Drive* const drive = FindDrive(port, number);
    return drive != nullptr && drive->intermittent != 0;
}

void pd_addr_map::add_media_error_num_by_location(std::string location, std::uint64_t count) {
    m_counts[std::move(location)] = count;
}

std::uint64_t pd_addr_map::find_media_error_num(const std::string& location) {
    const LockGuard lock(m_lock);
    return Find(m_counts, location);
}

std::uint64_t pd_addr_map::find_event_time(const std::string& serial) {
    const LockGuard lock(m_lock);
    return Find(m_eventTimes, serial);
}

void pd_addr_map::set_event_time(const std::string& serial, std::uint64_t time) {
    const LockGuard lock(m_lock);
    Remember(m_eventTimes, serial, time);
}

std::uint64_t pd_addr_map::find_trace_time(const std::string& serial) {
    const LockGuard lock(m_lock);
    return Find(m_traceTimes, serial);
}

void pd_addr_map::set_trace_time(const std::string& serial, std::uint64_t time) {
    const LockGuard lock(m_lock);
    Remember(m_traceTimes, serial, time);
}

void pd_addr_map::MakeRoom(int port) {
    std::size_t recorded = 0;
    for (const auto& [other, record] : m_records) {
        recorded += 1 + record.m_drives.size();
    }
    // Real ports have the lowest numbers.
    for (auto last = m_records.end(); recorded > kMaxRecorded && last != m_records.begin();) {
        --last;
        if (last->first != port) {
            recorded -= 1 + last->second.m_drives.size();
            last = m_records.erase(last);
        }
    }
}

pd_addr::Drive* pd_addr_map::FindDrive(int port, int number) {
    const auto record = m_records.find(port);
    if (record == m_records.end()) {
        return nullptr;
    }
    const auto drive = record->second.m_drives.find(number);
    return drive == record->second.m_drives.end() ? nullptr : &drive->second;
}

std::uint64_t pd_report_map::find_event_time(int key) const {
    return Find(m_eventTimes, key);
}

std::uint64_t pd_report_map::find_trace_time(int key) const {
    return Find(m_traceTimes, key);
}

void pd_report_map::set_event_time(int key, std::uint64_t time) {
    Remember(m_eventTimes, key, time);
}

void pd_report_map::set_trace_time(int key, std::uint64_t time) {
    Remember(m_traceTimes, key, time);
}
