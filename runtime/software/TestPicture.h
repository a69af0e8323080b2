// The picture that is shown when there is no desktop.
#pragma once

#include <memory>

#include "runtime/software/ScreenSource.h"

namespace luxrt {

// Paints eight vertical bars in the colours of a television test picture, which move by 4 pixels a frame, and
// the frame's number in white on black. `pixels` is BGRA without gaps.
void PaintTestPicture(uint8_t* pixels, lux::LUXSize size, uint32_t frame);

class TestPicture : public ScreenSource {
  public:
    static constexpr lux::LUXSize kSize{1920, 1080};
    explicit TestPicture(lux::LUXSize size = kSize) : m_size(size) {}

    // Each picture differs from the one before.
    bool Changed() override { return true; }
    lux::Ref<Surface> Take() override;
    bool Alive() override { return true; }

  private:
    lux::LUXSize m_size;
    uint32_t m_frame = 0;
    std::shared_ptr<BlockPool> m_pool = std::make_shared<BlockPool>();
};

}  // namespace luxrt
