// The stop, on the thread of the control handler.
#include <exception>

#include "base/Log.h"
#include "package/PackageDeployment.h"
#include "service/ZELService.h"

namespace {

constexpr DWORD kRecoveryPoll = 1000;  // milliseconds
// A script that never ends must not keep the service from stopping; it goes on without the service.
constexpr int kMostRecoveryPolls = 600;

void AwaitRecoveryConfiguration(const PackageContext& package) {
    for (int attempt = 1; !package.m_bRecoveryConfigDone && attempt <= kMostRecoveryPolls; ++attempt) {
        Sleep(kRecoveryPoll);
        LogInfo("Waiting for WinRE Config to complete, Attempt %d", attempt);
    }
}

}  // namespace

bool ZELService::ServiceCleanup() {
    m_kvmClientInterface.SignalStop();
    if (m_kvmClientInterface.m_kvmState == kKvmEnabled) {
        LogInfo("Cleanup KVM connection");
        m_kvmClientInterface.DoKVMCleanUp();
    }
    SignalStop();
    m_bMPMVersionValid = 0;
    StopPlatformUpdates();
    if (m_bootMode == 0) {
        StopDASHAndReadThread();
        LogInfo("Cleanup WMI Interfaces");
        m_WMIInterfaceObj.Release();
    }
    LogInfo("Cleanup Driver Interfaces");
    try {
        m_mailBoxDriverInterface.CloseMPMDevice();
    } catch (const std::exception& exception) {
        LogError("CloseMPMDevice failed with exception: %s", exception.what());
    }
    m_filterDriver.SetFilterDriver(false);
    try {
        m_statusFile.DeleteStatusFile();
    } catch (const std::exception& exception) {
        LogError("ZEL Tray UI cleanup failed with exception: %s", exception.what());
    }
    if (m_bRunAsConsole) SetEvent(m_ConsoleStopEvent.Get());
    if (m_packageContext.GetIsPackage()) {
        DeleteKVMAgent();
        DeleteWiFiSyncDataReader();
        AwaitRecoveryConfiguration(m_packageContext);
    }
    return true;
}

void ZELService::StopDASHAndReadThread() {
    LogInfo("Clean up DASH object");
    m_dashClientInterface.CloseHttpsSocket();
    m_dashClientInterface.CloseSocketWithMPM();
    std::unique_lock lock(m_threadObjectsMutex);
    if (m_pDASHClientThreadObj) {
        LogInfo("Waiting for DASH Client thread join");
        m_pDASHClientThreadObj->join();
        LogInfo("DASH Client thread joined");
        m_pDASHClientThreadObj.reset();
    }
    if (m_pMBDriverReadThreadObj) {
        LogInfo("Waiting for MB Driver Read thread termination");
        // The call receives the address of the object, which is no handle, and so has no effect: the read
        // thread ends with the process.
        TerminateThread(m_pMBDriverReadThreadObj.get(), 0);
        LogInfo("MB Driver Read thread terminated");
    }
}
