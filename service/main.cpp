// Process entry: a foreground run with --stand-alone as the first argument, a daemon otherwise.
#include <unistd.h>

#include <cstring>

#include "service.h"

namespace {
constexpr const char* kStandAloneOption = "--stand-alone";
}

int main(int argc, char** argv) {
    const bool standAlone = argc > 1 && std::strcmp(argv[1], kStandAloneOption) == 0;
    if (!standAlone && daemon(0, 0) != 0) {
        return -1;
    }
    try {
        ServiceMain(standAlone ? kStandAlone : kDaemon, nullptr);
    } catch (...) {
        // Whatever could be written has been written; the exit status is 0 in any case.
    }
    return 0;
}
