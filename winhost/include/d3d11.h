// Direct3D 11 devices, which draw nothing.
#pragma once

#include <d3dcommon.h>
#include <dxgi.h>

#define D3D11_SDK_VERSION 7

DEFINE_GUID(IID_ID3D11Device, 0xdb6f6ddb, 0xac77, 0x4e88, 0x82, 0x53, 0x81, 0x9d, 0xf9, 0xbb, 0xf1, 0x40);

struct ID3D11DeviceContext;

// Also an ID3D10Multithread.
struct ID3D11Device : public IUnknown {
    virtual D3D_FEATURE_LEVEL STDMETHODCALLTYPE GetFeatureLevel() = 0;
};

// A device of that adapter, with D3D_DRIVER_TYPE_UNKNOWN; or, where the PC has one, a software device, with
// D3D_DRIVER_TYPE_SOFTWARE and without an adapter or a library. It has the first level of the list that the
// adapter has. `device` may be null, and S_FALSE says that a device could be made.
//
// E_INVALIDARG for a software device on a PC without one or with an adapter, no adapter with
// D3D_DRIVER_TYPE_UNKNOWN, another SDK version, no list, and a context; DXGI_ERROR_UNSUPPORTED where no level
// of the list is there, and for the other driver types and any flag.
HRESULT WINAPI D3D11CreateDevice(IDXGIAdapter* adapter, D3D_DRIVER_TYPE driver_type, HMODULE swrast,
                                 UINT flags, const D3D_FEATURE_LEVEL* feature_levels, UINT levels,
                                 UINT sdk_version, ID3D11Device** device, D3D_FEATURE_LEVEL* obtained,
                                 ID3D11DeviceContext** context);
