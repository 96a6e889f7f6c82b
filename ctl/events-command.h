// What "baywardctl events" does.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "commands.h"
#include "events-table.h"
#include "message-format.h"
#include "sys-log.h"

class EventsCommand {
public:
    enum class Format { kText, kJson };

    // The sink is borrowed.
    explicit EventsCommand(CtlDoors doors,
                           tova_service::SystemLogSink& sink = tova_service::SystemLogSink::Real())
        : m_doors(std::move(doors)), m_sink(sink) {}

    // Writes the catalogue, in all its languages or in one. Throws UsageError for a language that it lacks,
    // CtlError when it cannot be read.
    void List(Format format, const std::optional<std::string>& language);

    // Writes one test event to the system log, as the service formats and writes it, in the given language or
    // the system's; the trace log is left alone. Throws UsageError when there is no such event or language,
    // CtlError when it cannot be written.
    void Test(const std::string& event, const std::optional<std::string>& language);

private:
    tova_service::MessageCatalogue Load(const std::optional<std::string>& language) const;

    CtlDoors m_doors;
    tova_service::SystemLogSink& m_sink;
};
