#include "session/DesktopLock.h"

#include <winsock2.h>
#include <windows.h>
#include <wtsapi32.h>

#include <cstddef>

#include "base/Handles.h"
#include "base/Log.h"

namespace {

// These stand for WTSSessionInfoEx, WTS_SESSIONSTATE_LOCK and the beginning of WTSINFOEXA, which not every
// SDK declares.
constexpr auto kSessionInfoEx = static_cast<WTS_INFO_CLASS>(25);
constexpr LONG kStateLocked = 0;
constexpr LONG kStateUnknown = -1;
constexpr DWORD kLevel = 1;
struct SessionInfoEx {
    DWORD Level;
    struct alignas(8) {
        ULONG SessionId;
        LONG SessionState;
        LONG SessionFlags;
    } Level1;
};
static_assert(offsetof(SessionInfoEx, Level1) == 8);

struct WtsMemoryTraits {
    using Value = LPSTR;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { WTSFreeMemory(value); }
};
using UniqueWtsMemory = UniqueResource<WtsMemoryTraits>;

LONG SessionFlags() {
    UniqueWtsMemory buffer;
    DWORD size = 0;
    if (!WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, WTSGetActiveConsoleSessionId(),
                                     kSessionInfoEx, buffer.Receive(), &size) ||
        size < sizeof(SessionInfoEx)) {
        return kStateUnknown;
    }
    const auto* const info = reinterpret_cast<const SessionInfoEx*>(buffer.Get());
    return info->Level == kLevel ? info->Level1.SessionFlags : kStateUnknown;
}

}  // namespace

bool IsDesktopLocked() {
    const bool locked = SessionFlags() == kStateLocked;
    LogInfo("Desktop state: %s, %d", locked ? "Locked" : "Un-locked", locked ? 1 : 0);
    return locked;
}
