// The calls of a program that controls other services of the PC, which are those of its description.
#include <strings.h>
#include <winsvc.h>
#include <windows.h>

#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/core/Singleton.h"
#include "winhost/pc/Pc.h"

using winhost::Clock;
using winhost::DescribedService;
using winhost::Fail;
using winhost::Finish;
using winhost::HandleTable;
using winhost::Pc;
using winhost::PcDescription;

namespace {

// ---- the handles ----

class ServiceManager final : public winhost::Object {
  public:
    bool IsClosedByCloseHandle() const override { return false; }
};

class Service final : public winhost::Object {
  public:
    Service(std::string name, DWORD access) : m_name(std::move(name)), m_access(access) {}
    bool IsClosedByCloseHandle() const override { return false; }
    const std::string& Name() const { return m_name; }
    bool Allows(DWORD right) const { return (m_access & right) == right; }

  private:
    const std::string m_name;
    const DWORD m_access;
};

// ---- stops that take their time ----

// When the services that are stopping will have stopped. One that the description itself shows as stopping
// stays so.
class Stops {
  public:
    static Stops& Instance() { return winhost::Singleton<Stops>(); }
    void Begin(const std::string& service, Clock::Deadline end) {
        std::lock_guard lock(m_mutex);
        ForgetEarlierPc();
        m_ends[service] = end;
    }
    // True once, when the time has come.
    bool TakeIfDue(const std::string& service) {
        std::lock_guard lock(m_mutex);
        ForgetEarlierPc();
        const auto found = m_ends.find(service);
        if (found == m_ends.end() || Clock::Instance().Steady() < found->second) return false;
        m_ends.erase(found);
        return true;
    }

  private:
    void ForgetEarlierPc() {
        if (std::exchange(m_starts, Pc::Instance().Starts()) != m_starts) m_ends.clear();
    }

    std::mutex m_mutex;  // guards what follows
    uint64_t m_starts = 0;
    std::map<std::string, Clock::Deadline> m_ends;
};

// ---- the services ----

void Record(const DescribedService& service, const std::string& action) {
    Pc::Instance().Record(winhost::ServiceAction{service.name, action});
}

void Settle(DescribedService& service) {
    if (!Stops::Instance().TakeIfDue(service.name) || service.state != SERVICE_STOP_PENDING) return;
    service.state = SERVICE_STOPPED;
    Record(service, "stopped");
}

// Runs use(service) under the PC's lock, and answers what it returns.
template <class Use>
DWORD With(const std::string& name, DWORD missing, Use use) {
    DWORD error = missing;
    Pc::Instance().Change([&](PcDescription& pc) {
        for (DescribedService& service : pc.services) {
            if (strcasecmp(service.name.c_str(), name.c_str()) != 0) continue;
            Settle(service);
            error = use(service);
        }
    });
    return error;
}

// The same for a handle that needs this right.
template <class Use>
BOOL Ask(SC_HANDLE handle, DWORD right, Use use) {
    const auto service = HandleTable::Instance().Find<Service>(handle);
    if (!service) return Fail(ERROR_INVALID_HANDLE);
    if (!service->Allows(right)) return Fail(ERROR_ACCESS_DENIED);
    return Finish(With(service->Name(), ERROR_SERVICE_MARKED_FOR_DELETE, use));
}

SERVICE_STATUS StatusOf(const DescribedService& service) {
    SERVICE_STATUS status{};
    status.dwServiceType = service.type;
    status.dwCurrentState = service.state;
    status.dwControlsAccepted = service.state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    return status;
}

// ---- the configuration ----

// The texts of a configuration lie behind it.
DWORD WriteConfig(const DescribedService& service, QUERY_SERVICE_CONFIGA* config, DWORD room, DWORD& needed) {
    const std::string path = "\\SystemRoot\\System32\\drivers\\" + service.name + ".sys";
    needed = static_cast<DWORD>(sizeof *config + path.size() + 1 + service.name.size() + 1);
    if (room < needed) return ERROR_INSUFFICIENT_BUFFER;
    char* const pathText = std::strcpy(reinterpret_cast<char*>(config + 1), path.c_str());
    char* const nameText = std::strcpy(pathText + path.size() + 1, service.name.c_str());
    *config = {};
    config->dwServiceType = service.type;
    config->dwStartType = service.startType;
    config->dwErrorControl = SERVICE_ERROR_NORMAL;
    config->lpBinaryPathName = pathText;
    config->lpDisplayName = nameText;
    // The rest are empty texts.
    config->lpLoadOrderGroup = config->lpDependencies = config->lpServiceStartName =
        nameText + service.name.size();
    return ERROR_SUCCESS;
}

bool IsDriver(const DescribedService& service) {
    return service.type == SERVICE_KERNEL_DRIVER || service.type == SERVICE_FILE_SYSTEM_DRIVER;
}

DWORD SetStartType(DescribedService& service, DWORD startType) {
    if (service.changeError != 0) return service.changeError;
    const bool needsDriver = startType == SERVICE_BOOT_START || startType == SERVICE_SYSTEM_START;
    if (startType > SERVICE_DISABLED || (needsDriver && !IsDriver(service))) return ERROR_INVALID_PARAMETER;
    service.startType = startType;
    Record(service, "start type " + std::to_string(startType));
    return ERROR_SUCCESS;
}

// ---- start and stop ----

DWORD Start(DescribedService& service) {
    if (service.state != SERVICE_STOPPED) return ERROR_SERVICE_ALREADY_RUNNING;
    if (service.startType == SERVICE_DISABLED) return ERROR_SERVICE_DISABLED;
    if (service.startError != 0) return service.startError;
    service.state = SERVICE_RUNNING;
    Record(service, "start");
    return ERROR_SUCCESS;
}

DWORD Stop(DescribedService& service) {
    if (service.state == SERVICE_STOPPED) return ERROR_SERVICE_NOT_ACTIVE;
    if (service.state == SERVICE_STOP_PENDING || service.state == SERVICE_START_PENDING)
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    if (service.stopError != 0) return service.stopError;
    Record(service, "stop");
    service.state = SERVICE_STOP_PENDING;
    Stops::Instance().Begin(service.name, Clock::Instance().DeadlineIn(service.stopMs));
    Settle(service);
    return ERROR_SUCCESS;
}

// What an ordinary user may ask for.
constexpr DWORD kReadingRights = SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS;

}  // namespace

SC_HANDLE OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD dwDesiredAccess) {
    WINHOST_GATE("OpenSCManagerA", nullptr);
    if (lpMachineName && *lpMachineName) return Fail(RPC_S_SERVER_UNAVAILABLE, SC_HANDLE{});
    if (lpDatabaseName && strcasecmp(lpDatabaseName, "ServicesActive") != 0)
        return Fail(ERROR_DATABASE_DOES_NOT_EXIST, SC_HANDLE{});
    if (dwDesiredAccess != SC_MANAGER_CONNECT) return Fail(ERROR_NOT_SUPPORTED, SC_HANDLE{});
    return static_cast<SC_HANDLE>(winhost::AddHandle(std::make_shared<ServiceManager>()));
}

SC_HANDLE OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD dwDesiredAccess) {
    WINHOST_GATE("OpenServiceA", nullptr);
    if (!HandleTable::Instance().Find<ServiceManager>(hSCManager))
        return Fail(ERROR_INVALID_HANDLE, SC_HANDLE{});
    if (!lpServiceName) return Fail(ERROR_INVALID_PARAMETER, SC_HANDLE{});
    const bool isSystem = Pc::Instance().Get(&PcDescription::userName) == "SYSTEM";
    const DWORD error =
        With(lpServiceName, ERROR_SERVICE_DOES_NOT_EXIST, [&](const DescribedService& service) -> DWORD {
            if (service.openError != 0) return service.openError;
            return isSystem || !(dwDesiredAccess & ~kReadingRights) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
        });
    if (error != ERROR_SUCCESS) return Fail(error, SC_HANDLE{});
    return static_cast<SC_HANDLE>(
        winhost::AddHandle(std::make_shared<Service>(lpServiceName, dwDesiredAccess)));
}

BOOL CloseServiceHandle(SC_HANDLE hSCObject) {
    WINHOST_GATE("CloseServiceHandle", FALSE);
    HandleTable& table = HandleTable::Instance();
    return table.Close<Service>(hSCObject) || table.Close<ServiceManager>(hSCObject)
               ? TRUE
               : Fail(ERROR_INVALID_HANDLE);
}

BOOL QueryServiceConfigA(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGA lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded) {
    WINHOST_GATE("QueryServiceConfigA", FALSE);
    if (!pcbBytesNeeded || (!lpServiceConfig && cbBufSize != 0)) return Fail(ERROR_INVALID_PARAMETER);
    return Ask(hService, SERVICE_QUERY_CONFIG, [&](const DescribedService& service) {
        return WriteConfig(service, lpServiceConfig, cbBufSize, *pcbBytesNeeded);
    });
}

BOOL ChangeServiceConfigA(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId,
                          LPCSTR lpDependencies, LPCSTR lpServiceStartName, LPCSTR lpPassword,
                          LPCSTR lpDisplayName) {
    WINHOST_GATE("ChangeServiceConfigA", FALSE);
    const bool changesMore = dwServiceType != SERVICE_NO_CHANGE || dwErrorControl != SERVICE_NO_CHANGE ||
                             lpBinaryPathName || lpLoadOrderGroup || lpdwTagId || lpDependencies ||
                             lpServiceStartName || lpPassword || lpDisplayName;
    if (changesMore || dwStartType == SERVICE_NO_CHANGE) return Fail(ERROR_NOT_SUPPORTED);
    return Ask(hService, SERVICE_CHANGE_CONFIG,
               [&](DescribedService& service) { return SetStartType(service, dwStartType); });
}

BOOL StartServiceA(SC_HANDLE hService, DWORD, LPCSTR*) {
    WINHOST_GATE("StartServiceA", FALSE);
    return Ask(hService, SERVICE_START, Start);
}

BOOL QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus) {
    WINHOST_GATE("QueryServiceStatus", FALSE);
    if (!lpServiceStatus) return Fail(ERROR_INVALID_PARAMETER);
    return Ask(hService, SERVICE_QUERY_STATUS, [&](const DescribedService& service) -> DWORD {
        *lpServiceStatus = StatusOf(service);
        return ERROR_SUCCESS;
    });
}

BOOL ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus) {
    WINHOST_GATE("ControlService", FALSE);
    if (!lpServiceStatus) return Fail(ERROR_INVALID_PARAMETER);
    if (dwControl != SERVICE_CONTROL_STOP) return Fail(ERROR_INVALID_SERVICE_CONTROL);
    return Ask(hService, SERVICE_STOP, [&](DescribedService& service) {
        const DWORD error = Stop(service);
        *lpServiceStatus = StatusOf(service);
        return error;
    });
}
