// "LUXVideoEncoderHW_AV1": one packet for each picture.
#pragma once

#include <memory>

#include "runtime/software/Buffer.h"
#include "runtime/software/Component.h"

namespace luxrt {

class AomCodec;

class Av1Encoder : public Component {
  public:
    Av1Encoder();

    lux::LUX_RESULT Init(lux::LUXSurfaceFormat format, int32_t width, int32_t height) override;
    lux::LUX_RESULT Terminate() override;
    lux::LUX_RESULT Flush() override;
    lux::LUX_RESULT SubmitInput(lux::LUXData* data) override;
    lux::LUX_RESULT QueryOutput(lux::LUXData** data) override;

  protected:
    ~Av1Encoder() override;

  private:
    // Set between Init and Terminate.
    std::unique_ptr<AomCodec> m_codec;
    lux::LUXSize m_size{};
    std::shared_ptr<BlockPool> m_pool;
    lux::Ref<Buffer> m_output;
};

}  // namespace luxrt
