// Direct3D 11 devices.
#include <initguid.h>
// Defines the interfaces, ahead of what uses them.
#include <d3d10.h>
#include <d3d11.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "winhost/core/Gate.h"
#include "winhost/graphics/Adapters.h"
#include "winhost/graphics/Dxgi.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

class Device final : public ComObject<ID3D11Device, IID_ID3D11Device, false> {
  public:
    explicit Device(D3D_FEATURE_LEVEL level) : m_multithread(*this), m_level(level) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
        if (!ppvObject || riid != IID_ID3D10Multithread) return ComObject::QueryInterface(riid, ppvObject);
        WINHOST_GATE_HRESULT("ID3D11Device::QueryInterface");
        *ppvObject = &m_multithread;
        AddRef();
        return S_OK;
    }
    D3D_FEATURE_LEVEL STDMETHODCALLTYPE GetFeatureLevel() override { return m_level; }

  private:
    // Lives and ends with the device.
    class Multithread final : public ID3D10Multithread {
      public:
        explicit Multithread(Device& device) : m_device(device) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
            return m_device.QueryInterface(riid, ppvObject);
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return m_device.AddRef(); }
        ULONG STDMETHODCALLTYPE Release() override { return m_device.Release(); }
        BOOL STDMETHODCALLTYPE SetMultithreadProtected(BOOL protect) override {
            WINHOST_GATE_PASS("ID3D10Multithread::SetMultithreadProtected");
            AddToComHistory("ID3D10Multithread::SetMultithreadProtected(" + std::to_string(protect) + ")");
            return m_isProtected.exchange(protect != FALSE);
        }
        BOOL STDMETHODCALLTYPE GetMultithreadProtected() override { return m_isProtected; }

      private:
        Device& m_device;
        std::atomic<bool> m_isProtected{false};
    };

    Multithread m_multithread;
    const D3D_FEATURE_LEVEL m_level;
};

// 110 is 11.0.
D3D_FEATURE_LEVEL LevelOf(uint32_t described) {
    return static_cast<D3D_FEATURE_LEVEL>((described / 10) << 12 | (described % 10) << 8);
}

// The highest level of a device: that of its adapter, or of the software that works without one.
HRESULT FindLevel(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, HMODULE library, uint32_t& featureLevel) {
    if (type == D3D_DRIVER_TYPE_SOFTWARE) {
        const bool isThere = Pc::Instance().Get(&PcDescription::softwareDirect3d);
        if (!isThere || adapter || library) return E_INVALIDARG;
        featureLevel = 111;
        return S_OK;
    }
    if (type != D3D_DRIVER_TYPE_UNKNOWN) return DXGI_ERROR_UNSUPPORTED;
    const auto* own = dynamic_cast<DxgiAdapter*>(adapter);
    if (!own) return E_INVALIDARG;
    featureLevel = own->Described().featureLevel;
    return S_OK;
}

}  // namespace

std::vector<Export> Direct3DExports() {
    return {{"D3D11CreateDevice", Erased(&D3D11CreateDevice)}};
}

}  // namespace winhost

HRESULT D3D11CreateDevice(IDXGIAdapter* adapter, D3D_DRIVER_TYPE driver_type, HMODULE swrast, UINT flags,
                          const D3D_FEATURE_LEVEL* feature_levels, UINT levels, UINT sdk_version,
                          ID3D11Device** device, D3D_FEATURE_LEVEL* obtained, ID3D11DeviceContext** context) {
    WINHOST_GATE_HRESULT("D3D11CreateDevice");
    if (device) *device = nullptr;
    if (sdk_version != D3D11_SDK_VERSION || context || !feature_levels || levels == 0) return E_INVALIDARG;
    if (flags != 0) return DXGI_ERROR_UNSUPPORTED;
    uint32_t featureLevel = 0;
    const HRESULT error = winhost::FindLevel(adapter, driver_type, swrast, featureLevel);
    if (FAILED(error)) return error;
    const D3D_FEATURE_LEVEL highest = winhost::LevelOf(featureLevel);
    const D3D_FEATURE_LEVEL* const end = feature_levels + levels;
    const auto level =
        std::find_if(feature_levels, end, [&](D3D_FEATURE_LEVEL one) { return one <= highest; });
    if (level == end) return DXGI_ERROR_UNSUPPORTED;
    if (obtained) *obtained = *level;
    if (!device) return S_FALSE;
    *device = new winhost::Device(*level);
    return S_OK;
}
