// The one object that owns the system: the subsystems' main objects as members, on the state that they share.
// g_pZELService points to it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "base/Handles.h"
#include "connection/ConnectionAnnouncer.h"
#include "dash/DASHClientInterface.h"
#include "hostcontrol/HostControl.h"
#include "kvm/KVMClientInterface.h"
#include "mailbox/MailboxReadLoop.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkInventory.h"
#include "reporting/NetworkMonitor.h"
#include "reporting/NetworkStateStore.h"
#include "reporting/StatusFile.h"
#include "reporting/WMIInterface.h"
#include "session/UserConsent.h"
#include "state/ServiceState.h"

class ZELService : public ServiceState {
  public:
    explicit ZELService(const char* serviceName);
    ~ZELService();
    ZELService(const ZELService&) = delete;
    ZELService& operator=(const ZELService&) = delete;

    // --- the way in and out (Lifecycle.cpp, ServiceControl.cpp) ---

    // The program: opens the log and runs as "-service" or "-console". Always 0.
    int Main(int argc, char** argv);
    void RunAsService();
    void RunAsConsole();
    // The service's main function, on a thread of the dispatcher.
    void Register();
    // Initialises and starts the driver initialisation thread. False when the service can not start;
    // SERVICE_STOPPED is reported then.
    bool ServiceSetup();
    // The dispatcher's thread. Runs a stop to its end. Always 0.
    DWORD ServiceCtrlHandler(DWORD control, DWORD eventType);
    // Tells the SCM; nothing in console mode. waitHint in milliseconds.
    void ReportServiceStatus(DWORD state, DWORD exitCode, DWORD waitHint);

    // --- start and stop order (Initialisation.cpp, Cleanup.cpp) ---

    // Creates the working folder and opens the log in it. False when there is no log.
    bool InitializeLogging();
    // 0, or the exit code with which the service refuses to start: 3, or the HRESULT of WMI.
    uint32_t DoInitialization();
    // Waits for the mailbox device as long as it takes and brings the firmware link up. 0.
    uint32_t DoDriverInitialization();
    // Stops everything in order; true.
    bool ServiceCleanup();
    // Tells the firmware one of ZELServiceState.
    void SetZELServiceState(uint32_t state);

    // The end of the process, after all else: ends the read loop, joins what is joinable and waits for the
    // detached threads. False when some of them still run after so many milliseconds. May be called again.
    bool EndThreads(DWORD milliseconds);

    // --- the wake update (WakeUpdate.cpp) ---

    // Brings the firmware up to date on a detached thread. Dropped while an update is under way. Unless
    // forced, only when the firmware says that it is down. Any thread; waits for the firmware's status, and
    // in safe boot for two requests more. A failed thread creation throws std::system_error.
    void WakeAndUpdateMPM(bool force);
    // The same, then waits for the update, 3 seconds at most.
    void WakeAndUpdateMPMAndWait(bool force);

    // --- platform reports (PlatformUpdate.cpp) ---

    // The whole report to the firmware, on a detached thread of WakeAndUpdateMPM.
    void UpdatePlatformInfoToMPM();
    // Tells the firmware that the host goes away, and closes the gate.
    void StopPlatformUpdates();

    MailboxReadLoop m_mailboxReadLoop;

  private:
    // Ahead of the members below, so that they outlive them.
    std::mutex m_serviceStatusMutex;  // an interrogation may come while the start still reports
    std::mutex m_threadObjectsMutex;  // guards the two owning thread pointers
    std::mutex m_stopMutex;           // held by a stop, which the dispatcher's return may overtake

  public:
    std::atomic<SERVICE_STATUS_HANDLE> m_ServiceStatusHandle{nullptr};
    SERVICE_STATUS m_ServiceStatus{};
    DWORD m_ControlsAccepted = 0;
    std::unique_ptr<std::thread> m_pDASHClientThreadObj;
    std::unique_ptr<std::thread> m_pMBDriverReadThreadObj;
    UserConsent m_userConsent;
    std::atomic<uint8_t> m_bWakeUpdateInProgress{0};
    UniqueHandle m_ConsoleStopEvent;
    std::atomic<uint8_t> m_bRunAsConsole{0};
    IPv4InfoStore m_ipv4InfoStore;
    NetworkStateStore m_networkStateStore{m_ipv4InfoStore};
    StatusFile m_statusFile{m_ipv4InfoStore, m_networkStateStore};
    WMIInterface m_WMIInterfaceObj;
    ConnectionAnnouncer m_connectionAnnouncer{m_ipv4InfoStore, [this] { WakeAndUpdateMPMAndWait(false); }};
    HostControl m_hostControl;
    DASHClientInterface m_dashClientInterface{m_connectionAnnouncer};
    KVMClientInterface m_kvmClientInterface{m_connectionAnnouncer, m_statusFile, m_hostControl};
    NetworkInventory m_networkInventory{m_ipv4InfoStore, m_networkStateStore};
    NetworkMonitor m_networkMonitor{m_ipv4InfoStore, m_networkStateStore, m_networkInventory, m_statusFile};
    std::atomic<uint8_t> m_bPlatformUpdateDone{1};

  private:
    void RunWithArguments(int argc, char** argv);
    void RunServiceMain();
    DWORD CurrentServiceState();
    void HandlePowerEvent(DWORD eventType);
    void StopService(bool shutdown);
    void StopDASHAndReadThread();
    void JoinThreads();
    uint32_t CheckInstallationPath();
    void CheckBootMode();
    bool OpenDeviceWithRetries();
};

extern ZELService* g_pZELService;
