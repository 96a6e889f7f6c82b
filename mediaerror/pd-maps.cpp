#include "pd-maps.h"

#include <algorithm>

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
}

void pd_addr_map::merge(int port, const pd_addr& record) {
    const LockGuard lock(m_lock);
    for (const auto& [number, drive] : record.m_drives) {
        m_records[port].m_drives[number] = drive;
    }
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
    m_eventTimes[serial] = time;
}

std::uint64_t pd_addr_map::find_trace_time(const std::string& serial) {
    const LockGuard lock(m_lock);
    return Find(m_traceTimes, serial);
}

void pd_addr_map::set_trace_time(const std::string& serial, std::uint64_t time) {
    const LockGuard lock(m_lock);
    m_traceTimes[serial] = time;
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
