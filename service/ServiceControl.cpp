// Reports to the SCM, and handles its controls.
#include <atomic>

#include "base/Log.h"
#include "base/ZELLogger.h"
#include "service/RequestWatchdog.h"
#include "service/ZELService.h"

namespace {

constexpr DWORD kStopWaitHint = 3000;

// The counter of all checkpoints; it is never reset.
std::atomic<DWORD> g_CheckPoint{1};

}  // namespace

void ZELService::ReportServiceStatus(DWORD state, DWORD exitCode, DWORD waitHint) {
    if (m_bRunAsConsole) return;
    std::lock_guard lock(m_serviceStatusMutex);
    SendServiceStatus(state, exitCode, waitHint);
}

// The state is read and reported under one lock, because another thread may report the next state meanwhile.
void ZELService::AnswerInterrogation() {
    if (m_bRunAsConsole) return;
    std::lock_guard lock(m_serviceStatusMutex);
    SendServiceStatus(m_ServiceStatus.dwCurrentState, NO_ERROR, 0);
}

// The caller holds m_serviceStatusMutex.
void ZELService::SendServiceStatus(DWORD state, DWORD exitCode, DWORD waitHint) {
    m_ServiceStatus.dwCurrentState = state;
    m_ServiceStatus.dwWin32ExitCode = exitCode;
    m_ServiceStatus.dwWaitHint = waitHint;
    m_ServiceStatus.dwControlsAccepted = state == SERVICE_START_PENDING ? 0 : m_ControlsAccepted;
    const bool settled = state == SERVICE_RUNNING || state == SERVICE_STOPPED;
    m_ServiceStatus.dwCheckPoint = settled ? 0 : g_CheckPoint++;
    SetServiceStatus(m_ServiceStatusHandle, &m_ServiceStatus);
}

DWORD ZELService::ServiceCtrlHandler(DWORD control, DWORD eventType) {
    switch (control) {
        case SERVICE_CONTROL_STOP:
            LogInfo("ServiceCtrlHandler: SERVICE_CONTROL_STOP received");
            StopService(false);
            break;
        case SERVICE_CONTROL_INTERROGATE:
            LogInfo("ServiceCtrlHandler: SERVICE_CONTROL_INTERROGATE received");
            AnswerInterrogation();
            break;
        case SERVICE_CONTROL_POWEREVENT:
            LogInfo("ServiceCtrlHandler: SERVICE_CONTROL_POWEREVENT received");
            HandlePowerEvent(eventType);
            break;
        case SERVICE_CONTROL_SESSIONCHANGE:
            LogInfo("ServiceCtrlHandler: SERVICE_CONTROL_SESSIONCHANGE received");
            break;
        case SERVICE_CONTROL_PRESHUTDOWN:
            LogInfo("ServiceCtrlHandler: SERVICE_CONTROL_PRESHUTDOWN received");
            StopService(true);
            break;
        default:
            LogInfo("ServiceCtrlHandler: Received ControlCode: %d", control);
    }
    return NO_ERROR;
}

// A wake from S0i3 is handled elsewhere: the firmware reports it with a command.
void ZELService::HandlePowerEvent(DWORD eventType) {
    // All controls arrive on one thread. A request without an answer would block the PC's suspend and the
    // stop.
    const RequestWatchdog watchdog(m_mailBoxDriverInterface);
    LogInfo("ServiceCtrlHandler: Handling Powerevent Entry and exit");
    switch (eventType) {
        case PBT_APMSUSPEND:
            LogInfo("ServiceCtrlHandler: PBT_APMSUSPEND received");
            StopPlatformUpdates();
            break;
        case PBT_APMSTANDBY:
            LogInfo("ServiceCtrlHandler: PBT_APMSTANDBY received (entry into S0i3)");
            break;
        case PBT_APMRESUMECRITICAL:
            LogInfo("ServiceCtrlHandler: PBT_APMRESUMECRITICAL received");
            WakeAndUpdateMPM(true);
            break;
        case PBT_APMRESUMESUSPEND:
            LogInfo("ServiceCtrlHandler: PBT_APMRESUMESUSPEND received");
            WakeAndUpdateMPM(true);
            break;
        case PBT_APMRESUMESTANDBY:
            LogInfo("ServiceCtrlHandler: PBT_APMRESUMESTANDBY received (wake from S0i3)");
            break;
        case PBT_APMRESUMEAUTOMATIC:
            LogInfo("ServiceCtrlHandler: PBT_APMRESUMEAUTOMATIC received");
            WakeAndUpdateMPM(true);
            break;
        default:
            LogInfo("ServiceCtrlHandler: Received PowerEvent: %d", eventType);
    }
    LogInfo("ServiceCtrlHandler: %d received", eventType);
}

void ZELService::StopService(bool shutdown) {
    const std::lock_guard lock(m_stopMutex);
    LogInfo("Changing state of service in Service Control Manager to Stop Pending");
    ReportServiceStatus(SERVICE_STOP_PENDING, NO_ERROR, kStopWaitHint);
    {
        const RequestWatchdog watchdog(m_mailBoxDriverInterface);
        // This precedes the clean-up, which closes the device.
        if (shutdown) m_mailBoxDriverInterface.WriteShutdownLaptop();
        ServiceCleanup();
    }
    ReportServiceStatus(SERVICE_STOPPED, NO_ERROR, 0);
    LogInfo("Changing state of service in Service Control Manager to Stopped");
    LogInfo("Gracefully exitting ZEL Service. Close Log File.");
    if (ZELLogger* const logger = ZELLogger::Instance()) logger->CloseLog();
}
