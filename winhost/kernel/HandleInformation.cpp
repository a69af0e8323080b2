#include <windows.h>
#include <handleapi.h>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"

using winhost::Fail;

BOOL SetHandleInformation(HANDLE object, DWORD mask, DWORD flags) {
    WINHOST_GATE("SetHandleInformation", FALSE);
    if (!winhost::HandleTable::Instance().Find(object)) return Fail(ERROR_INVALID_HANDLE);
    if (mask & flags) return Fail(ERROR_NOT_SUPPORTED);
    winhost::Pc::Instance().Record(winhost::CallArgument{"SetHandleInformation", "dwMask", mask});
    return TRUE;
}
