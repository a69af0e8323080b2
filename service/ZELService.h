// The object that owns the system: it has the main object of each subsystem as a member, and derives from the
// state that they share. g_pZELService points to it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "KVMDisplayMgrLib/src/DisplayMgr.h"
#include "base/Handles.h"
#include "cloud/NubaClient.h"
#include "connection/ConnectionAnnouncer.h"
#include "dash/DASHClientInterface.h"
#include "dash/Indications.h"
#include "hostcontrol/FilterDriver.h"
#include "hostcontrol/HostControl.h"
#include "kvm/KVMClientInterface.h"
#include "mailbox/MailboxReadLoop.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkInventory.h"
#include "reporting/NetworkMonitor.h"
#include "reporting/NetworkStateStore.h"
#include "reporting/StatusFile.h"
#include "reporting/WMIInterface.h"
#include "service/Presence.h"
#include "session/UserConsent.h"
#include "state/ServiceState.h"
#include "wifi/WiFiSync.h"

class ZELService : public ServiceState {
  public:
    explicit ZELService(const char* serviceName);
    ~ZELService();
    ZELService(const ZELService&) = delete;
    ZELService& operator=(const ZELService&) = delete;

    // --- start, stop and service control (Lifecycle.cpp, ServiceControl.cpp) ---

    // Runs the program: opens the log and runs as "-service" or "-console". Returns 0.
    int Main(int argc, char** argv);
    void RunAsService();
    void RunAsConsole();
    // The service's main function. A thread of the dispatcher calls it.
    void Register();
    // Initialises and starts the driver initialisation thread. When the service can't start, reports
    // SERVICE_STOPPED and returns false.
    bool ServiceSetup();
    // Handles a control; a stop runs to its end. Returns 0. The dispatcher's thread.
    DWORD ServiceCtrlHandler(DWORD control, DWORD eventType);
    // Reports the state to the SCM; does nothing in console mode. waitHint is in milliseconds.
    void ReportServiceStatus(DWORD state, DWORD exitCode, DWORD waitHint);

    // --- start and stop order (Initialisation.cpp, Cleanup.cpp) ---

    // Creates the working folder and opens the log in it. Returns false when there is no log.
    bool InitializeLogging();
    // Returns 0, or the exit code with which the service refuses to start: 3, or the HRESULT of WMI.
    uint32_t DoInitialization();
    // Waits for the mailbox device without a time limit, and establishes the link to the firmware. Returns 0.
    uint32_t DoDriverInitialization();
    // Stops everything in order. Returns true.
    bool ServiceCleanup();
    // Reports one of ZELServiceState to the firmware.
    void SetZELServiceState(uint32_t state);

    // The end of the process: ends the read loop, and waits for the owned threads and the detached ones.
    // Returns false when some of them still run after the given time. Either way no thread has an owner
    // afterwards. May be called again.
    bool EndThreads(DWORD milliseconds);

    // --- the wake update (WakeUpdate.cpp) ---

    // Brings the firmware up to date on a detached thread. Does nothing while an update is running. Unless
    // forced, updates only when the firmware reports that it is down. Waits for the firmware's status, and in
    // safe boot for two more requests. A failed thread creation throws std::system_error. Any thread.
    void WakeAndUpdateMPM(bool force);
    // Does the same, then waits for the update, 3 seconds at most.
    void WakeAndUpdateMPMAndWait(bool force);

    // --- platform reports (PlatformUpdate.cpp) ---

    // Sends the whole report to the firmware, unless the service has left since `epoch`. A detached thread of
    // WakeAndUpdateMPM.
    void UpdatePlatformInfoToMPM(Presence::Epoch epoch);
    void UpdatePlatformInfoToMPM() { UpdatePlatformInfoToMPM(m_presence.Current()); }
    // Reports to the firmware that the host stops or suspends, and closes the gate.
    void StopPlatformUpdates();

    MailboxReadLoop m_mailboxReadLoop;

  private:
    // Declared before the members below, so that they outlive them.
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
    Presence m_presence{m_mailBoxDriverInterface, m_bWakeUpdateInProgress};
    UniqueHandle m_ConsoleStopEvent;
    std::atomic<uint8_t> m_bRunAsConsole{0};
    IPv4InfoStore m_ipv4InfoStore;
    NetworkStateStore m_networkStateStore{m_ipv4InfoStore};
    StatusFile m_statusFile{m_ipv4InfoStore, m_networkStateStore};
    WMIInterface m_WMIInterfaceObj;
    ConnectionAnnouncer m_connectionAnnouncer{m_ipv4InfoStore, [this] { WakeAndUpdateMPMAndWait(false); }};
    HostControl m_hostControl;
    DASHClientInterface m_dashClientInterface{m_connectionAnnouncer};
    Indications m_indications;
    DisplayMgr m_displayMgr;
    KVMClientInterface m_kvmClientInterface{m_connectionAnnouncer, m_statusFile, m_hostControl, m_displayMgr};
    NetworkInventory m_networkInventory{m_ipv4InfoStore, m_networkStateStore};
    WiFiSync m_wiFiSync;
    FilterDriver m_filterDriver;
    NubaClient m_nubaClient;
    NetworkMonitor m_networkMonitor{m_ipv4InfoStore, m_networkStateStore, m_networkInventory, m_statusFile,
                                    m_wiFiSync,      m_filterDriver,      m_nubaClient};
    std::atomic<uint8_t> m_bPlatformUpdateDone{1};

  private:
    void RunWithArguments(int argc, char** argv);
    void RunServiceMain();
    void AnswerInterrogation();
    void SendServiceStatus(DWORD state, DWORD exitCode, DWORD waitHint);
    void HandlePowerEvent(DWORD eventType);
    bool StartUpdateIfDue(bool force, Presence::Epoch epoch);
    void ReportSafeBoot(Presence::Epoch epoch);
    void StopService(bool shutdown);
    void StopDASHAndReadThread();
    uint32_t CheckInstallationPath();
    void CheckBootMode();
    bool OpenDeviceWithRetries();
};

extern ZELService* g_pZELService;
