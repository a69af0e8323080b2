// Modules of the process, and their functions by name.
#pragma once

#include <minwindef.h>

// A loaded library, or one of the system's with or without its ending, in any case; else ERROR_MOD_NOT_FOUND.
// Null is the executable.
HMODULE GetModuleHandleA(LPCSTR moduleName);
// One of the system's libraries that functions are known of, or a shared object of Linux: luxrt64.dll is
// luxrt64.dll, luxrt64.so or libluxrt64.so in the executable's folder, a folder of the PC's "libraryFolders",
// C:\Windows\System32, C:\Windows, the current folder, or one of the PC's PATH. ERROR_MOD_NOT_FOUND, also
// when a library that it needs is missing; ERROR_BAD_EXE_FORMAT for what is no library; ERROR_PROC_NOT_FOUND
// when a function that it needs is missing; ERROR_ACCESS_DENIED.
HMODULE LoadLibraryW(LPCWSTR fileName);
// A library is gone when it has been freed as often as loaded; those of the system stay. ERROR_INVALID_HANDLE
// for null, ERROR_MOD_NOT_FOUND for what is no library.
BOOL FreeLibrary(HMODULE module);
// A function of that library by name, never by number: else ERROR_PROC_NOT_FOUND. ERROR_MOD_NOT_FOUND for
// what is no library.
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
