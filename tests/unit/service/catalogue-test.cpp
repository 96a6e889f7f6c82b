// The catalogue that ships: every reported event has a sentence in each language, and every Japanese one
// reaches the system log of a EUC-JP system whole.
#include <gtest/gtest.h>
#include <iconv.h>

#include <set>
#include <string>
#include <vector>

#include "server-profile.h"
#include "service-param.h"
#include "sys-log.h"
#include "test-root.h"

namespace {

const char* const kController = "HPE Smart Array P408i-a SR Gen10 [Slot 0]";
const char* const kLocation = "1I:1:1";
const char* const kDrive =
    "Model: EG001200JWJNQ Size: 1200 GB Serial Number: INVENTED0001 Firmware Revision: HPD3";

struct Reported {
    std::uint32_t id;
    std::vector<std::string> parameters;
};

std::vector<Reported> ReportedEvents() {
    std::vector<Reported> events;
    for (std::uint32_t id :
         {0xC0008151, 0x80008152, 0xC0008153, 0x8000815B, 0x80008154, 0xC0008155, 0x80008159}) {
        events.push_back({id, {kController, kLocation, kDrive}});
    }
    for (std::uint32_t id : {0xC00081B7, 0xC00081B9, 0xC00081BA, 0x800081BB}) {
        events.push_back({id, {kController, "1"}});
    }
    events.push_back({0xC00081D1, {}});
    return events;
}

class RecordingSink : public tova_service::SystemLogSink {
public:
    void Open(const char*, int, int) override {}
    void Write(int, const char* text) override { entries.emplace_back(text); }
    void Close() override {}

    std::vector<std::string> entries;
};

std::string FromEucJp(const std::string& text) {
    iconv_t converter = iconv_open("UTF-8", "EUC-JP");
    std::string in = text;
    std::string out(text.size() * 4 + 1, '\0');
    char* from = in.data();
    char* to = out.data();
    std::size_t fromLeft = in.size();
    std::size_t toLeft = out.size();
    const std::size_t result = iconv(converter, &from, &fromLeft, &to, &toLeft);
    iconv_close(converter);
    EXPECT_NE(result, static_cast<std::size_t>(-1)) << "not EUC-JP";
    out.resize(out.size() - toLeft);
    return out;
}

// The shipped catalogue and a service parameter object around it, in a file root of its own.
class Catalogue : public testing::Test {
protected:
    Catalogue() {
        root.Write("etc/opt/tarn/bayward/bayward.conf", "[log file]\n");
        root.Write("var/log/bayward/.keep", "");
        root.Write("opt/bin/bayward", "");
        std::filesystem::create_directories(root / "proc/self");
        std::filesystem::create_symlink(root / "opt/bin/bayward", root / "proc/self/exe");
        std::filesystem::copy_file(std::string(BAYWARD_SOURCE_DIR) + "/share/bayward.msg",
                                   root / "opt/bin/bayward.msg");
        parameter = std::make_unique<tova_service::ServiceParameter>(root.path());
        parameter->Initialize();
        parameter->PrepareMessage();
    }

    // What reaches the system log for one event on a system with this language and locale file.
    std::vector<std::string> Report(const std::string& locale, const Reported& reported) {
        root.Write("etc/locale.conf", locale);
        tova_service::system_info info(root.path());
        RecordingSink sink;
        parameter->PrepareSysLog(info, sink);
        tovaevent::EvtData event(reported.id);
        for (const std::string& text : reported.parameters) {
            event.AddParameter(text);
        }
        parameter->EventToLog(info.get_country_region(), event);
        parameter->PrepareSysLog(info);  // lets go of the sink
        return sink.entries;
    }

    TestRoot root;
    std::unique_ptr<tova_service::ServiceParameter> parameter;
};

TEST_F(Catalogue, EveryReportedEvent_HasOneOrTwoLinesInEachLanguage) {
    for (const char* locale : {"LANG=C\n", "LANG=ja_JP.UTF-8\n", "LANG=ja_JP.eucJP\n"}) {
        for (const Reported& reported : ReportedEvents()) {
            const std::vector<std::string> lines = Report(locale, reported);
            EXPECT_GE(lines.size(), 1u) << locale << std::hex << reported.id;
            EXPECT_LE(lines.size(), 2u) << locale << std::hex << reported.id;
        }
    }
}

TEST_F(Catalogue, EverySentence_NamesItsParameters) {
    for (const char* locale : {"LANG=C\n", "LANG=ja_JP.UTF-8\n"}) {
        for (const Reported& reported : ReportedEvents()) {
            std::string sentence;
            for (const std::string& line : Report(locale, reported)) {
                sentence += line;
            }
            for (const std::string& text : reported.parameters) {
                EXPECT_NE(sentence.find(text), std::string::npos)
                    << locale << std::hex << reported.id << sentence;
            }
        }
    }
}

TEST_F(Catalogue, EveryJapaneseSentence_SurvivesTheConversionToEucJp) {
    for (const Reported& reported : ReportedEvents()) {
        const std::vector<std::string> utf8 = Report("LANG=ja_JP.UTF-8\n", reported);
        const std::vector<std::string> euc = Report("LANG=ja_JP.eucJP\n", reported);
        ASSERT_EQ(euc.size(), utf8.size()) << std::hex << reported.id;
        for (std::size_t i = 0; i < euc.size(); ++i) {
            EXPECT_NE(euc[i], utf8[i]);
            EXPECT_EQ(FromEucJp(euc[i]), utf8[i]) << std::hex << reported.id;
        }
    }
}

TEST_F(Catalogue, JapaneseAndEnglish_AreDifferentTexts) {
    for (const Reported& reported : ReportedEvents()) {
        EXPECT_NE(Report("LANG=C\n", reported), Report("LANG=ja_JP.UTF-8\n", reported))
            << std::hex << reported.id;
    }
}

TEST_F(Catalogue, File_HoldsTheTwoSectionsWithExactlyTheReportedIdentifiers) {
    tovaserverutil::Profile profile(std::string(BAYWARD_SOURCE_DIR) + "/share/bayward.msg");
    profile.ReadProfile();
    std::set<std::uint32_t> expected;
    for (const Reported& reported : ReportedEvents()) {
        expected.insert(reported.id);
    }
    ASSERT_EQ(expected.size(), 12u);
    ASSERT_EQ(profile.sections().size(), 2u);
    EXPECT_EQ(profile.sections()[0].name, "default");
    EXPECT_EQ(profile.sections()[1].name, "ja_JP");
    for (const tovaserverutil::ProfileSection& section : profile.sections()) {
        std::set<std::uint32_t> keys;
        for (const auto& [key, text] : section.entries) {
            keys.insert(static_cast<std::uint32_t>(std::stoul(key, nullptr, 16)));
            EXPECT_FALSE(text.empty());
        }
        EXPECT_EQ(keys, expected) << section.name;
        EXPECT_EQ(section.entries.size(), expected.size()) << section.name;
    }
}

}  // namespace
