// Graphics adapters and their outputs.
#include <initguid.h>
// Defines the interfaces, ahead of what uses them.
#include <dxgi1_3.h>

#include "winhost/graphics/Dxgi.h"

#include <algorithm>
#include <string>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/graphics/Adapters.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

// Cuts what the description's check has not.
template <size_t kRoom>
void Copy(const std::string& text, WCHAR (&into)[kRoom]) {
    const std::wstring wide = testbed::FromUtf8(text);
    const size_t length = std::min(wide.size(), kRoom - 1);
    std::copy_n(wide.begin(), length, into);
    into[length] = L'\0';
}

class DxgiOutput final : public ComObject<IDXGIOutput, IID_IDXGIOutput, false> {
  public:
    DxgiOutput(std::string deviceName, size_t place) : m_deviceName(std::move(deviceName)), m_place(place) {}

    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_OUTPUT_DESC* desc) override {
        WINHOST_GATE_HRESULT("IDXGIOutput::GetDesc");
        if (!desc) return E_INVALIDARG;
        *desc = {};
        Copy(m_deviceName, desc->DeviceName);
        const Screen screen = Pc::Instance().Description().screen;
        const LONG width = static_cast<LONG>(screen.width);
        desc->DesktopCoordinates.left = static_cast<LONG>(m_place) * width;
        desc->DesktopCoordinates.right = desc->DesktopCoordinates.left + width;
        desc->DesktopCoordinates.bottom = static_cast<LONG>(screen.height);
        desc->AttachedToDesktop = TRUE;
        desc->Rotation = DXGI_MODE_ROTATION_IDENTITY;
        desc->Monitor = reinterpret_cast<HMONITOR>(0x10001 + 2 * m_place);
        return S_OK;
    }

  private:
    const std::string m_deviceName;
    const size_t m_place;
};

class DxgiFactory final : public ComObject<IDXGIFactory, IID_IDXGIFactory, false> {
  public:
    HRESULT STDMETHODCALLTYPE EnumAdapters(UINT adapter_idx, IDXGIAdapter** adapter) override {
        WINHOST_GATE_HRESULT("IDXGIFactory::EnumAdapters");
        if (!adapter) return DXGI_ERROR_INVALID_CALL;
        *adapter = nullptr;
        if (adapter_idx >= m_adapters.size()) return DXGI_ERROR_NOT_FOUND;
        size_t outputs = 0;
        for (size_t i = 0; i < adapter_idx; ++i)
            outputs += m_adapters[i].outputs.size();
        *adapter = new DxgiAdapter(m_adapters[adapter_idx], outputs);
        return S_OK;
    }

  private:
    const std::vector<GraphicsAdapter> m_adapters = Pc::Instance().Description().graphicsAdapters;
};

// The same with the later interface.
class DxgiFactory1 final : public ComObject<IDXGIFactory1, IID_IDXGIFactory1, false> {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
        return ComObject::QueryInterface(riid == IID_IDXGIFactory ? IID_IDXGIFactory1 : riid, ppvObject);
    }
    HRESULT STDMETHODCALLTYPE EnumAdapters(UINT adapter_idx, IDXGIAdapter** adapter) override {
        return m_factory->EnumAdapters(adapter_idx, adapter);
    }

  private:
    ~DxgiFactory1() override { m_factory->Release(); }

    DxgiFactory* const m_factory = new DxgiFactory;
};

template <class Factory>
HRESULT Create(REFIID riid, void** factory) {
    if (!factory) return DXGI_ERROR_INVALID_CALL;
    auto* made = new Factory;
    const HRESULT result = made->QueryInterface(riid, factory);
    made->Release();
    return result;
}

}  // namespace

HRESULT DxgiAdapter::EnumOutputs(UINT output_idx, IDXGIOutput** output) {
    WINHOST_GATE_HRESULT("IDXGIAdapter::EnumOutputs");
    if (!output) return E_INVALIDARG;
    *output = nullptr;
    if (output_idx >= m_adapter.outputs.size()) return DXGI_ERROR_NOT_FOUND;
    *output = new DxgiOutput(m_adapter.outputs[output_idx], m_firstOutput + output_idx);
    return S_OK;
}

HRESULT DxgiAdapter::GetDesc(DXGI_ADAPTER_DESC* desc) {
    WINHOST_GATE_HRESULT("IDXGIAdapter::GetDesc");
    if (!desc) return E_INVALIDARG;
    *desc = {};
    Copy(m_adapter.description, desc->Description);
    desc->VendorId = m_adapter.vendor;
    desc->DeviceId = m_adapter.device;
    desc->AdapterLuid = LuidOf(m_adapter.luid);
    return S_OK;
}

std::vector<Export> DxgiExports() {
    return {{"CreateDXGIFactory", Erased(&CreateDXGIFactory)},
            {"CreateDXGIFactory1", Erased(&CreateDXGIFactory1)},
            {"CreateDXGIFactory2", Erased(&CreateDXGIFactory2)}};
}

}  // namespace winhost

HRESULT CreateDXGIFactory(REFIID riid, void** factory) {
    WINHOST_GATE_HRESULT("CreateDXGIFactory");
    return winhost::Create<winhost::DxgiFactory>(riid, factory);
}

HRESULT CreateDXGIFactory1(REFIID riid, void** factory) {
    WINHOST_GATE_HRESULT("CreateDXGIFactory1");
    return winhost::Create<winhost::DxgiFactory1>(riid, factory);
}

HRESULT CreateDXGIFactory2(UINT flags, REFIID iid, void** factory) {
    WINHOST_GATE_HRESULT("CreateDXGIFactory2");
    if (flags != 0) return DXGI_ERROR_INVALID_CALL;
    return winhost::Create<winhost::DxgiFactory1>(iid, factory);
}
