// The components and their properties: one row for each property, with its type.
//
// Of each row comes a constant, such as lux::Capture::FrameRate, which is the property's name, and an entry
// in the component's array, such as lux::kCaptureProperties, with which a runtime checks names and types.
#pragma once

#include "lux/Types.h"

// ROW(name, type): the type is a LUXVariantType without its prefix.

#define LUX_CONTEXT_PROPERTIES(ROW) ROW(EnableDX11HP3D, BOOL)

#define LUX_CAPTURE_PROPERTIES(ROW)      \
    ROW(DisplayCaptureType, INT64)       \
    ROW(CaptureMode, INT64)              \
    ROW(MonitorIndex, INT64)             \
    ROW(CurrentTimeInterface, INTERFACE) \
    ROW(FrameRate, RATE)                 \
    ROW(DuplicateOutput, BOOL)           \
    ROW(DisplayEnableDCC, BOOL)

#define LUX_CONVERTER_PROPERTIES(ROW) \
    ROW(OutputSize, SIZE)             \
    ROW(MemoryType, INT64)            \
    ROW(ComputeDevice, INT64)         \
    ROW(ScaleType, INT64)             \
    ROW(ColorProfile, INT64)          \
    ROW(LinearRGB, BOOL)              \
    ROW(OutputFormat, INT64)          \
    ROW(OutputColorPrimaries, INT64)  \
    ROW(OutputTransferChar, INT64)    \
    ROW(InputTonemapping, INT64)      \
    ROW(OutputTonemapping, INT64)     \
    ROW(OutputHdrMetadata, INTERFACE)

#define LUX_AV1_PROPERTIES(ROW)  \
    ROW(Av1Usage, INT64)         \
    ROW(Av1QualityPreset, INT64) \
    ROW(Av1FrameSize, SIZE)      \
    ROW(Av1FrameRate, RATE)      \
    ROW(Av1AlignmentMode, INT64) \
    ROW(Av1TargetBitrate, INT64) \
    ROW(Av1InHDRMetadata, INTERFACE)

#define LUX_AVC_PROPERTIES(ROW)  \
    ROW(Usage, INT64)            \
    ROW(BPicturesPattern, INT64) \
    ROW(QualityPreset, INT64)    \
    ROW(FrameSize, SIZE)         \
    ROW(FrameRate, RATE)         \
    ROW(TargetBitrate, INT64)

#define LUX_HEVC_PROPERTIES(ROW)                  \
    ROW(HevcUsage, INT64)                         \
    ROW(HevcQualityPreset, INT64)                 \
    ROW(HevcFrameSize, SIZE)                      \
    ROW(HevcFrameRate, RATE)                      \
    ROW(HevcProfile, INT64)                       \
    ROW(HevcProfileLevel, INT64)                  \
    ROW(LowLatencyInternal, BOOL)                 \
    ROW(HevcQueryTimeout, INT64)                  \
    ROW(HevcRateControlMethod, INT64)             \
    ROW(HevcGOPSize, INT64)                       \
    ROW(HevcGOPSPerIDR, INT64)                    \
    ROW(HevcHeaderInsertionMode, INT64)           \
    ROW(HevcMinQP_I, INT64)                       \
    ROW(HevcMaxQP_I, INT64)                       \
    ROW(HevcMinQP_P, INT64)                       \
    ROW(HevcMaxQP_P, INT64)                       \
    ROW(HevcInputQueueSize, INT64)                \
    ROW(HevcIntraRefreshCTBsNumberPerSlot, INT64) \
    ROW(HevcInColorTransferChar, INT64)           \
    ROW(HevcInColorPrimaries, INT64)              \
    ROW(HevcInColorProfile, INT64)                \
    ROW(HevcOutColorTransferChar, INT64)          \
    ROW(HevcOutColorPrimaries, INT64)             \
    ROW(HevcOutColorProfile, INT64)               \
    ROW(HevcTargetBitrate, INT64)                 \
    ROW(HevcPeakBitrate, INT64)                   \
    ROW(HevcVBVBufferSize, INT64)

// Of a surface.
#define LUX_SURFACE_PROPERTIES(ROW) ROW(HdrMetadata, INTERFACE)

#define LUX_OBJECTS(OBJECT)                     \
    OBJECT(Context, LUX_CONTEXT_PROPERTIES)     \
    OBJECT(Capture, LUX_CAPTURE_PROPERTIES)     \
    OBJECT(Converter, LUX_CONVERTER_PROPERTIES) \
    OBJECT(Av1Encoder, LUX_AV1_PROPERTIES)      \
    OBJECT(AvcEncoder, LUX_AVC_PROPERTIES)      \
    OBJECT(HevcEncoder, LUX_HEVC_PROPERTIES)    \
    OBJECT(Surface, LUX_SURFACE_PROPERTIES)

namespace lux {

inline constexpr wchar_t kCaptureId[] = L"LUXDisplayCapture";
inline constexpr wchar_t kConverterId[] = L"LUXVideoConverter";
inline constexpr wchar_t kAv1EncoderId[] = L"LUXVideoEncoderHW_AV1";
inline constexpr wchar_t kAvcEncoderId[] = L"LUXVideoEncoderRDE_AVC";
inline constexpr wchar_t kHevcEncoderId[] = L"LUXVideoEncoderHW_HEVC";

struct LUXPropertyRow {
    const wchar_t* name;
    LUXVariantType type;
};

#define LUX_NAME(name, type) inline constexpr wchar_t name[] = L## #name;
#define LUX_ROW(name, type) {L## #name, LUX_VARIANT_##type},
#define LUX_OBJECT(object, properties) \
    namespace object {                 \
    properties(LUX_NAME)               \
    }                                  \
    inline constexpr LUXPropertyRow k##object##Properties[] = {properties(LUX_ROW)};
LUX_OBJECTS(LUX_OBJECT)
#undef LUX_OBJECT
#undef LUX_ROW
#undef LUX_NAME

}  // namespace lux
