// Linux processes that stand on their own.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "winhost/process/ProcessList.h"

namespace winhost {

struct SpawnRequest {
    std::string program;  // a Linux path
    std::vector<std::string> arguments, environment;
};

// For a program of the PC by its Windows path: its file, its arguments, and the variables with the marks of a
// process in that session.
SpawnRequest RequestFor(const std::string& program, const std::string& commandLine,
                        std::vector<std::string> variables, DWORD session);

// Starts it in a session of its own, without any descriptor but three to nowhere, with all signals as they
// are at first; it is reaped when it ends. `entry` has its name and its session, and gets its id and its
// start. 0, or a Win32 error.
DWORD Spawn(const SpawnRequest& request, ProcessEntry& entry);

// Does the same, waits for the end of the program and stores its exit code, as the shell has it.
DWORD RunToEnd(const SpawnRequest& request, int& exitCode);
// How many threads wait in RunToEnd.
size_t WaitsForPrograms();

}  // namespace winhost
