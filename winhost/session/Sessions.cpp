// The PC's sessions, and whether the desktop at its console is locked.
#include <wtsapi32.h>
#include <winbase.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcessList.h"

using winhost::Fail;
using winhost::PcDescription;

namespace {

constexpr DWORD kServices = 0;

PcDescription Describe() {
    return winhost::Pc::Instance().Description();
}

bool Exists(const PcDescription& pc, DWORD session) {
    return session == kServices || session == pc.consoleSession ||
           std::any_of(pc.processes.begin(), pc.processes.end(),
                       [&](const winhost::DescribedProcess& process) { return process.session == session; });
}

WTSINFOEXA InfoOf(const PcDescription& pc, DWORD session) {
    WTSINFOEXA info{};
    info.Level = pc.sessionInfoLevel;
    WTSINFOEX_LEVEL1_A& level1 = info.Data.WTSInfoExLevel1;
    level1.SessionId = session;
    level1.SessionState = WTSDisconnected;
    level1.SessionFlags = static_cast<LONG>(WTS_SESSIONSTATE_UNKNOWN);
    if (session == pc.consoleSession) {
        level1.SessionState = WTSActive;
        level1.SessionFlags = pc.desktopLocked ? WTS_SESSIONSTATE_LOCK : WTS_SESSIONSTATE_UNLOCK;
        std::strcpy(level1.WinStationName, "Console");
    } else if (session == kServices) {
        std::strcpy(level1.WinStationName, "Services");
    }
    level1.CurrentTime.QuadPart = static_cast<LONGLONG>(winhost::Clock::Instance().FileTime());
    return info;
}

}  // namespace

DWORD WTSGetActiveConsoleSessionId() {
    WINHOST_GATE("WTSGetActiveConsoleSessionId", PcDescription::kNoSession);
    return Describe().consoleSession;
}

BOOL WTSQuerySessionInformationA(HANDLE server, DWORD session, WTS_INFO_CLASS infoClass, LPSTR* buffer,
                                 DWORD* bytes) {
    WINHOST_GATE("WTSQuerySessionInformationA", FALSE);
    if (server != WTS_CURRENT_SERVER_HANDLE) return Fail(ERROR_INVALID_HANDLE);
    if (!buffer || !bytes) return Fail(ERROR_INVALID_PARAMETER);
    if (infoClass != WTSSessionInfoEx) return Fail(ERROR_NOT_SUPPORTED);
    const PcDescription pc = Describe();
    if (session == WTS_CURRENT_SESSION) session = winhost::OwnSession();
    if (!Exists(pc, session)) return Fail(ERROR_CTX_WINSTATION_NOT_FOUND);
    const WTSINFOEXA info = InfoOf(pc, session);
    void* const memory = std::malloc(sizeof info);
    if (!memory) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    std::memcpy(memory, &info, sizeof info);
    *buffer = static_cast<LPSTR>(memory);
    *bytes = pc.sessionInfoBytes != 0 ? std::min<DWORD>(pc.sessionInfoBytes, sizeof info) : sizeof info;
    return TRUE;
}

void WTSFreeMemory(PVOID memory) {
    WINHOST_GATE_PASS("WTSFreeMemory");
    std::free(memory);
}
