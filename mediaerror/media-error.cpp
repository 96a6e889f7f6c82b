#include "media-error.h"

#include <chrono>
#include <thread>

#include "media-error-cycle.h"
#include "megaraid.h"
#include "smart-array.h"

std::uint64_t m_media_error_count = 0;
std::uint64_t m_media_error_period = 0;
std::uint64_t m_media_error_intermittently_count = 0;
std::uint64_t m_media_error_intermittently_period = 0;

namespace {

constexpr std::chrono::seconds kReportSettles{30};  // the tool may still write when its command has ended

void LetReportSettle() {
    std::this_thread::sleep_for(kReportSettles);
}

}  // namespace

std::uint64_t MediaErrorRoutine(void* stopEvent) {
    tovaserverutil::ShellRunner runner;
    auto& stop = *static_cast<tovaserverutil::Event*>(stopEvent);
    RunMediaErrorSearch({*Parameter, stop, runner, &LetReportSettle, &check_serialLog,
                         [&stop] { check_MegaRaid_Event(&stop); }});
    return 0;
}
