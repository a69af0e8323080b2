#pragma once

#include <dxgi.h>

#include "winhost/pc/GraphicsAdapter.h"
#include "winhost/wmi/ComObject.h"

namespace winhost {

// Keeps what the description said when its factory was made.
class DxgiAdapter final : public ComObject<IDXGIAdapter, IID_IDXGIAdapter, false> {
  public:
    // The outputs of the adapters before it stand at its left.
    DxgiAdapter(GraphicsAdapter adapter, size_t firstOutput)
        : m_adapter(std::move(adapter)), m_firstOutput(firstOutput) {}

    HRESULT STDMETHODCALLTYPE EnumOutputs(UINT output_idx, IDXGIOutput** output) override;
    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_ADAPTER_DESC* desc) override;

    const GraphicsAdapter& Described() const { return m_adapter; }

  private:
    const GraphicsAdapter m_adapter;
    const size_t m_firstOutput;
};

}  // namespace winhost
