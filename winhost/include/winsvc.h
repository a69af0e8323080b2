// The service control manager: the service's own side, and that of a program that controls other services.
#pragma once

#include <minwindef.h>

DECLARE_HANDLE(SERVICE_STATUS_HANDLE);
DECLARE_HANDLE(SC_HANDLE);

#define SERVICE_STOPPED 0x00000001
#define SERVICE_START_PENDING 0x00000002
#define SERVICE_STOP_PENDING 0x00000003
#define SERVICE_RUNNING 0x00000004
#define SERVICE_PAUSED 0x00000007

#define SERVICE_CONTROL_STOP 0x00000001
#define SERVICE_CONTROL_PAUSE 0x00000002
#define SERVICE_CONTROL_CONTINUE 0x00000003
#define SERVICE_CONTROL_INTERROGATE 0x00000004
#define SERVICE_CONTROL_SHUTDOWN 0x00000005
#define SERVICE_CONTROL_POWEREVENT 0x0000000D
#define SERVICE_CONTROL_SESSIONCHANGE 0x0000000E
#define SERVICE_CONTROL_PRESHUTDOWN 0x0000000F

#define SERVICE_ACCEPT_STOP 0x00000001
#define SERVICE_ACCEPT_PAUSE_CONTINUE 0x00000002
#define SERVICE_ACCEPT_SHUTDOWN 0x00000004
#define SERVICE_ACCEPT_POWEREVENT 0x00000040
#define SERVICE_ACCEPT_SESSIONCHANGE 0x00000080
#define SERVICE_ACCEPT_PRESHUTDOWN 0x00000100

typedef struct _SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
} SERVICE_STATUS, *LPSERVICE_STATUS;

typedef VOID(WINAPI* LPSERVICE_MAIN_FUNCTIONA)(DWORD dwNumServicesArgs, LPSTR* lpServiceArgVectors);
typedef struct _SERVICE_TABLE_ENTRYA {
    LPSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONA lpServiceProc;
} SERVICE_TABLE_ENTRYA;
typedef DWORD(WINAPI* LPHANDLER_FUNCTION_EX)(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData,
                                             LPVOID lpContext);

BOOL WINAPI StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA* lpServiceStartTable);
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExA(LPCSTR lpServiceName,
                                                           LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                           LPVOID lpContext);
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus);

// ---- other services of the PC, those of its description ----

#define SERVICE_KERNEL_DRIVER 0x00000001
#define SERVICE_FILE_SYSTEM_DRIVER 0x00000002
#define SERVICE_BOOT_START 0x00000000
#define SERVICE_SYSTEM_START 0x00000001
#define SERVICE_DEMAND_START 0x00000003
#define SERVICE_DISABLED 0x00000004
#define SERVICE_ERROR_NORMAL 0x00000001

#define SC_MANAGER_CONNECT 0x0001
#define SERVICE_QUERY_CONFIG 0x0001
#define SERVICE_CHANGE_CONFIG 0x0002
#define SERVICE_QUERY_STATUS 0x0004
#define SERVICE_START 0x0010
#define SERVICE_STOP 0x0020
#define SERVICE_NO_CHANGE 0xFFFFFFFF

typedef struct _QUERY_SERVICE_CONFIGA {
    DWORD dwServiceType;
    DWORD dwStartType;
    DWORD dwErrorControl;
    LPSTR lpBinaryPathName;
    LPSTR lpLoadOrderGroup;
    DWORD dwTagId;
    LPSTR lpDependencies;
    LPSTR lpServiceStartName;
    LPSTR lpDisplayName;
} QUERY_SERVICE_CONFIGA, *LPQUERY_SERVICE_CONFIGA;

// The local manager's active database: another machine gives RPC_S_SERVER_UNAVAILABLE, another database
// ERROR_DATABASE_DOES_NOT_EXIST.
SC_HANDLE WINAPI OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD dwDesiredAccess);
// ERROR_SERVICE_DOES_NOT_EXIST for one that is not described. Only SYSTEM may change, start or stop services:
// ERROR_ACCESS_DENIED. Each call below needs its right in the access that was asked for here.
SC_HANDLE WINAPI OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD dwDesiredAccess);
BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject);
// Needs SERVICE_QUERY_CONFIG. The texts lie behind the structure; ERROR_INSUFFICIENT_BUFFER when they do not
// fit.
BOOL WINAPI QueryServiceConfigA(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGA lpServiceConfig, DWORD cbBufSize,
                                LPDWORD pcbBytesNeeded);
// Needs SERVICE_CHANGE_CONFIG. Changes the start type alone; all else gives ERROR_NOT_SUPPORTED.
BOOL WINAPI ChangeServiceConfigA(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType,
                                 DWORD dwErrorControl, LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup,
                                 LPDWORD lpdwTagId, LPCSTR lpDependencies, LPCSTR lpServiceStartName,
                                 LPCSTR lpPassword, LPCSTR lpDisplayName);
// Needs SERVICE_START. ERROR_SERVICE_ALREADY_RUNNING unless it is stopped, ERROR_SERVICE_DISABLED.
BOOL WINAPI StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR* lpServiceArgVectors);
// Needs SERVICE_QUERY_STATUS.
BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus);
// A stop alone, which needs SERVICE_STOP; other controls give ERROR_INVALID_SERVICE_CONTROL. A service that
// is stopped gives ERROR_SERVICE_NOT_ACTIVE, one that stops already ERROR_SERVICE_CANNOT_ACCEPT_CTRL.
BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus);
