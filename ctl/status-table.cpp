// "baywardctl status --format table".
#include <cstdio>
#include <sstream>

#include "events-table.h"
#include "status-render.h"
#include "table-text.h"

namespace {

constexpr std::size_t kWidth = 100;  // columns that sentences are wrapped at
constexpr const char* kIndent = "  ";

std::string Painted(const Paint& paint, Level level, const std::string& text) {
    switch (level) {
        case Level::kOk:
            return text;
        case Level::kWarning:
            return paint.Yellow(text);
        case Level::kCritical:
            break;
    }
    return paint.Red(text);
}

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

// A text of the report in a line of its own.
std::string OneLine(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < ' ' || character == '\x7f') {
            character = '?';
        }
    }
    return text;
}

// A table whose rows have the colour of what they are about.
class LevelTable {
public:
    explicit LevelTable(std::vector<std::string> titles) : m_table(std::move(titles)) {}

    void Add(Level level, std::vector<std::string> row) {
        for (std::string& text : row) {
            text = OneLine(OrDash(text));
        }
        m_levels.push_back(level);
        m_table.Add(std::move(row));
    }
    // Nothing without rows; an empty line before it.
    std::string Text(const Paint& paint) const {
        if (m_levels.empty()) {
            return {};
        }
        std::ostringstream plain;
        m_table.Write(plain, Paint(false));
        std::istringstream lines(plain.str());
        std::string line;
        std::getline(lines, line);
        std::string text = "\n" + (kIndent + paint.Faint(line)) + "\n";
        for (const Level level : m_levels) {
            std::getline(lines, line);
            text += kIndent + Painted(paint, level, line) + "\n";
        }
        return text;
    }

private:
    TextTable m_table;
    std::vector<Level> m_levels;
};

std::string LifeText(const std::optional<int>& percent) {
    return percent ? std::to_string(*percent) + " %" : std::string();
}

std::string DriveTable(const ControllerStatus& controller, const Paint& paint) {
    LevelTable table({"Drive", "Model", "Serial", "Size", "Health", "Life", "Reported"});
    for (const DriveStatus& drive : controller.drives) {
        std::string size = drive.size;
        size += drive.mediaType.empty() ? "" : " " + drive.mediaType;
        table.Add(drive.level,
                  {drive.location, drive.model, drive.serialNumber, size,
                   StatusText(drive.health, drive.state), LifeText(drive.lifeLeft), Phrases(drive.reported)});
    }
    return table.Text(paint);
}

std::string LogicalDriveTable(const ControllerStatus& controller, const Paint& paint) {
    LevelTable table({"Logical drive", "RAID", "Drives", "Health", "Reported"});
    for (const LogicalDriveStatus& drive : controller.logicalDrives) {
        table.Add(drive.level, {std::to_string(drive.number), drive.raid, std::to_string(drive.memberDrives),
                                StatusText(drive.health, drive.state), Phrases(drive.reported)});
    }
    return table.Text(paint);
}

std::string ControllerText(const ControllerStatus& controller, const Paint& paint) {
    std::string text = "\n" + paint.Bold(OneLine(controller.Name()));
    if (!controller.serialNumber.empty()) {
        text += "  serial number " + OneLine(controller.serialNumber);
    }
    const std::string health = OneLine(StatusText(controller.health, controller.state));
    text += "  " + Painted(paint, controller.level, health) + "\n";
    text += LogicalDriveTable(controller, paint) + DriveTable(controller, paint);
    if (controller.drives.empty() && controller.logicalDrives.empty()) {
        text += std::string(kIndent) + "no drives\n";
    }
    return text;
}

// Words, with line breaks where a line would be too long; every line but the first one is indented.
std::string Wrapped(const std::string& text, std::size_t indent) {
    std::istringstream lines(text);
    std::string wrapped;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(OneLine(line));
        std::size_t column = kWidth;  // the first word begins a line
        for (std::string word; words >> word;) {
            if (column + 1 + word.size() > kWidth) {
                wrapped += wrapped.empty() ? "" : "\n" + std::string(indent, ' ');
                column = indent;
            } else {
                wrapped += ' ';
                ++column;
            }
            wrapped += word;
            column += word.size();
        }
    }
    return wrapped;
}

std::string EventText(const ReportedState& state, const Paint& paint) {
    char head[40];
    const int width = std::snprintf(head, sizeof head, "%s%-7s  %s  ", kIndent, SeverityName(state.id),
                                    IdentifierText(state.id).c_str());
    return Painted(paint, state.level, head) + Wrapped(state.sentence, static_cast<std::size_t>(width)) +
           "\n";
}

std::string EventTexts(const StatusReport& report, const Paint& paint) {
    std::string text;
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            for (const LogicalDriveStatus& drive : controller.logicalDrives) {
                for (const ReportedState& state : drive.reported) {
                    text += EventText(state, paint);
                }
            }
            for (const DriveStatus& drive : controller.drives) {
                for (const ReportedState& state : drive.reported) {
                    text += EventText(state, paint);
                }
            }
        }
    }
    return text.empty() ? text : "\nWhat the service reports, once, when such a state begins:\n\n" + text;
}

std::string TallyText(const Tally& tally, const std::string& what, const Paint& paint) {
    std::string text = Counted(tally.total, what);
    if (tally.critical != 0) {
        text += ", " + paint.Red(std::to_string(tally.critical) + " critical");
    }
    if (tally.warning != 0) {
        text += ", " + paint.Yellow(std::to_string(tally.warning) + " warning");
    }
    if (tally.critical + tally.warning == 0 && tally.total != 0) {
        text += ", " + paint.Green("all well");
    }
    return text;
}

}  // namespace

std::string RenderTable(const StatusReport& report, const Paint& paint) {
    char seconds[32];
    (void)std::snprintf(seconds, sizeof seconds, "%.1f s",
                        static_cast<double>(report.duration.count()) / 1000);
    std::string text =
        paint.Bold(OneLine(report.host)) + "  " + OneLine(report.version) + " at " + OneLine(report.url) +
        ", connection " + (report.connectionVerified ? "verified" : "not verified") + "\n" + "read " +
        TimeText(report.readAt) + " in " + seconds + ", " + Counted(report.requests, "resource") + "\n";
    if (TallyControllers(report).total == 0) {
        text += "\nThe management controller lists no storage controller.\n";
    }
    for (const SystemStatus& system : report.systems) {
        if (report.systems.size() > 1) {
            text += "\n" + paint.Bold("System " + OneLine(system.id)) + "\n";
        }
        for (const ControllerStatus& controller : system.controllers) {
            text += ControllerText(controller, paint);
        }
    }
    return text + EventTexts(report, paint) + "\n" +
           TallyText(TallyControllers(report), "controller", paint) + "; " +
           TallyText(TallyLogicalDrives(report), "logical drive", paint) + "; " +
           TallyText(TallyDrives(report), "drive", paint) + "\n";
}
