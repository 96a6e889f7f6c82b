#include "medium-error-event.h"

#include <utility>

#include "system-info.h"

namespace {

// A clock that was set back makes the difference wrap round to a huge number: a line too many, never a
// silence that lasts until the old time is reached again.
void TraceAtMostOnceInSevenDays(const MediumErrorContext& context, std::uint64_t now,
                                const std::string& location, const std::string& serial, int count) {
    if (now - context.drives.find_trace_time(serial) < kTraceSpacing) {
        return;
    }
    context.drives.set_trace_time(serial, now);
    context.parameter.Log().Write("[EV] (%lu) Medium Errors detected on [%s] Serial Number:%s",
                                  static_cast<unsigned long>(count), location.c_str(), serial.c_str());
}

}  // namespace

void ReportMediumErrors(const MediumErrorContext& context, tovaevent::EvtData event, int port, int drive,
                        const std::string& location, std::uint32_t /*referenceTime*/,
                        const std::string& title, int count) {
    const std::uint64_t now = context.clock.Now();
    const std::string serial = context.drives.find_serial(location);
    const bool marked = context.drives.is_intermittent(port, drive);
    if (marked && context.drives.find_event_time(serial) == 0) {
        context.drives.set_event_time(serial, now);
        event.SetId(tovaevent::kMediumErrors);
        event.AddParameter(title);
        event.AddParameter(location);
        event.AddParameter(" Serial Number: " + serial);
        context.parameter.EventToLog(context.language, event);
    } else if (marked || count >= 1) {
        TraceAtMostOnceInSevenDays(context, now, location, serial, count);
    }
}

// NOLINTBEGIN(performance-unnecessary-value-param): the texts come by value, as the interface has it
void MediumErrorEventRoutine(tovaevent::EvtData evt, int port, int drive, std::string location,
                             std::uint32_t reference_time, std::string title, int count) {
    const tovaserverutil::WallClock clock;
    ReportMediumErrors({m_PdAddrMap, *Parameter, LocalSystemInfo->get_country_region(), clock},
                       std::move(evt), port, drive, location, reference_time, title, count);
}
// NOLINTEND(performance-unnecessary-value-param)
