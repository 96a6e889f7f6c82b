// Reading texts: outputs of the RAID tools, the times in them, the message catalogue and its sentences.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "adu-report.h"
#include "adu-texts.h"
#include "event-time.h"
#include "message-format.h"
#include "storcli-events.h"
#include "test-root.h"

namespace {

constexpr std::size_t kTextSize = 8 * 1024 * 1024;  // bytes; more than a cache holds of its own

std::string Repeated(const std::string& piece) {
    std::string text;
    while (text.size() < kTextSize) {
        text += piece;
    }
    return text;
}

// Reads the text from a file again and again; `read` takes the lines and tells how many records there are.
template <typename Read>
void ReadFile(benchmark::State& state, const std::string& text, const Read& read) {
    const TestRoot root;
    root.Write("text", text);
    std::size_t records = 0;
    for (auto _ : state) {
        const auto lines = FileLines::OpenFirst({root / "text"});
        records = read(*lines);
    }
    if (records == 0) {
        state.SkipWithError("nothing was found in the text");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    state.counters["records"] = static_cast<double>(records);
}

void ReportParser(benchmark::State& state) {
    ReadFile(state, Repeated(FullReport()), [](LineSource& lines) {
        std::size_t records = 0;
        ReadAduReport(lines, {[&](const AduDrive&) { ++records; }, [&](const AduErrorLog&) { ++records; }});
        return records;
    });
}
BENCHMARK(ReportParser)->Unit(benchmark::kMillisecond);

std::string Event(const std::string& description) {
    return "\n\nseqNum: 0x00011042\nTime: Fri Oct  2 05:41:23 2026\n\nCode: 0x0000005d\nClass: 0\nLocale: "
           "0x02\n"
           "Event Description: " +
           description + "\nEvent Data:\n===========\nDevice ID: 10\nEnclosure Index: 252\nSlot Number: 3\n";
}

// Of a number of events one is a corrected medium error.
void EventLogParser(benchmark::State& state) {
    std::string piece = Event("Patrol Read corrected medium error on PD 0a(e0xfc/s3) at 1aea556");
    for (std::int64_t other = 1; other < state.range(0); ++other) {
        piece += Event("Unexpected sense: PD 0a(e0xfc/s3) Path 5000000000000001, CDB: 4d 00, Sense: 5/24/00");
    }
    ReadFile(state, Repeated(piece), [](LineSource& lines) {
        std::size_t records = 0;
        ReadCorrectedErrors(lines, [&](const CorrectedError&) { ++records; });
        return records;
    });
}
BENCHMARK(EventLogParser)->ArgName("one_in")->Arg(1)->Arg(4)->Arg(100)->Unit(benchmark::kMillisecond);

// A minute of thirty days for each event.
std::vector<std::string> EventTimeTexts() {
    std::vector<std::string> texts;
    for (int minute = 0; minute < 30 * 24 * 60; minute += 43) {
        char text[32];
        std::snprintf(text, sizeof text, "Fri Jun %2d %02d:%02d:23 2026", 1 + minute / (24 * 60),
                      minute / 60 % 24, minute % 60);
        texts.emplace_back(text);
    }
    return texts;
}

void TimesOfOneLog(benchmark::State& state) {
    const std::vector<std::string> texts = EventTimeTexts();
    for (auto _ : state) {
        EventTimes converter;
        for (const std::string& text : texts) {
            benchmark::DoNotOptimize(converter.Seconds(text));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}
BENCHMARK(TimesOfOneLog);

void TimesOneByOne(benchmark::State& state) {
    const std::vector<std::string> texts = EventTimeTexts();
    for (auto _ : state) {
        for (const std::string& text : texts) {
            benchmark::DoNotOptimize(datestr_to_num(text));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}
BENCHMARK(TimesOneByOne);

const std::string kCatalogue = std::string(BAYWARD_SOURCE_DIR) + "/share/bayward.msg";

void CatalogueLoad(benchmark::State& state) {
    for (auto _ : state) {
        tova_service::MessageCatalogue catalogue;
        catalogue.Load(kCatalogue);
        benchmark::DoNotOptimize(catalogue.Find("default", tovaevent::kDriveFailed));
    }
}
BENCHMARK(CatalogueLoad)->Unit(benchmark::kMicrosecond);

// The sentence of a failed drive with the parameters that it has.
void Format(benchmark::State& state) {
    const std::string text = "A physical drive has failed: %1 %2%3%nReplace the drive now.";
    const std::vector<std::string> parameters{
        "CTRL(HPE Smart Array P408i-a SR Gen10 [Slot 0])", "PD(1I:1:1)",
        " Model: VK000960GWTTB Size: 960 GB Serial Number: S3J7NX0M Firmware Revision: HPG1"};
    for (auto _ : state) {
        std::string sentence;
        tova_service::ExpandMessage(sentence, text, parameters);
        benchmark::DoNotOptimize(sentence.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Format);

}  // namespace
