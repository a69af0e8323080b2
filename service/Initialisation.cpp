// The two stages of the start: the first may refuse it, the second waits for the firmware.
#include "base/ExecutableFolder.h"
#include "base/Log.h"
#include "package/PackageDeployment.h"
#include "service/CommandDispatch.h"
#include "service/Registry.h"
#include "service/ZELService.h"
#include "wifi/DataReader.h"

namespace {

constexpr uint32_t kWrongPath = 3;
constexpr DWORD kQuickRetryMilliseconds = 50;
constexpr DWORD kRetryMilliseconds = 10000;
constexpr int kQuickRetries = 6;
constexpr int kTriesPerLogLine = 6;
constexpr int kCounterWrap = 120;

}  // namespace

uint32_t ZELService::DoInitialization() {
    LogInfo("Enter ZEL Initialization Block");
    m_packageContext.m_bIsPackage = IsRunningFromMSIXPackage();
    if (m_packageContext.GetIsPackage()) {
        PreparePackage();
    } else if (const uint32_t error = CheckInstallationPath()) {
        return error;
    }
    CheckBootMode();
    if (m_bootMode != 0) return ERROR_SUCCESS;
    const HRESULT error = m_WMIInterfaceObj.DoInit();
    if (error)
        LogError("%s: m_WMIInterfaceObj.DoInit() call failed with error: %d", "DoInitialization", error);
    return error;
}

// A classic install runs only from the folder "bin" of its installation. The comparison is exact.
uint32_t ZELService::CheckInstallationPath() {
    constexpr const char* kValueName = "InstallationPath";
    std::string installed;
    if (!GetInstallationPath(installed, kValueName) || installed.empty()) {
        LogInfo("Encountered error reading installation path from registry: = %s", kValueName);
        return kWrongPath;
    }
    const std::string current = ExecutableFolder("Obtained empty working directory");
    installed += "bin";
    LogInfo("(INST: %s), (CWD: %s)", installed, current);
    if (installed != current) {
        LogError("Installed path doesn't match CWD path.");
        return kWrongPath;
    }
    LogInfo("Both installed path and CWD paths match.");
    return ERROR_SUCCESS;
}

void ZELService::CheckBootMode() {
    m_bootMode = m_packageContext.GetIsPackage() ? GetBootMode()
                                                 : static_cast<uint32_t>(GetSystemMetrics(SM_CLEANBOOT));
    switch (m_bootMode) {
        case 0:
            LogInfo("Boot mode is Regular boot");
            break;
        case 1:
            LogInfo("Boot mode is Safe boot");
            break;
        case 2:
            LogInfo("Boot mode is Safe boot with Networking");
            break;
        default:
            LogInfo("Unknown Safe Boot mode: %d", m_bootMode.load());
    }
}

uint32_t ZELService::DoDriverInitialization() {
    m_statusFile.UpdateStatusFile();
    if (!OpenDeviceWithRetries()) return ERROR_SUCCESS;
    m_filterDriver.CheckFilterDriverSupport();
    {
        std::lock_guard lock(m_threadObjectsMutex);
        m_pMBDriverReadThreadObj =
            m_detachedThreads.StartOwned([this] { ReadFromMailBoxDriverThread(this); });
    }
    WakeAndUpdateMPMAndWait(true);
    if (m_bootMode == 0) {
        std::lock_guard lock(m_threadObjectsMutex);
        m_pDASHClientThreadObj =
            m_detachedThreads.StartOwned([this] { m_dashClientInterface.HandleDASHClientThread(); });
    }
    m_kvmClientInterface.ForgetTrustedAddress();
    LogDebug("Initializing KVM IP and Port to 0");
    LogDebug("Exit %s", "DoDriverInitialization");
    return ERROR_SUCCESS;
}

// The first retries come quickly, for a driver that is just loading; later ones come every ten seconds,
// without a limit. Returns false when the service stops.
bool ZELService::OpenDeviceWithRetries() {
    int count = 0;
    while (!m_bServiceStopping) {
        const uint32_t error = m_mailBoxDriverInterface.OpenMPMDevice();
        if (error == ERROR_SUCCESS) return !m_bServiceStopping;
        if (count % kTriesPerLogLine == 0)
            LogError("ZELService::%s: OpenMPMDevice() call failed with error: %d", "DoDriverInitialization",
                     error);
        ++count;
        if (count < kQuickRetries) {
            SleepUnlessStopping(kQuickRetryMilliseconds);
        } else if (count >= kCounterWrap) {
            count = kQuickRetries;  // only keeps the counter small
        } else {
            SleepUnlessStopping(kRetryMilliseconds);
        }
    }
    return false;
}
