// Lines per second into the trace log.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

#include "server-util.h"
#include "test-root.h"

namespace {

constexpr std::uint64_t kUsualLimit = 4 * 1024 * 1024;  // bytes, the service's default

// One log that all threads of a run write to.
class TraceLogLines : public benchmark::Fixture {
public:
    void SetUp(const benchmark::State& state) override {
        if (state.thread_index() == 0) {
            m_root = std::make_unique<TestRoot>();
            m_log = std::make_unique<tovaserverutil::TraceLog>(
                *m_root / "bayward.log", static_cast<std::uint64_t>(state.range(0)), true);
        }
    }
    void TearDown(const benchmark::State& state) override {
        if (state.thread_index() == 0) {
            m_log.reset();
            m_root.reset();
        }
    }

protected:
    void Write(benchmark::State& state) {
        unsigned int number = 0;
        for (auto _ : state) {
            // About a hundred bytes with the stamp, as most lines of the service are.
            if (!m_log->Write("<VK0900> [TR] %s %u of %s", "MonitorLogRoutine", ++number,
                              "/redfish/v1/Systems/1/SmartStorage/")) {
                state.SkipWithError("a line was not written");
            }
        }
        if (state.thread_index() == 0) {
            constexpr std::int64_t kLeast = 90;  // bytes of a line
            if (m_root->Read("bayward.log").empty()) {
                state.SkipWithError("the log is empty");
            } else if (state.iterations() * kLeast > state.range(0) + kLeast &&
                       m_root->Read("bayward.log.bak").empty()) {
                state.SkipWithError("no new file was begun");
            }
        }
        state.SetItemsProcessed(state.iterations());
    }

private:
    std::unique_ptr<TestRoot> m_root;
    std::unique_ptr<tovaserverutil::TraceLog> m_log;
};

BENCHMARK_DEFINE_F(TraceLogLines, Write)(benchmark::State& state) {
    Write(state);
}
// A new file after some 40,000 lines, so several times over; after 600; with every line.
constexpr int kLines = 250000;
BENCHMARK_REGISTER_F(TraceLogLines, Write)
    ->ArgName("limit")
    ->Arg(kUsualLimit)
    ->Iterations(kLines)
    ->UseRealTime();
BENCHMARK_REGISTER_F(TraceLogLines, Write)->ArgName("limit")->Arg(64 * 1024)->Arg(0)->UseRealTime();
BENCHMARK_REGISTER_F(TraceLogLines, Write)
    ->ArgName("limit")
    ->Arg(kUsualLimit)
    ->Iterations(kLines / 3)
    ->Threads(3)
    ->UseRealTime();

}  // namespace
