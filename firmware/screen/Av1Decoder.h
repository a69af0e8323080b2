// Decodes AV1, one frame at a time and without delay.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "firmware/screen/Picture.h"

struct Dav1dContext;

namespace mpm {

class Av1Decoder {
  public:
    // Pictures of more pixels are refused.
    static constexpr unsigned kMaxPixels = 7680 * 4320;

    Av1Decoder();
    ~Av1Decoder();
    Av1Decoder(const Av1Decoder&) = delete;
    Av1Decoder& operator=(const Av1Decoder&) = delete;

    // The last picture of the frame. Throws std::runtime_error with the reason when there is none.
    std::shared_ptr<const Picture> Decode(std::vector<uint8_t> frame);
    // Forgets all earlier frames.
    void Reset();

  private:
    std::shared_ptr<const Picture> NextPicture();

    Dav1dContext* m_context = nullptr;
};

}  // namespace mpm
