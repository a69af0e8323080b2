#include "runtime/software/AomCodec.h"

#include <aom/aomcx.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <array>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

constexpr unsigned kThreads = 2;

struct Control {
    int id;
    int value;
};

// Of the quantizer's 63 steps. Signs on a screen are unreadable beyond it, and sharpening them later costs
// more bytes than it saves.
constexpr unsigned kMostQuantizer = 45;

constexpr std::array kControls = std::to_array<Control>({
    // Two tile columns let both threads work on one picture.
    {AV1E_SET_TILE_COLUMNS, 1},
    {AV1E_SET_ROW_MT, 1},
    {AV1E_SET_TUNE_CONTENT, AOM_CONTENT_SCREEN},
    {AV1E_SET_ENABLE_PALETTE, 1},
    // What does not change is sharpened picture by picture.
    {AV1E_SET_AQ_MODE, 3},
    // Costs are computed once for a picture and not for each block, which halves the time of a small change.
    {AV1E_SET_COEFF_COST_UPD_FREQ, 3},
    {AV1E_SET_MODE_COST_UPD_FREQ, 3},
    {AV1E_SET_MV_COST_UPD_FREQ, 3},
    // Tools that hardly save a byte on a screen; without them a key frame takes a third of the time.
    {AV1E_SET_ENABLE_ANGLE_DELTA, 0},
    {AV1E_SET_ENABLE_SMOOTH_INTRA, 0},
    {AV1E_SET_ENABLE_FILTER_INTRA, 0},
    {AV1E_SET_ENABLE_CFL_INTRA, 0},
    {AV1E_SET_INTRA_DEFAULT_TX_ONLY, 1},
    {AV1E_SET_ENABLE_TX64, 0},
    {AV1E_SET_ENABLE_ORDER_HINT, 0},
    {AV1E_SET_ENABLE_OBMC, 0},
    {AV1E_SET_ENABLE_WARPED_MOTION, 0},
    {AV1E_SET_ENABLE_GLOBAL_MOTION, 0},
    {AV1E_SET_ENABLE_REF_FRAME_MVS, 0},
    // At this quality the edges of blocks do not show, and looking for the filter's strength takes a seventh
    // of the time.
    {AV1E_SET_LOOPFILTER_CONTROL, 0},
    // The colours are those that the converter makes.
    {AV1E_SET_COLOR_PRIMARIES, AOM_CICP_CP_BT_709},
    {AV1E_SET_TRANSFER_CHARACTERISTICS, AOM_CICP_TC_BT_709},
    {AV1E_SET_MATRIX_COEFFICIENTS, AOM_CICP_MC_BT_601},
    {AV1E_SET_COLOR_RANGE, AOM_CR_STUDIO_RANGE},
});

void TraceFailure(const char* step, aom_codec_err_t error) {
    TraceLine(LUX_TRACE_ERROR, "libaom refuses %s: %s", step, aom_codec_err_to_string(error));
}

}  // namespace

std::unique_ptr<AomCodec> AomCodec::Open(const Settings& settings) {
    std::unique_ptr<AomCodec> codec(new AomCodec());
    return codec->Configure(settings) && codec->Prepare(settings) ? std::move(codec) : nullptr;
}

AomCodec::~AomCodec() {
    if (m_open) {
        aom_codec_destroy(&m_codec);
    }
}

bool AomCodec::Configure(const Settings& settings) {
    aom_codec_iface_t* const av1 = aom_codec_av1_cx();
    aom_codec_enc_cfg_t config{};
    aom_codec_err_t error = aom_codec_enc_config_default(av1, &config, AOM_USAGE_REALTIME);
    if (error != AOM_CODEC_OK) {
        TraceFailure("its own settings", error);
        return false;
    }
    config.g_w = static_cast<unsigned>(settings.size.width);
    config.g_h = static_cast<unsigned>(settings.size.height);
    config.g_threads = kThreads;
    config.g_timebase = {static_cast<int>(settings.frameRate.denominator),
                         static_cast<int>(settings.frameRate.numerator)};
    config.g_pass = AOM_RC_ONE_PASS;
    config.g_lag_in_frames = 0;
    config.rc_end_usage = AOM_CBR;
    config.rc_target_bitrate = static_cast<unsigned>(std::max<int64_t>(1, settings.bitsPerSecond / 1000));
    config.rc_max_quantizer = kMostQuantizer;
    config.kf_mode = AOM_KF_DISABLED;
    error = aom_codec_enc_init(&m_codec, av1, &config, 0);
    if (error != AOM_CODEC_OK) {
        TraceFailure("the settings", error);
        return false;
    }
    m_open = true;
    error = aom_codec_control(&m_codec, AOME_SET_CPUUSED, settings.speed);
    for (const Control& control : kControls) {
        if (error == AOM_CODEC_OK) {
            error = aom_codec_control(&m_codec, control.id, control.value);
        }
    }
    if (error != AOM_CODEC_OK) {
        TraceFailure("a control", error);
        return false;
    }
    return true;
}

bool AomCodec::Prepare(const Settings& settings) {
    const auto [width, height] = settings.size;
    // Only the description is made here; the planes are set with each picture.
    uint8_t none = 0;
    if (!aom_img_wrap(&m_image, AOM_IMG_FMT_I420, static_cast<unsigned>(width), static_cast<unsigned>(height),
                      1, &none)) {
        return false;
    }
    m_image.cp = AOM_CICP_CP_BT_709;
    m_image.tc = AOM_CICP_TC_BT_709;
    m_image.mc = AOM_CICP_MC_BT_601;
    m_image.range = AOM_CR_STUDIO_RANGE;
    const int pitch = (width / 2 + 16) / 16 * 16;
    m_chroma = MakeHeapBlock(static_cast<size_t>(pitch) * static_cast<size_t>(height + 1));
    m_image.planes[AOM_PLANE_U] = m_chroma->Bytes();
    m_image.planes[AOM_PLANE_V] =
        m_chroma->Bytes() + static_cast<size_t>(pitch) * static_cast<size_t>((height + 1) / 2);
    m_image.stride[AOM_PLANE_U] = pitch;
    m_image.stride[AOM_PLANE_V] = pitch;
    return true;
}

std::span<const uint8_t> AomCodec::Encode(LUXSurface& picture) {
    const PlaneView y = ViewPlane(picture, 0);
    const PlaneView uv = ViewPlane(picture, 1);
    libyuv::SplitUVPlane(uv.bytes, uv.pitch, m_image.planes[AOM_PLANE_U], m_image.stride[AOM_PLANE_U],
                         m_image.planes[AOM_PLANE_V], m_image.stride[AOM_PLANE_V], uv.size.width,
                         uv.size.height);
    m_image.planes[AOM_PLANE_Y] = y.bytes;
    m_image.stride[AOM_PLANE_Y] = y.pitch;
    const aom_codec_err_t error = aom_codec_encode(&m_codec, &m_image, m_time++, 1, 0);
    if (error != AOM_CODEC_OK) {
        TraceFailure("a picture", error);
        return {};
    }
    std::span<const uint8_t> packet;
    aom_codec_iter_t iterator = nullptr;
    while (const aom_codec_cx_pkt_t* const piece = aom_codec_get_cx_data(&m_codec, &iterator)) {
        if (piece->kind != AOM_CODEC_CX_FRAME_PKT) {
            continue;
        }
        const std::span bytes(static_cast<const uint8_t*>(piece->data.frame.buf), piece->data.frame.sz);
        if (packet.empty()) {
            packet = bytes;
        } else {
            if (packet.data() != m_joined.data()) {
                m_joined.assign(packet.begin(), packet.end());
            }
            m_joined.insert(m_joined.end(), bytes.begin(), bytes.end());
            packet = m_joined;
        }
    }
    if (packet.empty()) {
        TraceLine(LUX_TRACE_ERROR, "libaom returned no packet for a picture");
    }
    return packet;
}

}  // namespace luxrt
