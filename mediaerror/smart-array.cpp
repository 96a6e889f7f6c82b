#include "smart-array.h"

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "adu-report.h"
#include "kept.h"
#include "medium-error-event.h"
#include "working-files.h"

using tovaserverutil::CommandResult;

namespace {

constexpr const char* kTestReport = "KMT_ADUReport_test/KMT_ADUReport_test.txt";
constexpr const char* kReportName = "ADUReport.txt";  // in the archive

// A drive fails repeatedly when its newest 19 errors lie within seven days, less one minute.
constexpr std::size_t kNewest = 19;
constexpr std::uint64_t kWithin = 10079;  // minutes, the unit of the report's reference times

// Null when there is no report.
std::unique_ptr<LineSource> Open(tovaserverutil::CommandRunner& runner) {
    if (auto lines = FileLines::OpenFirst({kTestReport})) {
        return lines;
    }
    // What unzip got out of a damaged archive, or onto a full disk, is worth reading. Without an archive, or
    // without unzip, there is nothing, or the report of an earlier run of the service.
    constexpr int kNoArchive = 9;
    constexpr int kNotRun = 126;  // and above: the shell's own
    const CommandResult result =
        runner.Execute(std::string("unzip -o \"") + kReportArchive + "\" -d \"" + kReportFolder + "\"",
                       tovaserverutil::kListingDeadline);
    const bool unpacked = result.started && !result.timedOut && result.exitStatus >= 0 &&
                          result.exitStatus != kNoArchive && result.exitStatus < kNotRun;
    return unpacked ? FileLines::OpenFirst({std::string(kReportFolder) + "/" + kReportName}) : nullptr;
}

// Enters the records of one report into the drive map, those of kMaxDrives drives at most.
class DriveFacts {
public:
    DriveFacts(pd_addr_map& drives, const MediumErrorReporter& report) : m_drives(drives), m_report(report) {}

    void Take(const AduDrive& drive) {
        if (m_statuses == kMaxDrives) {
            return;
        }
        ++m_statuses;
        m_known[{drive.controller, drive.location}] = {drive.serial, false};
        Start(drive, drive.serial);
        m_drives.set_serial(drive.location, drive.serial);
    }

    void Take(const AduErrorLog& log) {
        // Another controller may have a drive in the same place.
        const std::pair key(log.controller, log.location);
        if (m_known.size() >= kMaxDrives && m_known.count(key) == 0) {
            return;
        }
        Known& drive = m_known[key];
        m_drives.set_serial(log.location, drive.serial);
        if (!drive.logged) {
            // Afresh, so that nothing is left from the report before, and nothing from a drive that has the
            // same port and number on another controller.
            Start(log, drive.serial);
            drive.logged = true;
        }
        for (const std::uint64_t time : log.times.Times()) {
            m_drives.add_reference_time(log.port, log.number, log.location, time);
        }
        const auto span = m_drives.find_reference_times(log.port, log.number).SpanOfNewest(kNewest);
        if (span && *span <= kWithin) {
            m_drives.set_intermittent(log.port, log.number);
        }
        m_drives.add_media_error_num_by_location(log.location, log.count);
        if (log.count != 0) {
            constexpr std::uint64_t kMaxCount = std::numeric_limits<int>::max();
            m_report(tovaevent::EvtData(), log.port, log.number, log.location,
                     static_cast<std::uint32_t>(log.times.Newest()), log.title,
                     static_cast<int>(std::min(log.count, kMaxCount)));
        }
    }

private:
    // What the report has told of a drive so far.
    struct Known {
        std::string serial;
        bool logged = false;  // an error log of it has been seen
    };

    // The first drive of a port replaces what the map held of that port; the other ones join it.
    template <typename Record>
    void Start(const Record& drive, const std::string& serial) {
        pd_addr record;
        record.add(drive.number, 0, serial, drive.location, drive.port, drive.box, drive.bay);
        if (m_ports.insert(drive.port).second) {
            m_drives.insert(drive.port, record);
        } else {
            m_drives.merge(drive.port, record);
        }
    }

    pd_addr_map& m_drives;
    const MediumErrorReporter& m_report;
    std::size_t m_statuses = 0;                                    // status sections taken
    std::set<int> m_ports;                                         // in this report
    std::map<std::pair<std::string, std::string>, Known> m_known;  // by controller and location
};

}  // namespace

void SearchSmartArrays(tovaserverutil::CommandRunner& runner, pd_addr_map& drives,
                       const MediumErrorReporter& report) {
    if (auto lines = Open(runner)) {
        drives.clear_map();
        DriveFacts facts(drives, report);
        ReadAduReport(*lines, {[&](const AduDrive& drive) { facts.Take(drive); },
                               [&](const AduErrorLog& log) { facts.Take(log); }});
    }
    RemoveWorkingFile(runner, kReportFolder);
    RemoveWorkingFile(runner, kReportArchive);
}

void check_serialLog() {
    tovaserverutil::ShellRunner runner;
    SearchSmartArrays(runner, m_PdAddrMap, MediumErrorEventRoutine);
}
