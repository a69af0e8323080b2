// The one object that owns the system: the state that the subsystems share, and their main objects as
// members. Every thread reaches it through g_pZELService.
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
#include "hostcontrol/HostControl.h"
#include "kvm/KVMClientInterface.h"
#include "kvm/KVMSessionControl.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "mailbox/MailboxReadLoop.h"
#include "mailbox/MailboxRecords.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkMonitor.h"
#include "reporting/NetworkStateStore.h"
#include "reporting/StatusFile.h"
#include "reporting/WMIInterface.h"
#include "base/DetachedThreads.h"
#include "base/Handles.h"
#include "session/UserConsent.h"

class ZELService {
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
    // One entry in the Windows event log: for failures before the log file exists.
    void LogEventMessage(const char* text, WORD eventType);

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

    // Any thread. True after the whole time, false as soon as the service stops.
    bool SleepUnlessStopping(DWORD milliseconds);

    // --- the firmware's state (ManageabilityState.cpp, WakeUpdate.cpp) ---

    // Asks the firmware for its version; a failure leaves zeros and the text "Not Available". Any thread.
    void UpdateManageabilityStatus();
    // A copy of the last answer.
    ManageabilityStatus GetManageabilityStatus() const;

    // Brings the firmware up to date on a detached thread. Dropped while an update is under way. Unless
    // forced, only when the firmware says that it is down. Any thread; waits for the firmware's status, and
    // in safe boot for two requests more. A failed thread creation throws std::system_error.
    void WakeAndUpdateMPM(bool force);
    // The same, then waits for the update, 3 seconds at most.
    void WakeAndUpdateMPMAndWait(bool force);

    // --- platform reports (reporting/PlatformUpdate.cpp) ---

    // The whole report to the firmware, on a detached thread of WakeAndUpdateMPM.
    void UpdatePlatformInfoToMPM();
    // Tells the firmware that the host goes away, and closes the gate.
    void StopPlatformUpdates();

    // --- working folders (WorkingFolders.cpp); any thread ---

    std::string GetProgramDataFolder();
    std::string GetMakerFolder();
    std::string GetWorkingFolder();
    std::string GetStatusFilePath();
    std::string GetDisplayMgrLogPath();
    std::string GetTerminateFilePath();

    // Every thread of the service is started here, but for the workers of the pools.
    DetachedThreads m_detachedThreads;
    MailboxReadLoop m_mailboxReadLoop;

  private:
    // Ahead of the shared members, so that it outlives them.
    UniqueHandle m_hStopEvent;        // manual-reset; set together with m_bServiceStopping
    std::mutex m_serviceStatusMutex;  // an interrogation may come while the start still reports
    std::mutex m_threadObjectsMutex;  // guards the two owning thread pointers
    std::mutex m_stopMutex;           // held by a stop, which the dispatcher's return may overtake
    std::mutex m_pathCacheMutex;
    mutable std::mutex m_manageabilityMutex;
    ManageabilityStatus m_ManageabilityStatus{};

  public:
    // --- members; flags are atomics because threads meet at them without a lock ---

    std::string m_ServiceName;  // empty: the name under which the service is installed is the installer's
    std::atomic<SERVICE_STATUS_HANDLE> m_ServiceStatusHandle{nullptr};
    SERVICE_STATUS m_ServiceStatus{};
    DWORD m_ControlsAccepted = 0;
    KVMSessionControl m_kvmSessionControl;
    std::unique_ptr<std::thread> m_pDASHClientThreadObj;
    std::unique_ptr<std::thread> m_pMBDriverReadThreadObj;
    UserConsent m_userConsent;
    std::atomic<uint8_t> m_bWakeUpdateInProgress{0};
    UniqueHandle m_ConsoleStopEvent;
    std::atomic<uint8_t> m_bRunAsConsole{0};
    std::unordered_map<std::string, std::string> m_pathCache;
    IPv4InfoStore m_ipv4InfoStore;
    MailBoxDriverInterface m_mailBoxDriverInterface;
    WMIInterface m_WMIInterfaceObj;
    DASHClientInterface m_dashClientInterface;
    KVMClientInterface m_kvmClientInterface;
    HostControl m_hostControl;
    StatusFile m_statusFile;
    NetworkStateStore m_networkStateStore;
    NetworkMonitor m_networkMonitor;
    std::atomic<const char*> KVMStatus{"NO"};  // "YES" while a KVM session runs
    std::atomic<uint8_t> m_bServiceStopping{0};
    std::atomic<uint8_t> m_bMPMVersionValid{0};
    std::atomic<uint32_t> m_provisionStatus{
        0};                                  // ProvisionStatus of the last answer; 2: provisioning completed
    std::atomic<uint32_t> m_vorkVersion{0};  // uVORKVersion of the last answer: 21 is 2.1
    std::atomic<uint8_t> m_bPlatformUpdateDone{1};
    std::atomic<uint8_t> m_bNetworkUpdatesEnabled{1};
    uint16_t dashPort = 664;
    std::atomic<uint32_t> m_bootMode{0};  // 0 regular, 1 safe boot, 2 safe boot with networking

  private:
    void RunWithArguments(int argc, char** argv);
    void RunServiceMain();
    DWORD CurrentServiceState();
    void HandlePowerEvent(DWORD eventType);
    void StopService(bool shutdown);
    void StopDASHAndReadThread();
    void SignalStop();
    void JoinThreads();
    uint32_t CheckInstallationPath();
    void CheckBootMode();
    bool OpenDeviceWithRetries();
    std::string CachedPath(const std::string& key, const std::string& root);
};

extern ZELService* g_pZELService;
