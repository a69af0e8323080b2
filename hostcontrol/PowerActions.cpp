// Maps each power option to the system calls that carry it out.
#include <winsock2.h>
#include <windows.h>
#include <powrprof.h>

#include "base/Handles.h"
#include "base/Log.h"
#include "hostcontrol/HostControl.h"

namespace {

constexpr const char* kName = "DoSytemShutdown";
constexpr DWORD kSuspendDelayMilliseconds = 2000;

// The privilege stays enabled for the rest of the process's life.
bool EnableShutdownPrivilege(UniqueHandle& token) {
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.Receive())) {
        LogInfo("%s: OpenProcessToken failed with error: %d", kName, GetLastError());
        return false;
    }
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &privileges.Privileges[0].Luid)) {
        LogInfo("%s: LookupPrivilegeValue failed with error: %d", kName, GetLastError());
        return false;
    }
    if (!AdjustTokenPrivileges(token.Get(), FALSE, &privileges, 0, nullptr, nullptr)) {
        LogInfo("%s: AdjustTokenPrivileges failed with error: %d", kName, GetLastError());
        return false;
    }
    return true;
}

// The shutdown closes applications by force.
bool InitiateShutdown(bool reboot) {
    return InitiateSystemShutdownExA(nullptr, nullptr, 0, TRUE, reboot, SHTDN_REASON_FLAG_PLANNED);
}

// These two routines use no state of the service, because they may still run after it is destroyed.
DWORD WINAPI HibernateRoutine(void*) {
    LogInfo("Delaying Hibernate for 2 seconds");
    Sleep(kSuspendDelayMilliseconds);
    if (!SetSuspendState(TRUE, TRUE, FALSE))
        LogInfo(" Power option failed PowerOption: 0x%x", kPowerHibernate);
    return 0;
}

DWORD WINAPI SleepRoutine(void*) {
    LogInfo("Delaying Sleep for 2 seconds");
    Sleep(kSuspendDelayMilliseconds);
    if (!SetSuspendState(FALSE, TRUE, FALSE)) LogInfo("Power option failed PowerOption: 0x%x", kPowerSleep);
    return 0;
}

HANDLE StartRoutine(LPTHREAD_START_ROUTINE routine) {
    return CreateThread(nullptr, 0, routine, nullptr, 0, nullptr);
}

}  // namespace

void HostControl::SetPowerOption(uint32_t option) {
    m_powerOption = static_cast<uint8_t>(option);
}

void HostControl::RunPendingPowerOption() {
    if (m_powerOption < kPowerShutdown || m_powerOption > kPowerShutdownG2S5) return;
    const uint8_t option = m_powerOption.exchange(kPowerNone);
    // The log line shows the stored option after the exchange, so it always shows 0.
    if (!DoSytemShutdown(option)) LogInfo("Power option failed PowerOption: 0x%x", m_powerOption.load());
}

// Sleep and hibernate always log a failure and return false here. Their threads log a real failure.
bool HostControl::DoSytemShutdown(uint32_t option) {
    UniqueHandle token;
    if (!EnableShutdownPrivilege(token)) return false;
    switch (option) {
        case kPowerShutdown:
            LogInfo("%s: Shutdown initiated", kName);
            if (InitiateShutdown(false)) return true;
            break;
        case kPowerReboot:
            LogInfo("%s: Reboot initiated", kName);
            if (InitiateShutdown(true)) return true;
            break;
        case kPowerHibernate:
            LogInfo("%s: Hibernate initiated", kName);
            m_hibernateThread = StartRoutine(HibernateRoutine);
            if (!m_hibernateThread) LogInfo("Hibernate power event thread failed");
            break;
        case kPowerSleep:
            LogInfo("%s: Sleep initiated", kName);
            m_sleepThread = StartRoutine(SleepRoutine);
            if (!m_sleepThread) LogInfo("Sleep power event thread failed");
            break;
        case kPowerShutdownG2S5:
            LogInfo("%s: Shutdown G2(S5) initiated", kName);
            if (ExitWindowsEx(EWX_SHUTDOWN | EWX_FORCE, SHTDN_REASON_FLAG_PLANNED)) return true;
            break;
        default:
            break;
    }
    LogInfo("%s: bStatus = false, error returned: %d", kName, GetLastError());
    return false;
}
