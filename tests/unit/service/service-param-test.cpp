#include "service-param.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "service-fixture.h"

namespace {

using testing::ElementsAre;
using tova_service::ServiceParameter;

// The number that the constructor throws; 0 when it throws none.
int ConstructionError(const std::string& root) {
    try {
        const ServiceParameter parameter(root);
    } catch (int error) {
        return error;
    }
    return 0;
}

TEST(ServiceParameter, Construction_EntersTheFolderOfTheLinksTarget) {
    const ServiceRoot root;
    const ServiceParameter parameter(root.path());
    EXPECT_EQ(parameter.tovaDir(), root / "opt/bin");
    EXPECT_EQ(std::filesystem::current_path(), std::filesystem::canonical(root / "opt/bin"));
    EXPECT_FALSE(parameter.HasLog());
    EXPECT_EQ(parameter.root(), root.path());
}

TEST(ServiceParameter, NoRoot_UsesTheRunningExecutable) {
    const ServiceParameter parameter;
    EXPECT_EQ(std::string(parameter.tovaDir()),
              std::filesystem::read_symlink("/proc/self/exe").parent_path().string());
    std::filesystem::current_path("/");
}

TEST(ServiceParameter, MissingLink_ThrowsTheErrorNumber) {
    const TestRoot root;
    EXPECT_EQ(ConstructionError(root.path()), ENOENT);
}

TEST(ServiceParameter, FileInPlaceOfTheLink_ThrowsTheErrorNumber) {
    const TestRoot root;
    root.Write("proc/self/exe", "");
    EXPECT_EQ(ConstructionError(root.path()), EINVAL);
}

TEST(ServiceParameter, LinkWithoutSlash_ThrowsItsText) {
    const ServiceRoot root;
    root.LinkExecutable("bayward");
    try {
        const ServiceParameter parameter(root.path());
        FAIL() << "nothing thrown";
    } catch (const char* text) {
        EXPECT_STREQ(text, "m_TovaDir empty");
    }
}

TEST(ServiceParameter, FolderThatCannotBeEntered_ThrowsTheErrorNumber) {
    const ServiceRoot root;
    root.LinkExecutable(root / "nowhere/bayward");
    EXPECT_EQ(ConstructionError(root.path()), ENOENT);
    root.Write("file", "");
    root.LinkExecutable(root / "file/bayward");
    EXPECT_EQ(ConstructionError(root.path()), ENOTDIR);
    root.LinkExecutable("/bayward");  // the folder's name is cut to nothing
    EXPECT_EQ(ConstructionError(root.path()), ENOENT);
}

TEST(ServiceParameter, EmptyConfiguration_GivesTheDefaults) {
    const ServiceRoot root;
    const auto parameter = root.Initialized();
    EXPECT_EQ(parameter->controllerInterval(), 60000u);
    EXPECT_EQ(parameter->url(), "");
    EXPECT_EQ(parameter->account(), "");
    EXPECT_EQ(parameter->password(), "");
    EXPECT_EQ(parameter->maxTrials(), 100);
    EXPECT_EQ(parameter->trialInterval(), 10);
    EXPECT_TRUE(parameter->expand());
    EXPECT_TRUE(parameter->reportControllerFailures());
    EXPECT_EQ(parameter->serialLogInterval(), 10080u);
    EXPECT_EQ(parameter->logDirectory(), root / "var/log/bayward");
    EXPECT_EQ(parameter->maxFileCount(), 100u);
    EXPECT_TRUE(parameter->mediaErrorCheck());
    EXPECT_EQ(parameter->mediaErrorInterval(), 60u);
}

TEST(ServiceParameter, EveryKey_IsTakenFromItsSection) {
    const ServiceRoot root;
    root.Configure(
        "[log file]\nmax log size=1\n"
        "[iLo]\ninterval=5000\nurl=https://h\naccount=a b\npassword=p=w\nmax trials=-3\ntrial interval=20\n"
        "expand=false\n"
        "[serial log]\ninterval=61\nmax file count=11\n"
        "[media error]\ncheck=false\ninterval=7\n"
        "[iLO host]\nreport=false\n");
    const auto parameter = root.Initialized();
    EXPECT_EQ(parameter->controllerInterval(), 5000u);
    EXPECT_EQ(parameter->url(), "https://h");
    EXPECT_EQ(parameter->account(), "a b");
    EXPECT_EQ(parameter->password(), "p=w");
    EXPECT_EQ(parameter->maxTrials(), -3);
    EXPECT_EQ(parameter->trialInterval(), 20);
    EXPECT_FALSE(parameter->expand());
    EXPECT_FALSE(parameter->reportControllerFailures());
    EXPECT_EQ(parameter->serialLogInterval(), 61u);
    EXPECT_EQ(parameter->maxFileCount(), 11u);
    EXPECT_FALSE(parameter->mediaErrorCheck());
    EXPECT_EQ(parameter->mediaErrorInterval(), 7u);
}

TEST(ServiceParameter, IntervalWithoutDigits_IsZeroAndEmptyIsTheDefault) {
    const ServiceRoot root;
    root.Configure("[iLo]\ninterval=abc\n[serial log]\ninterval=\n");
    const auto parameter = root.Initialized();
    EXPECT_EQ(parameter->controllerInterval(), 0u);
    EXPECT_EQ(parameter->serialLogInterval(), 10080u);
    root.Configure("[iLo]\ninterval=\n");
    EXPECT_EQ(root.Initialized()->controllerInterval(), 60000u);
}

TEST(ServiceParameter, FlagsOtherThanTheExactFalse_AreOn) {
    for (const char* value : {"FALSE", "0", "", "no", " false"}) {
        const ServiceRoot root;
        root.Configure("[media error]\ncheck=" + std::string(value) + "\n[iLO host]\nreport=" + value +
                       "\n[iLo]\nexpand=" + value + "\n");
        const auto parameter = root.Initialized();
        EXPECT_TRUE(parameter->expand()) << value;
        EXPECT_TRUE(parameter->mediaErrorCheck()) << value;
        EXPECT_TRUE(parameter->reportControllerFailures()) << value;
    }
}

TEST(ServiceParameter, SecondSectionOfTheSameName_IsNotSearched) {
    const ServiceRoot root;
    root.Configure("[iLo]\nurl=first\n[iLo]\naccount=lost\n[ILO HOST]\nreport=false\n");
    const auto parameter = root.Initialized();
    EXPECT_EQ(parameter->url(), "first");
    EXPECT_EQ(parameter->account(), "");
    EXPECT_TRUE(parameter->reportControllerFailures());
}

TEST(ServiceParameter, Initialize_WritesItsLineToTheTraceLog) {
    const ServiceRoot root;
    const auto parameter = root.Initialized();
    EXPECT_TRUE(parameter->HasLog());
    EXPECT_THAT(root.LogLines(), ElementsAre("<VK0900> [TR] Initialize succeeded."));
    EXPECT_THAT(root.Read("var/log/bayward/bayward.log"),
                testing::ContainsRegex("\\.[0-9][0-9][0-9] <VK0900>"));
}

TEST(ServiceParameter, MissingLogFolder_InitializesWithoutALog) {
    const ServiceRoot root;
    std::filesystem::remove(root / "var/log/bayward");
    const auto parameter = root.Initialized();
    EXPECT_TRUE(parameter->HasLog());
    EXPECT_FALSE(std::filesystem::exists(root / "var/log/bayward"));
}

TEST(ServiceParameter, MaxLogSize_IsInKilobytes) {
    const ServiceRoot root;
    root.Configure("[log file]\nmax log size=1\n");
    const auto parameter = root.Initialized();
    for (int line = 0; line < 30; ++line) {
        parameter->Log().Write("%s", std::string(75, 'x').c_str());  // 100 bytes
    }
    EXPECT_LE(std::filesystem::file_size(root / "var/log/bayward/bayward.log"), 1024u);
    EXPECT_EQ(std::filesystem::file_size(root / "var/log/bayward/bayward.log.bak"), 1000u);
}

// One line more than the file takes goes into a fresh file.
TEST(ServiceParameter, DefaultMaxLogSize_IsFourMebibytes) {
    constexpr std::size_t kLimit = 4194304;
    const std::size_t line =
        std::string("2026/01/01 00:00:00.000 <VK0900> [TR] Initialize succeeded.\n").size();
    for (const std::size_t room : {line, line - 1}) {
        const ServiceRoot root;
        root.Write("var/log/bayward/bayward.log", std::string(kLimit - room, 'x'));
        root.Initialized();
        EXPECT_EQ(std::filesystem::exists(root / "var/log/bayward/bayward.log.bak"), room < line) << room;
    }
}

// 4194304 kilobytes are 2^32 bytes.
TEST(ServiceParameter, MaxLogSizeBeyond32Bits_IsNotCutToThem) {
    const ServiceRoot root;
    root.Configure("[log file]\nmax log size=4194304\n");
    root.Initialized()->Log().Write("next");
    EXPECT_THAT(root.LogLines(), ElementsAre("<VK0900> [TR] Initialize succeeded.", "next"));
}

TEST(ServiceParameter, MaxLogSizeZero_RotatesAtEveryLine) {
    const ServiceRoot root;
    root.Configure("[log file]\nmax log size=0\n");
    const auto parameter = root.Initialized();
    parameter->Log().Write("next");
    EXPECT_THAT(root.LogLines(), ElementsAre("next"));
    EXPECT_THAT(root.Read("var/log/bayward/bayward.log.bak"), testing::HasSubstr("Initialize succeeded."));
}

TEST(ServiceParameter, NegativeMaxLogSize_NeverRotates) {
    const ServiceRoot root;
    root.Configure("[log file]\nmax log size=-1\n");
    std::filesystem::remove_all(root / "var/log/bayward");
    root.Write("var/log/bayward/bayward.log", std::string(6 * 1024 * 1024, 'x') + "\n");
    const auto parameter = root.Initialized();
    EXPECT_FALSE(std::filesystem::exists(root / "var/log/bayward/bayward.log.bak"));
    EXPECT_EQ(root.LogLines().back(), "<VK0900> [TR] Initialize succeeded.");
}

TEST(ServiceParameter, MissingConfiguration_ThrowsCode15AndMakesNoLog) {
    const ServiceRoot root;
    std::filesystem::remove(root / "etc/opt/tarn/bayward/bayward.conf");
    ServiceParameter parameter(root.path());
    try {
        parameter.Initialize();
        FAIL() << "nothing thrown";
    } catch (const tovabase::TOVAExcpt& failure) {
        EXPECT_EQ(failure.code(), 15);
        EXPECT_THAT(
            failure.text(),
            testing::MatchesRegex(".* [0-9]+ \\(Err: 2 FileName: .*/etc/opt/tarn/bayward/bayward.conf\\)"));
    }
    EXPECT_FALSE(parameter.HasLog());
    EXPECT_TRUE(root.LogLines().empty());
}

TEST(ServiceParameter, Finalize_DropsTraceLogAndSystemLog) {
    const ServiceRoot root;
    RecordingSink sink;
    const auto parameter = root.Initialized();
    tova_service::system_info info(root.path());
    parameter->PrepareSysLog(info, sink);
    parameter->Finalize();
    EXPECT_FALSE(parameter->HasLog());
    EXPECT_EQ(sink.calls.back(), "close");
    parameter->Finalize();
    EXPECT_EQ(sink.calls.size(), 2u);
}

TEST(ServiceParameter, Destruction_ClosesTheSystemLog) {
    const ServiceRoot root;
    RecordingSink sink;
    auto parameter = root.Initialized();
    tova_service::system_info info(root.path());
    parameter->PrepareSysLog(info, sink);
    parameter.reset();
    EXPECT_EQ(sink.calls.back(), "close");
}

TEST(ServiceParameter, PrepareSysLog_OpensItForTheSystemsLanguageAndSaysSo) {
    const ServiceRoot root;
    RecordingSink sink;
    const auto parameter = root.Initialized();
    tova_service::system_info info(root.path());
    parameter->PrepareSysLog(info, sink);
    EXPECT_THAT(sink.calls, ElementsAre("open bayward 1 24"));
    EXPECT_EQ(root.LogLines().back(), "<VK0900> [TR] PrepareSysLog succeeded.");
    parameter->PrepareSysLog(info, sink);
    EXPECT_THAT(sink.calls, ElementsAre("open bayward 1 24", "close", "open bayward 1 24"));
    parameter->Finalize();
}

TEST(ServiceParameter, Credentials_CanBeReplaced) {
    const ServiceRoot root;
    root.Configure("[iLo]\naccount=old\npassword=old password\n");
    const auto parameter = root.Initialized();
    parameter->SetUrl("https://other");
    parameter->SetCredentials("new", "new password");
    EXPECT_EQ(parameter->url(), "https://other");
    EXPECT_EQ(parameter->account(), "new");
    EXPECT_EQ(parameter->password(), "new password");
    parameter->SetCredentials(parameter->account(), parameter->password());
    EXPECT_EQ(parameter->account(), "new");
    EXPECT_EQ(parameter->password(), "new password");
}

TEST(ServiceParameter, ReplacedPassword_IsWiped) {
    const ServiceRoot root;
    root.Configure("[iLo]\npassword=hunter2\n");
    const auto parameter = root.Initialized();
    parameter->SetCredentials("a", "b");
    const std::string_view object(reinterpret_cast<const char*>(parameter.get()), sizeof *parameter);
    EXPECT_EQ(object.find("unter2"), std::string_view::npos);
}

TEST(ServiceParameter, Password_NeverReachesTheTraceLog) {
    const ServiceRoot root;
    root.Configure("[iLo]\npassword=hunter2\n");
    const auto parameter = root.Initialized();
    EXPECT_EQ(root.Read("var/log/bayward/bayward.log").find("hunter2"), std::string::npos);
}

}  // namespace
