// Handles the notifications of the WLAN service and queries its state.
#include "base/Log.h"
#include "reporting/NetworkMonitor.h"
#include "state/ServiceState.h"
#include "wifi/WiFiSync.h"

namespace {

constexpr DWORD kClientVersion = 2;
constexpr DWORD kDebounceMilliseconds = 2000;
constexpr const char* kRegister = "RegisterWlanNotification";

// Runs on a thread of the WLAN service, which cannot handle exceptions. A thread that cannot be started
// therefore ends the process.
VOID WINAPI WlanCallback(PWLAN_NOTIFICATION_DATA data, PVOID context) noexcept {
    if (data) static_cast<NetworkMonitor*>(context)->OnWlanNotification(*data);
}

DWORD EnumInterfaces(HANDLE client, UniqueWlanMemory& list) {
    PWLAN_INTERFACE_INFO_LIST found = nullptr;
    const DWORD error = WlanEnumInterfaces(client, nullptr, &found);
    list.Reset(found);
    return error;
}

void PrintWLANState(WLAN_INTERFACE_STATE state) {
    constexpr const char* kName = "PrintWLANState";
    switch (state) {
        case wlan_interface_state_not_ready:
            return LogInfo("%s: Not ready", kName);
        case wlan_interface_state_connected:
            return LogInfo("%s: Connected", kName);
        case wlan_interface_state_ad_hoc_network_formed:
            return LogInfo("%s: First node in a ad hoc network", kName);
        case wlan_interface_state_disconnecting:
            return LogInfo("%s: Disconnecting", kName);
        case wlan_interface_state_disconnected:
            return LogInfo("%s: Not connected", kName);
        case wlan_interface_state_associating:
            return LogInfo("%s: Attempting to associate with a network", kName);
        case wlan_interface_state_discovering:
            return LogInfo("%s: Auto configuration is discovering settings for the network", kName);
        case wlan_interface_state_authenticating:
            return LogInfo("%s: In process of authenticating", kName);
        default:
            return LogInfo("%s: Unknown state %ld", kName, state);
    }
}

}  // namespace

DWORD NetworkMonitor::RegisterWlanNotification() {
    std::lock_guard lock(m_wlanMutex);
    if (m_wlanRegistration.client) {
        LogInfo("%s: WLAN registration already done", kRegister);
        return ERROR_SUCCESS;
    }
    return RegisterWlanClient();
}

// The caller holds m_wlanMutex.
DWORD NetworkMonitor::RegisterWlanClient() {
    DWORD version = 0;
    if (const DWORD error = WlanOpenHandle(kClientVersion, nullptr, &version, &m_wlanRegistration.client)) {
        LogInfo("%s: WlanOpenHandle() failed with error: %d", kRegister, error);
        m_wlanRegistration.client = nullptr;
        return error;
    }
    // The handle and the flag stay set when the registration fails.
    m_wlanRegistration.registered = true;
    const DWORD error = WlanRegisterNotification(m_wlanRegistration.client, WLAN_NOTIFICATION_SOURCE_ACM,
                                                 TRUE, &WlanCallback, this, nullptr, nullptr);
    if (error) {
        LogInfo("WlanRegisterNotification failed with error: %d", error);
    } else {
        LogInfo("%s: has registered ZEL to receive network change notifications successfully", kRegister);
    }
    return error;
}

void NetworkMonitor::RenewWlanRegistration() {
    std::lock_guard lock(m_wlanMutex);
    if (!m_wlanRegistration.registered) return;
    if (m_wlanRegistration.client) {
        UniqueWlanMemory list;
        if (EnumInterfaces(m_wlanRegistration.client, list) != ERROR_INVALID_HANDLE) return;
        LogWarn("%s: WLAN client handle is no longer valid, registering again", kRegister);
        UniqueWlanHandle(m_wlanRegistration.client).Reset();
        m_wlanRegistration.client = nullptr;
    }
    RegisterWlanClient();
}

void NetworkMonitor::UnRegisterWlanNotification() {
    constexpr const char* kName = "UnRegisterWlanNotification";
    std::lock_guard lock(m_wlanMutex);
    if (!m_wlanRegistration.registered || !m_wlanRegistration.client) {
        LogInfo("%s: Skipping WLAN unregistration", kName);
        m_wlanRegistration = {};
        return;
    }
    const HANDLE client = m_wlanRegistration.client;
    m_wlanRegistration = {};
    if (const DWORD error = WlanRegisterNotification(client, WLAN_NOTIFICATION_SOURCE_NONE, TRUE, nullptr,
                                                     nullptr, nullptr, nullptr)) {
        // The handle is not closed after this failure.
        LogError("%s: WlanRegisterNotification failed with error: %d", kName, error);
    } else if (const DWORD closeError = WlanCloseHandle(client, nullptr)) {
        LogError("WlanCloseHandle failed with error: %d", closeError);
    }
}

void NetworkMonitor::OnWlanNotification(const WLAN_NOTIFICATION_DATA& data) {
    LogDebug("Network change received -- Wlan code %d, Wlan Source %d", data.NotificationCode,
             data.NotificationSource);
    if (m_bWlanEventPending.exchange(1)) return;
    // The WLAN service owns the data, which is valid only until this function returns.
    const bool started = g_pServiceState->m_detachedThreads.Start(
        [this, source = data.NotificationSource, code = data.NotificationCode] {
            if (g_pServiceState->SleepUnlessStopping(kDebounceMilliseconds)) HandleWlanEvent(source, code);
            m_bWlanEventPending = 0;
        });
    if (!started) m_bWlanEventPending = 0;
}

// Returns the client for queries. Returns null and sets the error when it cannot be opened.
std::shared_ptr<const UniqueWlanHandle> NetworkMonitor::WlanClient(DWORD& error) {
    std::lock_guard lock(m_wlanMutex);
    error = ERROR_SUCCESS;
    if (m_hWlanClient) return m_hWlanClient;
    const auto client = std::make_shared<UniqueWlanHandle>();
    DWORD version = 0;
    error = WlanOpenHandle(kClientVersion, nullptr, &version, client->Receive());
    if (error == ERROR_SUCCESS) m_hWlanClient = client;
    return m_hWlanClient;
}

// Makes the next query open a new client, unless another thread has dropped this one already.
void NetworkMonitor::DropWlanClient(const std::shared_ptr<const UniqueWlanHandle>& client) {
    std::lock_guard lock(m_wlanMutex);
    if (m_hWlanClient == client) m_hWlanClient.reset();
}

// A restart of the WLAN service invalidates all its clients. The second attempt uses a new one.
DWORD NetworkMonitor::ListWlanInterfaces(UniqueWlanMemory& list) {
    constexpr int kAttempts = 2;
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        const auto client = WlanClient(error);
        if (!client) {
            LogInfo("WlanOpenHandle failed with error: %d", error);
            return error;
        }
        error = EnumInterfaces(client->Get(), list);
        if (error == ERROR_SUCCESS) return error;
        LogInfo("WlanEnumInterfaces failed with error: %d", error);
        if (error != ERROR_INVALID_HANDLE) return error;
        DropWlanClient(client);
        if (attempt == 1) RenewWlanRegistration();
    }
    return error;
}

DWORD NetworkMonitor::CheckIfWLANConnected(bool verbose, GUID& interfaceGuid) {
    UniqueWlanMemory owner;
    if (const DWORD error = ListWlanInterfaces(owner)) return error;
    const auto* const list = static_cast<const WLAN_INTERFACE_INFO_LIST*>(owner.Get());
    if (!list) return ERROR_INTERNAL_ERROR;
    if (verbose)
        LogInfo("%s: Number of Entries: %lu, Current Index: %lu", "CheckIfWLANConnected",
                list->dwNumberOfItems, list->dwIndex);
    // Every iteration checks the first entry, because only the first WLAN interface counts.
    for (DWORD pass = 0; pass < list->dwNumberOfItems; ++pass) {
        const WLAN_INTERFACE_INFO& first = list->InterfaceInfo[0];
        if (verbose) PrintWLANState(first.isState);
        if (first.isState == wlan_interface_state_connected) {
            interfaceGuid = first.InterfaceGuid;
            return ERROR_SUCCESS;
        }
    }
    return ERROR_INTERNAL_ERROR;
}

bool NetworkMonitor::CheckWlanAndSyncProfile(bool verbose) {
    GUID interfaceGuid{};
    const bool connected = CheckIfWLANConnected(verbose, interfaceGuid) == ERROR_SUCCESS;
    DWORD error = ERROR_SUCCESS;
    if (!connected) {
        m_wiFiSync.ResetLastWiFiProfile();
    } else if (const auto client = WlanClient(error)) {
        m_wiFiSync.SyncWiFiProfile(interfaceGuid, client->Get(), verbose);
    }
    // "LAN" stands for everything except a connected WLAN, including no network at all.
    if (verbose) LogInfo("System is connected to %s", connected ? "WLAN" : "LAN");
    return connected;
}
