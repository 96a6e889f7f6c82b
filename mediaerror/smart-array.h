// The search for medium errors on the drives of Smart Array controllers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "evt-data.h"
#include "pd-maps.h"
#include "shell.h"

// Who is told of a drive with medium errors; see MediumErrorEventRoutine.
using MediumErrorReporter =
    std::function<void(tovaevent::EvtData evt, int port, int drive, std::string location,
                       std::uint32_t reference_time, std::string title, int count)>;

// One search. Reads the diagnostic report out of "ADUReport.zip" in the working directory, unless there is a
// test report in "KMT_ADUReport_test/", and removes the archive and what it unpacked. Rebuilds the facts
// about the drives of the report in `drives`, marks those that fail repeatedly, and tells `report` of every
// drive with medium errors. Without a report nothing happens. Throws what ReadAduReport, the drive map and
// `report` throw; the archive and the unpacked report are left then.
void SearchSmartArrays(tovaserverutil::CommandRunner& runner, pd_addr_map& drives,
                       const MediumErrorReporter& report);

// The same for the running service: m_PdAddrMap, MediumErrorEventRoutine and the real shell. Called by the
// media-error thread alone.
void check_serialLog();
