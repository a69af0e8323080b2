// Notices changes of the host's network: by a scan every 61 seconds, and by the notifications of the WLAN
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

class IPv4InfoStore;
class NetworkInventory;
class NetworkStateStore;
class StatusFile;
struct MultiNwInfo;

// What a pass over the network does with what it finds.
struct NetworkPass {
    bool onlyWhenChanged = true;  // false: reports also a picture that the firmware knows
    bool logsCount = false;
    bool updatesAddress = true;
    bool logsSkippedAddress = true;  // when updates are disabled meanwhile
    bool sendsAddress = false;
    bool sendsInventory = false;
};

class NetworkMonitor {
  public:
    NetworkMonitor(IPv4InfoStore& addresses, NetworkStateStore& reported, NetworkInventory& inventory,
                   StatusFile& statusFile);
    // Ends the notifications. The scanning thread must have ended.
    ~NetworkMonitor();
    NetworkMonitor(const NetworkMonitor&) = delete;
    NetworkMonitor& operator=(const NetworkMonitor&) = delete;

    // Starts the scanning thread unless it runs or the service stops. Any thread.
    void StartNetworkScanThread();
    // Ends and joins it; may wait for a scan: 3 seconds, and for as long as the firmware doesn't answer. Any
    // thread but the scanning one.
    void StopNetworkScanThread();

    // Scans the network, compares it with the picture that was reported last, makes it the new picture and
    // reports what the pass asks for. Returns false when there was nothing to report. Any thread.
    bool ReportNetwork(const NetworkPass& pass);

    // 0, or the WLAN service's error. Any thread.
    DWORD RegisterWlanNotification();
    void UnRegisterWlanNotification();

    // A thread of the WLAN service. Looks at the first notification of a burst, two seconds later.
    void OnWlanNotification(const WLAN_NOTIFICATION_DATA& data);

    // 0 and the interface's GUID when the first WLAN interface is connected; else an error, 1359 when it
    // isn't.
    DWORD CheckIfWLANConnected(bool verbose, GUID& interfaceGuid);
    // True when the host is connected over WLAN.
    bool CheckWlanAndSyncProfile(bool verbose);

  private:
    void NetworkScanThread();
    void HandleWlanEvent(DWORD source, DWORD code);
    bool IsOldFirmwaresEvent(DWORD source, DWORD code) const;
    HANDLE WlanClient(DWORD& error);

    IPv4InfoStore& m_addresses;
    NetworkStateStore& m_reported;
    NetworkInventory& m_inventory;
    StatusFile& m_statusFile;

    std::mutex m_threadMutex;  // guards the thread object
    std::unique_ptr<std::thread> m_pNetworkScanThreadObj;
    UniqueHandle m_hNetworkScanStopEvent;  // manual-reset
    std::atomic<uint64_t> m_lastNetworkScanTime{
        0};  // ns of the steady clock: start of the last scan by either way

    std::mutex m_wlanMutex;  // guards the two handles
    // The client that is notified, and whether it was registered.
    struct {
        HANDLE client = nullptr;
        bool registered = false;
    } m_wlanRegistration;
    UniqueWlanHandle m_hWlanClient;  // for queries; opened at the first one
    std::atomic<uint8_t> m_bWlanEventPending{0};
};

// Sends the record that this firmware takes: all interfaces, or below version 2.0 the chosen one.
void WriteNetworkInventory(const MultiNwInfo& record);
