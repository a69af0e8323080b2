// The one object that owns the system: the state that the subsystems share, and their main objects as members.
// Every thread reaches it through g_pZELService.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "dash/DASHClientInterface.h"
#include "dash/SocketServers.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "mailbox/MailboxRecords.h"
#include "reporting/IPv4InfoStore.h"

class ZELService {
  public:
    explicit ZELService(const char* serviceName);
    ~ZELService();
    ZELService(const ZELService&) = delete;
    ZELService& operator=(const ZELService&) = delete;

    // --- shared state; flags are atomics because threads meet at them without a lock ---
    MailBoxDriverInterface m_mailBoxDriverInterface;
    IPv4InfoStore m_ipv4InfoStore;
    DASHClientInterface m_dashClientInterface;
    KvmSocket m_kvmSocket;

    std::atomic<uint8_t> m_bWakeUpdateInProgress{0};
    std::atomic<uint8_t> m_bServiceStopping{0};
    std::atomic<uint8_t> m_bMPMVersionValid{0};
    std::atomic<uint8_t> m_bPlatformUpdateDone{1};
    std::atomic<uint8_t> m_bNetworkUpdatesEnabled{1};
    std::atomic<uint32_t> m_bootMode{0};      // 0 regular, 1 safe boot, 2 safe boot with networking
    std::atomic<uint32_t> m_vorkVersion{0};   // uVORKVersion of the last answer
    uint16_t dashPort = 664;

    // Brings the firmware up to date on a detached thread; see WakeUpdate.cpp. Any thread; returns quickly.
    void WakeAndUpdateMPM(bool force);
    // The same, then waits for the update, 3 seconds at most.
    void WakeAndUpdateMPMAndWait(bool force);
};

extern ZELService* g_pZELService;
