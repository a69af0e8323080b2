// Starts programs where the person at the machine sees them: a service has no desktop of its own.
#pragma once

#include <cstdint>
#include <string_view>

// Runs the whole command line `command` as SYSTEM in the active console session, on its desktop, also when
// nobody is logged on or the screen is locked. `name` is how the log calls the program. True when it was
// started, and then `pid` is its process id; `pid` stays as it was where the platform can't tell it. Any
// thread.
bool LaunchProcess(std::string_view name, std::string_view command, uint32_t& pid);
