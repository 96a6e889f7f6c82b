// "baywardctl status --format json".
#include <optional>

#include "events-table.h"
#include "json-text.h"
#include "message-format.h"
#include "status-render.h"

namespace {

constexpr int kVersion = 1;

// Writes members and elements with commas and indentation where they belong.
class JsonWriter {
public:
    void Text(const char* name, const std::string& value) { Begin(name) += JsonString(value); }
    template <typename Value>
    void Number(const char* name, Value value) {
        Begin(name) += std::to_string(value);
    }
    void Flag(const char* name, bool value) { Begin(name) += value ? "true" : "false"; }
    void Null(const char* name) { Begin(name) += "null"; }
    template <typename Value>
    void NumberOrNull(const char* name, const std::optional<Value>& value) {
        value ? Number(name, *value) : Null(name);
    }
    // `name` is null for an element of an array.
    template <typename Body>
    void Object(const char* name, const Body& body) {
        Group(name, '{', '}', body);
    }
    template <typename Items, typename Each>
    void Array(const char* name, const Items& items, const Each& each) {
        Group(name, '[', ']', [&] {
            for (const auto& item : items) {
                each(item);
            }
        });
    }
    std::string Take() { return std::move(m_text) + "\n"; }

private:
    std::string& Begin(const char* name) {
        m_text += m_first ? "" : ",";
        m_text += m_depth == 0 ? "" : "\n" + std::string(2 * m_depth, ' ');
        m_text += name == nullptr ? "" : JsonString(name) + ": ";
        m_first = false;
        return m_text;
    }
    template <typename Body>
    void Group(const char* name, char open, char close, const Body& body) {
        Begin(name) += open;
        ++m_depth;
        m_first = true;
        body();
        --m_depth;
        m_text += m_first ? "" : "\n" + std::string(2 * m_depth, ' ');
        m_text += close;
        m_first = false;
    }

    std::string m_text;
    std::size_t m_depth = 0;
    bool m_first = true;
};

void WriteReported(JsonWriter& json, const std::vector<ReportedState>& reported) {
    json.Array("events", reported, [&](const ReportedState& state) {
        json.Object(nullptr, [&] {
            json.Text("id", IdentifierText(state.id));
            json.Number("number", tova_service::MessageNumber(state.id));
            json.Text("severity", SeverityName(state.id));
            json.Text("sentence", state.sentence);
        });
    });
}

void WriteDrive(JsonWriter& json, const DriveStatus& drive) {
    json.Object(nullptr, [&] {
        json.Text("id", drive.id);
        json.Text("level", LevelName(drive.level));
        json.Text("location", drive.location);
        json.Text("model", drive.model);
        json.Text("serial_number", drive.serialNumber);
        json.Text("firmware", drive.firmware);
        json.Text("media_type", drive.mediaType);
        json.Text("size", drive.size);
        json.NumberOrNull("size_bytes", drive.bytes);
        json.Text("health", drive.health);
        json.Text("state", drive.state);
        json.Array("reasons", drive.reasons, [&](const std::string& reason) { json.Text(nullptr, reason); });
        json.Flag("failure_predicted", drive.failurePredicted);
        json.NumberOrNull("life_left_percent", drive.lifeLeft);
        json.Number("wear_level_percent", drive.wearLevel);
        WriteReported(json, drive.reported);
    });
}

void WriteLogicalDrive(JsonWriter& json, const LogicalDriveStatus& drive) {
    json.Object(nullptr, [&] {
        json.Text("id", drive.id);
        json.Text("level", LevelName(drive.level));
        json.Number("number", drive.number);
        json.Text("raid", drive.raid);
        json.Text("health", drive.health);
        json.Text("state", drive.state);
        json.Number("member_drives", drive.memberDrives);
        WriteReported(json, drive.reported);
    });
}

void WriteController(JsonWriter& json, const ControllerStatus& controller) {
    json.Object(nullptr, [&] {
        json.Text("id", controller.id);
        json.Text("level", LevelName(controller.level));
        json.Text("model", controller.model);
        json.Text("location", controller.location);
        json.Text("serial_number", controller.serialNumber);
        json.Text("health", controller.health);
        json.Text("state", controller.state);
        json.Array("logical_drives", controller.logicalDrives,
                   [&](const LogicalDriveStatus& drive) { WriteLogicalDrive(json, drive); });
        json.Array("drives", controller.drives, [&](const DriveStatus& drive) { WriteDrive(json, drive); });
    });
}

void WriteTally(JsonWriter& json, const char* name, const Tally& tally) {
    json.Object(name, [&] {
        json.Number("total", tally.total);
        json.Number("warning", tally.warning);
        json.Number("critical", tally.critical);
    });
}

}  // namespace

std::string RenderJson(const StatusReport& report) {
    JsonWriter json;
    json.Object(nullptr, [&] {
        json.Number("version", kVersion);
        json.Text("host", report.host);
        json.Text("read_at", TimeText(report.readAt));
        json.Number("read_milliseconds", report.duration.count());
        json.Number("requests", report.requests);
        json.Text("level", LevelName(WorstLevel(report)));
        json.Object("management_controller", [&] {
            json.Text("url", report.url);
            json.Text("firmware", report.version);
            json.Flag("connection_verified", report.connectionVerified);
        });
        WriteTally(json, "controllers", TallyControllers(report));
        WriteTally(json, "logical_drives", TallyLogicalDrives(report));
        WriteTally(json, "drives", TallyDrives(report));
        json.Array("systems", report.systems, [&](const SystemStatus& system) {
            json.Object(nullptr, [&] {
                json.Text("id", system.id);
                json.Array("controllers", system.controllers,
                           [&](const ControllerStatus& controller) { WriteController(json, controller); });
            });
        });
    });
    return json.Take();
}
