#include "installer/setup/StopService.h"

#include "base/Handles.h"
#include "base/ServiceHandle.h"
#include "installer/setup/ServiceSettings.h"

bool StopService() {
    const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return false;
    const UniqueServiceHandle service(
        OpenServiceA(manager.Get(), kServiceName, SERVICE_QUERY_STATUS | SERVICE_STOP));
    if (!service) return false;
    SERVICE_STATUS_PROCESS running{};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&running),
                              sizeof running, &needed))
        return false;
    if (running.dwProcessId == 0) return true;
    const UniqueHandle process(OpenProcess(SYNCHRONIZE, FALSE, running.dwProcessId));
    SERVICE_STATUS status{};
    // It may be stopping already.
    if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) &&
        GetLastError() != ERROR_SERVICE_NOT_ACTIVE && GetLastError() != ERROR_SERVICE_CANNOT_ACCEPT_CTRL)
        return false;
    if (!process) return true;
    const DWORD waited = WaitForSingleObject(process.Get(), kStopMilliseconds);
    if (waited == WAIT_TIMEOUT) SetLastError(ERROR_SERVICE_REQUEST_TIMEOUT);
    return waited == WAIT_OBJECT_0;
}
