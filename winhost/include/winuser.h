#pragma once

#include <windef.h>

#define SM_CXSCREEN 0
#define SM_CYSCREEN 1
#define SM_CLEANBOOT 67

#define SW_SHOW 5

#define PBT_APMSUSPEND 4
#define PBT_APMSTANDBY 5
#define PBT_APMRESUMECRITICAL 6
#define PBT_APMRESUMESUSPEND 7
#define PBT_APMRESUMESTANDBY 8
#define PBT_APMRESUMEAUTOMATIC 18

// 0 for a metric that the PC does not have; the call reports no error.
int GetSystemMetrics(int index);

#define EWX_SHUTDOWN 0x00000001
#define EWX_FORCE 0x00000004

// Recorded by the PC, as InitiateSystemShutdownExA is, with the same privilege.
// EWX_SHUTDOWN with EWX_FORCE alone: other flags fail with ERROR_NOT_SUPPORTED.
BOOL ExitWindowsEx(UINT flags, DWORD reason);
