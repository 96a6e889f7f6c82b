// One look at the controller, as the service looks at it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "controller-access.h"
#include "request-cutter.h"
#include "rest-bridge.h"
#include "shell.h"
#include "stop-wait.h"
#include "storage-model.h"

struct ControllerRead {
    bool complete = false;  // false: a stop was seen, the rest has no meaning
    std::string url;        // that was used: of the virtual NIC, where this host has it
    std::string version;    // of the controller's firmware
    bool verified = false;  // its certificate was
    unsigned requests = 0;  // resources that were read; some come several to a request
    std::chrono::milliseconds duration{};
    ServiceRoot snapshot;
};

// How a read is followed and ended; borrowed.
struct ReadControl {
    tovaserverutil::StopWait& stop;           // ends the read at the next request
    RequestCutter& cutter;                    // is told of the log-out
    std::function<void(unsigned)> onRequest;  // called before each request with how many it makes
};

// Logs in, reads everything with the service's reader and logs out, whatever happens. Throws CtlError.
ControllerRead ReadController(std::unique_ptr<RestBridge> bridge, tovaserverutil::CommandRunner& commands,
                              const ControllerSettings& settings, const RegisteredAccount& account,
                              const ReadControl& control);
