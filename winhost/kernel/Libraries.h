// Shared objects of Linux behind the library calls: what stands for luxrt64.dll is luxrt64.so, libluxrt64.so,
// or a file that carries the name itself.
#pragma once

#include <string>

#include <minwindef.h>

namespace winhost {

// A handle of the library, which is loaded unless it is already; each success needs one FreeSharedObject.
// Null with the calling thread's error: ERROR_MOD_NOT_FOUND (no file, or one that a library needs is
// missing), ERROR_PROC_NOT_FOUND (a function that it needs is missing), ERROR_ACCESS_DENIED,
// ERROR_BAD_EXE_FORMAT.
//
// The name, without a folder and with its ending, is that of a loaded library, or is searched: in the
// executable's folder, the PC's "libraryFolders", C:\Windows\System32, C:\Windows, the current folder, and
// the PC's PATH.
HMODULE LoadSharedObject(const std::string& name);
// Null for a library that is not loaded; takes no hold on it.
HMODULE FindSharedObject(const std::string& name);
// False for what is no loaded library.
bool IsSharedObject(HMODULE module);
bool FreeSharedObject(HMODULE module);
// A function of the library itself, and of none that it uses. Null where there is none.
FARPROC FindFunction(HMODULE module, const char* name);

// Libraries that are loaded, so that a test sees a leak.
size_t LoadedSharedObjects();

}  // namespace winhost
