#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "status-render.h"
#include "status-reports.h"

using testing::HasSubstr;

namespace {

TEST(StatusJson, EmptyServer_IsTheWholeDocument) {
    EXPECT_EQ(RenderJson(EmptyReport()), R"({
  "version": 1,
  "host": "server01",
  "read_at": "2026-01-31T23:59:59Z",
  "read_milliseconds": 1234,
  "requests": 38,
  "level": "ok",
  "management_controller": {
    "url": "https://192.0.2.10",
    "firmware": "iLO 5 v2.72",
    "connection_verified": false
  },
  "controllers": {
    "total": 0,
    "warning": 0,
    "critical": 0
  },
  "logical_drives": {
    "total": 0,
    "warning": 0,
    "critical": 0
  },
  "drives": {
    "total": 0,
    "warning": 0,
    "critical": 0
  },
  "systems": []
}
)");
}

TEST(StatusJson, Drives_SayWhatIsKnownAndNullForWhatIsNot) {
    const std::string text = RenderJson(BadReport());
    EXPECT_THAT(text, HasSubstr(R"(
              "location": "1I:1:1",
              "model": "VK000960GWTEST",
              "serial_number": "SERIAL1I:1:1",
              "firmware": "HPG3",
              "media_type": "SSD",
              "size": "960 GB",
              "size_bytes": 960197124096,
              "health": "OK",
              "state": "Enabled",
              "reasons": [],
              "failure_predicted": false,
              "life_left_percent": 98,
              "wear_level_percent": 0,
              "events": []
            },)"));
    EXPECT_THAT(text, HasSubstr(R"(
              "reasons": [
                "Failed"
              ],
              "failure_predicted": false,
              "life_left_percent": null,
              "wear_level_percent": 0,
              "events": [
                {
                  "id": "0xC0008151",
                  "number": 337,
                  "severity": "error",
                  "sentence": "A physical drive has failed: PD(1I:1:2)\nReplace the drive now."
                }
              ])"));
}

TEST(StatusJson, HostileTexts_AreEscaped) {
    EXPECT_THAT(RenderJson(HostileReport()),
                HasSubstr(R"("host": "<script>alert(\"x\")</script> 'q' & 100%s|\\ \n{}\u0009\u001b[31m",)"));
}

}  // namespace
