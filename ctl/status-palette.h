// The colours of the HTML page.
#pragma once

#include <string>

// One colour in both schemes, as "#rrggbb". In the style sheet it is the variable "--NAME".
struct PageColour {
    const char* name;
    const char* light;
    const char* dark;
};

// Every text colour stands out from each ground that it is used on by 4.5 to 1 at least, lines and bars by 3
// to 1 (WCAG 2, level AA).
inline constexpr PageColour kPageColours[] = {
    {"page", "#eef1f4", "#0e1419"},     {"surface", "#ffffff", "#18212a"},
    {"text", "#16202b", "#e9eef3"},     {"faint", "#4d5a68", "#a9b6c3"},
    {"line", "#76828f", "#72808e"},     {"rule", "#d5dbe1", "#2b3743"},
    {"ok", "#17703c", "#7ddb9d"},       {"ok-soft", "#e2f5e8", "#11301f"},
    {"warning", "#7d4f00", "#ffc964"},  {"warning-soft", "#ffefc9", "#3b2b06"},
    {"critical", "#ab1220", "#ff9f9b"}, {"critical-soft", "#fde2e2", "#4a161b"},
    {"on-level", "#ffffff", "#10171d"},
};

// The style sheet's lines that define them.
std::string PaletteCss();

// The rest of the style sheet.
extern const char* const kPageStyle;
