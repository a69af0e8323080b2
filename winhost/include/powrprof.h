// What sleep states the PC has, and entering one.
#pragma once

#include <minwindef.h>

// Both return 0 for failure, with the reason by GetLastError.
BOOLEAN WINAPI GetPwrCapabilities(PSYSTEM_POWER_CAPABILITIES lpspc);
// Recorded by the PC, which stays awake, so that the call returns at once. ERROR_PRIVILEGE_NOT_HELD while
// SeShutdownPrivilege isn't enabled, ERROR_NOT_SUPPORTED when the PC hasn't the state.
BOOLEAN WINAPI SetSuspendState(BOOLEAN bHibernate, BOOLEAN bForce, BOOLEAN bWakeupEventsDisabled);
