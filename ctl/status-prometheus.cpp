// "baywardctl status --format prometheus".
#include <cstdio>

#include "events-table.h"
#include "prometheus-text.h"
#include "status-render.h"

using Labels = Metric::Labels;

namespace {

// Of a ratio or a time that is known to a thousandth.
std::string Thousandths(std::int64_t thousandths) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.3f", static_cast<double>(thousandths) / 1000);
    return text;
}

std::string LevelNumber(Level level) {
    return std::to_string(static_cast<int>(level));
}

Labels With(Labels labels, const Labels& more) {
    labels.insert(labels.end(), more.begin(), more.end());
    return labels;
}

// What there is to say about the items below the management controller.
class ItemMetrics {
public:
    void Add(const ControllerStatus& controller) {
        const Labels labels = {{"controller", controller.Name()}, {"id", controller.id}};
        m_controllerInfo.Add(With(labels, {{"model", controller.model},
                                           {"location", controller.location},
                                           {"serial_number", controller.serialNumber},
                                           {"health", controller.health},
                                           {"state", controller.state}}),
                             "1");
        m_controllerLevel.Add(labels, LevelNumber(controller.level));
        for (const LogicalDriveStatus& drive : controller.logicalDrives) {
            AddLogicalDrive(controller, drive);
        }
        for (const DriveStatus& drive : controller.drives) {
            AddDrive(controller, drive);
        }
    }
    std::string Text() const {
        return m_controllerInfo.Text() + m_controllerLevel.Text() + m_logicalDriveInfo.Text() +
               m_logicalDriveLevel.Text() + m_driveInfo.Text() + m_driveLevel.Text() +
               m_driveCapacity.Text() + m_driveLife.Text() + m_events.Text();
    }

private:
    void AddLogicalDrive(const ControllerStatus& controller, const LogicalDriveStatus& drive) {
        const Labels labels = {{"controller", controller.Name()},
                               {"logical_drive", std::to_string(drive.number)},
                               {"id", drive.id}};
        m_logicalDriveInfo.Add(
            With(labels, {{"raid", drive.raid}, {"health", drive.health}, {"state", drive.state}}), "1");
        m_logicalDriveLevel.Add(labels, LevelNumber(drive.level));
        AddEvents(labels, drive.reported);
    }
    void AddDrive(const ControllerStatus& controller, const DriveStatus& drive) {
        const Labels labels = {
            {"controller", controller.Name()}, {"location", drive.location}, {"id", drive.id}};
        m_driveInfo.Add(With(labels, {{"model", drive.model},
                                      {"serial_number", drive.serialNumber},
                                      {"firmware", drive.firmware},
                                      {"media_type", drive.mediaType},
                                      {"health", drive.health},
                                      {"state", drive.state}}),
                        "1");
        m_driveLevel.Add(labels, LevelNumber(drive.level));
        if (drive.bytes) {
            m_driveCapacity.Add(labels, std::to_string(*drive.bytes));
        }
        if (drive.lifeLeft) {
            m_driveLife.Add(labels, Thousandths(*drive.lifeLeft * 10));
        }
        AddEvents(labels, drive.reported);
    }
    void AddEvents(const Labels& labels, const std::vector<ReportedState>& reported) {
        for (const ReportedState& state : reported) {
            m_events.Add(
                With(labels, {{"event", IdentifierText(state.id)}, {"severity", SeverityName(state.id)}}),
                "1");
        }
    }

    Metric m_controllerInfo{"bayward_controller_info", "RAID or storage controller, value 1."};
    Metric m_controllerLevel{"bayward_controller_level",
                             "State of the controller itself: 0 ok, 1 warning, 2 critical."};
    Metric m_logicalDriveInfo{"bayward_logical_drive_info", "Logical drive, value 1."};
    Metric m_logicalDriveLevel{"bayward_logical_drive_level",
                               "State of the logical drive: 0 ok, 1 warning, 2 critical."};
    Metric m_driveInfo{"bayward_drive_info", "Physical drive, value 1."};
    Metric m_driveLevel{"bayward_drive_level", "State of the physical drive: 0 ok, 1 warning, 2 critical."};
    Metric m_driveCapacity{"bayward_drive_capacity_bytes", "Capacity of the physical drive."};
    Metric m_driveLife{"bayward_drive_life_left_ratio",
                       "Rated life that a solid-state drive has left, from 0 to 1."};
    Metric m_events{"bayward_event_active",
                    "State that the service reports with this event when it begins, value 1."};
};

std::string Up(bool up) {
    Metric metric("bayward_up", "Whether the management controller could be read.");
    metric.Add({}, up ? "1" : "0");
    return metric.Text();
}

}  // namespace

std::string RenderPrometheusFailure() {
    return Up(false);
}

std::string RenderPrometheus(const StatusReport& report) {
    Metric info("bayward_management_controller_info", "Management controller that was read, value 1.");
    info.Add({{"url", report.url}, {"firmware", report.version}}, "1");
    Metric verified("bayward_connection_verified", "Whether the controller's certificate was verified.");
    verified.Add({}, report.connectionVerified ? "1" : "0");
    Metric readAt("bayward_read_timestamp_seconds", "When the controller was read.");
    readAt.Add({}, std::to_string(report.readAt));
    Metric duration("bayward_read_duration_seconds", "How long reading the controller took.");
    duration.Add({}, Thousandths(report.duration.count()));
    Metric requests("bayward_read_requests", "Resources that were read from the controller.");
    requests.Add({}, std::to_string(report.requests));

    ItemMetrics items;
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            items.Add(controller);
        }
    }
    return Up(true) + info.Text() + verified.Text() + readAt.Text() + duration.Text() + requests.Text() +
           items.Text();
}
