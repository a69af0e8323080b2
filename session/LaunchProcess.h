// Starts programs on the console's desktop, where the user at the machine sees them. A service has no desktop
// of its own.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <string_view>

#include "base/Handles.h"

// Runs the command line `command` as SYSTEM in the active console session, on its desktop. This also works
// when no user is logged on or the screen is locked. `name` is the program's name in the log. Returns true
// when the program was started, and sets `pid` to its process id. `pid` stays unchanged when the platform
// cannot report it. Any thread.
bool LaunchProcess(std::string_view name, std::string_view command, uint32_t& pid);

// Returns true while the process runs. Returns false and logs an error when it cannot be opened. Any thread.
bool IsProcessRunning(uint32_t pid);

// Provides a SYSTEM token that belongs to the session of the console: a duplicate of its logon program's
// token, set to `session`. Returns false and logs an error for a null pointer and when the token cannot be
// had. Any thread.
bool GetSessionUserTokenWindows(UniqueHandle* token, DWORD session);
