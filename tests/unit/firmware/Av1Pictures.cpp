#include "tests/unit/firmware/Av1Pictures.h"

#include <aom/aomcx.h>
#include <libyuv/convert.h>

#include <cmath>
#include <stdexcept>

namespace mpm::test {

Painting Painting::Of(int width, int height, int square) {
    Painting painting{width, height, std::vector<uint8_t>(size_t(width) * size_t(height) * 4)};
    uint8_t* pixel = painting.pixels.data();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x, pixel += 4) {
            const bool inSquare = x >= square && x < square + 32 && y >= 16 && y < 48;
            pixel[0] = inSquare ? 40 : uint8_t(x * 255 / width);
            pixel[1] = inSquare ? 200 : uint8_t(y * 255 / height);
            pixel[2] = inSquare ? 240 : 96;
            pixel[3] = 255;
        }
    return painting;
}

double Painting::Psnr(const std::vector<uint8_t>& others) const {
    if (others.size() != pixels.size()) return 0;
    double sum = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        const double difference = double(pixels[i]) - double(others[i]);
        if (i % 4 != 3) sum += difference * difference;
    }
    return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(pixels.size() / 4 * 3) / sum);
}

Av1Encoder::Av1Encoder(int width, int height) {
    aom_codec_enc_cfg_t config;
    aom_codec_enc_config_default(aom_codec_av1_cx(), &config, AOM_USAGE_REALTIME);
    config.g_w = unsigned(width);
    config.g_h = unsigned(height);
    config.g_lag_in_frames = 0;
    config.rc_target_bitrate = 20000;
    config.rc_end_usage = AOM_CBR;
    config.rc_max_quantizer = 20;
    config.kf_mode = AOM_KF_DISABLED;
    if (aom_codec_enc_init(&m_codec, aom_codec_av1_cx(), &config, 0) != AOM_CODEC_OK ||
        aom_codec_control(&m_codec, AOME_SET_CPUUSED, 8) != AOM_CODEC_OK ||
        !aom_img_alloc(&m_image, AOM_IMG_FMT_I420, unsigned(width), unsigned(height), 32))
        throw std::runtime_error("no AV1 encoder");
}

Av1Encoder::~Av1Encoder() {
    aom_img_free(&m_image);
    aom_codec_destroy(&m_codec);
}

std::vector<uint8_t> Av1Encoder::Encode(const Painting& painting) {
    libyuv::ARGBToI420(painting.pixels.data(), painting.width * 4, m_image.planes[0], m_image.stride[0],
                       m_image.planes[1], m_image.stride[1], m_image.planes[2], m_image.stride[2],
                       painting.width, painting.height);
    if (aom_codec_encode(&m_codec, &m_image, m_time++, 1, 0) != AOM_CODEC_OK)
        throw std::runtime_error("the picture cannot be encoded");
    std::vector<uint8_t> frame;
    aom_codec_iter_t next = nullptr;
    while (const aom_codec_cx_pkt_t* packet = aom_codec_get_cx_data(&m_codec, &next)) {
        const auto* bytes = static_cast<const uint8_t*>(packet->data.frame.buf);
        if (packet->kind == AOM_CODEC_CX_FRAME_PKT)
            frame.insert(frame.end(), bytes, bytes + packet->data.frame.sz);
    }
    return frame;
}

std::vector<uint8_t> EncodeOne(const Painting& painting) {
    return Av1Encoder(painting.width, painting.height).Encode(painting);
}

}  // namespace mpm::test
