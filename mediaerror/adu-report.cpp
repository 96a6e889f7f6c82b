#include "adu-report.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "adu-heading.h"
#include "kept.h"
#include "text.h"

namespace {

using tovaserverutil::Contains;
using tovaserverutil::WithoutLeadingBlanks;

constexpr std::string_view kStatusSection = " : Physical Drive Status";
constexpr std::string_view kErrorLogSection = ": Serial SCSI Physical Drive Error Log";
constexpr std::string_view kReport = "Report for ";

class Report {
public:
    explicit Report(const AduSink& sink) : m_sink(sink) {}

    void Take(std::string_view line) {
        // Most lines are none of these.
        if (Contains(line, ":")) {
            if (TakeHeading(line)) {
                return;
            }
        } else if (m_kind != Kind::kNone) {
            const std::string_view text = WithoutLeadingBlanks(line);
            if (text.starts_with(kReport)) {
                EndSection();
                return;
            }
            if (text.starts_with(kDriveWithKind) && TakeDrive(text)) {
                return;
            }
        }
        if (m_status) {
            m_status->Take(line);
        } else if (m_errorLog) {
            m_errorLog->Take(line);
        }
    }

    // Does no line matter but a heading?
    bool WaitsForHeading() const { return m_kind == Kind::kNone; }

    // The end of a drive's section, also at the end of the report.
    void EndDrive() {
        if (m_status) {
            auto drive = m_status->End();
            m_status.reset();
            if (drive) {
                drive->controller = m_controller;
                m_sink.drive(*drive);
            }
        }
        if (m_errorLog) {
            AduErrorLog log = m_errorLog->End();
            m_errorLog.reset();
            log.controller = m_controller;
            m_sink.errorLog(log);
        }
    }

private:
    enum class Kind { kNone, kStatus, kErrorLog };

    void EndSection() {
        EndDrive();
        m_kind = Kind::kNone;
    }

    // The line holds a colon. False when the open section's reader has to take it: it is no heading. True
    // when it was a heading, and for any line outside of sections, which nobody reads.
    bool TakeHeading(std::string_view line) {
        if (const std::size_t name = line.find(kStatusSection); name != std::string_view::npos) {
            OpenSection(Kind::kStatus, line, TitleOf(line.substr(0, name)));
            return true;
        }
        if (const std::size_t name = line.find(kErrorLogSection); name != std::string_view::npos) {
            OpenSection(Kind::kErrorLog, line, TitleOf(line.substr(0, name)));
            return true;
        }
        if (m_kind == Kind::kNone) {
            return true;
        }
        if (WithoutLeadingBlanks(line).starts_with(kReport) || IsOtherStructure(line)) {
            EndSection();
            return true;
        }
        return TakeDrive(line);
    }

    // In the interleaved form the heading names the drive as well.
    void OpenSection(Kind kind, std::string_view line, std::string_view controller) {
        EndSection();
        m_kind = kind;
        const std::string_view kept = controller.substr(0, kMaxText);
        if (DrivePart(controller).empty() && kept != m_controller) {
            m_controller.assign(kept);
            m_statusDrives = 0;
            m_errorLogs = 0;
            m_numbers.clear();
        }
        TakeDrive(line);
    }

    // A heading that does not belong to the open section. One that ends with its drive does: it is the next
    // drive of the grouped form, unless the controller is another one.
    bool IsOtherStructure(std::string_view line) const {
        if (!Contains(line, " : ")) {
            return false;
        }
        const std::string_view title = TitleOf(line);
        const bool isOpen = title.substr(0, kMaxText) == m_controller;
        const bool controller = IsController(title) || isOpen;
        if (!controller && DrivePart(line).empty()) {
            return false;
        }
        return (controller && !isOpen) || DrivePart(LastPart(line)).empty();
    }

    // False when the line names no drive.
    bool TakeDrive(std::string_view line) {
        const std::string_view drive = DrivePart(line);
        if (drive.empty()) {
            return false;
        }
        EndDrive();
        if (m_kind == Kind::kStatus && drive.starts_with(kDriveWithKind) && HoldsKind(drive)) {
            const AduHeading heading(line, kStatusHeading);
            ++m_statusDrives;
            if (m_numbers.size() < kMaxDrives || m_numbers.count(heading.location) != 0) {
                m_numbers[heading.location] = m_statusDrives;
            }
            m_status.emplace(m_statusDrives, heading);
        } else if (m_kind == Kind::kErrorLog && HoldsKind(drive)) {
            const AduHeading heading(line, kErrorLogHeading);
            ++m_errorLogs;
            const auto known = m_numbers.find(heading.location);
            m_errorLog.emplace(known == m_numbers.end() ? m_errorLogs : known->second, heading);
        }
        return true;
    }

    const AduSink& m_sink;
    Kind m_kind = Kind::kNone;
    std::optional<StatusSection> m_status;  // of the open drive; never both
    std::optional<ErrorLogSection> m_errorLog;

    // Of the current controller; a repeated heading of the same one goes on counting.
    std::string m_controller;  // at most kMaxText characters of its title
    int m_statusDrives = 0;
    int m_errorLogs = 0;
    std::map<std::string, int> m_numbers;  // of the status sections, by location; at most kMaxDrives
};

}  // namespace

void ReadAduReport(LineSource& lines, const AduSink& sink) {
    Report report(sink);
    while (const auto line = report.WaitsForHeading() ? lines.NextWith(":") : lines.Next()) {
        report.Take(*line);
    }
    report.EndDrive();
}
