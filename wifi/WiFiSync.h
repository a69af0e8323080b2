// Sends the settings of the host's Wi-Fi network to the firmware, once for each new or changed profile.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <mutex>
#include <string>

#include "mailbox/WiFiSyncRecord.h"

// Every method may be called on any thread.
class WiFiSync {
  public:
    WiFiSync() = default;
    WiFiSync(const WiFiSync&) = delete;
    WiFiSync& operator=(const WiFiSync&) = delete;

    // Reads the profile of the connected interface and sends it when it is new. May block until the firmware
    // answers, and from a package for the seconds of two reader programs. The WLAN handle is borrowed.
    void SyncWiFiProfile(const GUID& interfaceGuid, HANDLE wlanHandle, bool verbose);
    // Forgets the stored profile: the next connection sends its own, also when it is the same one. Waits for
    // a synchronisation that is reading.
    void ResetLastWiFiProfile();

  private:
    void CompareSSIDs();

    std::recursive_mutex m_wifiProfileLock;  // guards the members below, and spans the reading of a profile
    WiFiSyncInfo m_lastWiFiProfile{};
    // For the comparison at the end of a synchronisation.
    std::string m_lastSSID;
    std::string m_currentSSID;
};
