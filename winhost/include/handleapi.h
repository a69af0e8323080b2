// Which handles the programs of a process get.
#pragma once

#include <minwindef.h>

#define HANDLE_FLAG_INHERIT 0x00000001

// Any object of the table, else ERROR_INVALID_HANDLE. No handle of this library is inherited or protected, so
// that a flag can only be taken away; setting one fails with ERROR_NOT_SUPPORTED.
BOOL SetHandleInformation(HANDLE object, DWORD mask, DWORD flags);
