// The pipeline's frames: from a captured surface to encoded bytes.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"
#include "KVMDisplayMgrLib/src/LuxValue.h"
#include "KVMDisplayMgrLib/src/PipelineShared.h"
#include "lux/Names.h"

using namespace lux;

namespace {

constexpr DWORD kPollMs = 1;
// The firmware takes 32 bits as the size of a frame.
constexpr size_t kLargestFrame = std::numeric_limits<uint32_t>::max();

bool IsHighBitDepth(LUXSurfaceFormat format) {
    return format == LUX_SURFACE_P010 || format == LUX_SURFACE_R10G10B10A2 || format == LUX_SURFACE_RGBA_F16;
}

LUXSurfaceFormat FormatOf(LUXData* data) {
    const auto surface = Ref<LUXData>::Share(data).As<LUXSurface>();
    return surface ? surface->GetFormat() : LUX_SURFACE_UNKNOWN;
}

}  // namespace

LUX_RESULT SubmitAndQuery(LUXComponent* component, LUXData* input, Ref<LUXData>& output) {
    if (!component) return LUX_WRONG_STATE;
    auto pending = Ref<LUXData>::Share(input);
    LUX_RESULT result = component->SubmitInput(input);
    for (;;) {
        if (result == LUX_OK) {
            pending.Reset();
        } else if (result != LUX_INPUT_FULL) {
            return result;
        }
        do {
            result = component->QueryOutput(output.Out());
            if (!output) Sleep(kPollMs);
        } while (result != LUX_OK || !output);
        if (!pending) return LUX_OK;
        result = component->SubmitInput(pending.Get());
    }
}

LUX_RESULT DisplayCapturePipeline::CaptureEncode(EncodedFrameBuffer* frame, size_t* size) {
    Ref<LUXBuffer> encoded;
    Round round = Round::NoFrame;
    do {
        round = EncodeNext(encoded);
    } while (round == Round::NoFrame);
    LUX_RESULT result = m_pDisplayCapture ? LUX_OK : LUX_WRONG_STATE;
    if (round == Round::Frame) result = StoreFrame(*encoded.Get(), frame, size);
    m_trace.Info(__LINE__, "Pumping thread for display %d.%d exiting", m_monitorIndex, m_pipelineIndex);
    return result;
}

void DisplayCapturePipeline::Run() {
    if (InitComponents() != LUX_OK) return;
    Ref<LUXBuffer> encoded;
    while (!StopRequested()) {
        const Round round = EncodeNext(encoded);
        if (round == Round::Failed) break;
        if (round == Round::Frame && m_outputFile.is_open()) {
            m_outputFile.write(static_cast<const char*>(encoded->GetNative()),
                               static_cast<std::streamsize>(encoded->GetSize()));
        }
    }
    m_trace.Info(__LINE__, "Pumping thread for display %d.%d exiting", m_monitorIndex, m_pipelineIndex);
}

DisplayCapturePipeline::Round DisplayCapturePipeline::EncodeNext(Ref<LUXBuffer>& encoded) {
    if (!m_pDisplayCapture) return Round::Failed;
    Ref<LUXData> captured;
    const LUX_RESULT result = m_pDisplayCapture->QueryOutput(captured.Out());
    const auto surface = captured.As<LUXSurface>();
    if (result != LUX_OK || !surface || !surface->GetPlane(0)) {
        Sleep(kPollMs);
        return Round::NoFrame;
    }
    if (AdaptConverter(*surface.Get()) == Round::Failed) return Round::Failed;

    // A surface that fails in a stage gives no frame; the next one may.
    Ref<LUXData> converted, packet;
    SubmitToConverter(surface.Get(), converted);
    if (!converted) return Round::NoFrame;
    SubmitToEncoder(converted.Get(), packet);
    encoded = packet.As<LUXBuffer>();
    if (!encoded) return Round::NoFrame;
    m_trace.Info(__LINE__, "Size %zu", encoded->GetSize());
    return encoded->GetNative() ? Round::Frame : Round::NoFrame;
}

// A new converter for a surface of another format or size, and in place of one that could not be built. The
// encoder's input stays the same.
DisplayCapturePipeline::Round DisplayCapturePipeline::AdaptConverter(LUXSurface& surface) {
    const LUXSurfaceFormat format = surface.GetFormat();
    const LUXSize size{surface.GetPlane(0)->GetWidth(), surface.GetPlane(0)->GetHeight()};
    if (m_pConverter && format == m_inputFormat && size == m_inputSize) return Round::NoFrame;
    m_inputFormat = format;
    m_inputSize = size;
    if (m_pConverter) m_pConverter->Terminate();
    const LUX_RESULT result = InitConverter();
    if (result == LUX_OK) return Round::NoFrame;
    m_trace.Write(__LINE__, LUX_TRACE_WARNING,
                  "Converter for display %d.%d failed to reinitialize: error: %d, format: %s", m_monitorIndex,
                  m_pipelineIndex, result, m_trace.FormatName(m_inputFormat));
    return Round::Failed;
}

LUX_RESULT DisplayCapturePipeline::SubmitToConverter(LUXData* surface, Ref<LUXData>& output) {
    if (!surface) return LUX_OK;
    if (m_pConverter) {
        // Without metadata a null interface is set, so that those of an earlier frame are not used.
        LuxValue metadata;
        LUXVariant none{LUX_VARIANT_INTERFACE, {.interfaceValue = nullptr}};
        const bool isThere = metadata.Read(surface, Surface::HdrMetadata, LUX_VARIANT_INTERFACE);
        m_pConverter->SetProperty(Converter::OutputHdrMetadata, isThere ? metadata.Get() : &none);
    }
    const LUX_RESULT result = SubmitAndQuery(m_pConverter.Get(), surface, output);
    if (result != LUX_OK) {
        m_trace.Failure(__LINE__, result,
                        "Failed to submit input to converter for display %d.%d, surface format: %s",
                        m_monitorIndex, m_pipelineIndex, m_trace.FormatName(FormatOf(surface)));
    }
    return result;
}

LUX_RESULT DisplayCapturePipeline::SubmitToEncoder(LUXData* surface, Ref<LUXData>& output) {
    if (!surface) return LUX_OK;
    const LUXSurfaceFormat format = FormatOf(surface);
    LuxValue metadata;
    if (metadata.Read(surface, Surface::HdrMetadata, LUX_VARIANT_INTERFACE) && m_pEncoder &&
        IsHighBitDepth(format)) {
        m_pEncoder->SetProperty(Av1Encoder::Av1InHDRMetadata, metadata.Get());
    }
    const LUX_RESULT result = SubmitAndQuery(m_pEncoder.Get(), surface, output);
    if (result != LUX_OK) {
        m_trace.Failure(__LINE__, result,
                        "Failed to submit input to encoder for display %d.%d, surface format: %s, encoder is "
                        "initialized for %s",
                        m_monitorIndex, m_pipelineIndex, m_trace.FormatName(format),
                        m_trace.FormatName(m_outputFormat));
    }
    return result;
}

LUX_RESULT DisplayCapturePipeline::StoreFrame(LUXBuffer& encoded, EncodedFrameBuffer* frame, size_t* size) {
    const size_t bytes = encoded.GetSize();
    if (bytes > kLargestFrame) return LUX_OUT_OF_MEMORY;
    if (!frame->bytes || frame->capacity < bytes) {
        const size_t capacity = std::max<size_t>(m_shared.frameCapacity, bytes);
        *frame = {};
        frame->bytes.reset(new (std::nothrow) uint8_t[capacity]);
        if (!frame->bytes) return LUX_OUT_OF_MEMORY;
        frame->capacity = capacity;
        m_shared.frameCapacity = capacity;
    }
    std::memcpy(frame->bytes.get(), encoded.GetNative(), bytes);
    *size = bytes;
    return LUX_OK;
}
