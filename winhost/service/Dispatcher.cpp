// The calls that a service makes of its control manager.
#include <winsvc.h>
#include <windows.h>

#include <string>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/service/Scm.h"

using winhost::Fail;
using winhost::Scm;

BOOL StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA* lpServiceStartTable) {
    WINHOST_GATE("StartServiceCtrlDispatcherA", FALSE);
    const SERVICE_TABLE_ENTRYA* entry = lpServiceStartTable;
    // One service for each process: the table has one entry and its end.
    if (!entry || !entry->lpServiceName || !entry->lpServiceProc || entry[1].lpServiceProc) {
        return Fail(ERROR_INVALID_DATA);
    }
    if (!winhost::Pc::Instance().Description().startedByScm)
        return Fail(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    if (!Scm::Instance().Connect()) return Fail(ERROR_SERVICE_ALREADY_RUNNING);
    Scm::Instance().Dispatch(
        [name = std::string(entry->lpServiceName), proc = entry->lpServiceProc]() mutable {
            LPSTR arguments[] = {name.data(), nullptr};
            proc(1, arguments);
        });
    return TRUE;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExA(LPCSTR lpServiceName, LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                    LPVOID lpContext) {
    WINHOST_GATE("RegisterServiceCtrlHandlerExA", nullptr);
    if (!lpServiceName || !lpHandlerProc) return Fail(ERROR_INVALID_PARAMETER, nullptr);
    // The name means nothing for a service that has its process to itself, and may be empty.
    const uintptr_t service =
        Scm::Instance().SetHandler([=](uint32_t control, uint32_t eventType, void* eventData) -> uint32_t {
            const winhost::CallbackScope callback;
            return lpHandlerProc(control, eventType, eventData, lpContext);
        });
    if (service == 0) SetLastError(ERROR_SERVICE_NOT_IN_EXE);
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(service);
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus) {
    WINHOST_GATE("SetServiceStatus", FALSE);
    if (!lpServiceStatus || lpServiceStatus->dwCurrentState < SERVICE_STOPPED ||
        lpServiceStatus->dwCurrentState > SERVICE_PAUSED) {
        return Fail(ERROR_INVALID_DATA);
    }
    const SERVICE_STATUS& status = *lpServiceStatus;
    const winhost::ServiceReport report{status.dwServiceType,      status.dwCurrentState,
                                        status.dwControlsAccepted, status.dwWin32ExitCode,
                                        status.dwCheckPoint,       status.dwWaitHint};
    return Scm::Instance().Report(reinterpret_cast<uintptr_t>(hServiceStatus), report)
               ? TRUE
               : Fail(ERROR_INVALID_HANDLE);
}
