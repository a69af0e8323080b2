// Graphics adapters and their outputs.
#include <initguid.h>
// Defines the interfaces, ahead of what uses them.
#include <dxgi1_3.h>

#include "winhost/graphics/Dxgi.h"

#include <string>

#include "winhost/core/Gate.h"
#include "winhost/core/WideText.h"
#include "winhost/graphics/Adapters.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

class DxgiOutput final : public ComObject<IDXGIOutput, IID_IDXGIOutput, false> {
  public:
    DxgiOutput(std::string deviceName, size_t place) : m_deviceName(std::move(deviceName)), m_place(place) {}

    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_OUTPUT_DESC* desc) override {
        WINHOST_GATE_HRESULT("IDXGIOutput::GetDesc");
        if (!desc) return E_INVALIDARG;
        *desc = {};
        PutWide(desc->DeviceName, m_deviceName);
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

// Answers to the earlier interface as well.
class DxgiFactory final : public ComObject<IDXGIFactory1, IID_IDXGIFactory1, false> {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
        return ComObject::QueryInterface(riid == IID_IDXGIFactory ? IID_IDXGIFactory1 : riid, ppvObject);
    }
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

HRESULT MakeFactory(REFIID riid, void** factory) {
    if (!factory) return DXGI_ERROR_INVALID_CALL;
    auto* const made = new DxgiFactory;
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
    PutWide(desc->Description, m_adapter.description);
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
    return winhost::MakeFactory(riid, factory);
}

HRESULT CreateDXGIFactory1(REFIID riid, void** factory) {
    WINHOST_GATE_HRESULT("CreateDXGIFactory1");
    return winhost::MakeFactory(riid, factory);
}

HRESULT CreateDXGIFactory2(UINT flags, REFIID iid, void** factory) {
    WINHOST_GATE_HRESULT("CreateDXGIFactory2");
    if (flags != 0) return DXGI_ERROR_INVALID_CALL;
    return winhost::MakeFactory(iid, factory);
}
