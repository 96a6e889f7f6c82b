#include <new>

#include "reader-fixture.h"

namespace {

const std::string kManagers = "/redfish/v1/Managers/";
const std::string kManager = "/redfish/v1/Managers/1";
const std::string kFailed = "iLoRestReader.readiLOVersion failed.";
const std::string kVnicFailed = "Failed to get iLO version.";
const std::string kStart = "<VK0999> [TR] ilorest-reader N ";

std::string Firmware(const std::string& text, const std::string& major, const std::string& minor) {
    return R"("Firmware":{"Current":{"VersionString":")" + text + R"(","MajorVersion":)" + major +
           R"(,"MinorVersion":)" + minor + "}}";
}

class ControllerVersion : public ReaderTest {
protected:
    ControllerVersion() { bridge->resources[kManagers] = Collection({kManager}); }

    void Answer(const std::string& text, int major, int minor) {
        bridge->resources[kManager] =
            R"({"Oem":{"Hpe":{)" + Firmware(text, std::to_string(major), std::to_string(minor)) + "}}}";
    }
    void AnswerVnic(const std::string& generation) {
        bridge->vnicAnswer = R"({"Oem":{"Hpe":{"Moniker":{"PRODGEN":")" + generation + R"("}}}})";
    }
    int SetUpVnic() { return reader->setupiLOVersion_vnic("https://16.1.15.1", "va", "vp"); }
    std::string VnicFailure() {
        return FailureText([&] { SetUpVnic(); });
    }
    std::string Failure() {
        return FailureText([&] { reader->setupiLOVersion(); });
    }
};

}  // namespace

TEST_F(ControllerVersion, FirmwareBelowOem_IsReadAndLogged) {
    Answer("iLO 5 v2.55", 2, 55);
    EXPECT_EQ(reader->setupiLOVersion(), 1);
    EXPECT_EQ(reader->versionText(), "iLO 5 v2.55");
    EXPECT_EQ(reader->version().major, 2);
    EXPECT_EQ(reader->version().minor, 55);
    EXPECT_EQ(bridge->calls,
              (std::vector<std::string>{"init https://controller.test account password 3 10"}));
    EXPECT_EQ(bridge->fetched, (std::vector<std::string>{kManagers, kManager}));
    EXPECT_EQ(Trace(),
              (std::vector<std::string>{kStart + "mVersion=iLO 5 v2.55, mMajorVersion=2, mMinorVersion=55"}));
}

TEST_F(ControllerVersion, FirmwareAtTheTop_GoesFirstWhenItIsWhole) {
    const std::string oem = R"("Oem":{"Hpe":{)" + Firmware("below", "9", "9") + "}}";
    bridge->resources[kManager] = "{" + oem + "," + Firmware("iLO 5 v1.10", "1", "10") + "}";
    reader->setupiLOVersion();
    EXPECT_EQ(reader->versionText(), "iLO 5 v1.10");
    for (const char* incomplete : {R"("Firmware":{"Current":{"VersionString":"iLO 4 v2.50"}})",
                                   R"("Firmware":{})", R"("Firmware":null)"}) {
        bridge->resources[kManager] = "{" + oem + "," + incomplete + "}";
        reader->setupiLOVersion();
        EXPECT_EQ(reader->versionText(), "below") << incomplete;
        EXPECT_EQ(reader->version().major, 9);
    }
}

TEST_F(ControllerVersion, Scale_Is100ForIlo5Before120Only) {
    const struct {
        const char* text;
        int major, minor;
        std::uint32_t scale;
    } rows[] = {{"iLO 5 v0.99", 0, 99, 100}, {"iLO 5 v1.0", 1, 0, 100},         {"iLO 5 v1.15", 1, 15, 100},
                {"iLO 5 v1.19", 1, 19, 100}, {"iLO 5 v1.20", 1, 20, 1},         {"iLO 5 v1.21", 1, 21, 1},
                {"iLO 5 v2.0", 2, 0, 1},     {"iLO 5 v2.10", 2, 10, 1},         {"iLO 6 v1.10", 1, 10, 1},
                {"iLO 6 v0.1", 0, 1, 1},     {"1.14.00 May 28 2025", 1, 14, 1}, {"ilo 5 v1.10", 1, 10, 1},
                {"iLO 5", -1, 0, 1}};
    for (const auto& row : rows) {
        Answer(row.text, row.major, row.minor);
        EXPECT_EQ(reader->setupiLOVersion(), 1);
        EXPECT_EQ(reader->enduranceScale(), row.scale) << row.text;
    }
}

TEST_F(ControllerVersion, Scale_ReachesTheDrivesOfBothFamilies) {
    Answer("iLO 5 v1.15", 1, 15);
    reader->setupiLOVersion();
    AddSmartStorage();
    AddMr();
    const ServiceRoot root = Walk();
    const ComputerSystem& system = root.systems.at(kSystem);
    EXPECT_EQ(
        system.smartStorage.controllers.at(kSmart).diskDrives.at(kSmart + "DiskDrives/0/").enduranceScale,
        100U);
    EXPECT_EQ(system.mirror.controllers.at(kMr).diskDrives.at(kMrDrives + "0").enduranceScale, 100U);
}

TEST_F(ControllerVersion, SeveralManagers_OnlyTheFirstIsRead) {
    Answer("iLO 5 v2.55", 2, 55);
    bridge->resources[kManagers] = Collection({kManager, "/redfish/v1/Managers/2"});
    reader->setupiLOVersion();
    EXPECT_EQ(bridge->fetched.back(), kManager);
}

TEST_F(ControllerVersion, OddNumbers_AreCutAndStopAtTheirRange) {
    bridge->resources[kManager] = "{" + Firmware("iLO 5", "1.9", "99999999999") + "}";
    reader->setupiLOVersion();
    EXPECT_EQ(reader->version().major, 1);
    EXPECT_EQ(reader->version().minor, 2147483647);
}

TEST_F(ControllerVersion, LogInFailure_ClosesAndIsPassedOn) {
    bridge->failures = {{"init", "initialize failed."}, {"close", "close failed."}};
    EXPECT_EQ(Failure(), "initialize failed.");
    EXPECT_EQ(iLoRestReader::lastFailure(), "initialize failed.");
    EXPECT_EQ(bridge->calls.back(), "close");
}

TEST_F(ControllerVersion, CredentialFailure_IsClosedNotReset) {
    bridge->failures["init"] = "InvalidCredentialsError";
    EXPECT_EQ(Failure(), "InvalidCredentialsError");
    EXPECT_EQ(bridge->calls.back(), "close");
}

TEST_F(ControllerVersion, FailedRead_FallsBackToScaleOne) {
    Answer("iLO 5 v1.15", 1, 15);
    reader->setupiLOVersion();
    ASSERT_EQ(reader->enduranceScale(), 100U);
    bridge->failures[kManager] = "get failed.";
    EXPECT_EQ(Failure(), kFailed + "get failed.");
    EXPECT_EQ(reader->enduranceScale(), 1U);
    EXPECT_EQ(iLoRestReader::lastFailure(), kFailed + "get failed.");
    EXPECT_EQ(bridge->calls.back(), "close");
}

TEST_F(ControllerVersion, UnusableResources_FailWithTheStepsText) {
    for (const std::string answer : {"{}", "", R"({"Oem":{"Hpe":{}}})",
                                     R"({"Oem":{"Hpe":{"Firmware":{"Current":{"MajorVersion":1}}}}})"}) {
        bridge->resources[kManager] = answer;
        EXPECT_EQ(Failure(), kFailed) << answer;
        EXPECT_EQ(Trace().back().find(kStart), 0U);
    }
    bridge->resources[kManagers] = Collection({});
    EXPECT_EQ(Failure(), kFailed);
    EXPECT_EQ(Trace().back(), kStart + "no manager");
}

TEST_F(ControllerVersion, StandardException_BecomesText) {
    bridge->onFetch = [](const std::string&) { throw std::runtime_error("unexpected"); };
    EXPECT_EQ(Failure(), kFailed + "unexpected");
    EXPECT_EQ(bridge->calls.back(), "close");
    bridge->onFetch = [](const std::string&) {
        throw tovabase::TOVAExcpt(tovabase::TOVAExcpt::kSystemCall, "wait failed");
    };
    EXPECT_EQ(Failure(), kFailed + "wait failed");
    EXPECT_EQ(bridge->calls.back(), "close");
}

TEST_F(ControllerVersion, NotReadyManager_IsWaitedFor) {
    Answer("iLO 6 v1.66", 1, 66);
    bridge->firstAnswers[kManagers] = {kNotReadyText};
    reader->setupiLOVersion();
    EXPECT_EQ(bridge->fetched, (std::vector<std::string>{kManagers, kManagers, kManager}));
    EXPECT_EQ(wait.waits, (std::vector<unsigned>{10000}));
}

TEST_F(ControllerVersion, Stop_EndsTheReadWithoutAFailure) {
    wait.stopped = true;
    bridge->calls.clear();
    const std::string before = iLoRestReader::lastFailure();
    EXPECT_THROW(reader->setupiLOVersion(), iLoRestReader::StopSeen);
    EXPECT_THROW(SetUpVnic(), iLoRestReader::StopSeen);
    EXPECT_TRUE(bridge->fetched.empty());
    EXPECT_TRUE(Trace().empty());
    EXPECT_EQ(iLoRestReader::lastFailure(), before);
}

TEST_F(ControllerVersion, KnownGenerationOverTheVnic_IsTaken) {
    for (const std::string generation : {"iLO 5", "iLO 6"}) {
        AnswerVnic(generation);
        EXPECT_EQ(SetUpVnic(), 0);
        EXPECT_EQ(reader->versionText(), generation);
        EXPECT_FALSE(reader->unknownGeneration());
        EXPECT_EQ(Trace().back(), kStart + "iLO Version=" + generation);
    }
    EXPECT_EQ(bridge->calls.back(), "getValue_vNIC https://16.1.15.1 va vp 3 10");
}

TEST_F(ControllerVersion, AnotherGenerationOverTheVnic_RaisesTheFlagAndLeavesTheText) {
    Answer("iLO 5 v1.15", 1, 15);
    reader->setupiLOVersion();
    AnswerVnic("iLO 7");
    EXPECT_EQ(SetUpVnic(), 0);
    EXPECT_EQ(reader->versionText(), "iLO 5 v1.15");
    EXPECT_EQ(reader->enduranceScale(), 1U);
    EXPECT_TRUE(reader->unknownGeneration());
    EXPECT_EQ(Trace().back(), kStart + "iLO Version=iLO 7");
    AnswerVnic("iLO 6");
    EXPECT_EQ(SetUpVnic(), 0);
    EXPECT_FALSE(reader->unknownGeneration());
}

TEST_F(ControllerVersion, NothingReadOverTheVnic_IsNoFailure) {
    for (const char* nothing : {"", "None"}) {
        bridge->vnicAnswer = nothing;
        EXPECT_EQ(SetUpVnic(), 1);
        EXPECT_TRUE(reader->unknownGeneration());
        EXPECT_EQ(reader->enduranceScale(), 1U);
        EXPECT_EQ(reader->versionText(), "");
    }
    EXPECT_TRUE(Trace().empty());
}

TEST_F(ControllerVersion, FailureOverTheVnic_IsTracedClosedAndPassedOn) {
    bridge->failures["vnic"] = "get_v1 failed. %s";
    const std::string text = kVnicFailed + " : " + kFailed + "get_v1 failed. %s";
    EXPECT_EQ(VnicFailure(), text);
    EXPECT_EQ(iLoRestReader::lastFailure(), text);
    EXPECT_EQ(bridge->calls.back(), "close");
    EXPECT_EQ(Trace(), (std::vector<std::string>{kStart + text}));
}

TEST_F(ControllerVersion, ServiceRootWithoutGeneration_FailsOverTheVnic) {
    for (const char* answer : {"{}", R"({"Oem":{"Hpe":{"Moniker":{}}}})", "no json", R"({"Oem":[]})"}) {
        bridge->vnicAnswer = answer;
        EXPECT_EQ(VnicFailure(), kVnicFailed + " : " + kFailed) << answer;
    }
}

TEST_F(ControllerVersion, FailureWithoutText_IsNamedAlone) {
    struct Silent : std::exception {
        const char* what() const noexcept override { return ""; }
    };
    bridge->onFetch = [](const std::string&) { throw Silent(); };
    EXPECT_EQ(VnicFailure(), kVnicFailed);
    EXPECT_EQ(iLoRestReader::lastFailure(), kVnicFailed);
}

TEST_F(ControllerVersion, NotReadyServiceRoot_IsFetchedFiveTimesAndParsed) {
    bridge->vnicAnswer = kNotReadyText;
    EXPECT_EQ(VnicFailure(), kVnicFailed + " : " + kFailed);
    EXPECT_EQ(bridge->fetched, std::vector<std::string>(5, "vnic"));
    EXPECT_EQ(wait.waits, std::vector<unsigned>(5, 10000));
}

TEST_F(ControllerVersion, VnicReadAlone_GivesTheGeneration) {
    AnswerVnic("iLO 7");
    iLOVersion version{4, 2};
    EXPECT_EQ(reader->readiLOVersion_vnic("h", "a", "p", *bridge, version), "iLO 7");
    EXPECT_EQ(version.major, 4);
    EXPECT_FALSE(reader->unknownGeneration());
}
