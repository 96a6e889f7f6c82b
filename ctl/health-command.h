// What "baywardctl health" does.
#pragma once

#include <string>

#include "commands.h"
#include "health-report.h"

enum class HealthFormat { kTable, kJson, kPrometheus, kNagios };

// What the system and the trace log tell of the service; asks neither the service nor the controller. Throws
// CtlError when that cannot be found out.
//
// Sets the TZ of this process to the service's, in which the trace log is stamped, and leaves it so: no other
// thread may read the environment meanwhile. A zone that names a file by its path is not taken; the system's
// is, instead.
HealthReport ReadHealth(const CtlDoors& doors);

// Shows it; changes nothing but the file that it is told to write.
class HealthCommand {
public:
    // An empty `file` stands for standard output.
    HealthCommand(const CtlDoors& doors, HealthFormat format, std::string file)
        : m_doors(doors), m_format(format), m_file(std::move(file)) {}

    // Returns the exit status, a HealthLevel. Throws CtlError; but for the table for people the failure is
    // written as a result, too, and in the format for Nagios it is one: no exception then.
    int Run();

private:
    std::string Render(const HealthReport& report) const;
    void Put(const std::string& text);
    // False when the sentence has not become a result.
    bool PutFailure(const std::string& sentence);

    const CtlDoors& m_doors;
    HealthFormat m_format;
    std::string m_file;
};
