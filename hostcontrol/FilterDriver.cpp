#include "hostcontrol/FilterDriver.h"

#include <powrprof.h>

#include <cstddef>
#include <cstdlib>
#include <string>

#include "base/Log.h"
#include "base/ServiceHandle.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kDriver = "KelmarMnf";
constexpr DWORD kConfigSize = 4096;
constexpr DWORD kEnableAccess =
    SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG | SERVICE_QUERY_STATUS | SERVICE_START;
constexpr DWORD kDisableAccess =
    SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG | SERVICE_QUERY_STATUS | SERVICE_STOP;
constexpr int kStopPolls = 10;
constexpr DWORD kStopPollMilliseconds = 500;
constexpr const char* kEnableBinding =
    "Set-NetAdapterBinding -Name 'Wi-Fi*' -DisplayName '*KelmarM*' -Enabled $True";
constexpr const char* kDisableBinding =
    "Set-NetAdapterBinding -Name 'Wi-Fi*' -DisplayName '*KelmarM*' -Enabled $False";

// The field is named AoAc. Not every SDK has the name; older ones declare a spare byte there.
bool HasModernStandby(const SYSTEM_POWER_CAPABILITIES& capabilities) {
    constexpr size_t kAoAc = 20;
    static_assert(sizeof capabilities == 76 && offsetof(SYSTEM_POWER_CAPABILITIES, FastSystemS4) == 17);
    return reinterpret_cast<const BOOLEAN*>(&capabilities)[kAoAc] != 0;
}

// Blocks until PowerShell ends.
bool RunPowerShell(const std::string& command) {
    return std::system(("powershell -Command \"" + command + "\"").c_str()) == 0;
}

UniqueServiceHandle OpenDriver(SC_HANDLE manager, DWORD access) {
    UniqueServiceHandle driver(OpenServiceA(manager, kDriver, access));
    if (driver) return driver;
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
        // A machine without the driver is normal.
        LogInfo("Driver not found: %s", kDriver);
    } else {
        LogError("Failed to open driver. Error: %d", error);
    }
    return driver;
}

bool ChangeStartType(SC_HANDLE driver, DWORD startType) {
    return ChangeServiceConfigA(driver, SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr, nullptr);
}

// A driver that starts with the system, or is disabled, becomes one that the service starts. Automatic start
// stays as it is.
bool MakeStartable(SC_HANDLE driver) {
    alignas(QUERY_SERVICE_CONFIGA) char buffer[kConfigSize];
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
    DWORD needed = 0;
    if (!QueryServiceConfigA(driver, config, sizeof buffer, &needed)) return true;
    const DWORD startType = config->dwStartType;
    if (startType != SERVICE_BOOT_START && startType != SERVICE_SYSTEM_START && startType != SERVICE_DISABLED)
        return true;
    LogInfo("Driver start type is %d (disabled/boot/system).", startType);
    if (ChangeStartType(driver, SERVICE_DEMAND_START)) return true;
    LogError("Failed to enable driver. Error: %d", GetLastError());
    return false;
}

bool StartDriver(SC_HANDLE driver) {
    if (StartServiceA(driver, 0, nullptr)) {
        LogInfo("Driver started successfully.");
        return true;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_ALREADY_RUNNING) {
        LogInfo("Driver is already running.");
        return true;
    }
    LogError("Failed to start driver. Error: %d", error);
    return false;
}

// Waits also while the service stops: the driver must not outlive it.
bool StopDriver(SC_HANDLE driver) {
    SERVICE_STATUS status{};
    if (QueryServiceStatus(driver, &status) && status.dwCurrentState != SERVICE_STOPPED) {
        LogInfo("Stopping driver...");
        if (!ControlService(driver, SERVICE_CONTROL_STOP, &status)) {
            LogError("Failed to stop driver. Error: %d", GetLastError());
            return false;
        }
    }
    for (int poll = 0; poll < kStopPolls; ++poll) {
        if (!QueryServiceStatus(driver, &status) || status.dwCurrentState == SERVICE_STOPPED) break;
        Sleep(kStopPollMilliseconds);
    }
    if (status.dwCurrentState != SERVICE_STOPPED) {
        LogError("Driver did not stop in time.");
        return false;
    }
    LogInfo("Driver stopped.");
    return true;
}

}  // namespace

void FilterDriver::CheckFilterDriverSupport() {
    SYSTEM_POWER_CAPABILITIES capabilities{};
    if (!GetPwrCapabilities(&capabilities)) {
        LogError("Failed to retrieve power capabilities.");
        return;
    }
    if (HasModernStandby(capabilities)) {
        m_supportsS0 = 1;
        LogInfo("System supports S0 (Modern Standby) power state.");
        return;
    }
    m_supportsS0 = 0;
    LogInfo("System does not support S0 (Modern Standby) power state.");
    // S3 plays no part.
    if (capabilities.SystemS3) {
        LogInfo("System supports S3 (Sleep) power state.");
    } else {
        LogInfo("System does not support S3 (Sleep) power state.");
    }
    if (SetFilterDriver(false)) LogInfo("Filter driver disabled successfully");
}

void FilterDriver::UpdateFilterDriver(bool wireless, bool provisioned) {
    std::lock_guard lock(m_mutex);
    // Reports run on threads that the stop does not wait for. One that comes late would turn the driver on
    // again after the stop has turned it off.
    if (g_pServiceState->m_bServiceStopping) return;
    const bool wanted = wireless && provisioned && m_supportsS0;
    if (m_filterDriverEnabled) {
        if (!wanted && Set(false)) LogInfo("Filter driver disable successfully");
    } else if (wanted && Set(true)) {
        LogInfo("Filter driver enable successfully");
    }
}

bool FilterDriver::SetFilterDriver(bool enable) {
    std::lock_guard lock(m_mutex);
    return Set(enable);
}

bool FilterDriver::Set(bool enable) {
    // The state of the driver itself is not read: one that an earlier run of the service has left on stays.
    if (!enable && !m_filterDriverEnabled) {
        LogInfo("Driver is already disabled.");
        return true;
    }
    const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        LogError("Failed to open Service Control Manager. Error: %d", GetLastError());
        return false;
    }
    return enable ? Enable(manager.Get()) : Disable(manager.Get());
}

// The driver counts as on without its binding too, and the binding is not tried again.
bool FilterDriver::Enable(SC_HANDLE manager) {
    const UniqueServiceHandle driver = OpenDriver(manager, kEnableAccess);
    if (!driver || !MakeStartable(driver.Get()) || !StartDriver(driver.Get())) return false;
    m_filterDriverEnabled = 1;
    LogInfo("Enabling network binding...");
    if (RunPowerShell(kEnableBinding)) {
        LogInfo("Network binding enabled.");
    } else {
        LogError("Failed to enable network binding via PowerShell.");
    }
    return true;
}

// The binding is removed first, while the driver still runs.
bool FilterDriver::Disable(SC_HANDLE manager) {
    const UniqueServiceHandle driver = OpenDriver(manager, kDisableAccess);
    if (!driver) return false;
    LogInfo("Disabling network binding...");
    if (RunPowerShell(kDisableBinding)) {
        LogInfo("Network binding disabled.");
    } else {
        LogError("Failed to disable network binding via PowerShell.");
    }
    if (!StopDriver(driver.Get())) return false;
    if (!ChangeStartType(driver.Get(), SERVICE_DISABLED)) {
        LogError("Failed to disable driver. Error: %d", GetLastError());
        return false;
    }
    LogInfo("Driver disabled successfully.");
    m_filterDriverEnabled = 0;
    return true;
}
