#pragma once

#include <minwindef.h>

// Enables or disables; the effect is the process's, not the handle's. TRUE with ERROR_NOT_ALL_ASSIGNED for
// privileges that the token doesn't hold. The former state isn't told: previousState has to be null.
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD size,
                           PTOKEN_PRIVILEGES previousState, PDWORD returnLength);
