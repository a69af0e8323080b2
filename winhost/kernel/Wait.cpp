// What every kind of handle can be used for: closing, waiting and inheritance; sleeping, and the calling
// thread's error.
#include <handleapi.h>
#include <sched.h>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/core/WaitableObject.h"
#include "winhost/pc/Pc.h"

using winhost::Clock;
using winhost::Fail;
using winhost::HandleTable;
using winhost::WaitableObject;

namespace {

thread_local DWORD t_lastError = 0;

bool IsPseudoHandle(HANDLE handle) {
    return reinterpret_cast<intptr_t>(handle) == -1;
}

}  // namespace

// These two report failures, and are therefore the only calls that don't pass the gate.
DWORD GetLastError() {
    return t_lastError;
}

void SetLastError(DWORD error) {
    t_lastError = error;
}

BOOL CloseHandle(HANDLE handle) {
    WINHOST_GATE("CloseHandle", FALSE);
    if (IsPseudoHandle(handle) || HandleTable::Instance().CloseKernelObject(handle)) return TRUE;
    return Fail(ERROR_INVALID_HANDLE);
}

BOOL SetHandleInformation(HANDLE object, DWORD mask, DWORD flags) {
    WINHOST_GATE("SetHandleInformation", FALSE);
    if (!HandleTable::Instance().Find(object)) return Fail(ERROR_INVALID_HANDLE);
    if (mask & flags) return Fail(ERROR_NOT_SUPPORTED);
    winhost::Pc::Instance().Record(winhost::CallArgument{"SetHandleInformation", "dwMask", mask});
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    WINHOST_GATE("WaitForSingleObject", WAIT_FAILED);
    const auto object = HandleTable::Instance().Find<WaitableObject>(handle);
    if (!object) return Fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
    return object->Wait(Clock::Instance().DeadlineIn(milliseconds));
}

void Sleep(DWORD milliseconds) {
    WINHOST_GATE_PASS("Sleep");
    if (milliseconds == 0) {
        sched_yield();
    } else {
        Clock& clock = Clock::Instance();
        clock.SleepUntil(clock.DeadlineIn(milliseconds));
    }
}
