// What each component is set to before its Init: a low-latency stream of a screen.
#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"
#include "KVMDisplayMgrLib/src/LuxValue.h"
#include "lux/Names.h"

using namespace lux;

namespace {

constexpr int64_t kAvcBitrate = 50'000'000;
constexpr int64_t kHevcPeakBitrate = 50'000'000;

// Of the encoded picture, in the terms of the standards for coded video.
constexpr int kTransfer = 1, kPrimaries = 1, kColorProfile = 7;

LUXVariant Integer(int64_t value) {
    return {LUX_VARIANT_INT64, {.int64Value = value}};
}

}  // namespace

struct DisplayCapturePipeline::Values {
    using Value = std::optional<LUXVariant>;
    using Pipeline = const DisplayCapturePipeline&;

    template <int64_t value>
    static Value Fixed(Pipeline, LUXComponent&) {
        return Integer(value);
    }
    template <bool value>
    static Value Flag(Pipeline, LUXComponent&) {
        return LUXVariant{LUX_VARIANT_BOOL, {.boolValue = value}};
    }
    template <auto DisplayCapturePipeline::*field>
    static Value Field(Pipeline pipeline, LUXComponent&) {
        return Integer(static_cast<int64_t>(pipeline.*field));
    }
    static Value OutputSize(Pipeline pipeline, LUXComponent&) {
        return LUXVariant{LUX_VARIANT_SIZE, {.sizeValue = pipeline.m_outputSize}};
    }
    static Value FrameRate(Pipeline pipeline, LUXComponent&) {
        return LUXVariant{LUX_VARIANT_RATE, {.rateValue = {pipeline.m_frameRate, 1}}};
    }
    static Value CurrentTime(Pipeline pipeline, LUXComponent&) {
        return LUXVariant{LUX_VARIANT_INTERFACE, {.interfaceValue = pipeline.m_pCurrentTime.Get()}};
    }
    // Another selector leaves the property as it is.
    static Value Av1Usage(Pipeline pipeline, LUXComponent&) {
        constexpr int64_t kUsages[] = {2, 1, 3, 0};
        if (pipeline.m_usage >= std::size(kUsages)) return std::nullopt;
        return Integer(kUsages[pipeline.m_usage]);
    }
    // The picture in coding blocks of 64 pixels, refreshed over eight slots.
    static Value RefreshBlocks(Pipeline pipeline, LUXComponent&) {
        const int64_t rows = (int64_t{pipeline.m_outputSize.height} + 63) >> 6;
        const int64_t columns = (int64_t{pipeline.m_outputSize.width} + 63) >> 6;
        return Integer(rows * columns / 8);
    }
    // The bits of one frame's time at the peak rate. When the encoder does not give its rate, that of the
    // pipeline counts, and 0 where there is none.
    static Value OneFrame(Pipeline pipeline, LUXComponent& component) {
        LUXRate rate{pipeline.m_frameRate, 1};
        LuxValue read;
        if (read.Read(&component, HevcEncoder::HevcFrameRate, LUX_VARIANT_RATE) &&
            read->rateValue.numerator) {
            rate = read->rateValue;
        }
        return Integer(rate.numerator ? rate.denominator * kHevcPeakBitrate / rate.numerator : 0);
    }
};

std::span<const DisplayCapturePipeline::Setting> DisplayCapturePipeline::CaptureSettings() {
    using enum Setting::Test;
    using V = Values;
    using R = const Setting::Result&;
    static constexpr Setting kSettings[] = {
        {Capture::DisplayCaptureType, V::Field<&DisplayCapturePipeline::m_captureType>},
        {Capture::CaptureMode, V::Field<&DisplayCapturePipeline::m_captureMode>},
        {Capture::MonitorIndex, V::Field<&DisplayCapturePipeline::m_monitorIndex>, Required,
         [](R r) {
             r.pipeline.m_trace.Failure(__LINE__, r.code,
                                        "Failed to set Capture component monitor ID for display %d.%d",
                                        r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
        {Capture::CurrentTimeInterface, V::CurrentTime, Required,
         [](R r) {
             r.pipeline.m_trace.Failure(
                 __LINE__, r.code, "Failed to set Capture component current time interface for display %d.%d",
                 r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
        {Capture::FrameRate, V::FrameRate, Required,
         [](R r) {
             r.pipeline.m_trace.Failure(__LINE__, r.code,
                                        "Failed to set Capture component frame rate for display %d.%d",
                                        r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
        {Capture::DuplicateOutput, V::Flag<false>},
        {Capture::DisplayEnableDCC, V::Flag<true>, TraceOnly,
         [](R r) { r.pipeline.m_trace.Info(__LINE__, "LUX_DISPLAY_ENABLE_DCC set to true res %d", r.code); }},
    };
    return kSettings;
}

std::span<const DisplayCapturePipeline::Setting> DisplayCapturePipeline::ConverterSettings() {
    using V = Values;
    static constexpr Setting kSettings[] = {
        {Converter::OutputSize, V::OutputSize},
        {Converter::MemoryType, V::Field<&DisplayCapturePipeline::m_memoryType>},
        {Converter::ComputeDevice, V::Field<&DisplayCapturePipeline::m_computeDevice>},
        {Converter::ScaleType, V::Fixed<0>},
        {Converter::ColorProfile, V::Fixed<kColorProfile>},
        {Converter::LinearRGB, V::Flag<false>},
        {Converter::OutputFormat, V::Field<&DisplayCapturePipeline::m_outputFormat>},
        {Converter::OutputColorPrimaries, V::Fixed<kPrimaries>},
        {Converter::OutputTransferChar, V::Fixed<kTransfer>},
        {Converter::InputTonemapping, V::Fixed<2>},
        {Converter::OutputTonemapping, V::Fixed<2>},
    };
    return kSettings;
}

namespace {

// AV1 uses the text of AVC.
constexpr char kTargetBitrateFailed[] =
    "Failed to set LUX_VIDEO_ENCODER_AVC_TARGET_BITRATE to %lld on encoder for display %d.%d";

}  // namespace

std::span<const DisplayCapturePipeline::Setting> DisplayCapturePipeline::Av1Settings() {
    using enum Setting::Test;
    using V = Values;
    static constexpr Setting kSettings[] = {
        {Av1Encoder::Av1Usage, V::Av1Usage},
        {Av1Encoder::Av1QualityPreset, V::Fixed<100>},
        {Av1Encoder::Av1FrameSize, V::OutputSize},
        {Av1Encoder::Av1FrameRate, V::FrameRate},
        {Av1Encoder::Av1AlignmentMode, V::Fixed<3>},
        {Av1Encoder::Av1TargetBitrate, V::Field<&DisplayCapturePipeline::m_bitrate>, Required,
         [](const Setting::Result& r) {
             r.pipeline.m_trace.Failure(__LINE__, r.code, kTargetBitrateFailed, r.value.int64Value,
                                        r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
    };
    return kSettings;
}

std::span<const DisplayCapturePipeline::Setting> DisplayCapturePipeline::AvcSettings() {
    using enum Setting::Test;
    using V = Values;
    static constexpr Setting kSettings[] = {
        {AvcEncoder::Usage, V::Fixed<0>},
        {AvcEncoder::BPicturesPattern, V::Fixed<0>},
        {AvcEncoder::QualityPreset, V::Fixed<1>},
        {AvcEncoder::FrameSize, V::OutputSize},
        {AvcEncoder::FrameRate, V::FrameRate},
        {AvcEncoder::TargetBitrate, V::Fixed<kAvcBitrate>, Required,
         [](const Setting::Result& r) {
             r.pipeline.m_trace.Failure(__LINE__, r.code, kTargetBitrateFailed, r.value.int64Value,
                                        r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
    };
    return kSettings;
}

std::span<const DisplayCapturePipeline::Setting> DisplayCapturePipeline::HevcSettings() {
    using enum Setting::Test;
    using V = Values;
    using R = const Setting::Result&;
    static constexpr Setting kSettings[] = {
        {HevcEncoder::HevcUsage, V::Fixed<0>},
        {HevcEncoder::HevcQualityPreset, V::Fixed<10>},
        {HevcEncoder::HevcFrameSize, V::OutputSize},
        {HevcEncoder::HevcFrameRate, V::FrameRate},
        {HevcEncoder::HevcProfile, V::Fixed<1>},
        {HevcEncoder::HevcProfileLevel, V::Fixed<156>},
        {HevcEncoder::LowLatencyInternal, V::Flag<true>},
        {HevcEncoder::HevcQueryTimeout, V::Fixed<20>},
        {HevcEncoder::HevcRateControlMethod, V::Fixed<2>},
        {HevcEncoder::HevcGOPSize, V::Fixed<0>},
        {HevcEncoder::HevcGOPSPerIDR, V::Fixed<1>},
        {HevcEncoder::HevcHeaderInsertionMode, V::Fixed<2>},
        {HevcEncoder::HevcMinQP_I, V::Fixed<0>},
        {HevcEncoder::HevcMaxQP_I, V::Fixed<51>},
        {HevcEncoder::HevcMinQP_P, V::Fixed<0>},
        {HevcEncoder::HevcMaxQP_P, V::Fixed<51>},
        {HevcEncoder::HevcInputQueueSize, V::Fixed<3>},
        {HevcEncoder::HevcIntraRefreshCTBsNumberPerSlot, V::RefreshBlocks},
        {HevcEncoder::HevcInColorTransferChar, V::Fixed<kTransfer>},
        {HevcEncoder::HevcInColorPrimaries, V::Fixed<kPrimaries>},
        {HevcEncoder::HevcInColorProfile, V::Fixed<kColorProfile>},
        {HevcEncoder::HevcOutColorTransferChar, V::Fixed<kTransfer>},
        {HevcEncoder::HevcOutColorPrimaries, V::Fixed<kPrimaries>},
        {HevcEncoder::HevcOutColorProfile, V::Fixed<kColorProfile>},
        {HevcEncoder::HevcTargetBitrate, V::Fixed<45'000'000>, Required,
         [](R r) {
             r.pipeline.m_trace.Failure(
                 __LINE__, r.code,
                 "Failed to set LUX_VIDEO_ENCODER_HEVC_TARGET_BITRATE to %lld on encoder for display %d.%d",
                 r.value.int64Value, r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
        {HevcEncoder::HevcPeakBitrate, V::Fixed<kHevcPeakBitrate>, Required,
         [](R r) {
             r.pipeline.m_trace.Failure(
                 __LINE__, r.code,
                 "Failed to set LUX_VIDEO_ENCODER_HEVC_PEAK_BITRATE to %lld on encoder for display %d.%d",
                 r.value.int64Value, r.pipeline.m_monitorIndex, r.pipeline.m_pipelineIndex);
         }},
        {HevcEncoder::HevcVBVBufferSize, V::OneFrame, Required,
         [](R r) {
             r.pipeline.m_trace.Failure(__LINE__, r.code,
                                        "Failed to set LUX_VIDEO_ENCODER_HEVC_VBV_BUFFER_SIZE to %lld",
                                        r.value.int64Value);
         }},
    };
    return kSettings;
}

const DisplayCapturePipeline::EncoderKind* DisplayCapturePipeline::Encoder() const {
    using Pipeline = const DisplayCapturePipeline&;
    static constexpr auto kTraceAv1 = [](Pipeline p) {
        p.m_trace.Info(__LINE__,
                       "Av1 Encoder successfully initialized for display %d.%d, format: %s, resolution: "
                       "%dx%d, xfer: %d, primaries: %d, color profile: %d",
                       p.m_monitorIndex, p.m_pipelineIndex, p.m_trace.FormatName(p.m_outputFormat),
                       p.m_outputSize.width, p.m_outputSize.height, kTransfer, kPrimaries, kColorProfile);
    };
    // AVC uses the text of HEVC.
    static constexpr auto kTraceHevc = [](Pipeline p) {
        p.m_trace.Info(__LINE__,
                       "HEVC Encoder successfully initialized for display %d.%d, format: %s, resolution: "
                       "%dx%d, xfer: %d, primaries: %d, color profile: %d",
                       p.m_monitorIndex, p.m_pipelineIndex, p.m_trace.FormatName(p.m_outputFormat),
                       p.m_outputSize.width, p.m_outputSize.height, kTransfer, kPrimaries, kColorProfile);
    };
    static const EncoderKind kKinds[] = {
        {kAv1EncoderId, Av1Settings(), 1, kTraceAv1},
        {kAvcEncoderId, AvcSettings(), 1, kTraceHevc},
        {kHevcEncoderId, HevcSettings(), 2, kTraceHevc},
    };
    return m_codec < std::size(kKinds) ? &kKinds[m_codec] : nullptr;
}
