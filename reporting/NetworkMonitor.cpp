// The scanning thread, and the reports of periodic scans and of WLAN events.
#include "reporting/NetworkMonitor.h"

#include "base/Log.h"
#include "base/SteadyTime.h"
#include "cloud/NubaClient.h"
#include "hostcontrol/FilterDriver.h"
#include "mailbox/FirmwareLevels.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkInventory.h"
#include "reporting/NetworkStateStore.h"
#include "reporting/StatusFile.h"
#include "state/ServiceState.h"
#include "wifi/WiFiSync.h"

namespace {

constexpr DWORD kScanPeriodMilliseconds = 61000;
constexpr uint64_t kLeastScanDistance = 61'001'000'000;  // ns
constexpr uint32_t kProvisioned = 2;
constexpr uint32_t kLoopback = 0x0100007F;

}  // namespace

NetworkMonitor::NetworkMonitor(IPv4InfoStore& addresses, NetworkStateStore& reported,
                               NetworkInventory& inventory, StatusFile& statusFile, WiFiSync& wiFiSync,
                               FilterDriver& filterDriver, NubaClient& nubaClient)
    : m_addresses(addresses),
      m_reported(reported),
      m_inventory(inventory),
      m_statusFile(statusFile),
      m_wiFiSync(wiFiSync),
      m_filterDriver(filterDriver),
      m_nubaClient(nubaClient),
      m_hNetworkScanStopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

NetworkMonitor::~NetworkMonitor() {
    StopNetworkScanThread();
    UnRegisterWlanNotification();
}

void NetworkMonitor::StartNetworkScanThread() {
    std::lock_guard lock(m_threadMutex);
    if (m_pNetworkScanThreadObj || g_pServiceState->m_bServiceStopping) return;
    LogInfo("Network scanning thread starting");
    m_pNetworkScanThreadObj = g_pServiceState->m_detachedThreads.StartOwned([this] { NetworkScanThread(); });
}

void NetworkMonitor::StopNetworkScanThread() {
    std::lock_guard lock(m_threadMutex);
    if (!m_pNetworkScanThreadObj) return;
    SetEvent(m_hNetworkScanStopEvent.Get());
    const auto waiting =
        g_pServiceState->m_mailBoxDriverInterface.WaitingFor(m_pNetworkScanThreadObj->get_id());
    m_pNetworkScanThreadObj->join();
    m_pNetworkScanThreadObj.reset();
}

void NetworkMonitor::NetworkScanThread() {
    while (WaitForSingleObject(m_hNetworkScanStopEvent.Get(), kScanPeriodMilliseconds) == WAIT_TIMEOUT) {
        // A scan after a WLAN event postpones this one by at most one period.
        if (SteadyTime() - m_lastNetworkScanTime < kLeastScanDistance) continue;
        // Without its notifications nothing else would notice that the registration is gone.
        RenewWlanRegistration();
        // The periodic scan does not send the list; only WLAN events and the platform update do.
        ReportNetwork({.logsCount = true});
    }
    LogInfo("Network scanning thread exitting gracefully");
    ResetEvent(m_hNetworkScanStopEvent.Get());
}

bool NetworkMonitor::ReportNetwork(const NetworkPass& pass) {
    if (pass.onlyWhenChanged) m_lastNetworkScanTime = SteadyTime();
    MultiNwInfo record;
    m_inventory.FillMultiNwInfo(record);
    if (pass.onlyWhenChanged) {
        const bool changed = m_reported.HasChanged(record);
        // Outside of the comparison, whose lock would otherwise be held while this waits for a profile.
        if (record.Count == 0) m_wiFiSync.ResetLastWiFiProfile();
        if (!changed) return false;
    }
    if (pass.logsCount) LogInfo("Available NICs Count: %d", record.Count);
    const bool hasCloud = g_pServiceState->m_vorkVersion >= FirmwareLevel::Cloud;
    if (pass.onlyWhenChanged && hasCloud && m_reported.EndsCloudConnection(record)) m_nubaClient.stopNUBA();
    const bool wireless = m_inventory.CommitNwInfo(record);
    if (pass.updatesAddress) {
        const bool wlan = CheckWlanAndSyncProfile(true);
        if (pass.logsSkippedAddress || g_pServiceState->m_bNetworkUpdatesEnabled)
            m_addresses.UpdateIfEnabled(wlan);
    }
    if (pass.sendsAddress) m_addresses.SendIPCompleteInfo();
    if (pass.sendsInventory) WriteNetworkInventory(record);
    if (pass.startsCloudFirst) StartCloud(record);
    m_filterDriver.UpdateFilterDriver(wireless, g_pServiceState->m_provisionStatus == kProvisioned);
    if (!pass.startsCloudFirst) StartCloud(record);
    m_statusFile.UpdateStatusFile();
    return true;
}

// Only a host with an address can reach the cloud.
void NetworkMonitor::StartCloud(const MultiNwInfo& record) {
    if (g_pServiceState->m_vorkVersion >= FirmwareLevel::Cloud && record.Count != 0 &&
        m_addresses.GetCurrentIPv4() != kLoopback)
        m_nubaClient.startNUBA();
}

void NetworkMonitor::HandleWlanEvent(DWORD source, DWORD code) {
    const uint32_t version = g_pServiceState->m_vorkVersion;
    if (!g_pServiceState->m_bNetworkUpdatesEnabled) {
        LogInfo("Skipping network updates");
    } else if (version < FirmwareLevel::AllAdapters) {
        if (IsOldFirmwaresEvent(source, code))
            ReportNetwork({.logsSkippedAddress = false, .sendsInventory = true});
    } else if (!ReportNetwork({.sendsAddress = true, .sendsInventory = true, .startsCloudFirst = true})) {
        // The network may be unchanged while the Wi-Fi profile has changed.
        if (version >= FirmwareLevel::WiFiSync) CheckWlanAndSyncProfile(false);
    }
}

// Older firmware receives only completed connections.
bool NetworkMonitor::IsOldFirmwaresEvent(DWORD source, DWORD code) const {
    if (source != WLAN_NOTIFICATION_SOURCE_ACM) return false;
    if (code == wlan_notification_acm_disconnected)
        LogInfo("WLAN_NOTIFICATION_SOURCE_ACM received -- Wlan is disconnected");
    return code == wlan_notification_acm_connection_complete;
}

void WriteNetworkInventory(const MultiNwInfo& record) {
    MailBoxDriverInterface& mailbox = g_pServiceState->m_mailBoxDriverInterface;
    if (g_pServiceState->m_vorkVersion >= FirmwareLevel::AllAdapters) {
        mailbox.WriteMultiNwInfo(&record);
    } else if (size_t index = 0; ChoosePrimaryEntry(record, index)) {
        const NwInfo info = MakeNwInfo(record.Entries[index]);
        mailbox.WriteNwInfo(&info);
    }
}
