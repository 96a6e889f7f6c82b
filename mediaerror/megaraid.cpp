#include "megaraid.h"

#include <utility>

#include "kept.h"
#include "medium-error-event.h"
#include "system-info.h"
#include "working-files.h"

using tovaserverutil::CommandResult;

// The file that the output goes to, and the one that stands for it in the test input folder.
struct StorcliListing {
    const char* file;
    const char* testFile;
};

namespace {

constexpr const char* kTool = "/opt/MegaRAID/storcli/storcli64";

constexpr StorcliListing kControllers{kControllersFile, "KMT_ADUReport_test/storcli_show_all_test.txt"};
constexpr StorcliListing kController{kControllerFile, "KMT_ADUReport_test/storcli_cx_show_test.txt"};
constexpr StorcliListing kDrive{kDriveFile, "KMT_ADUReport_test/storcli_device_show_all.txt"};
constexpr StorcliListing kEvents{kEventsFile, "KMT_ADUReport_test/storcli_show_events.txt"};

constexpr std::uint64_t kManyErrors = 19;  // more than this
constexpr std::size_t kNewest = 19;
constexpr std::uint64_t kWithin = 604799;  // seconds: seven days less one second

// How long a search that sees the stop goes on listing drives, in seconds. Those of an ordinary server are
// listed by then; many made-up ones, each of which may take its command's whole deadline, would take days.
constexpr std::uint64_t kStopGrace = 60;

// The listing as the command left it; null when there is none.
std::unique_ptr<LineSource> Open(const StorcliListing& listing, const CommandResult& result) {
    // The exit status does not matter: one failed drive makes it non-zero, with the listing complete. A shell
    // that did not start leaves the file of the controller before.
    std::vector<std::string> paths{listing.testFile};
    if (result.started) {
        paths.emplace_back(listing.file);
    }
    return FileLines::OpenFirst(paths);
}

std::string Path(unsigned int controller) {
    return " /c" + std::to_string(controller);
}

std::string Title(const StorcliController& controller) {
    return controller.product + (controller.slot.empty() ? "" : " [Slot=" + controller.slot + "]");
}

}  // namespace

bool ErrsRepeatedly(const MediumErrors& errors) {
    const auto span = errors.times.SpanOfNewest(kNewest);
    return errors.count > kManyErrors && span && *span <= kWithin;
}

std::optional<unsigned int> DeviceOf(const CorrectedError& error, const std::vector<StorcliDrive>& drives) {
    if (error.device) {
        return error.device;
    }
    for (const StorcliDrive& drive : drives) {
        if (error.enclosure == drive.enclosure.value_or(CorrectedError::kNoEnclosure) &&
            error.slot == drive.slot) {
            return drive.device;
        }
    }
    return std::nullopt;
}

void MegaRaidSearch::Run() {
    m_drives.clear_map();
    for (const unsigned int number : check_MRController()) {
        const StorcliController controller = check_MRDevice(number);
        if (m_ended) {
            break;  // not all its drives are known; the service's next run reads the whole log again
        }
        // Device ids repeat on the next controller.
        std::map<unsigned int, MediumErrors> errorsByDevice;
        if (const auto lines = output_storcli_events(number)) {
            ReadCorrectedErrors(*lines, [&](const CorrectedError& error) {
                const auto device = DeviceOf(error, controller.drives);
                if (device && (errorsByDevice.size() < kMaxDrives || errorsByDevice.count(*device) != 0)) {
                    MediumErrors& errors = errorsByDevice[*device];
                    ++errors.count;
                    errors.times.Add(error.time);
                }
            });
        }
        for (const auto& [device, errors] : errorsByDevice) {
            Report(number, controller, device, errors);
        }
    }
    RemoveWorkingFile(m_context.runner, kControllersFile);
    RemoveWorkingFile(m_context.runner, kEventsFile);
    RemoveWorkingFile(m_context.runner, kStorcliOwnFile);
}

std::vector<unsigned int> MegaRaidSearch::check_MRController() {
    const CommandResult result = List(" show", kControllers);
    const auto lines = result.Succeeded() ? Open(kControllers, result) : nullptr;
    return lines == nullptr ? std::vector<unsigned int>() : ParseControllers(*lines);
}

StorcliController MegaRaidSearch::check_MRDevice(unsigned int number) {
    const CommandResult result = List(Path(number) + " show", kController);
    const auto lines = Open(kController, result);
    StorcliController controller = lines == nullptr ? StorcliController() : ParseController(*lines);

    pd_addr drives;
    int driveNumber = 0;
    for (const StorcliDrive& drive : controller.drives) {
        if (IsStoppedForLong()) {
            m_ended = true;
            break;
        }
        const StorcliPlace place = get_box_num(number, drive);
        const std::string location =
            "Port=" + place.port + ",Box=" + place.box + ",Bay=" + std::to_string(drive.slot);
        const auto port = ParseDecimal(place.port, kMaxPlace);
        const auto box = ParseDecimal(place.box, kMaxPlace);
        drives.add(++driveNumber, static_cast<int>(drive.device), "", location,
                   static_cast<int>(port.value_or(0)), static_cast<int>(box.value_or(0)),
                   static_cast<int>(drive.slot));
    }
    m_drives.insert(static_cast<int>(number), drives);
    RemoveWorkingFile(m_context.runner, kControllerFile);
    return controller;
}

bool MegaRaidSearch::IsStoppedForLong() {
    if (m_context.stop == nullptr || !m_context.stop->IsSet()) {
        return false;
    }
    const std::uint64_t now = m_context.clock.Now();
    if (!m_stopSeen) {
        m_stopSeen = now;
    }
    // A clock that was set back ends the search as well.
    return now - *m_stopSeen > kStopGrace;
}

StorcliPlace MegaRaidSearch::get_box_num(unsigned int controller, const StorcliDrive& drive) {
    const std::string enclosure = drive.enclosure ? "/e" + std::to_string(*drive.enclosure) : "";
    const CommandResult result =
        List(Path(controller) + enclosure + "/s" + std::to_string(drive.slot) + " show all", kDrive);
    const auto lines = Open(kDrive, result);
    StorcliPlace place = lines == nullptr ? StorcliPlace() : ParsePlace(*lines);
    RemoveWorkingFile(m_context.runner, kDriveFile);
    return place;
}

std::unique_ptr<LineSource> MegaRaidSearch::output_storcli_events(unsigned int controller) {
    const CommandResult result = List(Path(controller) + " show events", kEvents);
    return Open(kEvents, result);
}

void MegaRaidSearch::Report(unsigned int number, const StorcliController& controller, unsigned int device,
                            const MediumErrors& errors) {
    const std::uint64_t now = m_context.clock.Now();
    const int key = pd_report_map::key(number, device);
    if (ErrsRepeatedly(errors) && m_context.reports.find_event_time(key) == 0) {
        const int port = static_cast<int>(number);
        m_context.reports.set_event_time(key, now);
        tovaevent::EvtData event(tovaevent::kMediumErrors);
        event.AddParameter(Title(controller));
        // Empty for a drive that has been taken out since its errors.
        event.AddParameter(
            m_drives.find_location(port, m_drives.find_pd_id_from_crtl_id(port, static_cast<int>(device))));
        event.AddParameter("");
        m_context.parameter.EventToLog(m_context.language, event);
        return;
    }
    // A clock that was set back makes the difference wrap round to a huge number: a line too many, never a
    // silence that lasts until the old time is reached again.
    const std::uint64_t last = m_context.reports.find_trace_time(key);
    if (last != 0 && now - last < kTraceSpacing) {
        return;
    }
    m_context.reports.set_trace_time(key, now);
    m_context.parameter.Log().Write("[EV] (%lu) Medium Errors detected on pid:%d",
                                    static_cast<unsigned long>(errors.count), static_cast<int>(device));
}

CommandResult MegaRaidSearch::List(const std::string& arguments, const StorcliListing& listing) {
    return m_context.runner.Execute(kTool + arguments + " > " + listing.file,
                                    tovaserverutil::kListingDeadline);
}

void check_MegaRaid_Event(const tovaserverutil::Event* stop) {
    tovaserverutil::ShellRunner runner;
    const tovaserverutil::WallClock clock;
    MegaRaidSearch({runner, m_PdReportMap_Mr, *Parameter, LocalSystemInfo->get_country_region(), clock, stop})
        .Run();
}
