// "baywardctl status --format html": one page without script that loads nothing.
#include <algorithm>
#include <cstdio>

#include "events-table.h"
#include "message-format.h"
#include "status-bays.h"
#include "status-palette.h"
#include "status-render.h"

namespace {

constexpr int kWarningLife = 20;  // percent; the service reports SSDs from here on downwards
constexpr int kCriticalLife = 5;  // percent; and calls it an error from here on
constexpr int kRefresh = 60;      // seconds after which a browser looks for a newer page

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            case '\n':
                escaped += "<br>";
                break;
            default:
                escaped += static_cast<unsigned char>(character) < ' ' ? '?' : character;
        }
    }
    return escaped;
}

// A text of the report where a line break would not do: in a title or an attribute.
std::string EscapedLine(std::string text) {
    for (char& character : text) {
        character = character == '\n' ? ' ' : character;
    }
    return Escaped(text);
}

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : Escaped(text);
}

const char* LevelWord(Level level) {
    switch (level) {
        case Level::kOk:
            return "OK";
        case Level::kWarning:
            return "Warning";
        case Level::kCritical:
            break;
    }
    return "Critical";
}

Level LifeLevel(int percent) {
    return percent <= kCriticalLife  ? Level::kCritical
           : percent <= kWarningLife ? Level::kWarning
                                     : Level::kOk;
}

std::string Badge(Level level) {
    return std::string("<span class=\"badge ") + LevelName(level) + "\">" + LevelWord(level) + "</span>";
}

std::string LifeBar(int percent) {
    const std::string number = std::to_string(percent);
    return std::string("<span class=\"bar ") + LevelName(LifeLevel(percent)) +
           "\" role=\"img\" aria-label=\"" + number + " percent of life left\"><i style=\"width:" + number +
           "%\"></i></span>";
}

Level LevelOf(const Tally& tally) {
    return tally.critical != 0 ? Level::kCritical : tally.warning != 0 ? Level::kWarning : Level::kOk;
}

std::string Sum(const Tally& tally, const std::string& what) {
    std::string detail;
    if (tally.critical != 0) {
        detail += std::to_string(tally.critical) + " critical";
    }
    if (tally.warning != 0) {
        detail += (detail.empty() ? "" : ", ") + std::to_string(tally.warning) + " warning";
    }
    if (detail.empty()) {
        detail = tally.total == 0 ? "none" : "all well";
    }
    return std::string("<div class=\"sum ") + LevelName(LevelOf(tally)) + "\"><b>" +
           std::to_string(tally.total) + "</b>" + what + (tally.total == 1 ? "" : "s") +
           "<br><span class=\"faint\">" + detail + "</span></div>\n";
}

std::string Header(const StatusReport& report) {
    char seconds[32];
    (void)std::snprintf(seconds, sizeof seconds, "%.1f", static_cast<double>(report.duration.count()) / 1000);
    return "<header><div class=\"top\"><h1>" + Escaped(report.host) + "</h1>" + Badge(WorstLevel(report)) +
           "</div>\n<p>Read " + TimeText(report.readAt) + "</p>\n<p class=\"faint\">" +
           OrDash(report.version) + " at " + OrDash(report.url) + ", connection " +
           (report.connectionVerified ? "verified" : "not verified") + ", " + seconds + " s, " +
           Counted(report.requests, "resource") + "</p>\n<div class=\"sums\">" +
           Sum(TallyControllers(report), "controller") + Sum(TallyLogicalDrives(report), "logical drive") +
           Sum(TallyDrives(report), "drive") + "</div></header>\n";
}

void AddEvents(std::string& list, const std::vector<ReportedState>& reported) {
    for (const ReportedState& state : reported) {
        list += std::string("<li class=\"") + LevelName(state.level) + "\"><b>" + SeverityName(state.id) +
                " " + IdentifierText(state.id) + "</b> " + Escaped(state.sentence) + "</li>\n";
    }
}

std::string Events(const StatusReport& report) {
    std::string list;
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            for (const LogicalDriveStatus& drive : controller.logicalDrives) {
                AddEvents(list, drive.reported);
            }
            for (const DriveStatus& drive : controller.drives) {
                AddEvents(list, drive.reported);
            }
        }
    }
    return list.empty() ? list
                        : "<section><h2>What the service reports, once, when such a state begins</h2>\n"
                          "<ul class=\"events\">\n" +
                              list + "</ul></section>\n";
}

std::string BayTile(const BayRow::Place& place) {
    const std::string number = place.number ? "Bay " + std::to_string(*place.number) : "";
    if (place.drive == nullptr) {
        return "<div class=\"bay empty\"><div class=\"head\"><span>" + number +
               "</span><span class=\"word\">no drive</span></div></div>\n";
    }
    const DriveStatus& drive = *place.drive;
    const std::string word = drive.reported.empty() ? LevelWord(drive.level) : Phrases(drive.reported);
    std::string tile = std::string("<div class=\"bay ") + LevelName(drive.level) +
                       "\"><div class=\"head\"><span>" + (number.empty() ? OrDash(drive.location) : number) +
                       "</span><span>" + Escaped(drive.mediaType) + "</span></div><div class=\"word\">" +
                       Escaped(word) + "</div><div>" + Escaped(drive.size) + "</div>";
    if (drive.lifeLeft) {
        tile += "<div class=\"life\">" + std::to_string(*drive.lifeLeft) + " % life left" +
                LifeBar(*drive.lifeLeft) + "</div>";
    }
    return tile + "</div>\n";
}

std::string Bays(const ControllerStatus& controller) {
    std::string html;
    for (const BayRow& row : ArrangeBays(controller)) {
        html +=
            "<h3>" + (row.box.empty() ? "Drives" : "Box " + Escaped(row.box)) + "</h3><div class=\"bays\">\n";
        for (const BayRow::Place& place : row.places) {
            html += BayTile(place);
        }
        html += "</div>\n";
    }
    return html;
}

// Rows of cells that know the name of their column, which narrow screens show beside them.
class HtmlTable {
public:
    explicit HtmlTable(std::vector<const char*> titles) : m_titles(std::move(titles)) {}

    // The cells are HTML. What makes the level has its colour.
    void Add(Level level, const std::vector<std::string>& cells) {
        m_rows += std::string("<tr class=\"") + LevelName(level) + "\">";
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const std::string title = m_titles[i];
            const bool mark = title == "Reported" || (title == "Health" && cells[i] != "OK");
            m_rows += "<td data-label=\"" + title + "\"><span" + (mark ? " class=\"mark\">" : ">") +
                      cells[i] + "</span></td>";
        }
        m_rows += "</tr>\n";
    }
    std::string Html() const {
        if (m_rows.empty()) {
            return {};
        }
        std::string html = "<table><thead><tr>";
        for (const char* title : m_titles) {
            html += std::string("<th>") + title + "</th>";
        }
        return html + "</tr></thead><tbody>\n" + m_rows + "</tbody></table>\n";
    }

private:
    std::vector<const char*> m_titles;
    std::string m_rows;
};

std::string LogicalDrives(const ControllerStatus& controller) {
    HtmlTable table({"Logical drive", "RAID", "Drives", "Health", "Reported"});
    for (const LogicalDriveStatus& drive : controller.logicalDrives) {
        table.Add(drive.level,
                  {std::to_string(drive.number), OrDash(drive.raid), std::to_string(drive.memberDrives),
                   Escaped(StatusText(drive.health, drive.state)), OrDash(Phrases(drive.reported))});
    }
    return table.Html();
}

std::string Drives(const ControllerStatus& controller) {
    HtmlTable table({"Drive", "Model", "Serial number", "Size", "Health", "Life left", "Reported"});
    for (const DriveStatus& drive : controller.drives) {
        const std::string life =
            drive.lifeLeft ? std::to_string(*drive.lifeLeft) + " %" + LifeBar(*drive.lifeLeft) : "-";
        table.Add(drive.level,
                  {OrDash(drive.location), OrDash(drive.model), OrDash(drive.serialNumber),
                   Escaped(drive.size + " " + drive.mediaType),
                   Escaped(StatusText(drive.health, drive.state)), life, OrDash(Phrases(drive.reported))});
    }
    return table.Html();
}

std::string Controller(const ControllerStatus& controller) {
    std::string html = "<section><div class=\"title\"><h2>" + Escaped(controller.Name()) + "</h2>" +
                       Badge(controller.level) + "<span class=\"faint\">serial number " +
                       OrDash(controller.serialNumber) + "</span></div>\n" + Bays(controller);
    const std::string logicalDrives = LogicalDrives(controller);
    const std::string drives = Drives(controller);
    html += logicalDrives.empty() ? "" : "<h3>Logical drives</h3>" + logicalDrives;
    html += drives.empty() ? "<p class=\"faint\">No drives.</p>\n" : "<h3>Drives</h3>" + drives;
    return html + "</section>\n";
}

// On a screen that shows no more than the beginning, the beginning shows what is wrong.
std::vector<const ControllerStatus*> WorstFirst(const StatusReport& report) {
    std::vector<const ControllerStatus*> controllers;
    for (const SystemStatus& system : report.systems) {
        for (const ControllerStatus& controller : system.controllers) {
            controllers.push_back(&controller);
        }
    }
    std::stable_sort(controllers.begin(), controllers.end(),
                     [](const ControllerStatus* left, const ControllerStatus* right) {
                         return WorstLevel(*left) > WorstLevel(*right);
                     });
    return controllers;
}

}  // namespace

std::string RenderHtml(const StatusReport& report) {
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
        "'unsafe-inline'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta http-equiv=\"refresh\" content=\"" +
        std::to_string(kRefresh) + "\">\n<title>" + EscapedLine(report.host) + ": storage " +
        LevelName(WorstLevel(report)) + "</title>\n<style>\n" + PaletteCss() + kPageStyle +
        "</style></head><body>\n" + Header(report) + "<main>\n" + Events(report);
    if (TallyControllers(report).total == 0) {
        html += "<section><p>The management controller lists no storage controller.</p></section>\n";
    }
    for (const ControllerStatus* controller : WorstFirst(report)) {
        html += Controller(*controller);
    }
    return html + "</main><footer>Made by baywardctl status.</footer></body></html>\n";
}
