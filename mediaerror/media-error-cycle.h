// The media-error thread's work: a fresh diagnostic report per cycle, and the searches for medium errors.
#pragma once

#include <functional>

#include "server-util.h"
#include "service-param.h"
#include "shell.h"

// What the thread works with; everything is borrowed.
struct MediaErrorContext {
    tova_service::ServiceParameter& parameter;
    tovaserverutil::Event& stop;
    tovaserverutil::CommandRunner& runner;
    std::function<void()> letReportSettle;  // the pause between the diagnostic command and the searches
    std::function<void()> searchSmartArray;
    std::function<void()> searchMegaRaid;
};

// The thread's body, until the stop: a cycle, a wait, a cycle ... The stop is deliberately waited for in the
// wait alone; one that comes during a cycle is honoured at its end, which a search that sees it may bring
// nearer. An exception that leaves the cycle is traced and ends the thread. Either way the files that the
// cycles left in the working directory are removed. Throws nothing but failures of the trace log and
// std::bad_alloc.
void RunMediaErrorSearch(const MediaErrorContext& context);
