#include "runtime/software/Av1Encoder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "runtime/software/AomCodec.h"

namespace luxrt {

using namespace lux;

namespace {

// libaom counts in thousands of bits, and takes two million of them.
bool IsBitrate(const LUXVariant& value) {
    return value.int64Value > 0 && value.int64Value <= 2'000'000'000;
}
bool IsUsage(const LUXVariant& value) {
    return value.int64Value >= 0 && value.int64Value <= 3;
}
bool IsPreset(const LUXVariant& value) {
    return value.int64Value >= 0 && value.int64Value <= 100;
}

const std::array<PropertyRule, 6> kRules{{
    {lux::Av1Encoder::Av1Usage, ToVariant(int64_t{2}), IsUsage},
    {lux::Av1Encoder::Av1QualityPreset, ToVariant(int64_t{100}), IsPreset},
    {lux::Av1Encoder::Av1FrameSize, ToVariant(LUXSize{}), IsPictureSizeOrNone},
    {lux::Av1Encoder::Av1FrameRate, ToVariant(LUXRate{30, 1}), IsFrameRate},
    {lux::Av1Encoder::Av1AlignmentMode, ToVariant(int64_t{3}), nullptr},
    {lux::Av1Encoder::Av1TargetBitrate, ToVariant(int64_t{5'000'000}), IsBitrate},
}};

// Packets of similar size reuse one block.
constexpr size_t kBlock = size_t{64} * 1024;

}  // namespace

Av1Encoder::Av1Encoder() : Component(kAv1EncoderProperties, kRules) {}
Av1Encoder::~Av1Encoder() = default;

LUX_RESULT Av1Encoder::Init(LUXSurfaceFormat format, int32_t width, int32_t height) {
    return Guarded([&] {
        namespace Names = lux::Av1Encoder;
        if (m_codec) {
            return LUX_WRONG_STATE;
        }
        if (format != LUX_SURFACE_NV12) {
            return LUX_NOT_SUPPORTED;
        }
        const LUXSize size{width, height};
        const LUXSize announced = Size(Names::Av1FrameSize);
        if (!IsPictureSize(size) || (announced != LUXSize{} && announced != size)) {
            return LUX_INVALID_ARGUMENT;
        }
        const int64_t speed = std::clamp<int64_t>(Integer(Names::Av1QualityPreset) / 10, 7, 10);
        auto pool = std::make_shared<BlockPool>();
        m_codec = AomCodec::Open(
            {size, Rate(Names::Av1FrameRate), Integer(Names::Av1TargetBitrate), static_cast<int>(speed)});
        if (!m_codec) {
            return LUX_FAIL;
        }
        m_size = size;
        m_pool = std::move(pool);
        return LUX_OK;
    });
}

LUX_RESULT Av1Encoder::Terminate() {
    m_output.Reset();
    m_codec.reset();
    if (m_pool) {
        m_pool->Close();
        m_pool.reset();
    }
    return LUX_OK;
}

LUX_RESULT Av1Encoder::Flush() {
    if (!m_codec) {
        return LUX_WRONG_STATE;
    }
    m_output.Reset();
    return LUX_OK;
}

LUX_RESULT Av1Encoder::SubmitInput(LUXData* data) {
    return Guarded([&] {
        if (!data) {
            return LUX_INVALID_POINTER;
        }
        if (!m_codec) {
            return LUX_WRONG_STATE;
        }
        if (m_output) {
            return LUX_INPUT_FULL;
        }
        const Ref<LUXSurface> picture = AsSurface(data, LUX_SURFACE_NV12, m_size);
        if (!picture || !ViewPlane(*picture.Get(), 1).bytes) {
            return LUX_INVALID_ARGUMENT;
        }
        const std::span<const uint8_t> packet = m_codec->Encode(*picture.Get());
        if (packet.empty()) {
            return LUX_FAIL;
        }
        std::shared_ptr<Block> block = m_pool->Take((packet.size() + kBlock - 1) / kBlock * kBlock);
        std::memcpy(block->Bytes(), packet.data(), packet.size());
        m_output = Ref<Buffer>::Adopt(new Buffer(std::move(block), packet.size()));
        return LUX_OK;
    });
}

LUX_RESULT Av1Encoder::QueryOutput(LUXData** data) {
    if (!data) {
        return LUX_INVALID_POINTER;
    }
    *data = m_output.Detach();
    return m_codec ? LUX_OK : LUX_WRONG_STATE;
}

}  // namespace luxrt
