#include "session/LaunchProcess.h"

#include <winsock2.h>
#include <windows.h>
#include <tlhelp32.h>
#include <userenv.h>

#include <cstring>
#include <string>

#include "base/Handles.h"
#include "base/Log.h"

namespace {

constexpr const char* kName = "LaunchProcess";
constexpr const char* kLogonProgram = "winlogon.exe";

// Returns the process id of the console session's logon program, or 0 when there is none.
DWORD GetWindowsLogonPID() {
    const UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return 0;
    const DWORD console = WTSGetActiveConsoleSessionId();
    LogInfo("%s: SessionID: 0x%x", "GetWindowsLogonPID", console);
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more;
         more = Process32Next(snapshot.Get(), &entry)) {
        DWORD session = 0;
        if (std::strcmp(entry.szExeFile, kLogonProgram) == 0 &&
            ProcessIdToSessionId(entry.th32ProcessID, &session) && session == console) {
            return entry.th32ProcessID;
        }
    }
    return 0;
}

// Provides a SYSTEM token that belongs to the session. It duplicates the token of the session's logon
// program, which runs even when no user is logged on.
bool getWindowsLogonHandle(UniqueHandle& token, DWORD session) {
    const UniqueHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, GetWindowsLogonPID()));
    if (!process) {
        LogError("%s: OpenProcess failed returning false", "getWindowsLogonHandle");
        return false;
    }
    UniqueHandle own;
    OpenProcessToken(process.Get(), TOKEN_ALL_ACCESS, own.Receive());
    const BOOL duplicated = DuplicateTokenEx(own.Get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation,
                                             TokenPrimary, token.Receive());
    // The result is ignored: a failure here shows when the process is started.
    SetTokenInformation(token.Get(), TokenSessionId, &session, sizeof session);
    return duplicated;
}

bool AdjustPrivilege(HANDLE token, const char* privilege, bool enable) {
    TOKEN_PRIVILEGES state{};
    state.PrivilegeCount = 1;
    state.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
    if (!LookupPrivilegeValueA(nullptr, privilege, &state.Privileges[0].Luid)) {
        LogError("%s: Step 3 LookupPrivilegeValue failed with error: %d", "SetTBCPrivileges", GetLastError());
        return false;
    }
    if (!AdjustTokenPrivileges(token, FALSE, &state, sizeof state, nullptr, nullptr)) {
        LogError("%s: Step 4 AdjustTokenPrivileges failed with error: %d", "SetTBCPrivileges",
                 GetLastError());
        return false;
    }
    return true;
}

bool SetTBCPrivileges(const char* privilege, bool enable) {
    const UniqueHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, GetCurrentProcessId()));
    if (!process) {
        LogError("%s: Step 1 OpenProcess failed with error: %d", "SetTBCPrivileges", GetLastError());
        return false;
    }
    UniqueHandle token;
    if (!OpenProcessToken(process.Get(), TOKEN_ALL_ACCESS, token.Receive())) {
        LogError("%s: Step 2 OpenProcessToken failed with error: %d", "SetTBCPrivileges", GetLastError());
        return false;
    }
    return AdjustPrivilege(token.Get(), privilege, enable);
}

// Owns the environment block of the token's user, which differs from the service's own environment.
struct EnvironmentBlockTraits {
    using Value = void*;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { DestroyEnvironmentBlock(value); }
};
using UniqueEnvironmentBlock = UniqueResource<EnvironmentBlockTraits>;

// Owns the two handles of a started process. No code waits on them; the process is tracked by its id alone.
struct StartedProcess {
    UniqueHandle process, thread;
};

bool StartOnConsole(HANDLE token, std::string command, DWORD flags, void* environment,
                    StartedProcess& started) {
    char desktop[] = "Winsta0\\Default";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop;
    startup.wShowWindow = SW_SHOW;
    PROCESS_INFORMATION information{};
    SetLastError(ERROR_SUCCESS);
    if (!CreateProcessAsUserA(token, nullptr, command.data(), nullptr, nullptr, FALSE, flags, environment,
                              nullptr, &startup, &information)) {
        return false;
    }
    started = {UniqueHandle(information.hProcess), UniqueHandle(information.hThread)};
    return true;
}

// This error counts as a success on purpose: the callers continue as if the process had started.
bool CountsAsStarted(DWORD error) {
    return error == ERROR_PIPE_NOT_CONNECTED;
}

bool LaunchWithEnvironment(HANDLE token, const std::string& name, std::string_view command, void* environment,
                           uint32_t& pid) {
    StartedProcess started;
    if (!StartOnConsole(token, std::string(command), CREATE_UNICODE_ENVIRONMENT | DETACHED_PROCESS,
                        environment, started)) {
        const DWORD error = GetLastError();
        LogError("%s: %s CreateProcessAsUser failed with error: %d", kName, name, error);
        if (!CountsAsStarted(error)) return false;
        LogDebug("%s: %s CreateProcessAsUser returned error: %d, skip it, return as success to the caller",
                 kName, name, error);
        return true;
    }
    LogInfo("%s: %s - CreateProcessAsUser success", kName, name);
    pid = GetProcessId(started.process.Get());
    LogInfo("%s: %s PID: %d", kName, name, pid);
    return true;
}

bool LaunchWithoutEnvironment(HANDLE token, const std::string& name, std::string_view command) {
    StartedProcess started;
    if (!StartOnConsole(token, std::string(command), DETACHED_PROCESS, nullptr, started)) {
        const DWORD error = GetLastError();
        LogError("%s: %s CreateProcessAsUser no env failed %d", kName, name, error);
        if (!CountsAsStarted(error)) return false;
        LogDebug(
            "%s: %s CreateProcessAsUser no env returned error: %d, skip it, return as success to the caller",
            kName, name, error);
        return true;
    }
    // The start succeeded, but the line is an error because the environment is missing.
    LogError("%s: %s CreateProcessAsUser winlogon 2 GetLastError: %d", kName, name, GetLastError());
    return true;
}

}  // namespace

bool LaunchProcess(std::string_view name, std::string_view command, uint32_t& pid) {
    const std::string program(name);
    const DWORD session = WTSGetActiveConsoleSessionId();
    LogInfo(" Command: %s", std::string(command));
    LogInfo("%s: %s SessionID: 0x%x", kName, program, session);
    UniqueHandle token;
    if (!getWindowsLogonHandle(token, session)) {
        LogDebug("%s: %s Getsessionusertokenwin failed with error: %d", kName, program, GetLastError());
        return false;
    }
    SetTBCPrivileges("SeTcbPrivilege", true);
    UniqueEnvironmentBlock environment;
    if (CreateEnvironmentBlock(environment.Receive(), token.Get(), FALSE) && environment)
        return LaunchWithEnvironment(token.Get(), program, command, environment.Get(), pid);
    return LaunchWithoutEnvironment(token.Get(), program, command);
}

bool IsProcessRunning(uint32_t pid) {
    const UniqueHandle process(OpenProcess(SYNCHRONIZE, FALSE, pid));
    if (!process) {
        LogError("%s: OpenProcess failed with error: %d", "IsProcessRunning", GetLastError());
        return false;
    }
    return WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT;
}

bool GetSessionUserTokenWindows(UniqueHandle* token, DWORD session) {
    if (!token) {
        LogError("%s: KEYBOARD_MOUSE - User token is null", "GetSessionUserTokenWindows");
        return false;
    }
    return getWindowsLogonHandle(*token, session);
}
