#include "media-error.h"
#include "monitor-log.h"
#include "serial-log.h"
#include "service-body.h"
#include "service-param.h"
#include "service.h"
#include "system-info.h"
#include "thread-names.h"

void MainRoutine(unsigned long mode, char** /*argv*/) {
    const std::vector<MonitoringThread> threads = {
        {kOsLogThread, &MonitorLogRoutine, "<VK0900> [TR] Create thread for OS log.",
         "<VK0900> [TR] Join thread for OS log.", nullptr},
        {kSerialLogThread, &SerialLogRoutine, "<VK0900> [TR] Create thread for Serial log.",
         "<VK0900> [TR] Join thread for Serial log.", nullptr},
        {kMediaErrorThread, &MediaErrorRoutine, "<VK0900> [TR] Create thread for Media Error.",
         "<VK0900> [TR] Join thread for Media Error.", &tova_service::ServiceParameter::mediaErrorCheck},
    };
    SuperviseThreads(*Parameter, StopEvent, threads, mode, LocalSystemInfo,
                     tova_service::SystemLogSink::Real());
}
