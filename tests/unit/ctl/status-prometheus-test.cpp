#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include "status-render.h"
#include "status-reports.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Each line is a comment or a sample of the metric whose comments stand above it, and no sample is there
// twice.
void ExpectWellFormed(const std::string& text) {
    const std::regex sample(R"re(([a-z_]+)(\{([a-z_]+="([^"\\\n]|\\[\\"n])*",?)+\})? [0-9.]+)re");
    std::string metric;
    std::set<std::string> metrics;
    std::set<std::string> samples;
    for (const std::string& line : Lines(text)) {
        if (line.rfind("# HELP ", 0) == 0) {
            metric = line.substr(7, line.find(' ', 7) - 7);
            EXPECT_TRUE(metrics.insert(metric).second) << metric;
        } else if (line.rfind("# TYPE ", 0) == 0) {
            EXPECT_EQ(line, "# TYPE " + metric + " gauge");
        } else {
            std::smatch match;
            ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
            EXPECT_EQ(match[1], metric);
            EXPECT_TRUE(samples.insert(line.substr(0, line.rfind(' '))).second) << line;
        }
    }
    EXPECT_EQ(text.back(), '\n');
}

TEST(StatusPrometheus, BadServer_HasALevelForEachItem) {
    const std::string text = RenderPrometheus(BadReport());
    ExpectWellFormed(text);
    const std::string controller = "controller=\"HPE Smart Array P408i-a SR Gen10 [Slot 0]\",";
    EXPECT_THAT(text, HasSubstr("\nbayward_up 1\n"));
    EXPECT_THAT(text, HasSubstr("bayward_drive_level{" + controller +
                                "location=\"1I:1:1\",id=\"/redfish/v1/Drives/1I:1:1\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("bayward_drive_level{" + controller +
                                "location=\"1I:1:2\",id=\"/redfish/v1/Drives/1I:1:2\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("bayward_logical_drive_level{" + controller +
                                "logical_drive=\"1\",id=\"/redfish/v1/LogicalDrives/1\"} 2\n"));
    EXPECT_THAT(text, HasSubstr(",event=\"0xC0008151\",severity=\"error\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("bayward_read_duration_seconds 1.234\n"));
    EXPECT_THAT(text, HasSubstr("bayward_read_timestamp_seconds 1769903999\n"));
}

TEST(StatusPrometheus, LifeAndCapacity_AreThereWhereTheyAreKnown) {
    const std::string text = RenderPrometheus(BadReport());
    EXPECT_THAT(text, ContainsRegex("bayward_drive_life_left_ratio\\{.*1I:1:1.*\\} 0.980\n"));
    EXPECT_THAT(text, Not(ContainsRegex("bayward_drive_life_left_ratio\\{[^\n]*1I:1:2")));
    StatusReport report = BadReport();
    for (DriveStatus& drive : report.systems.front().controllers.front().drives) {
        drive.bytes.reset();
    }
    EXPECT_THAT(RenderPrometheus(report), Not(HasSubstr("capacity")));
}

TEST(StatusPrometheus, HostileTexts_AreEscaped) {
    const std::string text = RenderPrometheus(HostileReport());
    ExpectWellFormed(text);
    EXPECT_THAT(text, HasSubstr("alert(\\\"x\\\")</script> 'q' & 100%s|\\\\ \\n{}"));
}

TEST(StatusPrometheus, EmptyServer_HasNoItems) {
    const std::string text = RenderPrometheus(EmptyReport());
    ExpectWellFormed(text);
    EXPECT_THAT(text, Not(HasSubstr("drive")));
}

TEST(StatusPrometheus, Failure_IsTheMetricThatSaysSo) {
    const std::string text = RenderPrometheusFailure();
    ExpectWellFormed(text);
    EXPECT_EQ(Lines(text).back(), "bayward_up 0");
}

}  // namespace
