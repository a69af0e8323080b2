#include "wifi/WiFiSync.h"

#include <exception>

#include "base/FieldText.h"
#include "base/Log.h"
#include "mailbox/FirmwareLevels.h"
#include "state/ServiceState.h"
#include "wifi/DataReader.h"
#include "wifi/WiFiProfile.h"

namespace {

bool IsSyncActive() {
    return g_pServiceState->m_vorkVersion >= FirmwareLevel::WiFiSync;
}

}  // namespace

void WiFiSync::SyncWiFiProfile(const GUID& interfaceGuid, HANDLE wlanHandle, bool verbose) {
    if (!IsSyncActive()) return;
    WlanContext context{interfaceGuid, wlanHandle};
    if (g_pServiceState->m_packageContext.GetIsPackage()) context.reader = &GetValueFromWiFiDataReader;
    WiFiSyncInfo record = EmptyWiFiRecord();
    WiFiProfileCode code = WiFiProfileCode::Error;
    try {
        const std::lock_guard lock(m_wifiProfileLock);
        code = ExtractWiFiProfile(context, &m_lastWiFiProfile, record);
        m_lastSSID = TextInField(m_lastWiFiProfile.ssid);
    } catch (const std::exception& error) {
        // Anyone who may add a profile chooses its text, which costs no more than this pass.
        LogError("Wi-Fi profile cannot be parsed: %s", error.what());
        return;
    }
    std::string current = GetCurrentSSID(context);
    if (code == WiFiProfileCode::New) {
        LogInfo("Send WiFi Profile Configuration to driver");
        g_pServiceState->m_mailBoxDriverInterface.WriteWiFiSyncInfo(&record);
    }
    const std::lock_guard lock(m_wifiProfileLock);
    m_currentSSID = std::move(current);
    if (!verbose) CompareSSIDs();
}

// The caller holds the lock.
void WiFiSync::CompareSSIDs() {
    if (m_currentSSID == m_lastSSID) return;
    LogInfo("Previous stored SSID %s, Current SSID obtained %s", m_lastSSID, m_currentSSID);
    LogInfo("SSID does not match");
}

void WiFiSync::ResetLastWiFiProfile() {
    if (!IsSyncActive()) return;
    const std::lock_guard lock(m_wifiProfileLock);
    m_lastWiFiProfile = {};
    m_lastSSID.clear();
    m_currentSSID.clear();
    LogDebug("Reset last connected Wi-Fi profile.");
}
