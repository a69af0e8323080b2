// Modules of the process, and their functions by name.
#pragma once

#include <minwindef.h>

// "ntdll.dll", in any case and with or without its ending; else ERROR_MOD_NOT_FOUND. Null is the executable.
HMODULE GetModuleHandleA(LPCSTR moduleName);
// What this library exports under that name: RtlGetVersion of ntdll. Else ERROR_PROC_NOT_FOUND.
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
