// The list of the PC's device interfaces.
#pragma once

#include <windef.h>
#include <winerror.h>

typedef PVOID HDEVINFO;

#define DIGCF_PRESENT 0x00000002
#define DIGCF_DEVICEINTERFACE 0x00000010

#define SPINT_ACTIVE 0x00000001

typedef struct _SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
} SP_DEVINFO_DATA, *PSP_DEVINFO_DATA;

typedef struct _SP_DEVICE_INTERFACE_DATA {
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
} SP_DEVICE_INTERFACE_DATA, *PSP_DEVICE_INTERFACE_DATA;

typedef struct _SP_DEVICE_INTERFACE_DETAIL_DATA_A {
    DWORD cbSize;
    CHAR DevicePath[1];
} SP_DEVICE_INTERFACE_DETAIL_DATA_A, *PSP_DEVICE_INTERFACE_DETAIL_DATA_A;

// Answers for DIGCF_DEVICEINTERFACE | DIGCF_PRESENT of one class, without enumerator: other questions fail
// with ERROR_NOT_SUPPORTED. The failure value is INVALID_HANDLE_VALUE.
HDEVINFO SetupDiGetClassDevsA(const GUID* classGuid, PCSTR enumerator, HWND parent, DWORD flags);
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA device, const GUID* interfaceClass,
                                 DWORD index, PSP_DEVICE_INTERFACE_DATA interfaceData);
BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA interfaceData,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_A detail, DWORD size,
                                      PDWORD requiredSize, PSP_DEVINFO_DATA device);
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set);
