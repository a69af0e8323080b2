// The pipeline's life: context, components, shutdown.
#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"

#include <utility>

#include "KVMDisplayMgrLib/src/DeviceDX11.h"
#include "KVMDisplayMgrLib/src/LUXCurrentTimeImpl.h"
#include "KVMDisplayMgrLib/src/PipelineShared.h"
#include "lux/Names.h"

using namespace lux;

DisplayCapturePipeline::DisplayCapturePipeline(LUXFactoryHelper& factory, PipelineShared& shared,
                                               const DisplayMgrInitArgs& args, const std::wstring& outputPath)
    : m_factory(factory),
      m_shared(shared),
      m_trace(factory, "KVMDisplayMgrLib/src/DisplayCapturePipeline", "DisplayCapturePipeline"),
      m_monitorIndex(static_cast<int32_t>(args.monitorIndex)),
      m_pCurrentTime(Ref<LUXCurrentTime>::Adopt(new LUXCurrentTimeImpl)),
      m_outputPath(outputPath),
      m_frameRate(args.frameRate),
      m_usage(args.usage),
      m_codec(args.codec) {
    m_inputSize = {static_cast<int32_t>(args.width), static_cast<int32_t>(args.height)};
    m_outputSize = {m_inputSize.width ? m_inputSize.width : m_fallbackSize.width,
                    m_inputSize.height ? m_inputSize.height : m_fallbackSize.height};
    if (args.bitrate) m_bitrate = args.bitrate;
}

DisplayCapturePipeline::~DisplayCapturePipeline() {
    Shutdown();
    m_trace.Info(__LINE__, "DisplayCapturePipeline for monitor %d.%d destroyed", m_monitorIndex,
                 m_pipelineIndex);
}

LUX_RESULT DisplayCapturePipeline::InitContext() {
    const std::lock_guard lock(m_sync);
    if (m_initialized) return LUX_OK;
    const std::lock_guard section(m_shared.section);
    if (!m_shared.context) {
        const LUX_RESULT result = CreateSharedContext();
        if (result != LUX_OK) return result;
    }
    m_pipelineIndex = m_shared.pipelineCount++;
    m_initialized = 1;
    return LUX_OK;
}

LUX_RESULT DisplayCapturePipeline::CreateSharedContext() {
    LUXFactory* const factory = m_factory.GetFactory();
    if (!factory) return LUX_FAIL;
    Ref<LUXContext> context;
    LUX_RESULT result = factory->CreateContext(context.Out());
    if (result != LUX_OK) return result;
    m_shared.context = context.As<LUXContext1>();
    if (!m_shared.context) return LUX_NO_INTERFACE;

    m_shared.device = std::make_unique<DeviceDX11>(m_factory);
    m_captureType = 1;
    m_memoryType = 3;
    m_contextMemoryType = 3;
    result = m_shared.device->Init(0, true, true, false);
    if (result != LUX_OK) {
        m_trace.Failure(__LINE__, result, "m_deviceDX11.Init() failed");
        return result;
    }
    result = m_shared.context->InitDX11(m_shared.device->GetDevice().Get(), 110);
    if (result != LUX_OK) {
        m_trace.Failure(__LINE__, result, "InitDX11() failed");
        return result;
    }
    LUXVariant enable{LUX_VARIANT_BOOL, {.boolValue = 1}};
    m_shared.context->SetProperty(Context::EnableDX11HP3D, &enable);
    m_trace.Info(__LINE__, "Context and devices created successfully");
    return LUX_OK;
}

LUX_RESULT DisplayCapturePipeline::InitComponents() {
    LUX_RESULT result = InitCapture();
    if (result == LUX_OK) result = InitConverter();
    if (result == LUX_OK) result = InitEncoder();
    return result;
}

// A null component is a failure, whatever the runtime says.
LUX_RESULT DisplayCapturePipeline::Create(const wchar_t* id, Ref<LUXComponent>& component) {
    component.Reset();
    LUXFactory* const factory = m_factory.GetFactory();
    if (!factory) return LUX_FAIL;
    const LUX_RESULT result = factory->CreateComponent(m_shared.context.Get(), id, component.Out());
    return !component && result == LUX_OK ? LUX_FAIL : result;
}

LUX_RESULT DisplayCapturePipeline::Apply(std::span<const Setting> settings, LUXComponent& component) {
    for (const Setting& setting : settings) {
        const std::optional<LUXVariant> value = setting.value(*this, component);
        if (!value) continue;
        const LUX_RESULT result = component.SetProperty(setting.name, &*value);
        if (setting.test == Setting::Test::TraceOnly) setting.trace({*this, result, *value});
        if (setting.test == Setting::Test::Required && result != LUX_OK) {
            setting.trace({*this, result, *value});
            return result;
        }
    }
    return LUX_OK;
}

LUX_RESULT DisplayCapturePipeline::InitCapture() {
    LUX_RESULT result = Create(kCaptureId, m_pDisplayCapture);
    if (!m_pDisplayCapture) {
        m_trace.Assertion(__LINE__, "m_pDisplayCapture != nullptr",
                          "Fail to create Capture Tarvix API component for display %d.%d, result=%d",
                          m_monitorIndex, m_pipelineIndex, result);
        return result;
    }
    result = Apply(CaptureSettings(), *m_pDisplayCapture.Get());
    if (result != LUX_OK) return result;
    result = m_pDisplayCapture->Init(LUX_SURFACE_UNKNOWN, 0, 0);
    if (result != LUX_OK) {
        m_trace.Failure(__LINE__, result, "Failed to initialize Capture component for display %d.%d",
                        m_monitorIndex, m_pipelineIndex);
        return result;
    }
    m_trace.Info(__LINE__, "Successfully initialized Capture for display %d.%d, capturing at %d fps",
                 m_monitorIndex, m_pipelineIndex, m_frameRate);
    return LUX_OK;
}

// Leaves no converter behind when it fails, so that the next frame builds one.
LUX_RESULT DisplayCapturePipeline::InitConverter() {
    m_trace.Info(__LINE__, "Initialize Converter for display %d.%d", m_monitorIndex, m_pipelineIndex);
    LUX_RESULT result = Create(kConverterId, m_pConverter);
    if (result != LUX_OK) {
        m_pConverter.Reset();
        m_trace.Failure(__LINE__, result, "Failed to create video converter %s for display %d.%d",
                        "LUXVideoConverter", m_monitorIndex, m_pipelineIndex);
        return result;
    }
    result = Apply(ConverterSettings(), *m_pConverter.Get());
    if (result == LUX_OK) {
        result = m_pConverter->Init(m_inputFormat, m_inputSize.width, m_inputSize.height);
    }
    if (result != LUX_OK) {
        m_pConverter.Reset();
        m_trace.Failure(__LINE__, result,
                        "Failed to initialize video converter for display %d.%d: input resolution: %dx%d, "
                        "format: %s, output resolution %dx%d, format: %s",
                        m_monitorIndex, m_pipelineIndex, m_inputSize.width, m_inputSize.height,
                        m_trace.FormatName(m_inputFormat), m_outputSize.width, m_outputSize.height,
                        m_trace.FormatName(m_outputFormat));
        return result;
    }
    m_trace.Info(__LINE__,
                 "Video Converter successfully initialized for display %d.%d: input resolution: %dx%d, "
                 "format: %s, output resolution %dx%d, format: %s",
                 m_monitorIndex, m_pipelineIndex, m_inputSize.width, m_inputSize.height,
                 m_trace.FormatName(m_inputFormat), m_outputSize.width, m_outputSize.height,
                 m_trace.FormatName(m_outputFormat));
    return LUX_OK;
}

LUX_RESULT DisplayCapturePipeline::InitEncoder() {
    m_trace.Info(__LINE__, "Initialize Encoder for display %d.%d", m_monitorIndex, m_pipelineIndex);
    const EncoderKind* const kind = Encoder();
    if (!kind) return LUX_OK;
    LUX_RESULT result = Create(kind->id, m_pEncoder);
    if (result != LUX_OK) {
        m_trace.Assertion(__LINE__, "result == LUX_OK && m_pEncoder != nullptr",
                          "Failed to create encoder for display %d.%d: codec ID: %d, acceleration: %d, "
                          "result: %s",
                          m_monitorIndex, m_pipelineIndex, kind->tracedCodecId, 0,
                          m_trace.ResultText(result));
        return result;
    }
    result = Apply(kind->settings, *m_pEncoder.Get());
    if (result != LUX_OK) return result;
    result = m_pEncoder->Init(m_outputFormat, m_outputSize.width, m_outputSize.height);
    if (result != LUX_OK) {
        m_trace.Failure(__LINE__, result,
                        "Failed to initialize %s encoder for display %d.%d: format: %s, resolution: %dx%d",
                        ToUtf8(std::wstring_view(kind->id), logging::kMessageSize), m_monitorIndex,
                        m_pipelineIndex, m_trace.FormatName(m_outputFormat), m_outputSize.width,
                        m_outputSize.height);
        return result;
    }
    kind->traceSuccess(*this);
    return LUX_OK;
}

void DisplayCapturePipeline::Shutdown() {
    // Only a thread that was killed in one of the two can still hold it. What that thread used stays as it
    // is.
    const std::unique_lock lock(m_sync, std::try_to_lock);
    if (!lock || !m_initialized) return;
    m_trace.Info(__LINE__, "Starting pipeline shutdown for display %d.%d", m_monitorIndex, m_pipelineIndex);
    RequestStop();
    WaitForStop();
    m_trace.Info(__LINE__, "Pumping thread terminated for display %d.%d", m_monitorIndex, m_pipelineIndex);
    // The source first, so that nothing feeds a component that is being ended.
    End(m_pDisplayCapture);
    m_trace.Info(__LINE__, "Capture destroyed for display %d.%d", m_monitorIndex, m_pipelineIndex);
    End(m_pConverter);
    m_trace.Info(__LINE__, "Converter destroyed for display %d.%d", m_monitorIndex, m_pipelineIndex);
    End(m_pEncoder);
    m_trace.Info(__LINE__, "Encoder destroyed for display %d.%d", m_monitorIndex, m_pipelineIndex);
    ReleaseShared();
    m_initialized = 0;
}

void DisplayCapturePipeline::End(Ref<LUXComponent>& component) {
    if (!component) return;
    component->Flush();
    component->Terminate();
    component.Reset();
}

void DisplayCapturePipeline::ReleaseShared() {
    const std::lock_guard section(m_shared.section);
    if (m_shared.pipelineCount-- != 1) return;
    if (m_shared.device) m_shared.device->Terminate();
    m_shared.device.reset();
    m_trace.Info(__LINE__, "Devices destroyed");
    if (m_shared.context) m_shared.context->Terminate();
    m_shared.context.Reset();
    m_trace.Info(__LINE__, "Context destroyed");
}
