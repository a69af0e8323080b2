// The WLAN service: its interfaces and notifications. Each call returns a Win32 error.
#pragma once

#include <l2cmn.h>
#include <windows.h>
#include <wlantypes.h>

typedef WCHAR* LPWSTR;

#define WLAN_API_VERSION_2_0 0x00000002

#define WLAN_NOTIFICATION_SOURCE_NONE L2_NOTIFICATION_SOURCE_NONE
#define WLAN_NOTIFICATION_SOURCE_ALL L2_NOTIFICATION_SOURCE_ALL
#define WLAN_NOTIFICATION_SOURCE_ACM L2_NOTIFICATION_SOURCE_WLAN_ACM
#define WLAN_NOTIFICATION_SOURCE_MSM L2_NOTIFICATION_SOURCE_WLAN_MSM

typedef enum _WLAN_NOTIFICATION_ACM {
    wlan_notification_acm_scan_complete = 7,
    wlan_notification_acm_connection_start = 9,
    wlan_notification_acm_connection_complete = 10,
    wlan_notification_acm_profile_change = 15,
    wlan_notification_acm_disconnecting = 20,
    wlan_notification_acm_disconnected = 21,
    wlan_notification_acm_scan_list_refresh = 26,
} WLAN_NOTIFICATION_ACM;

typedef enum _WLAN_NOTIFICATION_MSM {
    wlan_notification_msm_associating = 1,
    wlan_notification_msm_associated = 2,
    wlan_notification_msm_authenticating = 3,
    wlan_notification_msm_connected = 4,
    wlan_notification_msm_roaming_start = 5,
    wlan_notification_msm_roaming_end = 6,
    wlan_notification_msm_disconnected = 10,
} WLAN_NOTIFICATION_MSM;

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

typedef enum _WLAN_CONNECTION_MODE { wlan_connection_mode_profile = 0 } WLAN_CONNECTION_MODE;
typedef DWORD WLAN_REASON_CODE;
typedef ULONG WLAN_SIGNAL_QUALITY;

typedef struct _WLAN_ASSOCIATION_ATTRIBUTES {
    DOT11_SSID dot11Ssid;
    DOT11_BSS_TYPE dot11BssType;
    DOT11_MAC_ADDRESS dot11Bssid;
    DOT11_PHY_TYPE dot11PhyType;
    ULONG uDot11PhyIndex;
    WLAN_SIGNAL_QUALITY wlanSignalQuality;
    ULONG ulRxRate;
    ULONG ulTxRate;
} WLAN_ASSOCIATION_ATTRIBUTES;
typedef struct _WLAN_SECURITY_ATTRIBUTES {
    BOOL bSecurityEnabled;
    BOOL bOneXEnabled;
    DOT11_AUTH_ALGORITHM dot11AuthAlgorithm;
    DOT11_CIPHER_ALGORITHM dot11CipherAlgorithm;
} WLAN_SECURITY_ATTRIBUTES;
typedef struct _WLAN_CONNECTION_ATTRIBUTES {
    WLAN_INTERFACE_STATE isState;
    WLAN_CONNECTION_MODE wlanConnectionMode;
    WCHAR strProfileName[256];
    WLAN_ASSOCIATION_ATTRIBUTES wlanAssociationAttributes;
    WLAN_SECURITY_ATTRIBUTES wlanSecurityAttributes;
} WLAN_CONNECTION_ATTRIBUTES, *PWLAN_CONNECTION_ATTRIBUTES;

// What the data of the notifications about a connection is.
typedef struct _WLAN_CONNECTION_NOTIFICATION_DATA {
    WLAN_CONNECTION_MODE wlanConnectionMode;
    WCHAR strProfileName[256];
    DOT11_SSID dot11Ssid;
    DOT11_BSS_TYPE dot11BssType;
    BOOL bSecurityEnabled;
    WLAN_REASON_CODE wlanReasonCode;
    DWORD dwFlags;
    WCHAR strProfileXml[1];
} WLAN_CONNECTION_NOTIFICATION_DATA;

#define DOT11_RATE_SET_MAX_LENGTH 126

typedef struct _WLAN_RATE_SET {
    ULONG uRateSetLength;
    USHORT usRateSet[DOT11_RATE_SET_MAX_LENGTH];
} WLAN_RATE_SET;
typedef struct _WLAN_BSS_ENTRY {
    DOT11_SSID dot11Ssid;
    ULONG uPhyId;
    DOT11_MAC_ADDRESS dot11Bssid;
    DOT11_BSS_TYPE dot11BssType;
    DOT11_PHY_TYPE dot11BssPhyType;
    LONG lRssi;
    ULONG uLinkQuality;
    BOOLEAN bInRegDomain;
    USHORT usBeaconPeriod;
    ULONGLONG ullTimestamp;
    ULONGLONG ullHostTimestamp;
    USHORT usCapabilityInformation;
    ULONG ulChCenterFrequency;  // in kHz
    WLAN_RATE_SET wlanRateSet;
    ULONG ulIeOffset;
    ULONG ulIeSize;
} WLAN_BSS_ENTRY;
typedef struct _WLAN_BSS_LIST {
    DWORD dwTotalSize;
    DWORD dwNumberOfItems;
    WLAN_BSS_ENTRY wlanBssEntries[1];
} WLAN_BSS_LIST, *PWLAN_BSS_LIST;

typedef enum _WLAN_INTF_OPCODE {
    wlan_intf_opcode_current_connection = 7,
    wlan_intf_opcode_channel_number = 8
} WLAN_INTF_OPCODE;
typedef enum _WLAN_OPCODE_VALUE_TYPE {
    wlan_opcode_value_type_query_only = 0
} WLAN_OPCODE_VALUE_TYPE,
    *PWLAN_OPCODE_VALUE_TYPE;

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
// The connection (WLAN_CONNECTION_ATTRIBUTES) or the channel (ULONG) of an interface. ERROR_INVALID_STATE
// while it is not connected, ERROR_NOT_FOUND for another interface, ERROR_NOT_SUPPORTED for what else there
// is to ask. WlanFreeMemory frees the data.
DWORD WINAPI WlanQueryInterface(HANDLE hClientHandle, const GUID* pInterfaceGuid, WLAN_INTF_OPCODE OpCode,
                                PVOID pReserved, PDWORD pdwDataSize, PVOID* ppData,
                                PWLAN_OPCODE_VALUE_TYPE pWlanOpcodeValueType);
// The profile as XML. Its key is plain only with bit 2 of *pdwFlags, and protected otherwise. ERROR_NOT_FOUND
// for a profile that does not exist. WlanFreeMemory frees the text.
DWORD WINAPI WlanGetProfile(HANDLE hClientHandle, const GUID* pInterfaceGuid, LPCWSTR strProfileName,
                            PVOID pReserved, LPWSTR* pstrProfileXml, DWORD* pdwFlags,
                            PDWORD pdwGrantedAccess);
// The BSSs in range, all of them or those of one SSID. WlanFreeMemory frees the list.
DWORD WINAPI WlanGetNetworkBssList(HANDLE hClientHandle, const GUID* pInterfaceGuid,
                                   const PDOT11_SSID pDot11Ssid, DOT11_BSS_TYPE dot11BssType,
                                   BOOL bSecurityEnabled, PVOID pReserved, PWLAN_BSS_LIST* ppWlanBssList);
VOID WINAPI WlanFreeMemory(PVOID pMemory);
