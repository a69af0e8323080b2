// The display driver below Direct3D: what gdi32.dll has by the names of these calls. Each returns an
// NTSTATUS, 0 for success.
#pragma once

#include <minwindef.h>

typedef UINT D3DKMT_HANDLE;

typedef struct _D3DKMT_OPENADAPTERFROMLUID {
    LUID AdapterLuid;
    D3DKMT_HANDLE hAdapter;
} D3DKMT_OPENADAPTERFROMLUID;

typedef struct _D3DKMT_CLOSEADAPTER {
    D3DKMT_HANDLE hAdapter;
} D3DKMT_CLOSEADAPTER;

typedef struct _D3DKMT_CREATEDEVICE {
    union {
        D3DKMT_HANDLE hAdapter;
        PVOID pAdapter;
    };
    UINT Flags;
    D3DKMT_HANDLE hDevice;
    PVOID pCommandBuffer;
    UINT CommandBufferSize;
    PVOID pAllocationList;
    UINT AllocationListSize;
    PVOID pPatchLocationList;
    UINT PatchLocationListSize;
} D3DKMT_CREATEDEVICE;

typedef struct _D3DKMT_DESTROYDEVICE {
    D3DKMT_HANDLE hDevice;
} D3DKMT_DESTROYDEVICE;

typedef struct _D3DKMT_CREATECONTEXT {
    D3DKMT_HANDLE hDevice;
    UINT NodeOrdinal;
    UINT EngineAffinity;
    UINT Flags;
    PVOID pPrivateDriverData;
    UINT PrivateDriverDataSize;
    UINT ClientHint;
    D3DKMT_HANDLE hContext;
    PVOID pCommandBuffer;
    UINT CommandBufferSize;
    PVOID pAllocationList;
    UINT AllocationListSize;
    PVOID pPatchLocationList;
    UINT PatchLocationListSize;
    uint64_t CommandBuffer;
} D3DKMT_CREATECONTEXT;

typedef struct _D3DKMT_DESTROYCONTEXT {
    D3DKMT_HANDLE hContext;
} D3DKMT_DESTROYCONTEXT;

typedef enum _KMTQUERYADAPTERINFOTYPE {
    KMTQAITYPE_UMDRIVERPRIVATE = 0,
    KMTQAITYPE_UMDRIVERNAME = 1,
    KMTQAITYPE_ADAPTERADDRESS = 6
} KMTQUERYADAPTERINFOTYPE;

typedef struct _D3DKMT_QUERYADAPTERINFO {
    D3DKMT_HANDLE hAdapter;
    KMTQUERYADAPTERINFOTYPE Type;
    PVOID pPrivateDriverData;
    UINT PrivateDriverDataSize;
} D3DKMT_QUERYADAPTERINFO;

typedef struct _D3DKMT_UMDFILENAMEINFO {
    UINT Version;
    char16_t UmdFileName[MAX_PATH];  // the characters of Windows have two bytes
} D3DKMT_UMDFILENAMEINFO;

typedef struct _D3DKMT_ADAPTERADDRESS {
    UINT BusNumber;
    UINT DeviceNumber;
    UINT FunctionNumber;
} D3DKMT_ADAPTERADDRESS;

typedef enum _D3DKMT_ESCAPETYPE { D3DKMT_ESCAPE_DRIVERPRIVATE = 0 } D3DKMT_ESCAPETYPE;

typedef struct _D3DKMT_ESCAPE {
    D3DKMT_HANDLE hAdapter;
    D3DKMT_HANDLE hDevice;
    D3DKMT_ESCAPETYPE Type;
    UINT Flags;
    PVOID pPrivateDriverData;
    UINT PrivateDriverDataSize;
    D3DKMT_HANDLE hContext;
} D3DKMT_ESCAPE;
