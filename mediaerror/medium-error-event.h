// The report of one drive's medium errors: an event, a trace line, or silence.
#pragma once

#include <cstdint>
#include <string>

#include "clock.h"
#include "evt-data.h"
#include "pd-maps.h"
#include "service-param.h"

// The least time between two trace lines of one drive, in seconds: seven days.
inline constexpr std::uint64_t kTraceSpacing = 604800;

// Where a report reads its facts and leaves its traces; everything is borrowed.
struct MediumErrorContext {
    pd_addr_map& drives;
    tova_service::ServiceParameter& parameter;
    const std::string& language;  // country and region, as EventToLog takes it
    const tovaserverutil::WallClock& clock;
};

// A drive that is marked as failing repeatedly raises event 0x80008159 once per serial number; every other
// report is a trace line, at most one in seven days per serial number. `location` finds the serial number
// (unknown: the empty one, which all such drives share), `port` and `drive` the mark. `event` is filled in
// when it is raised, with title, location and serial number; `referenceTime` is accepted and not used. A
// `count` of 0 is nothing to report unless the drive is marked. Throws what the trace log and EventToLog
// throw.
void ReportMediumErrors(const MediumErrorContext& context, tovaevent::EvtData event, int port, int drive,
                        const std::string& location, std::uint32_t referenceTime, const std::string& title,
                        int count);

// The same for the running service: m_PdAddrMap, Parameter, LocalSystemInfo and the time of day.
// Called by the media-error thread alone.
void MediumErrorEventRoutine(tovaevent::EvtData evt, int port, int drive, std::string location,
                             std::uint32_t reference_time, std::string title, int count);
