// The modules of the process, and what is looked up in them by name.
#include <string>

#include <winbase.h>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/kernel/Libraries.h"
#include "winhost/kernel/SystemModules.h"

using winhost::Fail;

namespace {

// What the executable's handle points to.
HINSTANCE__ g_executable;

bool IsModule(HMODULE module) {
    return module == &g_executable || winhost::IsSystemModule(module) || winhost::IsSharedObject(module);
}

}  // namespace

HMODULE GetModuleHandleA(LPCSTR moduleName) {
    WINHOST_GATE("GetModuleHandleA", nullptr);
    if (!moduleName) return &g_executable;
    HMODULE module = winhost::FindSystemModule(moduleName);
    if (!module) module = winhost::FindSharedObject(moduleName);
    return module ? module : Fail(ERROR_MOD_NOT_FOUND, nullptr);
}

HMODULE LoadLibraryW(LPCWSTR fileName) {
    WINHOST_GATE("LoadLibraryW", nullptr);
    if (!fileName || !*fileName)
        return Fail(fileName ? ERROR_MOD_NOT_FOUND : ERROR_INVALID_PARAMETER, nullptr);
    const std::string name = testbed::ToUtf8(fileName);
    const HMODULE module = winhost::FindSystemModule(name);
    return module ? module : winhost::LoadSharedObject(name);
}

BOOL FreeLibrary(HMODULE module) {
    WINHOST_GATE("FreeLibrary", FALSE);
    if (!module) return Fail(ERROR_INVALID_HANDLE);
    // The executable and what it uses itself stay.
    if (module == &g_executable || winhost::IsSystemModule(module) || winhost::FreeSharedObject(module))
        return TRUE;
    return Fail(ERROR_MOD_NOT_FOUND);
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    WINHOST_GATE("GetProcAddress", nullptr);
    if (!IsModule(module)) return Fail(ERROR_MOD_NOT_FOUND, nullptr);
    // A small value is a function's number, and there are none.
    if (reinterpret_cast<uintptr_t>(name) <= 0xFFFF) return Fail(ERROR_PROC_NOT_FOUND, nullptr);
    FARPROC function = winhost::FindSystemFunction(module, name);
    if (!function) function = winhost::FindFunction(module, name);
    return function ? function : Fail(ERROR_PROC_NOT_FOUND, nullptr);
}
