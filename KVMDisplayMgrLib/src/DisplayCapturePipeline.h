// The screen of one monitor as encoded frames: capture, converter and encoder of the media runtime in a row,
// on the surfaces of one Direct3D 11 device.
#pragma once

#include <cstdint>
#include <fstream>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "KVMDisplayMgrLib/src/DisplayMgr.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "KVMDisplayMgrLib/src/LUXThread.h"
#include "KVMDisplayMgrLib/src/LuxTrace.h"
#include "lux/Ref.h"

// All calls come from one thread, except the Shutdown after that thread has been killed. The methods that
// return a result return LUX_OK or what the runtime has answered, after a line in its trace.
class DisplayCapturePipeline : public lux::LUXThread {
  public:
    DisplayCapturePipeline(LUXFactoryHelper& factory, PipelineShared& shared, const DisplayMgrInitArgs& args,
                           const std::wstring& outputPath);
    ~DisplayCapturePipeline() override;

    // Makes the context and the device when this is the first pipeline of the process. After a failure of the
    // device the context stays, so that the next attempt fails or succeeds with its components.
    lux::LUX_RESULT InitContext();
    // Stops at the first failure. What has been created stays alive.
    lux::LUX_RESULT InitComponents();

    // Blocks until a frame has gone through all three components, without a limit. Stores nothing and returns
    // LUX_OK when the converter cannot follow a new format of the screen; the next call tries again.
    lux::LUX_RESULT CaptureEncode(EncodedFrameBuffer* frame, size_t* size);

    // Ends the components from the capture on, and with the last pipeline the device and the context.
    void Shutdown();

    // Encodes until RequestStop, into m_outputFile when that is open. The service does not start this thread.
    void Run() override;

  private:
    // One property of a component. The value depends on the pipeline's fields and on what the component
    // answers; without one, the property is not set.
    struct Setting {
        struct Result {
            const DisplayCapturePipeline& pipeline;
            lux::LUX_RESULT code;
            const lux::LUXVariant& value;
        };
        enum class Test { Ignored, TraceOnly, Required };

        const wchar_t* name;
        std::optional<lux::LUXVariant> (*value)(const DisplayCapturePipeline& pipeline,
                                                lux::LUXComponent& component);
        Test test = Test::Ignored;
        // Of a required property, after a failure.
        void (*trace)(const Result& result) = nullptr;
    };
    struct EncoderKind {
        const wchar_t* id;
        std::span<const Setting> settings;
        int tracedCodecId;
        void (*traceSuccess)(const DisplayCapturePipeline& pipeline);
    };
    // The values that a setting may have (ComponentSettings.cpp).
    struct Values;

    // In the order in which they are set.
    static std::span<const Setting> CaptureSettings();
    static std::span<const Setting> ConverterSettings();
    static std::span<const Setting> Av1Settings();
    static std::span<const Setting> AvcSettings();
    static std::span<const Setting> HevcSettings();
    // Null when m_codec is not a codec.
    const EncoderKind* Encoder() const;

    lux::LUX_RESULT CreateSharedContext();
    lux::LUX_RESULT Create(const wchar_t* id, lux::Ref<lux::LUXComponent>& component);
    lux::LUX_RESULT Apply(std::span<const Setting> settings, lux::LUXComponent& component);
    lux::LUX_RESULT InitCapture();
    lux::LUX_RESULT InitConverter();
    lux::LUX_RESULT InitEncoder();

    enum class Round { NoFrame, Frame, Failed };
    // Takes one surface from the capture through the other components. Failed only when there is no capture
    // or no converter for the surface.
    Round EncodeNext(lux::Ref<lux::LUXBuffer>& encoded);
    Round AdaptConverter(lux::LUXSurface& surface);
    lux::LUX_RESULT SubmitToConverter(lux::LUXData* surface, lux::Ref<lux::LUXData>& output);
    lux::LUX_RESULT SubmitToEncoder(lux::LUXData* surface, lux::Ref<lux::LUXData>& output);
    lux::LUX_RESULT StoreFrame(lux::LUXBuffer& encoded, EncodedFrameBuffer* frame, size_t* size);
    void End(lux::Ref<lux::LUXComponent>& component);
    void ReleaseShared();

    LUXFactoryHelper& m_factory;
    PipelineShared& m_shared;
    LuxTrace m_trace;

    std::mutex m_sync;  // held during the context step and the shutdown
    uint32_t m_pipelineIndex = 0;
    int32_t m_monitorIndex = 0;
    lux::Ref<lux::LUXCurrentTime> m_pCurrentTime;
    lux::Ref<lux::LUXComponent> m_pEncoder, m_pConverter, m_pDisplayCapture;
    std::wstring m_outputPath;
    std::ofstream m_outputFile;  // never opened
    int32_t m_captureMode = 0;
    int32_t m_captureType = 1;
    int32_t m_computeDevice = 3;
    int32_t m_memoryType = 3;
    int32_t m_contextMemoryType = 3;                              // not read
    lux::LUXSurfaceFormat m_inputFormat = lux::LUX_SURFACE_BGRA;  // of what the capture delivers
    lux::LUXSurfaceFormat m_outputFormat = lux::LUX_SURFACE_NV12;
    lux::LUXSize m_inputSize{1920, 1080};  // of what the capture delivers
    lux::LUXSize m_outputSize{1920, 1080};
    uint32_t m_frameRate = 0;
    uint8_t m_initialized = 0;
    uint32_t m_usage = 0;
    uint32_t m_codec = 0;
    int64_t m_bitrate = 5'000'000;
    lux::LUXSize m_fallbackSize{0, 0};  // in place of a width or height of 0
};

// Gives the input to the component and waits for an output, without a limit. A full component gives an output
// first, which is dropped. The errors of a query are not failures. `component` may be null: LUX_WRONG_STATE.
lux::LUX_RESULT SubmitAndQuery(lux::LUXComponent* component, lux::LUXData* input,
                               lux::Ref<lux::LUXData>& output);
