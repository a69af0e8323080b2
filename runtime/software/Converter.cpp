#include "runtime/software/Converter.h"

#include <libyuv/convert_from_argb.h>
#include <libyuv/scale_uv.h>
#include <libyuv/scale.h>

#include <array>
#include <utility>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

constexpr int64_t kColorProfile = 7;
constexpr int64_t kPrimaries = 1;
constexpr int64_t kTransfer = 1;
constexpr int64_t kScaleType = 0;

const std::array<PropertyRule, 5> kRules{{
    {lux::Converter::OutputSize, ToVariant(LUXSize{}), IsPictureSizeOrNone},
    {lux::Converter::ColorProfile, ToVariant(kColorProfile), nullptr},
    {lux::Converter::OutputFormat, ToVariant(int64_t{LUX_SURFACE_NV12}), nullptr},
    {lux::Converter::OutputColorPrimaries, ToVariant(kPrimaries), nullptr},
    {lux::Converter::OutputTransferChar, ToVariant(kTransfer), nullptr},
}};

}  // namespace

Converter::Converter() : Component(kConverterProperties, kRules) {}

// There is one output format, one set of colours and one way to scale.
LUX_RESULT Converter::CheckProperties() const {
    namespace Names = lux::Converter;
    const bool supported = Integer(Names::OutputFormat) == LUX_SURFACE_NV12 &&
                           Integer(Names::ColorProfile) == kColorProfile &&
                           Integer(Names::OutputColorPrimaries) == kPrimaries &&
                           Integer(Names::OutputTransferChar) == kTransfer &&
                           Integer(Names::ScaleType) == kScaleType && !Boolean(Names::LinearRGB);
    return supported ? LUX_OK : LUX_NOT_SUPPORTED;
}

LUX_RESULT Converter::Init(LUXSurfaceFormat format, int32_t width, int32_t height) {
    return Guarded([&] {
        if (m_pool) {
            return LUX_WRONG_STATE;
        }
        if (format != LUX_SURFACE_BGRA) {
            return LUX_NOT_SUPPORTED;
        }
        if (!IsPictureSize({width, height})) {
            return LUX_INVALID_ARGUMENT;
        }
        if (const LUX_RESULT result = CheckProperties(); result != LUX_OK) {
            return result;
        }
        m_inputSize = {width, height};
        const LUXSize wanted = Size(lux::Converter::OutputSize);
        m_outputSize = wanted == LUXSize{} ? m_inputSize : wanted;
        auto pool = std::make_shared<BlockPool>();
        if (m_outputSize != m_inputSize) {
            m_unscaled = MakeSurface(*pool, LUX_SURFACE_NV12, m_inputSize);
        }
        m_pool = std::move(pool);
        return LUX_OK;
    });
}

LUX_RESULT Converter::Terminate() {
    m_output.Reset();
    m_unscaled.Reset();
    if (m_pool) {
        m_pool->Close();
        m_pool.reset();
    }
    return LUX_OK;
}

LUX_RESULT Converter::Flush() {
    if (!m_pool) {
        return LUX_WRONG_STATE;
    }
    m_output.Reset();
    return LUX_OK;
}

bool Converter::Convert(LUXSurface& input, LUXSurface& output) {
    const PlaneView from = ViewPlane(input, 0);
    LUXSurface& target = m_unscaled ? *m_unscaled.Get() : output;
    const PlaneView y = ViewPlane(target, 0);
    const PlaneView uv = ViewPlane(target, 1);
    // libyuv names the order of a pixel's bytes from the highest: its ARGB is BGRA in memory.
    if (libyuv::ARGBToNV12(from.bytes, from.pitch, y.bytes, y.pitch, uv.bytes, uv.pitch, from.size.width,
                           from.size.height) != 0) {
        return false;
    }
    if (!m_unscaled) {
        return true;
    }
    const PlaneView scaledY = ViewPlane(output, 0);
    const PlaneView scaledUv = ViewPlane(output, 1);
    return libyuv::NV12Scale(y.bytes, y.pitch, uv.bytes, uv.pitch, m_inputSize.width, m_inputSize.height,
                             scaledY.bytes, scaledY.pitch, scaledUv.bytes, scaledUv.pitch, m_outputSize.width,
                             m_outputSize.height, libyuv::kFilterBox) == 0;
}

LUX_RESULT Converter::SubmitInput(LUXData* data) {
    return Guarded([&] {
        if (!data) {
            return LUX_INVALID_POINTER;
        }
        if (!m_pool) {
            return LUX_WRONG_STATE;
        }
        if (m_output) {
            return LUX_INPUT_FULL;
        }
        const Ref<LUXSurface> input = AsSurface(data, LUX_SURFACE_BGRA, m_inputSize);
        if (!input) {
            return LUX_INVALID_ARGUMENT;
        }
        Ref<Surface> output = MakeSurface(*m_pool, LUX_SURFACE_NV12, m_outputSize);
        if (!Convert(*input.Get(), *output.Get())) {
            TraceLine(LUX_TRACE_ERROR, "The picture of %dx%d cannot be converted to %dx%d", m_inputSize.width,
                      m_inputSize.height, m_outputSize.width, m_outputSize.height);
            return LUX_FAIL;
        }
        m_output = std::move(output);
        return LUX_OK;
    });
}

LUX_RESULT Converter::QueryOutput(LUXData** data) {
    if (!data) {
        return LUX_INVALID_POINTER;
    }
    *data = m_output.Detach();
    return m_pool ? LUX_OK : LUX_WRONG_STATE;
}

}  // namespace luxrt
