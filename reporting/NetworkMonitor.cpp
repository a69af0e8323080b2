// The scanning thread, and what a scan reports by either way.
#include "reporting/NetworkMonitor.h"

#include "mailbox/FirmwareLevels.h"
#include "reporting/NetworkInventory.h"
#include "base/Log.h"
#include "base/SteadyTime.h"
#include "service/ZELService.h"

namespace {

constexpr DWORD kScanPeriodMilliseconds = 61000;
constexpr uint64_t kLeastScanDistance = 61'001'000'000;  // ns

}  // namespace

NetworkMonitor::NetworkMonitor() : m_hNetworkScanStopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

NetworkMonitor::~NetworkMonitor() {
    StopNetworkScanThread();
    UnRegisterWlanNotification();
}

void NetworkMonitor::StartNetworkScanThread() {
    std::lock_guard lock(m_threadMutex);
    if (m_pNetworkScanThreadObj || g_pZELService->m_bServiceStopping) return;
    LogInfo("Network scanning thread starting");
    m_pNetworkScanThreadObj = g_pZELService->m_detachedThreads.StartOwned([this] { NetworkScanThread(); });
}

void NetworkMonitor::StopNetworkScanThread() {
    std::lock_guard lock(m_threadMutex);
    if (!m_pNetworkScanThreadObj) return;
    SetEvent(m_hNetworkScanStopEvent.Get());
    m_pNetworkScanThreadObj->join();
    m_pNetworkScanThreadObj.reset();
}

void NetworkMonitor::NetworkScanThread() {
    while (WaitForSingleObject(m_hNetworkScanStopEvent.Get(), kScanPeriodMilliseconds) == WAIT_TIMEOUT) {
        // A scan by the WLAN service's word puts this one off, by a whole period at most.
        if (SteadyTime() - m_lastNetworkScanTime >= kLeastScanDistance) ScanNetwork();
    }
    LogInfo("Network scanning thread exitting gracefully");
    ResetEvent(m_hNetworkScanStopEvent.Get());
}

// A changed list of interfaces is not sent from here: the firmware gets that by the WLAN service's word and
// by the platform update alone.
void NetworkMonitor::ScanNetwork() {
    m_lastNetworkScanTime = SteadyTime();
    MultiNwInfo record;
    FillMultiNwInfo(record);
    if (!g_pZELService->m_networkStateStore.HasChanged(record)) return;
    LogInfo("Available NICs Count: %d", record.Count);
    CommitNwInfo(record);
    const bool wlan = CheckWlanAndSyncProfile(true);
    g_pZELService->m_ipv4InfoStore.UpdateIfEnabled(wlan);
    g_pZELService->m_statusFile.UpdateStatusFile();
}

void NetworkMonitor::HandleWlanEvent(DWORD source, DWORD code) {
    if (!g_pZELService->m_bNetworkUpdatesEnabled) {
        LogInfo("Skipping network updates");
    } else if (g_pZELService->m_vorkVersion >= FirmwareLevel::AllAdapters) {
        ReportToNewFirmware();
    } else {
        ReportToOldFirmware(source, code);
    }
}

void NetworkMonitor::ReportToNewFirmware() {
    m_lastNetworkScanTime = SteadyTime();
    MultiNwInfo record;
    FillMultiNwInfo(record);
    if (!g_pZELService->m_networkStateStore.HasChanged(record)) {
        // The network may be the same over another Wi-Fi profile.
        if (g_pZELService->m_vorkVersion >= FirmwareLevel::WiFiSync) CheckWlanAndSyncProfile(false);
        return;
    }
    CommitNwInfo(record);
    const bool wlan = CheckWlanAndSyncProfile(true);
    g_pZELService->m_ipv4InfoStore.UpdateIfEnabled(wlan);
    g_pZELService->m_ipv4InfoStore.SendIPCompleteInfo();
    WriteNetworkInventory(record);
    g_pZELService->m_statusFile.UpdateStatusFile();
}

void NetworkMonitor::ReportToOldFirmware(DWORD source, DWORD code) {
    if (source != WLAN_NOTIFICATION_SOURCE_ACM) return;
    if (code == wlan_notification_acm_disconnected) {
        LogInfo("WLAN_NOTIFICATION_SOURCE_ACM received -- Wlan is disconnected");
        return;
    }
    if (code != wlan_notification_acm_connection_complete) return;
    m_lastNetworkScanTime = SteadyTime();
    MultiNwInfo record;
    FillMultiNwInfo(record);
    if (!g_pZELService->m_networkStateStore.HasChanged(record)) return;
    CommitNwInfo(record);
    const bool wlan = CheckWlanAndSyncProfile(true);
    if (g_pZELService->m_bNetworkUpdatesEnabled) g_pZELService->m_ipv4InfoStore.UpdateNetworkAddress(wlan);
    WriteNetworkInventory(record);
    g_pZELService->m_statusFile.UpdateStatusFile();
}

void WriteNetworkInventory(const MultiNwInfo& record) {
    MailBoxDriverInterface& mailbox = g_pZELService->m_mailBoxDriverInterface;
    if (g_pZELService->m_vorkVersion >= FirmwareLevel::AllAdapters) {
        mailbox.WriteMultiNwInfo(&record);
    } else if (size_t index; ChoosePrimaryEntry(record, index)) {
        const NwInfo info = MakeNwInfo(record.Entries[index]);
        mailbox.WriteNwInfo(&info);
    }
}
