// "LUXVideoConverter": BGRA to NV12, scaled to the size of the output.
#pragma once

#include <memory>

#include "runtime/software/Component.h"

namespace luxrt {

// The colours are those of BT.601 in studio range.
class Converter : public Component {
  public:
    Converter();

    lux::LUX_RESULT Init(lux::LUXSurfaceFormat format, int32_t width, int32_t height) override;
    lux::LUX_RESULT Terminate() override;
    lux::LUX_RESULT Flush() override;
    lux::LUX_RESULT SubmitInput(lux::LUXData* data) override;
    lux::LUX_RESULT QueryOutput(lux::LUXData** data) override;

  private:
    lux::LUX_RESULT CheckProperties() const;
    bool Convert(lux::LUXSurface& input, lux::LUXSurface& output);

    lux::LUXSize m_inputSize{};
    lux::LUXSize m_outputSize{};
    // Set between Init and Terminate.
    std::shared_ptr<BlockPool> m_pool;
    // The converted picture before it is scaled, when the sizes differ.
    lux::Ref<Surface> m_unscaled;
    lux::Ref<Surface> m_output;
};

}  // namespace luxrt
