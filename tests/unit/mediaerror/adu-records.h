// Reports as the records that they yield.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "adu-report.h"
#include "adu-texts.h"

// What a report yields, each record as one line: "drive 1 [SN1] 1I:1:1 port 1 box 1 bay 1", "log 1 [title]
// 1I:1:1 port 1 box 1 bay 1 count 2 times 10 20".
inline std::vector<std::string> Records(const std::string& text) {
    std::vector<std::string> records;
    const auto place = [](const auto& record) {
        return record.location + " port " + std::to_string(record.port) + " box " +
               std::to_string(record.box) + " bay " + std::to_string(record.bay);
    };
    TextLines lines(text);
    ReadAduReport(lines, {[&](const AduDrive& drive) {
                              records.push_back("drive " + std::to_string(drive.number) + " [" +
                                                drive.serial + "] " + place(drive));
                          },
                          [&](const AduErrorLog& log) {
                              std::string times;
                              for (const std::uint64_t time : log.times.Times()) {
                                  times += " " + std::to_string(time);
                              }
                              records.push_back("log " + std::to_string(log.number) + " [" + log.title +
                                                "] " + place(log) + " count " + std::to_string(log.count) +
                                                " times" + times);
                          }});
    return records;
}

// One error log in the middle of a report: its count and times.
inline std::string LogOf(const std::string& lines) {
    const std::vector<std::string> records = Records(DriveSection(kP840, "1I:1:1", kErrorLog, lines));
    EXPECT_EQ(records.size(), 1u);
    return records.empty() ? "" : records[0].substr(records[0].find("count"));
}

// One status section: its record.
inline std::string StatusOf(const std::string& lines, const std::string& location = "1I:1:1") {
    const std::vector<std::string> records = Records(DriveSection(kP840, location, kStatus, lines));
    EXPECT_LE(records.size(), 1u);
    return records.empty() ? "" : records[0];
}
