// The process itself: its ids, its end, its user and its executable.
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <winbase.h>
#include <winuser.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcessList.h"

using winhost::Fail;
using winhost::Pc;

HANDLE GetCurrentProcess() {
    WINHOST_CALL("GetCurrentProcess");
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
}

DWORD GetCurrentProcessId() {
    WINHOST_CALL("GetCurrentProcessId");
    static const DWORD id = static_cast<DWORD>(getpid());
    return id;
}

DWORD GetCurrentThreadId() {
    WINHOST_CALL("GetCurrentThreadId");
    thread_local const DWORD id = static_cast<DWORD>(gettid());
    return id;
}

void ExitProcess(UINT code) {
    WINHOST_GATE_PASS("ExitProcess");
    _exit(static_cast<int>(code));
}

BOOL GetUserNameA(LPSTR buffer, LPDWORD size) {
    WINHOST_GATE("GetUserNameA", FALSE);
    const std::string name = Pc::Instance().Description().userName;
    const DWORD room = *size;
    *size = static_cast<DWORD>(name.size() + 1);
    if (!buffer || room < *size) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, name.c_str(), *size);
    return TRUE;
}

DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size) {
    WINHOST_GATE("GetModuleFileNameA", 0);
    if (module || size == 0) return Fail(module ? ERROR_MOD_NOT_FOUND : ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    std::string own = winhost::OwnPath();
    const bool fits = own.size() < size;
    if (!fits) own.resize(size - 1);
    std::memcpy(path, own.c_str(), own.size() + 1);
    SetLastError(fits ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
    return fits ? static_cast<DWORD>(own.size()) : size;
}

void OutputDebugStringA(LPCSTR text) {
    WINHOST_GATE_PASS("OutputDebugStringA");
    Pc::Instance().Record(winhost::DebugText{text ? text : ""});
}

int GetSystemMetrics(int index) {
    WINHOST_GATE_PASS("GetSystemMetrics");
    const auto pc = Pc::Instance().Description();
    switch (index) {
        case SM_CXSCREEN:
            return static_cast<int>(pc.screen.width);
        case SM_CYSCREEN:
            return static_cast<int>(pc.screen.height);
        case SM_CLEANBOOT:
            return static_cast<int>(pc.cleanBoot);
        default:
            return 0;
    }
}

int getenv_s(size_t* needed, char* buffer, size_t size, const char* name) {
    WINHOST_GATE_CODE("getenv_s");
    if (!needed || !name || (size != 0 && !buffer)) return EINVAL;
    *needed = 0;
    if (size != 0) *buffer = '\0';
    for (const auto& [key, value] : Pc::Instance().Description().environment) {
        if (strcasecmp(key.c_str(), name) != 0) continue;
        *needed = value.size() + 1;
        // A call without room asks for the size alone.
        if (size < *needed) return size == 0 ? 0 : ERANGE;
        std::memcpy(buffer, value.c_str(), *needed);
        break;
    }
    return 0;
}
