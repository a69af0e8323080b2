// The system's modules, and what is looked up in them by name.
#include <strings.h>

#include <cstring>
#include <string>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/pc/OsVersion.h"
#include "winhost/pc/Pc.h"

namespace {

// NTSTATUS, 0 for success. Fills the plain structure alone.
LONG WINAPI RtlGetVersion(PRTL_OSVERSIONINFOW information) {
    WINHOST_GATE_CODE("RtlGetVersion");
    const auto version = winhost::ParseOsVersion(winhost::Pc::Instance().Description().osVersion);
    const DWORD size = information->dwOSVersionInfoSize;
    *information = {};
    information->dwOSVersionInfoSize = size;
    information->dwPlatformId = VER_PLATFORM_WIN32_NT;
    if (version) {
        information->dwMajorVersion = version->major;
        information->dwMinorVersion = version->minor;
        information->dwBuildNumber = version->build;
    }
    return 0;
}

template <class Function>
FARPROC Erased(Function* function) {
    // By way of the one type that the compiler lets every function be cast to and from.
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

struct Export {
    const char* name;
    FARPROC function;
};
const Export kNtdllExports[] = {{"RtlGetVersion", Erased(&RtlGetVersion)}};

// What a module's handle points to.
HINSTANCE__ g_executable;
HINSTANCE__ g_ntdll;

bool NamesNtdll(const std::string& name) {
    return strcasecmp(name.c_str(), "ntdll.dll") == 0 || strcasecmp(name.c_str(), "ntdll") == 0;
}

}  // namespace

HMODULE GetModuleHandleA(LPCSTR moduleName) {
    WINHOST_GATE("GetModuleHandleA", nullptr);
    if (!moduleName) return &g_executable;
    if (NamesNtdll(moduleName)) return &g_ntdll;
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    WINHOST_GATE("GetProcAddress", nullptr);
    if (module != &g_executable && module != &g_ntdll) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    // A small value is a function's number, and there are none.
    const bool isName = reinterpret_cast<uintptr_t>(name) > 0xFFFF;
    for (const Export& entry : kNtdllExports)
        if (module == &g_ntdll && isName && std::strcmp(entry.name, name) == 0) return entry.function;
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
}
