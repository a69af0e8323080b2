// Decodes packets to BGRA pictures.
#pragma once

#include <dav1d/dav1d.h>
#include <libyuv/convert_argb.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "lux/Types.h"

namespace luxtest {

struct DecodedPicture {
    lux::LUXSize size;
    bool key;
    Dav1dSequenceHeader sequence;
    // BGRA without gaps.
    std::vector<uint8_t> pixels;
};

class Dav1dDecoder {
  public:
    Dav1dDecoder() {
        Dav1dSettings settings;
        dav1d_default_settings(&settings);
        settings.n_threads = 1;
        settings.max_frame_delay = 1;
        dav1d_open(&m_context, &settings);
    }
    Dav1dDecoder(const Dav1dDecoder&) = delete;
    Dav1dDecoder& operator=(const Dav1dDecoder&) = delete;
    ~Dav1dDecoder() { dav1d_close(&m_context); }

    // Returns the pictures that this packet completes.
    std::vector<DecodedPicture> Decode(std::span<const uint8_t> packet) {
        std::vector<DecodedPicture> pictures;
        Dav1dData data{};
        std::memcpy(dav1d_data_create(&data, packet.size()), packet.data(), packet.size());
        while (data.sz > 0) {
            const int sent = dav1d_send_data(m_context, &data);
            if (sent < 0 && sent != DAV1D_ERR(EAGAIN)) {
                dav1d_data_unref(&data);
                return {};
            }
            while (auto picture = Next()) {
                pictures.push_back(std::move(*picture));
            }
        }
        return pictures;
    }

  private:
    std::optional<DecodedPicture> Next() {
        Dav1dPicture picture{};
        if (dav1d_get_picture(m_context, &picture) < 0) {
            return {};
        }
        DecodedPicture result{
            {picture.p.w, picture.p.h},
            picture.frame_hdr->frame_type == DAV1D_FRAME_TYPE_KEY,
            *picture.seq_hdr,
            std::vector<uint8_t>(static_cast<size_t>(picture.p.w) * static_cast<size_t>(picture.p.h) * 4)};
        const auto plane = [&](int index) { return static_cast<const uint8_t*>(picture.data[index]); };
        const auto luma = static_cast<int>(picture.stride[0]);
        const auto chroma = static_cast<int>(picture.stride[1]);
        libyuv::I420ToARGB(plane(0), luma, plane(1), chroma, plane(2), chroma, result.pixels.data(),
                           picture.p.w * 4, picture.p.w, picture.p.h);
        dav1d_picture_unref(&picture);
        return result;
    }

    Dav1dContext* m_context = nullptr;
};

}  // namespace luxtest
