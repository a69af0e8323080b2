// `mpmsim run`: a firmware that stays up until a signal ends it, and prints what happens.
#pragma once

#include <string>
#include <vector>

#include "firmware/web/WebServer.h"

namespace mpm::control {

struct RunOptions {
    std::string listen, settingsFile, recordFile, controlSocket, dash, kvm, readyFile, certificateFile;
    std::vector<std::string> set;  // "key=value", over the file
    bool quiet = false;
    web::WebOptions web;
};

// Returns the exit code. Throws std::invalid_argument for arguments that cannot be right, std::runtime_error
// for what went wrong.
int Run(const RunOptions& options);

}  // namespace mpm::control
