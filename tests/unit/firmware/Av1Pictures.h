// AV1 frames for tests, encoded from pictures that are known.
#pragma once

#include <aom/aom_encoder.h>

#include <cstdint>
#include <vector>

namespace mpm::test {

// Rows of four bytes a pixel: blue, green, red, 255.
struct Painting {
    int width, height;
    std::vector<uint8_t> pixels;

    // A gradient with a bright square at this column.
    static Painting Of(int width, int height, int square = 0);
    // The peak signal-to-noise ratio against pixels of the same size, in dB.
    double Psnr(const std::vector<uint8_t>& others) const;
};

// One frame for each picture, as a host sends them.
class Av1Encoder {
  public:
    Av1Encoder(int width, int height);
    ~Av1Encoder();
    Av1Encoder(const Av1Encoder&) = delete;
    Av1Encoder& operator=(const Av1Encoder&) = delete;
    std::vector<uint8_t> Encode(const Painting& painting);

  private:
    aom_codec_ctx_t m_codec{};
    aom_image_t m_image{};
    int m_time = 0;
};

std::vector<uint8_t> EncodeOne(const Painting& painting);

}  // namespace mpm::test
