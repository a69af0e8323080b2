// The registry. Each call returns its error and leaves GetLastError alone.
#pragma once

#include <minwindef.h>

typedef LONG LSTATUS;

#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)((LONG)0x80000002))

LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                LPBYTE lpData, LPDWORD lpcbData);
LSTATUS WINAPI RegCloseKey(HKEY hKey);

#define SHTDN_REASON_FLAG_PLANNED 0x80000000

// Recorded by the PC, which goes on running: what Windows does next to the service comes from the test that
// plays it. This machine alone (else ERROR_BAD_NETPATH); ERROR_PRIVILEGE_NOT_HELD while SeShutdownPrivilege
// isn't enabled.
BOOL WINAPI InitiateSystemShutdownExA(LPSTR lpMachineName, LPSTR lpMessage, DWORD dwTimeout,
                                      BOOL bForceAppsClosed, BOOL bRebootAfterShutdown, DWORD dwReason);
