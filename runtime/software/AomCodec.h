// libaom, set up for a screen that is watched while it changes.
#pragma once

#include <aom/aom_encoder.h>

#include <memory>
#include <span>
#include <vector>

#include "runtime/software/Memory.h"
#include "runtime/software/Surface.h"

namespace luxrt {

class AomCodec {
  public:
    struct Settings {
        lux::LUXSize size;
        lux::LUXRate frameRate;
        int64_t bitsPerSecond;
        // libaom's cpu-used, from 7, the most careful, to 10, the fastest.
        int speed;
    };
    // Returns null when libaom refuses the settings, and traces the reason.
    static std::unique_ptr<AomCodec> Open(const Settings& settings);
    AomCodec(const AomCodec&) = delete;
    AomCodec& operator=(const AomCodec&) = delete;
    ~AomCodec();

    // Encodes one picture of the size of the settings, in NV12. Returns the packet, which is valid until the
    // next call; it is empty when the picture cannot be encoded, which is traced.
    std::span<const uint8_t> Encode(lux::LUXSurface& picture);

  private:
    AomCodec() = default;
    bool Configure(const Settings& settings);
    bool Prepare(const Settings& settings);

    aom_codec_ctx_t m_codec{};
    bool m_open = false;
    aom_image_t m_image{};
    aom_codec_pts_t m_time = 0;
    // The U and V planes, apart, as libaom takes them.
    std::unique_ptr<Block> m_chroma;
    // A packet that libaom hands over in several pieces.
    std::vector<uint8_t> m_joined;
};

}  // namespace luxrt
