// What the medium-error search knows about physical drives, and what it remembers of its reports.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "error-times.h"
#include "server-util.h"

// The drives of one port (of one controller for MegaRAID drives), by the drive's number within its report
// section, from 1.
class pd_addr {
public:
    pd_addr();
    ~pd_addr();
    pd_addr(const pd_addr&) = default;
    pd_addr& operator=(const pd_addr&) = default;

    // Adds a drive or starts it afresh: without intermittent mark and without reference times. `id` is the
    // drive's device id (MegaRAID; else 0). Port, box, bay and the last two belong to the interface and are
    // not kept: the location tells the place.
    void add(int number, int id, const std::string& serial, const std::string& location, int port, int box,
             int bay, const std::vector<unsigned char>& bytes = {}, const std::string& text = {});

    // The number of the drive with the id; 0 when there is none.
    int find_number(int id) const;
    // The drive's location text; empty when there is no such drive.
    std::string location(int number) const;
    // Its serial number; empty when there is no such drive, or when it does not tell one.
    std::string serial(int number) const;

private:
    friend class pd_addr_map;

    struct Drive {
        int id = 0;
        std::string serial;
        std::string location;
        unsigned char intermittent = 0;
        ErrorTimes times;
    };

    std::map<int, Drive> m_drives;
};

// The drives of all ports, the facts of the latest report by location, and the reporting memory by serial
// number. Every operation takes the lock by itself and throws TOVAExcpt when that fails; times are seconds
// since the epoch, 0 means never.
class pd_addr_map {
public:
    // Creates or replaces the record of the port. When there are more drives than reports may have, records
    // of other ports are removed, highest port first; merge() does so too.
    void insert(int port, pd_addr& record);
    // Adds the drives of the record to those of the port; a drive of the same number is replaced.
    void merge(int port, const pd_addr& record);
    // Empties what each report rebuilds: serial numbers, reference times and counts by location. Drive
    // records and reporting memory stay.
    void clear_map();

    // The drive number that the record of the controller keeps for the device id; 0 when there is none.
    int find_pd_id_from_crtl_id(int controller, int id);
    // The location text of a drive; empty when it is not known.
    std::string find_location(int port, int number);

    void set_serial(const std::string& location, const std::string& serial);
    // Empty when the location is not known.
    std::string find_serial(const std::string& location);

    // Adds the time of one error to the drive and to the location. Does nothing for the drive when it is not
    // known.
    void add_reference_time(int port, int number, const std::string& location, std::uint64_t time);
    // The drive's reference times; none when it is not known.
    ErrorTimes find_reference_times(int port, int number);
    // Those of the location in the latest report, of all drives that stand there; none when it is not known.
    ErrorTimes find_reference_times(const std::string& location);
    // Marks the drive as failing repeatedly. Does nothing when it is not known.
    void set_intermittent(int port, int number);
    bool is_intermittent(int port, int number);

    // Deliberately without the lock: only the media-error thread calls it.
    void add_media_error_num_by_location(std::string location, std::uint64_t count);
    // The count of the latest report; 0 when the location is not known.
    std::uint64_t find_media_error_num(const std::string& location);

    // The memory holds many times what a server has; when it is full, the oldest times are forgotten.
    std::uint64_t find_event_time(const std::string& serial);
    void set_event_time(const std::string& serial, std::uint64_t time);
    std::uint64_t find_trace_time(const std::string& serial);
    void set_trace_time(const std::string& serial, std::uint64_t time);

private:
    // Removes records of other ports while there are too many drives. The caller holds the lock.
    void MakeRoom(int port);
    // Null when there is no such drive. The caller holds the lock.
    pd_addr::Drive* FindDrive(int port, int number);

    tovaserverutil::Mutex m_lock;
    std::map<int, pd_addr> m_records;
    std::map<std::string, std::string> m_serials;
    std::map<std::string, ErrorTimes> m_referenceTimes;
    std::map<std::string, std::uint64_t> m_counts;
    std::map<std::string, std::uint64_t> m_eventTimes;
    std::map<std::string, std::uint64_t> m_traceTimes;
};

// The reporting memory of MegaRAID drives, by controller number × 65536 + device id, so that equal ids on two
// controllers do not share one memory. Times are seconds since the epoch, 0 means never. Used by the
// media-error thread alone. When it is full, the oldest times are forgotten.
class pd_report_map {
public:
    static int key(unsigned int controller, unsigned int device_id) {
        return static_cast<int>(controller * 65536u + device_id);
    }

    std::uint64_t find_event_time(int key) const;
    void set_event_time(int key, std::uint64_t time);
    std::uint64_t find_trace_time(int key) const;
    void set_trace_time(int key, std::uint64_t time);

private:
    std::map<int, std::uint64_t> m_eventTimes;
    std::map<int, std::uint64_t> m_traceTimes;
};

// The process-wide memory; lives as long as the process and starts empty.
extern pd_addr_map m_PdAddrMap;
extern pd_report_map m_PdReportMap_Mr;
