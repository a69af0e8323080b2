// Detects changes of the host's network by a scan every 61 seconds and by the notifications of the WLAN
// service.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wlanapi.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "base/Handles.h"

class FilterDriver;
class IPv4InfoStore;
class NubaClient;
class NetworkInventory;
class NetworkStateStore;
class StatusFile;
class WiFiSync;
struct MultiNwInfo;

// Selects what one pass over the network reports.
struct NetworkPass {
    bool onlyWhenChanged = true;  // false: reports even a state that the firmware already has
    bool logsCount = false;
    bool updatesAddress = true;
    bool logsSkippedAddress = true;  // when updates have been disabled in the meantime
    bool sendsAddress = false;
    bool sendsInventory = false;
    bool startsCloudFirst = false;  // before the filter driver instead of after it
};

class NetworkMonitor {
  public:
    NetworkMonitor(IPv4InfoStore& addresses, NetworkStateStore& reported, NetworkInventory& inventory,
                   StatusFile& statusFile, WiFiSync& wiFiSync, FilterDriver& filterDriver,
                   NubaClient& nubaClient);
    // Unregisters the notifications. The scanning thread must have ended.
    ~NetworkMonitor();
    NetworkMonitor(const NetworkMonitor&) = delete;
    NetworkMonitor& operator=(const NetworkMonitor&) = delete;

    // Starts the scanning thread unless it already runs or the service is stopping. Any thread.
    void StartNetworkScanThread();
    // Ends and joins the scanning thread. May block for a running scan: 3 seconds, and until the firmware
    // answers. Any thread except the scanning thread.
    void StopNetworkScanThread();

    // Scans the network, compares it with the state that was reported last, stores it as the new state and
    // reports what the pass selects. Returns false when there is nothing to report. Any thread.
    bool ReportNetwork(const NetworkPass& pass);

    // Returns 0 or the WLAN service's error. Any thread.
    DWORD RegisterWlanNotification();
    void UnRegisterWlanNotification();

    // Runs on a thread of the WLAN service. Handles the first notification of a burst two seconds later and
    // ignores the others.
    void OnWlanNotification(const WLAN_NOTIFICATION_DATA& data);

    // Returns 0 and the interface's GUID when the first WLAN interface is connected. Otherwise returns an
    // error, which is 1359 when the interface is not connected.
    DWORD CheckIfWLANConnected(bool verbose, GUID& interfaceGuid);
    // Sends a new Wi-Fi profile to the firmware, or forgets the one that was sent last when the first WLAN
    // interface is not connected. Returns true when the host is connected over WLAN.
    bool CheckWlanAndSyncProfile(bool verbose);

  private:
    void NetworkScanThread();
    void HandleWlanEvent(DWORD source, DWORD code);
    void StartCloud(const MultiNwInfo& record);
    bool IsOldFirmwaresEvent(DWORD source, DWORD code) const;
    DWORD RegisterWlanClient();
    // Registers again when the WLAN service has restarted since the registration.
    void RenewWlanRegistration();
    std::shared_ptr<const UniqueWlanHandle> WlanClient(DWORD& error);
    void DropWlanClient(const std::shared_ptr<const UniqueWlanHandle>& client);
    DWORD ListWlanInterfaces(UniqueWlanMemory& list);

    IPv4InfoStore& m_addresses;
    NetworkStateStore& m_reported;
    NetworkInventory& m_inventory;
    StatusFile& m_statusFile;
    WiFiSync& m_wiFiSync;
    FilterDriver& m_filterDriver;
    NubaClient& m_nubaClient;

    std::mutex m_threadMutex;  // guards the thread object
    std::unique_ptr<std::thread> m_pNetworkScanThreadObj;
    UniqueHandle m_hNetworkScanStopEvent;  // manual-reset
    // Steady-clock time in ns at which the last scan started, periodic or after a WLAN event.
    std::atomic<uint64_t> m_lastNetworkScanTime{0};

    std::mutex m_wlanMutex;  // guards the two handles
    // The client that receives notifications, and whether it has been registered. A registered client is
    // missing only while it cannot be renewed.
    struct {
        HANDLE client = nullptr;
        bool registered = false;
    } m_wlanRegistration;
    // For queries; the first one opens it. A query that is under way keeps the handle open.
    std::shared_ptr<const UniqueWlanHandle> m_hWlanClient;
    std::atomic<uint8_t> m_bWlanEventPending{0};
};

// Sends the record that this firmware accepts: all interfaces, or only the chosen one below version 2.0.
void WriteNetworkInventory(const MultiNwInfo& record);
