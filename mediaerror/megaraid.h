// The search for corrected medium errors on the drives of MegaRAID controllers.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clock.h"
#include "error-times.h"
#include "pd-maps.h"
#include "server-util.h"
#include "service-param.h"
#include "shell.h"
#include "storcli-events.h"
#include "storcli-listings.h"

struct StorcliListing;  // one of the tool's outputs

// What a search works with; everything is borrowed.
struct MegaRaidContext {
    tovaserverutil::CommandRunner& runner;
    pd_report_map& reports;  // what has been reported already
    tova_service::ServiceParameter& parameter;
    const std::string& language;  // country and region, as EventToLog takes it
    const tovaserverutil::WallClock& clock;
    const tovaserverutil::Event* stop = nullptr;  // the thread's, looked at and not consumed; null: never
};

// The corrected medium errors that one drive has in the event log.
struct MediumErrors {
    std::uint64_t count = 0;
    ErrorTimes times;
};

// Does the drive deserve an event? At least 20 errors, and the newest 19 of them within less than seven days.
// The numbers differ deliberately.
bool ErrsRepeatedly(const MediumErrors& errors);

// The device id of the drive with the error: the id that the event gives, else that of the drive in the
// event's place. Nothing when neither is known.
std::optional<unsigned int> DeviceOf(const CorrectedError& error, const std::vector<StorcliDrive>& drives);

// One search; make a new object for the next one. Has storcli64 list controllers, drives and event logs into
// files in the working directory, reads them and removes them. A file of the test input folder
// ("KMT_ADUReport_test/" in the working directory) is read instead of the listing that it stands for.
class MegaRaidSearch {
public:
    explicit MegaRaidSearch(const MegaRaidContext& context) : m_context(context) {}

    // A drive that errs repeatedly raises event 0x80008159 once; every other drive with errors, and that
    // drive from then on, gets a trace line, at most one in seven days. Without storcli64, or when it cannot
    // list the controllers, nothing is reported. A search goes on to its end when the stop is set, but not
    // for ever: one that still lists drives a minute later ends without a report of that controller and those
    // behind it. Throws what the trace log, EventToLog and the drive maps throw; working files may be left
    // then.
    void Run();

private:
    std::vector<unsigned int> check_MRController();
    // Enters the controller's drives into m_drives; only some of them when m_ended is set.
    StorcliController check_MRDevice(unsigned int number);
    StorcliPlace get_box_num(unsigned int controller, const StorcliDrive& drive);
    // The log; null when there is none.
    std::unique_ptr<LineSource> output_storcli_events(unsigned int controller);

    // To be asked before each of the drives, of which there may be too many.
    bool IsStoppedForLong();
    void Report(unsigned int number, const StorcliController& controller, unsigned int device,
                const MediumErrors& errors);

    // Runs the tool with its standard output in the listing's file. Controllers, enclosures and slots come
    // into the arguments as numbers.
    tovaserverutil::CommandResult List(const std::string& arguments, const StorcliListing& listing);

    MegaRaidContext m_context;
    pd_addr_map m_drives;                     // by controller number
    std::optional<std::uint64_t> m_stopSeen;  // when the stop was seen first
    bool m_ended = false;                     // by the stop
};

// The same for the running service: m_PdReportMap_Mr, Parameter, LocalSystemInfo, the real shell
// and the time of day. Called by the media-error thread alone.
void check_MegaRaid_Event(const tovaserverutil::Event* stop = nullptr);
