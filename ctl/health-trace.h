// What the trace log tells about the service's threads.
#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <string>

#include "health-report.h"

// Forgets an outcome that a later cycle would have told again. `cycle`: from one to the next, in seconds.
void ForgetWhatIsOver(ThreadTrace& trace, std::uint64_t now, std::uint64_t cycle);

// Reads trace lines, oldest first, and keeps what the last ones of the present run tell, by the threads'
// names. Lines that no thread can be told for are passed over, and so is what is no trace line at all.
class TraceReading {
public:
    // Lines stamped before `since`, in seconds since the epoch, are of an earlier run.
    explicit TraceReading(std::uint64_t since = 0) : m_since(since) {}
    void Read(std::istream& lines);
    // Empty for a thread without lines.
    ThreadTrace Of(const std::string& thread) const;

private:
    void TakeLine(const std::string& line);

    std::uint64_t m_since;
    std::map<std::string, ThreadTrace> m_threads;
    std::string
        m_reason;  // why the controller could not be asked, told just before the failure it belongs to
};
