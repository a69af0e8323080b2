// The report to the firmware when the link to it is established, and the last message before the host stops
// or suspends.
#include <winsock2.h>
#include <windows.h>
#include <wininet.h>

#include "KVMDisplayMgrLib/src/EncodeCapability.h"
#include "base/Log.h"
#include "mailbox/FirmwareLevels.h"
#include "reporting/NetworkInventory.h"
#include "reporting/OsInformation.h"
#include "service/ZELService.h"

namespace {

constexpr DWORD kConnectionPollMilliseconds = 100;
constexpr int kPollsBeforeEmptyInventory = 100;

// The empty inventory spares the firmware the wait for a network that may never come.
void SendEmptyInventory() {
    MailBoxDriverInterface& mailbox = g_pZELService->m_mailBoxDriverInterface;
    if (g_pZELService->m_vorkVersion >= FirmwareLevel::AllAdapters) {
        const MultiNwInfo empty{};
        mailbox.WriteMultiNwInfo(&empty);
    } else {
        const NwInfo empty{};
        mailbox.WriteNwInfo(&empty);
    }
}

// Waits without a time limit. Returns false when the service stops, or has reported itself as down meanwhile:
// the next wake starts an update of its own.
bool AwaitConnection(const Presence& presence, Presence::Epoch epoch) {
    DWORD flags = 0;
    for (int polls = 1; !InternetGetConnectedState(&flags, 0); ++polls) {
        if (!g_pZELService->SleepUnlessStopping(kConnectionPollMilliseconds)) return false;
        if (!presence.IsCurrent(epoch)) return false;
        if (polls == kPollsBeforeEmptyInventory) SendEmptyInventory();
    }
    return true;
}

void SendVersionDependentInfo(uint32_t version) {
    if (version < FirmwareLevel::Cloud) {
        // The text is logged for level 20 as well.
        LogInfo("NUBA does not apply to version below VOR-K 2.0");
        return;
    }
    if (version < FirmwareLevel::CloudDomains) {
        g_pZELService->m_nubaClient.GetCloudProvisioning();
        return;
    }
    if (version >= FirmwareLevel::TimeZone) {
        ADInfo info{};
        info.TimezoneDiff = GetTimezoneDiff();
        LogInfo("Timezone diff is %d", info.TimezoneDiff);
        g_pZELService->m_mailBoxDriverInterface.WriteADInfo(&info);
    }
    g_pZELService->m_nubaClient.SetupCloudServer();
}

}  // namespace

void ZELService::UpdatePlatformInfoToMPM(Presence::Epoch epoch) {
    // "Down" is the last state that a stopping service reports.
    if (m_bServiceStopping) return;
    const bool isUp = m_presence.ReportUp(epoch, [this] {
        m_bPlatformUpdateDone = 0;
        SetZELServiceState(kServiceUp);
        m_bNetworkUpdatesEnabled = 1;
    });
    if (!isUp) return;
    m_networkMonitor.RegisterWlanNotification();
    m_networkMonitor.StartNetworkScanThread();
    WriteOSInfoToMPM(m_WMIInterfaceObj);
    UpdateManageabilityStatus();
    if (m_vorkVersion >= FirmwareLevel::DisplayKvm) {
        LogInfo("VORK Version: %d", m_vorkVersion.load());
        SendLuxCapabilityToMPM(m_mailBoxDriverInterface);
    }
    if (!AwaitConnection(m_presence, epoch)) return;
    const bool wlan = m_networkMonitor.CheckWlanAndSyncProfile(true);
    m_ipv4InfoStore.UpdateIfEnabled(wlan);
    m_ipv4InfoStore.SendIPCompleteInfo();
    SendNetworkStatus(wlan);
    SendVersionDependentInfo(m_vorkVersion);
    m_networkMonitor.ReportNetwork(
        {.onlyWhenChanged = false, .updatesAddress = false, .sendsInventory = true});
    m_bPlatformUpdateDone = 1;
}

void ZELService::StopPlatformUpdates() {
    m_presence.Farewell(m_bServiceStopping, [this] { SetZELServiceState(kServiceDown); });
    // A query that failed meanwhile leaves level 0.
    if (m_vorkVersion >= FirmwareLevel::Cloud || m_nubaClient.IsRunning()) m_nubaClient.stopNUBA();
    if (m_bootMode != 0) return;
    m_bNetworkUpdatesEnabled = 0;
    m_networkMonitor.UnRegisterWlanNotification();
    m_networkMonitor.StopNetworkScanThread();
    m_ipv4InfoStore.ClearAddresses();
    m_wiFiSync.ResetLastWiFiProfile();
}
