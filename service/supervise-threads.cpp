#include <poll.h>

#include <cerrno>
#include <memory>

#include "service-body.h"

namespace {

constexpr const char* kUnit = "main-routine";
constexpr unsigned long kConsoleHintMode = 0xFFFFFFFF;

using tova_service::ServiceParameter;
using tovaserverutil::Event;
using tovaserverutil::Thread;
using tovaserverutil::TraceLog;

// The threads with their stop events, in start order; taken down in reverse.
class ThreadList {
public:
    // Makes all stop events, no thread yet. `systemInfo` is the caller's, and what every thread reads.
    ThreadList(const std::vector<MonitoringThread>& threads,
               std::unique_ptr<tova_service::system_info>& systemInfo)
        : m_systemInfo(systemInfo) {
        for (const MonitoringThread& thread : threads) {
            m_entries.push_back(std::make_unique<Entry>(thread));
        }
    }
    ~ThreadList() {
        for (const auto& entry : m_entries) {
            EndQuietly(*entry);
        }
        while (!m_entries.empty()) {
            if (IsUnjoined(*m_entries.back())) {
                // It could not be told to stop, so it may wait on its stop event and read the system
                // information until the process ends. Neither is freed, on purpose; its holder may go, what
                // that shares with the thread outlives it.
                m_entries.back()->thread.reset();
                [[maybe_unused]] const Entry* const kept = m_entries.back().release();
                [[maybe_unused]] const auto* const keptInfo = m_systemInfo.release();
            }
            m_entries.pop_back();
        }
    }
    ThreadList(const ThreadList&) = delete;
    ThreadList& operator=(const ThreadList&) = delete;

    void Start(const ServiceParameter& parameter, TraceLog& log) {
        for (const auto& entry : m_entries) {
            if (IsWanted(*entry, parameter)) {
                entry->thread = std::make_unique<Thread>(entry->kind.routine, &entry->stop, entry->kind.name);
                entry->thread->Run();
                log.Write("%s", entry->kind.startLine);
            }
        }
    }

    // One thread after the other: a slow one delays those after it, never the order.
    void StopAndJoin(const ServiceParameter& parameter, TraceLog& log) {
        for (const auto& entry : m_entries) {
            if (!IsWanted(*entry, parameter)) {
                continue;
            }
            try {
                entry->stop.Set();
                if (entry->thread != nullptr) {
                    entry->thread->Join();
                    log.Write("%s", entry->kind.joinLine);
                }
            } catch (...) {
                tovaserverutil::LogCurrentException(log, kUnit, __LINE__);
            }
        }
    }

private:
    struct Entry {
        explicit Entry(const MonitoringThread& description) : kind(description) {}
        MonitoringThread kind;
        std::unique_ptr<Thread> thread;
        Event stop;
    };

    static bool IsUnjoined(const Entry& entry) {
        return entry.thread != nullptr && entry.thread->IsUnjoined();
    }

    // For the threads that StopAndJoin has not seen to the end: the trace log itself failed before or in it.
    static void EndQuietly(Entry& entry) {
        if (!IsUnjoined(entry)) {
            return;
        }
        try {
            entry.stop.Set();
            entry.thread->Join();
        } catch (const tovabase::TOVAExcpt&) {
            // It stays unjoined.
        }
    }

    static bool IsWanted(const Entry& entry, const ServiceParameter& parameter) {
        return entry.kind.startedOnlyIf == nullptr || (parameter.*entry.kind.startedOnlyIf)();
    }

    std::vector<std::unique_ptr<Entry>> m_entries;
    std::unique_ptr<tova_service::system_info>& m_systemInfo;
};

void WaitForStop(Event& stop, unsigned long mode, TraceLog& log) {
    log.Write("<VK0900> [TR] Ready to wait stop event.");
    // Deliberately the 32-bit all-ones value: a foreground run passes the 64-bit one, so it never writes this
    // line.
    if (mode == kConsoleHintMode) {
        log.Write("<VK0900> [TR] [CTRL]+[C] to exit.");
    }
    for (;;) {
        pollfd readable{stop.ReadEnd(), POLLIN, 0};
        const int ready = poll(&readable, 1, -1);
        if (ready < 0) {
            tovabase::ThrowSystemError(kUnit, __LINE__, errno);
        }
        if (ready > 0) {
            break;
        }
        log.Write("<VK0900> [TR] WaitOne for StopEvent timed out.");
    }
    stop.Consume();
    log.Write("<VK0900> [TR] Receive StopEvent.");
}

}  // namespace

void SuperviseThreads(ServiceParameter& parameter, Event* stop, const std::vector<MonitoringThread>& threads,
                      unsigned long mode, tova_service::system_info*& info,
                      tova_service::SystemLogSink& sink) {
    TraceLog& log = parameter.Log();
    log.Write("<VK0900> [TR] MainRoutine started.");
    std::unique_ptr<tova_service::system_info> systemInfo;
    ThreadList running(threads, systemInfo);
    try {
        systemInfo = std::make_unique<tova_service::system_info>(parameter.root());
        info = systemInfo.get();
        log.Write("<VK0900> [TR] Get LocalSystemInfo.");
        parameter.PrepareMessage();
        parameter.PrepareSysLog(*systemInfo, sink);
        running.Start(parameter, log);
    } catch (...) {
        // The service stays up, with the threads that did start, until it is told to stop.
        tovaserverutil::LogCurrentException(log, kUnit, __LINE__);
    }
    if (stop != nullptr) {
        try {
            WaitForStop(*stop, mode, log);
        } catch (...) {
            tovaserverutil::LogCurrentException(log, kUnit, __LINE__);
        }
    }
    running.StopAndJoin(parameter, log);
}
