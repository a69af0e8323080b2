// Plays the SCM's side of a test: starts, controls and watches services and drivers, by lines of standard
// input.
//
//     start NAME             starts it, and opens its process so that its exit code is seen later
//     control NAME CODE      sends a control and returns when the handler has
//     query NAME             state, exit code of the service, accepted controls, start type
//     wait NAME STATE MS     until it is in that state
//     exit NAME MS           until its process has ended; its exit code
//     footprint NAME         how many handles and threads its process has
//     settings NAME          how it is registered
#include "tests/windows/programs/LineServer.h"

#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <memory>
#include <span>

#include "base/Handles.h"

namespace {

// SystemExtendedHandleInformation and what it gives: every handle of every process. The call that counts
// those of one process is a stub under Wine.
constexpr auto kAllHandles = static_cast<SYSTEM_INFORMATION_CLASS>(64);
constexpr size_t kMostHandles = 100'000;
struct HandleEntry {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG access;
    USHORT index, type;
    ULONG attributes, reserved;
};
struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[kMostHandles];
};

struct ServiceHandleTraits {
    using Value = SC_HANDLE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { CloseServiceHandle(value); }
};
using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;

std::map<std::string, UniqueHandle> g_processes;

UniqueServiceHandle Open(const std::string& name) {
    UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    return UniqueServiceHandle(OpenServiceA(manager.Get(), name.c_str(), SERVICE_ALL_ACCESS));
}

SERVICE_STATUS_PROCESS Status(const std::string& name) {
    const UniqueServiceHandle service = Open(name);
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    QueryServiceStatusEx(service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                         sizeof status, &needed);
    return status;
}

Answer Describe(const SERVICE_STATUS_PROCESS& status, DWORD error) {
    return Answer()
        .Number("error", error)
        .Number("state", status.dwCurrentState)
        .Number("exitCode", status.dwWin32ExitCode)
        .Number("controlsAccepted", status.dwControlsAccepted)
        .Number("checkPoint", status.dwCheckPoint)
        .Number("waitHint", status.dwWaitHint)
        .Number("pid", status.dwProcessId);
}

Answer Start(const Words& words) {
    const UniqueServiceHandle service = Open(words.at(0));
    const DWORD error = StartServiceA(service.Get(), 0, nullptr) ? ERROR_SUCCESS : GetLastError();
    const SERVICE_STATUS_PROCESS status = Status(words.at(0));
    g_processes[words.at(0)].Reset(
        OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, status.dwProcessId));
    return Describe(status, error);
}

Answer Control(const Words& words) {
    const UniqueServiceHandle service = Open(words.at(0));
    SERVICE_STATUS status{};
    const DWORD error =
        ControlService(service.Get(), std::stoul(words.at(1)), &status) ? ERROR_SUCCESS : GetLastError();
    return Describe(Status(words.at(0)), error);
}

Answer Query(const Words& words) {
    alignas(QUERY_SERVICE_CONFIGA) BYTE config[8192] = {};
    DWORD needed = 0;
    QueryServiceConfigA(Open(words.at(0)).Get(), reinterpret_cast<QUERY_SERVICE_CONFIGA*>(config),
                        sizeof config, &needed);
    return Describe(Status(words.at(0)), ERROR_SUCCESS)
        .Number("startType", reinterpret_cast<const QUERY_SERVICE_CONFIGA*>(config)->dwStartType);
}

Answer Settings(const Words& words) {
    const UniqueServiceHandle service = Open(words.at(0));
    if (!service) return Answer().Number("error", GetLastError());
    alignas(QUERY_SERVICE_CONFIGA) BYTE config[8192] = {};
    alignas(SERVICE_DESCRIPTIONA) BYTE description[8192] = {};
    SERVICE_PRESHUTDOWN_INFO preshutdown{};
    DWORD needed = 0;
    auto& registered = reinterpret_cast<QUERY_SERVICE_CONFIGA&>(config);
    if (!QueryServiceConfigA(service.Get(), &registered, sizeof config, &needed) ||
        !QueryServiceConfig2A(service.Get(), SERVICE_CONFIG_DESCRIPTION, description, sizeof description,
                              &needed) ||
        !QueryServiceConfig2A(service.Get(), SERVICE_CONFIG_PRESHUTDOWN_INFO,
                              reinterpret_cast<BYTE*>(&preshutdown), sizeof preshutdown, &needed))
        return Answer().Number("error", GetLastError());
    return Answer()
        .Number("error", ERROR_SUCCESS)
        .Number("type", registered.dwServiceType)
        .Number("startType", registered.dwStartType)
        .Text("command", registered.lpBinaryPathName)
        .Text("account", registered.lpServiceStartName)
        .Text("displayName", registered.lpDisplayName)
        .Text("description", reinterpret_cast<const SERVICE_DESCRIPTIONA&>(description).lpDescription)
        .Number("preshutdownTimeout", preshutdown.dwPreshutdownTimeout);
}

Answer Wait(const Words& words) {
    const ULONGLONG deadline = GetTickCount64() + std::stoul(words.at(2));
    SERVICE_STATUS_PROCESS status = Status(words.at(0));
    while (status.dwCurrentState != std::stoul(words.at(1)) && GetTickCount64() < deadline) {
        Sleep(5);
        status = Status(words.at(0));
    }
    return Describe(status, status.dwCurrentState == std::stoul(words.at(1)) ? ERROR_SUCCESS : WAIT_TIMEOUT);
}

Answer Exit(const Words& words) {
    const HANDLE process = g_processes.at(words.at(0)).Get();
    const DWORD waited = WaitForSingleObject(process, std::stoul(words.at(1)));
    DWORD code = 0;
    if (waited == WAIT_OBJECT_0) GetExitCodeProcess(process, &code);
    return Answer().Number("error", waited == WAIT_FAILED ? GetLastError() : waited).Number("exitCode", code);
}

// All but the events: the C++ run-time makes one for each lock at the first time that somebody has to wait
// for it.
long long CountHandles(DWORD process) {
    const UniqueHandle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    const auto list = std::make_unique<HandleList>();
    ULONG size = 0;
    if (!event || NtQuerySystemInformation(kAllHandles, list.get(), sizeof *list, &size) != 0)
        throw std::runtime_error("the handles can't be listed");
    const std::span entries(list->entries, list->count);
    const auto own = std::ranges::find_if(entries, [&](const HandleEntry& entry) {
        return entry.processId == GetCurrentProcessId() &&
               entry.handle == reinterpret_cast<ULONG_PTR>(event.Get());
    });
    if (own == entries.end()) throw std::runtime_error("the list lacks a handle");
    return std::ranges::count_if(entries, [&](const HandleEntry& entry) {
        return entry.processId == process && entry.type != own->type;
    });
}

long long CountThreads(DWORD process) {
    const UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    long long count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more; more = Thread32Next(snapshot.Get(), &entry))
        count += entry.th32OwnerProcessID == process;
    return count;
}

Answer Footprint(const Words& words) {
    const DWORD process = Status(words.at(0)).dwProcessId;
    return Answer().Number("handles", CountHandles(process)).Number("threads", CountThreads(process));
}

}  // namespace

int main() {
    return ServeLines({{"start", Start},
                       {"control", Control},
                       {"query", Query},
                       {"wait", Wait},
                       {"exit", Exit},
                       {"footprint", Footprint},
                       {"settings", Settings}});
}
