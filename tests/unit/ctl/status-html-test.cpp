#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <regex>

#include "status-palette.h"
#include "status-render.h"
#include "status-reports.h"

using testing::HasSubstr;
using testing::Not;

namespace {

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// ---- Colours ----

const PageColour& Colour(const std::string& name) {
    const auto* const found = std::find_if(std::begin(kPageColours), std::end(kPageColours),
                                           [&](const PageColour& colour) { return colour.name == name; });
    EXPECT_NE(found, std::end(kPageColours)) << name;
    return *found;
}

// Relative luminance as WCAG 2 defines it.
double Luminance(const std::string& colour) {
    constexpr std::array kWeights = {0.2126, 0.7152, 0.0722};
    double luminance = 0;
    for (std::size_t i = 0; i < kWeights.size(); ++i) {
        const double part = static_cast<double>(std::stoi(colour.substr(1 + 2 * i, 2), nullptr, 16)) / 255;
        luminance += kWeights[i] * (part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4));
    }
    return luminance;
}

double Contrast(const std::string& one, const std::string& other) {
    const double a = Luminance(one);
    const double b = Luminance(other);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

TEST(StatusPalette, Contrast_IsThatOfKnownPairs) {
    EXPECT_NEAR(Contrast("#000000", "#ffffff"), 21, 0.001);
    EXPECT_NEAR(Contrast("#777777", "#ffffff"), 4.48, 0.01);
}

TEST(StatusPalette, EveryText_StandsOutFromItsGround) {
    constexpr double kText = 4.5;
    constexpr double kGraphics = 3;
    struct Pair {
        const char* front;
        const char* ground;
        double least;
    };
    constexpr Pair kPairs[] = {
        {"text", "page", kText},
        {"text", "surface", kText},
        {"text", "ok-soft", kText},
        {"text", "warning-soft", kText},
        {"text", "critical-soft", kText},
        {"faint", "page", kText},
        {"faint", "surface", kText},
        {"ok", "ok-soft", kText},
        {"warning", "warning-soft", kText},
        {"critical", "critical-soft", kText},
        {"warning", "surface", kText},
        {"critical", "surface", kText},
        {"on-level", "ok", kText},
        {"on-level", "warning", kText},
        {"on-level", "critical", kText},
        {"ok", "surface", kGraphics},
        {"line", "surface", kGraphics},
        {"line", "ok-soft", kGraphics},
        {"line", "warning-soft", kGraphics},
        {"line", "critical-soft", kGraphics},
    };
    for (const Pair& pair : kPairs) {
        EXPECT_GE(Contrast(Colour(pair.front).light, Colour(pair.ground).light), pair.least)
            << pair.front << " on " << pair.ground << ", light";
        EXPECT_GE(Contrast(Colour(pair.front).dark, Colour(pair.ground).dark), pair.least)
            << pair.front << " on " << pair.ground << ", dark";
    }
}

TEST(StatusPalette, Page_UsesTheseColoursAndNoOthers) {
    const std::string page = RenderHtml(BadReport());
    const std::string rest = page.substr(page.find(PaletteCss()) + PaletteCss().size());
    EXPECT_FALSE(std::regex_search(rest, std::regex("#[0-9a-fA-F]{3,8}\\b(?!;)")));
    for (std::smatch match; const PageColour& colour : kPageColours) {
        EXPECT_THAT(rest, HasSubstr(std::string("var(--") + colour.name + ")")) << colour.name;
    }
}

// ---- The page ----

TEST(StatusHtml, Page_LoadsNothingAndHasNoScript) {
    const std::string page = RenderHtml(BadReport());
    EXPECT_THAT(page, HasSubstr("default-src 'none'; style-src 'unsafe-inline'"));
    for (const char* part :
         {"<script", "<link", "<img", "<iframe", "src=", "href=", "url(", "@import", "onload"}) {
        EXPECT_THAT(page, Not(HasSubstr(part)));
    }
}

TEST(StatusHtml, BadServer_ShowsBaysColouredByState) {
    const std::string page = RenderHtml(BadReport());
    EXPECT_THAT(page, HasSubstr("<title>server01: storage critical</title>"));
    EXPECT_THAT(page, HasSubstr("<h3>Box 1</h3>"));
    EXPECT_THAT(page, HasSubstr("<div class=\"bay ok\"><div class=\"head\"><span>Bay 1</span>"));
    EXPECT_THAT(page, HasSubstr("<div class=\"bay critical\"><div class=\"head\"><span>Bay 2</span>"));
    EXPECT_THAT(page, HasSubstr("<div class=\"word\">failed</div>"));
    EXPECT_THAT(page,
                HasSubstr("98 % life left<span class=\"bar ok\" role=\"img\" aria-label=\"98 percent of "
                          "life left\"><i style=\"width:98%\">"));
    EXPECT_THAT(page, HasSubstr("has failed: PD(1I:1:2)<br>Replace the drive now."));
}

TEST(StatusHtml, LifeBars_AreColouredFromTheServicesLevelsOn) {
    for (const auto& [percent, level] :
         {std::pair{21, "ok"}, {20, "warning"}, {6, "warning"}, {5, "critical"}}) {
        StatusReport report = GoodReport();
        report.systems.front().controllers.front().drives.front().lifeLeft = percent;
        EXPECT_THAT(RenderHtml(report),
                    HasSubstr("bar " + std::string(level) + "\" role=\"img\" aria-label=\"" +
                              std::to_string(percent) + " percent"));
    }
}

TEST(StatusHtml, GapBetweenBays_IsAnEmptyBay) {
    StatusReport report = GoodReport();
    report.systems.front().controllers.front().drives.back().location = "2I:1:4";
    EXPECT_EQ(Count(RenderHtml(report), "<div class=\"bay empty\">"), 2U);
}

TEST(StatusHtml, WorstController_ComesFirst) {
    StatusReport report = GoodReport();
    report.systems.front().controllers.push_back(BadReport().systems.front().controllers.front());
    report.systems.front().controllers.back().model = "Bad";
    const std::string page = RenderHtml(report);
    EXPECT_LT(page.find("<h2>Bad [Slot 0]</h2>"), page.find("<h2>HPE Smart Array"));
}

TEST(StatusHtml, HostileTexts_AreEscaped) {
    const std::string page = RenderHtml(HostileReport());
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(&quot;x&quot;)&lt;/script&gt; &#39;q&#39; &amp; 100%s"));
    for (const char character : page) {
        EXPECT_TRUE(character == '\n' || static_cast<unsigned char>(character) >= ' ');
    }
    EXPECT_EQ(Count(page, "<section>"), Count(page, "</section>"));
    EXPECT_EQ(Count(page, "<div"), Count(page, "</div>"));
}

TEST(StatusHtml, EmptyServer_SaysSo) {
    EXPECT_THAT(RenderHtml(EmptyReport()), HasSubstr("lists no storage controller"));
}

}  // namespace
