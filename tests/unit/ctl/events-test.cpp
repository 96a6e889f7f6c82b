#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>

#include "ctl-error.h"
#include "events-command.h"
#include "fake-commands.h"
#include "file-descriptor.h"
#include "test-root.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

// ---- Table ----

TEST(EventTable, HoldsExactlyTheReportedEvents) {
    std::set<std::uint32_t> reported;
    for (const auto& event : tova_service::kReportedEvents) {
        reported.insert(event.id);
    }
    std::set<std::uint32_t> known;
    unsigned last = 0;
    for (const EventInfo& event : EventTable()) {
        known.insert(event.id);
        EXPECT_GT(tova_service::MessageNumber(event.id), last) << "in the order of their numbers";
        last = tova_service::MessageNumber(event.id);
        EXPECT_EQ(std::string(event.when).find("Never raised") == 0, !event.isRaised) << event.when;
    }
    EXPECT_EQ(known, reported);
    EXPECT_EQ(EventTable().size(), reported.size());
}

TEST(EventTable, EveryEvent_IsFoundByEachOfItsNames) {
    for (const EventInfo& event : EventTable()) {
        const std::string hex = IdentifierText(event.id).substr(2);
        const std::string number = std::to_string(tova_service::MessageNumber(event.id));
        for (const std::string& name :
             {"0x" + hex, "0X" + hex, hex, std::to_string(event.id), number, "0" + number, "VK0" + number}) {
            EXPECT_EQ(FindEvent(name), &event) << name;
        }
    }
    EXPECT_EQ(FindEvent("c00081d1")->id, 0xC00081D1);
    EXPECT_EQ(FindEvent("vk0465")->id, 0xC00081D1);
}

TEST(EventTable, OtherNames_AreNoEvents) {
    for (const char* name :
         {"", "0x", "VK", "0xC00081B8", "440", "-337", " 337", "337 ", "3.37", "0x337", "VKc00081d1",
          "VK0xC00081D1", "12C00081D1", "99999999999999999999999", "0x1C00081D1", "%s"}) {
        EXPECT_EQ(FindEvent(name), nullptr) << name;
    }
}

TEST(EventTable, Names_FollowTheIdentifier) {
    EXPECT_STREQ(SeverityName(0xC0008151), "error");
    EXPECT_STREQ(SeverityName(0x80008152), "warning");
    EXPECT_STREQ(SeverityName(0x40008001), "information");
    EXPECT_EQ(TraceName(0xC00081D1), "VK0465");
    EXPECT_EQ(TraceName(0xC0008007), "VK0007");
    EXPECT_EQ(IdentifierText(0x8000815B), "0x8000815B");
}

// ---- Command ----

class RecordingSink : public tova_service::SystemLogSink {
public:
    void Open(const char* identity, int option, int facility) override {
        EXPECT_STREQ(identity, "bayward");
        EXPECT_EQ(option, LOG_PID);
        EXPECT_EQ(facility, LOG_DAEMON);
    }
    void Write(int priority, const char* text) override { entries.emplace_back(priority, text); }
    void Close() override {}

    std::vector<std::pair<int, std::string>> entries;
};

class NoTerminal : public Terminal {
public:
    bool IsInteractive() override { return false; }
    std::optional<std::string> ReadLine(const std::string&) override { return std::nullopt; }
    std::optional<std::string> ReadHidden(const std::string&) override { return std::nullopt; }
};

// A system with the shipped catalogue, a locale file and a log socket.
class EventsCommandTest : public testing::Test {
protected:
    EventsCommandTest() {
        std::filesystem::create_directories(root / "bin");
        std::filesystem::copy_file(BAYWARD_SOURCE_DIR "/share/bayward.msg", root / "bin/bayward.msg");
        UseLocale("LANG=C\n");
        std::filesystem::create_directories(root / "dev");
        Listen(SOCK_DGRAM);
    }

    void UseLocale(const std::string& content) { root.Write("etc/locale.conf", content); }
    void UseCatalogue(const std::string& content) { root.Write("bin/bayward.msg", content); }
    void Listen(int type) {
        std::filesystem::remove(root / "dev/log");
        m_listener.reset(socket(AF_UNIX, type, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = root / "dev/log";
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        ASSERT_EQ(bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        if (type == SOCK_STREAM) {
            ASSERT_EQ(listen(m_listener.get(), 1), 0);
        }
    }
    void Hush() { m_listener.reset(); }

    EventsCommand Command() {
        return EventsCommand({.root = root.path(),
                              .user = 1000,
                              .commands = commands,
                              .terminal = terminal,
                              .out = out,
                              .messages = messages,
                              .makeBridge = {},
                              .programFolder = root / "bin"},
                             sink);
    }
    std::string List(EventsCommand::Format format, const std::optional<std::string>& language = {}) {
        out.str("");
        Command().List(format, language);
        return out.str();
    }
    template <typename Failure>
    std::string FailureOfTest(const std::string& event, const std::optional<std::string>& language = {}) {
        try {
            Command().Test(event, language);
        } catch (const Failure& failure) {
            EXPECT_THAT(sink.entries, IsEmpty());
            EXPECT_EQ(out.str(), "");
            return failure.what();
        }
        ADD_FAILURE() << "did not fail";
        return {};
    }

    TestRoot root;
    FakeCommands commands;
    NoTerminal terminal;
    RecordingSink sink;
    std::ostringstream out;
    std::ostringstream messages;

private:
    tovaserverutil::FileDescriptor m_listener;
};

TEST_F(EventsCommandTest, List_ShowsEveryEventInEveryLanguage) {
    const std::string text = List(EventsCommand::Format::kText);
    EXPECT_THAT(
        text,
        testing::StartsWith(
            "VK0337  0xC0008151  error\n"
            "  raised   A drive has become failed, was replaced by a spare because it predicted its "
            "failure, or has vanished from an \"HPE MR\" controller while one of its volumes is known.\n"
            "  default  A physical drive has failed: CTRL(controller) PD(location) drive\n"
            "           Replace the drive now; data is at risk until its array is rebuilt.\n"
            "  ja_JP    物理ドライブが故障しました: CTRL(controller) PD(location) drive\n"));
    EXPECT_THAT(text, HasSubstr("\nVK0443  0x800081BB  warning\n  raised   Never raised at present;"));
    EXPECT_THAT(text, HasSubstr("CTRL(controller) LD(number)\n"));
    EXPECT_THAT(text, Not(HasSubstr("%")));
    for (const EventInfo& event : EventTable()) {
        EXPECT_THAT(text, HasSubstr(IdentifierText(event.id)));
    }
}

TEST_F(EventsCommandTest, ListOfOneLanguage_ShowsNoOther) {
    EXPECT_THAT(List(EventsCommand::Format::kText, "default"), Not(HasSubstr("ja_JP")));
    EXPECT_THROW(List(EventsCommand::Format::kText, "de_DE"), UsageError);
}

TEST_F(EventsCommandTest, ListAsJson_HasSentencesWithLineFeeds) {
    UseCatalogue("[default]\nC00081D1=No \"login\"%nRegister.\n[x\x1B\x7F]\nC0008151=broken\n");
    const std::string json = List(EventsCommand::Format::kJson);
    EXPECT_THAT(json, HasSubstr("{\"number\": 465, \"trace\": \"VK0465\", \"identifier\": \"0xC00081D1\", "
                                "\"severity\": \"error\", \"raised\": true, \"when\": "));
    EXPECT_THAT(json, HasSubstr("\"sentences\": {\"default\": \"No \\\"login\\\"\\nRegister.\"}}"));
    EXPECT_THAT(json, HasSubstr("\"sentences\": {\"x??\": \"broken\"}}"));
    EXPECT_THAT(json, HasSubstr("\"sentences\": {}}"));
}

TEST_F(EventsCommandTest, ListWithoutCatalogue_NamesTheFile) {
    std::filesystem::remove(root / "bin/bayward.msg");
    try {
        List(EventsCommand::Format::kText);
        FAIL() << "nothing thrown";
    } catch (const CtlError& failure) {
        EXPECT_THAT(failure.what(), HasSubstr(root / "bin/bayward.msg"));
    }
}

TEST_F(EventsCommandTest, CatalogueWithoutTexts_Fails) {
    for (const char* content : {"", "[default]\n", "[default]\n12345678=x\n"}) {
        UseCatalogue(content);
        EXPECT_THROW(List(EventsCommand::Format::kText), CtlError) << content;
        EXPECT_THAT(FailureOfTest<CtlError>("337", "default"), HasSubstr("holds no text of any event"))
            << content;
    }
}

TEST_F(EventsCommandTest, FifoInTheWay_IsNotWaitedFor) {
    std::filesystem::remove(root / "etc/locale.conf");
    ASSERT_EQ(mkfifo((root / "etc/locale.conf").c_str(), 0600), 0);
    EXPECT_THAT(FailureOfTest<CtlError>("337"), HasSubstr("etc/locale.conf is a FIFO"));
    std::filesystem::remove(root / "bin/bayward.msg");
    ASSERT_EQ(mkfifo((root / "bin/bayward.msg").c_str(), 0600), 0);
    EXPECT_THAT(FailureOfTest<CtlError>("337"), HasSubstr("bayward.msg is a FIFO"));
}

TEST_F(EventsCommandTest, Test_WritesTheServicesSentenceMarkedInEachLine) {
    Command().Test("0xC0008151", {});
    EXPECT_THAT(
        sink.entries,
        ElementsAre(
            Pair(LOG_ERR,
                 "A physical drive has failed: CTRL(TEST by baywardctl) PD(TEST) TEST of the alerting, "
                 "nothing has happened [TEST]"),
            Pair(LOG_ERR, "Replace the drive now; data is at risk until its array is rebuilt. [TEST]")));
    EXPECT_EQ(out.str(),
              "Written to the system log as \"bayward\", facility daemon, priority error, language default; "
              "test of "
              "VK0337 (0xC0008151):\n" +
                  sink.entries[0].second + "\n" + sink.entries[1].second + "\n");
    EXPECT_FALSE(std::filesystem::exists(root / "var")) << "no trace log";
}

TEST_F(EventsCommandTest, TestOfEveryEvent_IsMarkedInEachLine) {
    for (const EventInfo& event : EventTable()) {
        for (const char* language : {"default", "ja_JP"}) {
            sink.entries.clear();
            Command().Test(IdentifierText(event.id), language);
            EXPECT_EQ(sink.entries.size(), 2U);
            for (const auto& [priority, text] : sink.entries) {
                EXPECT_EQ(priority, SeverityName(event.id) == std::string("error") ? LOG_ERR : LOG_WARNING);
                EXPECT_THAT(text, testing::EndsWith(" [TEST]"));
            }
        }
    }
}

TEST_F(EventsCommandTest, TestWithoutLanguage_IsInTheSystems) {
    UseLocale("LANG=ja_JP.UTF-8\n");
    Command().Test("465", {});
    EXPECT_THAT(sink.entries.at(0).second, HasSubstr("ログイン"));
    EXPECT_THAT(out.str(), HasSubstr("language ja_JP; "));
}

TEST_F(EventsCommandTest, TestOnAnEucSystem_IsConverted) {
    UseLocale("LANG=ja_JP.eucJP\n");
    Command().Test("439", {});
    EXPECT_THAT(sink.entries.at(0).second, HasSubstr("\xcf\xc0\xcd\xfd"));  // "論理"
    EXPECT_THAT(out.str(), HasSubstr("language ja_JP, in EUC-JP; "));
    EXPECT_THAT(out.str(), HasSubstr("論理"));
}

TEST_F(EventsCommandTest, TestInAnotherLanguage_KeepsTheSystemsCodePage) {
    Command().Test("439", "ja_JP");
    EXPECT_THAT(sink.entries.at(0).second, HasSubstr("論理"));
}

TEST_F(EventsCommandTest, TestOfAnEventWithoutTextInTheLanguage_FallsBackAsTheServiceDoes) {
    UseCatalogue("[default]\nC00081D1=one%n%ntwo\n[ja_JP]\nC0008151=x\n");
    Command().Test("465", "ja_JP");
    EXPECT_THAT(sink.entries,
                ElementsAre(Pair(LOG_ERR, "one [TEST]"), Pair(LOG_ERR, ""), Pair(LOG_ERR, "two [TEST]")));
}

TEST_F(EventsCommandTest, TestOfAnEventWithoutAnyText_Fails) {
    UseCatalogue("[default]\nC00081D1=x\n");
    EXPECT_THAT(FailureOfTest<CtlError>("337"), HasSubstr("no text"));
}

TEST_F(EventsCommandTest, TestOfAnUnknownEventOrLanguage_IsWrongUsage) {
    EXPECT_THAT(FailureOfTest<UsageError>("0xC00081B8"), HasSubstr("baywardctl events"));
    EXPECT_THAT(FailureOfTest<UsageError>("337", "de_DE"), HasSubstr("it has: default, ja_JP."));
}

TEST_F(EventsCommandTest, TestWithoutLocaleFile_WantsALanguage) {
    std::filesystem::remove(root / "etc/locale.conf");
    root.Write("etc/os-release", "");
    EXPECT_THAT(FailureOfTest<CtlError>("337"), HasSubstr("etc/default/locale cannot be read"));
    Command().Test("337", "default");
    EXPECT_EQ(sink.entries.size(), 2U);
}

TEST_F(EventsCommandTest, TestWithoutLogDaemon_SaysSo) {
    Hush();
    EXPECT_THAT(FailureOfTest<CtlError>("337"), HasSubstr("Nobody listens at /dev/log"));
    std::filesystem::remove(root / "dev/log");
    EXPECT_THAT(FailureOfTest<CtlError>("337"), HasSubstr("Nobody listens at /dev/log"));
}

TEST_F(EventsCommandTest, TestWithAStreamSocket_IsWritten) {
    Listen(SOCK_STREAM);
    Command().Test("337", {});
    EXPECT_EQ(sink.entries.size(), 2U);
}

}  // namespace
