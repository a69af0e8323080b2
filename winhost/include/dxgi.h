// Graphics adapters and their outputs: the interfaces, with the methods that the product calls.
#pragma once

#include <unknwn.h>
#include <windef.h>
#include <winerror.h>

typedef enum DXGI_MODE_ROTATION { DXGI_MODE_ROTATION_IDENTITY = 1 } DXGI_MODE_ROTATION;

typedef struct DXGI_ADAPTER_DESC {
    WCHAR Description[128];
    UINT VendorId;
    UINT DeviceId;
    UINT SubSysId;
    UINT Revision;
    SIZE_T DedicatedVideoMemory;
    SIZE_T DedicatedSystemMemory;
    SIZE_T SharedSystemMemory;
    LUID AdapterLuid;
} DXGI_ADAPTER_DESC;

typedef struct DXGI_OUTPUT_DESC {
    WCHAR DeviceName[32];
    RECT DesktopCoordinates;
    BOOL AttachedToDesktop;
    DXGI_MODE_ROTATION Rotation;
    HMONITOR Monitor;
} DXGI_OUTPUT_DESC;

DEFINE_GUID(IID_IDXGIObject, 0xaec22fb8, 0x76f3, 0x4639, 0x9b, 0xe0, 0x28, 0xeb, 0x43, 0xa6, 0x7a, 0x2e);
DEFINE_GUID(IID_IDXGIOutput, 0xae02eedb, 0xc735, 0x4690, 0x8d, 0x52, 0x5a, 0x8d, 0xc2, 0x02, 0x13, 0xaa);
DEFINE_GUID(IID_IDXGIAdapter, 0x2411e7e1, 0x12ac, 0x4ccf, 0xbd, 0x14, 0x97, 0x98, 0xe8, 0x53, 0x4d, 0xc0);
DEFINE_GUID(IID_IDXGIFactory, 0x7b7166ec, 0x21c7, 0x44ae, 0xb2, 0x1a, 0xc9, 0xae, 0x32, 0x1a, 0xe3, 0x69);
DEFINE_GUID(IID_IDXGIFactory1, 0x770aae78, 0xf26f, 0x4dba, 0xa8, 0x29, 0x25, 0x3c, 0x83, 0xd1, 0xb3, 0x87);

struct IDXGIObject : public IUnknown {};

struct IDXGIOutput : public IDXGIObject {
    // The outputs of all adapters stand side by side from the left, each of the screen's size.
    virtual HRESULT STDMETHODCALLTYPE GetDesc(DXGI_OUTPUT_DESC* desc) = 0;
};

struct IDXGIAdapter : public IDXGIObject {
    // DXGI_ERROR_NOT_FOUND behind the last one.
    virtual HRESULT STDMETHODCALLTYPE EnumOutputs(UINT output_idx, IDXGIOutput** output) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDesc(DXGI_ADAPTER_DESC* desc) = 0;
};

struct IDXGIFactory : public IDXGIObject {
    // The adapters of the PC as they were when the factory was made; DXGI_ERROR_NOT_FOUND behind the last
    // one.
    virtual HRESULT STDMETHODCALLTYPE EnumAdapters(UINT adapter_idx, IDXGIAdapter** adapter) = 0;
};

struct IDXGIFactory1 : public IDXGIFactory {};

// An IDXGIFactory; E_NOINTERFACE for a later one.
HRESULT WINAPI CreateDXGIFactory(REFIID riid, void** factory);
// An IDXGIFactory or an IDXGIFactory1.
HRESULT WINAPI CreateDXGIFactory1(REFIID riid, void** factory);
