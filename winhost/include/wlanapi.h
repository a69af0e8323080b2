// The WLAN service: its interfaces and what it has to tell. Each call returns a Win32 error.
#pragma once

#include <l2cmn.h>
#include <windows.h>

#define WLAN_API_VERSION_2_0 0x00000002

#define WLAN_NOTIFICATION_SOURCE_NONE L2_NOTIFICATION_SOURCE_NONE
#define WLAN_NOTIFICATION_SOURCE_ALL L2_NOTIFICATION_SOURCE_ALL
#define WLAN_NOTIFICATION_SOURCE_ACM L2_NOTIFICATION_SOURCE_WLAN_ACM
#define WLAN_NOTIFICATION_SOURCE_MSM L2_NOTIFICATION_SOURCE_WLAN_MSM

typedef enum _WLAN_NOTIFICATION_ACM {
    wlan_notification_acm_connection_complete = 10,
    wlan_notification_acm_disconnected = 21
} WLAN_NOTIFICATION_ACM;

typedef enum _WLAN_INTERFACE_STATE {
    wlan_interface_state_not_ready = 0,
    wlan_interface_state_connected = 1,
    wlan_interface_state_ad_hoc_network_formed = 2,
    wlan_interface_state_disconnecting = 3,
    wlan_interface_state_disconnected = 4,
    wlan_interface_state_associating = 5,
    wlan_interface_state_discovering = 6,
    wlan_interface_state_authenticating = 7
} WLAN_INTERFACE_STATE;

typedef struct _WLAN_NOTIFICATION_DATA {
    DWORD NotificationSource;
    DWORD NotificationCode;
    GUID InterfaceGuid;
    DWORD dwDataSize;
    PVOID pData;
} WLAN_NOTIFICATION_DATA, *PWLAN_NOTIFICATION_DATA;
// Called on a thread of the WLAN service, one notification at a time. The data, and what pData points to, is
// gone when the callback has returned.
typedef VOID(CALLBACK* WLAN_NOTIFICATION_CALLBACK)(PWLAN_NOTIFICATION_DATA data, PVOID context);

typedef struct _WLAN_INTERFACE_INFO {
    GUID InterfaceGuid;
    WCHAR strInterfaceDescription[256];
    WLAN_INTERFACE_STATE isState;
} WLAN_INTERFACE_INFO;
typedef struct _WLAN_INTERFACE_INFO_LIST {
    DWORD dwNumberOfItems;
    DWORD dwIndex;
    WLAN_INTERFACE_INFO InterfaceInfo[1];
} WLAN_INTERFACE_INFO_LIST, *PWLAN_INTERFACE_INFO_LIST;

// ERROR_SERVICE_NOT_ACTIVE when the PC's WLAN service isn't running. Versions 1 and 2.
DWORD WINAPI WlanOpenHandle(DWORD dwClientVersion, PVOID pReserved, PDWORD pdwNegotiatedVersion,
                            PHANDLE phClientHandle);
// Waits for a callback of this client that is running; a call from inside the callback never completes.
DWORD WINAPI WlanCloseHandle(HANDLE hClientHandle, PVOID pReserved);
// WlanFreeMemory gives the list back.
DWORD WINAPI WlanEnumInterfaces(HANDLE hClientHandle, PVOID pReserved,
                                PWLAN_INTERFACE_INFO_LIST* ppInterfaceList);
// Replaces the client's registration. With bIgnoreDuplicate a notification that is the same as the one before
// it isn't delivered. WLAN_NOTIFICATION_SOURCE_NONE ends the registration and waits as WlanCloseHandle does.
DWORD WINAPI WlanRegisterNotification(HANDLE hClientHandle, DWORD dwNotifSource, BOOL bIgnoreDuplicate,
                                      WLAN_NOTIFICATION_CALLBACK funcCallback, PVOID pCallbackContext,
                                      PVOID pReserved, PDWORD pdwPrevNotifSource);
VOID WINAPI WlanFreeMemory(PVOID pMemory);
