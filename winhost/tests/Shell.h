// Commands for the shell of Linux, while system() is the command processor of the PC.
#pragma once

#include <stdio.h>

#include <string>

// Returns the status of the shell as wait() does; 0 for an exit code of 0.
inline int RunInShell(const std::string& command) {
    FILE* const stream = popen(command.c_str(), "w");
    return stream ? pclose(stream) : -1;
}
