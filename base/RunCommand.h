// A command of Windows' command processor.
#pragma once

#include <stdlib.h>

#include <string>

// Any thread. Blocks until the command has ended and returns its exit code.
inline int RunCommand(const std::string& command) {
    return system(command.c_str());
}
