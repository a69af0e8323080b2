// The state that the subsystems share. ZELService is built on it; a subsystem reaches it through
// g_pServiceState and sees nothing else of the service.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "base/DetachedThreads.h"
#include "base/Handles.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "mailbox/MailboxRecords.h"
#include "state/PackageContext.h"

class ServiceState {
  public:
    ServiceState(const ServiceState&) = delete;
    ServiceState& operator=(const ServiceState&) = delete;

    // --- the stop; any thread ---

    // Sets m_bServiceStopping and ends every SleepUnlessStopping.
    void SignalStop();
    // Returns true after the whole time, false as soon as the service stops.
    bool SleepUnlessStopping(DWORD milliseconds);

    // --- the firmware's description of itself (ManageabilityState.cpp); any thread ---

    // Queries the firmware for its version. A failure leaves zeros and the text "Not Available".
    void UpdateManageabilityStatus();
    // Returns a copy of the last answer.
    ManageabilityStatus GetManageabilityStatus() const;

    // --- working folders (WorkingFolders.cpp); any thread ---

    std::string GetProgramDataFolder();
    std::string GetMakerFolder();
    std::string GetWorkingFolder();
    std::string GetStatusFilePath();
    std::string GetDisplayMgrLogPath();
    std::string GetTerminateFilePath();
    std::string GetRecoveryScriptPath();

    // Writes one entry to the Windows event log, for failures before the log file exists (EventLog.cpp). Any
    // thread.
    void LogEventMessage(const char* text, WORD eventType);

  private:
    UniqueHandle m_hStopEvent;  // manual-reset; set together with m_bServiceStopping
    std::mutex m_pathCacheMutex;
    mutable std::mutex m_manageabilityMutex;
    ManageabilityStatus m_ManageabilityStatus{};

  public:
    // --- members; flags are atomics because several threads use them without a lock ---

    // The service starts every thread here, except the workers of the thread pools.
    DetachedThreads m_detachedThreads;
    std::string m_ServiceName;  // empty: the installer chooses the name under which the service is installed
    std::unordered_map<std::string, std::string> m_pathCache;
    MailBoxDriverInterface m_mailBoxDriverInterface;
    std::atomic<const char*> KVMStatus{"NO"};  // "YES" while a KVM session runs
    std::atomic<uint8_t> m_bServiceStopping{0};
    std::atomic<bool> m_bWorkingFolderSecure{false};  // else no file is written or deleted there
    std::atomic<uint8_t> m_bMPMVersionValid{0};
    std::atomic<uint32_t> m_provisionStatus{
        0};                                  // ProvisionStatus of the last answer; 2: provisioning completed
    std::atomic<uint32_t> m_vorkVersion{0};  // uVORKVersion of the last answer: 21 is 2.1
    std::atomic<uint8_t> m_bNetworkUpdatesEnabled{1};
    uint16_t dashPort = 664;
    PackageContext m_packageContext;
    std::atomic<uint32_t> m_bootMode{0};  // 0 regular, 1 safe boot, 2 safe boot with networking

  protected:
    // Makes this object g_pServiceState.
    explicit ServiceState(const char* serviceName);
    ~ServiceState() = default;

  private:
    std::string CachedPath(const std::string& key, const std::string& root);
};

extern ServiceState* g_pServiceState;
