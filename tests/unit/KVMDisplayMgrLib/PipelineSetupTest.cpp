// The pipeline's context and components: in which order they are made, and what a failing step leaves behind.
#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

using Calls = std::vector<std::string>;

class PipelineSetupTest : public PipelineFixture {
  protected:
    // Of the components, by the names of their calls without the properties.
    Calls Steps() const {
        Calls steps;
        for (const std::string& call : script.Calls())
            if (call.find("Property") == call.npos &&
                (call.rfind("LUXD", 0) == 0 || call.rfind("LUXV", 0) == 0) && call.find('.') != call.npos)
                steps.push_back(call);
        return steps;
    }
};

TEST_F(PipelineSetupTest, TheFirstPipelineMakesTheContextOnTheDevice) {
    DisplayCapturePipeline& pipeline = Make();
    script.ForgetCalls();
    EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
    EXPECT_EQ((Calls{"factory.CreateContext", "context.QueryInterface", "context.InitDX11 device 110",
                     "context.SetProperty EnableDX11HP3D bool 1"}),
              script.Calls());
    EXPECT_EQ(Calls{"Context and devices created successfully"}, Messages());
    ExpectTrace(lux::LUX_TRACE_INFO, "Context and devices created successfully");
    EXPECT_EQ(1u, shared->pipelineCount);
}

TEST_F(PipelineSetupTest, ASecondContextStepDoesNothing) {
    DisplayCapturePipeline& pipeline = Make();
    EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
    script.ForgetCalls();
    EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
    EXPECT_EQ(Calls{}, script.Calls());
    EXPECT_EQ(1u, shared->pipelineCount);
}

TEST_F(PipelineSetupTest, ASecondPipelineFindsTheContextAndIsNumberOne) {
    Start();
    script.ForgetCalls();
    Start({7, 1920, 1080, 0, 0, 0, 30});
    EXPECT_EQ(0u, script.Count("factory.CreateContext"));
    EXPECT_EQ(0u, script.Count("context."));
    ExpectTrace(lux::LUX_TRACE_INFO, "Successfully initialized Capture for display 7.1, capturing at 30 fps");
    EXPECT_EQ(2u, shared->pipelineCount);
}

TEST_F(PipelineSetupTest, ContextsThatCannotBeMadeAreTriedAgain) {
    script.Next("factory.CreateContext", {lux::LUX_OUT_OF_MEMORY});
    script.Next("factory.CreateContext", {lux::LUX_OK, true});
    script.Next("context.QueryInterface", {lux::LUX_NO_INTERFACE});
    DisplayCapturePipeline& pipeline = Make();
    EXPECT_EQ(lux::LUX_OUT_OF_MEMORY, pipeline.InitContext());
    EXPECT_EQ(lux::LUX_NO_INTERFACE, pipeline.InitContext());
    EXPECT_EQ(lux::LUX_NO_INTERFACE, pipeline.InitContext());
    EXPECT_EQ(0u, shared->pipelineCount);
    EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
}

TEST_F(PipelineSetupTest, ADeviceThatTheRuntimeRefusesFailsOnlyTheFirstAttempt) {
    script.Next("context.InitDX11", {lux::LUX_NO_DEVICE});
    EXPECT_EQ(lux::LUX_NO_DEVICE, Make().InitContext());
    ExpectFailure(lux::LUX_NO_DEVICE, "InitDX11() failed");
    EXPECT_EQ(0u, script.Count("context.SetProperty"));
    EXPECT_EQ(0u, shared->pipelineCount);

    // The next one finds the context and goes on to its components.
    EXPECT_EQ(lux::LUX_OK, Make().InitContext());
    EXPECT_EQ(1u, script.Count("factory.CreateContext"));
    EXPECT_EQ(1u, script.Count("context.InitDX11"));
    EXPECT_EQ(1u, shared->pipelineCount);
}

TEST_F(PipelineSetupTest, TheComponentsComeInTheOrderOfTheFrames) {
    Start();
    EXPECT_EQ((Calls{"LUXDisplayCapture.Init 0 0x0", "LUXVideoConverter.Init 3 1920x1080",
                     "LUXVideoEncoderHW_AV1.Init 1 1920x1080"}),
              Steps());
    EXPECT_EQ((Calls{"factory.CreateComponent LUXDisplayCapture", "factory.CreateComponent LUXVideoConverter",
                     "factory.CreateComponent LUXVideoEncoderHW_AV1"}),
              script.Calls("factory.CreateComponent"));
    EXPECT_EQ((Calls{"Context and devices created successfully", "LUX_DISPLAY_ENABLE_DCC set to true res 0",
                     "Successfully initialized Capture for display 3.0, capturing at 30 fps",
                     "Initialize Converter for display 3.0",
                     "Video Converter successfully initialized for display 3.0: input resolution: 1920x1080, "
                     "format: BGRA, output resolution 1920x1080, format: NV12",
                     "Initialize Encoder for display 3.0",
                     "Av1 Encoder successfully initialized for display 3.0, format: NV12, resolution: "
                     "1920x1080, xfer: 1, primaries: 1, color profile: 7"}),
              Messages());
    for (const scripted::TraceLine& line : script.Traces())
        EXPECT_TRUE(HasTrace(lux::LUX_TRACE_INFO, line.message)) << line.message;
}

TEST_F(PipelineSetupTest, AvcAndHevcShareTheirSuccess) {
    const std::string message =
        "HEVC Encoder successfully initialized for display 3.0, format: NV12, resolution: 1920x1080, xfer: "
        "1, "
        "primaries: 1, color profile: 7";
    for (const uint32_t codec : {1u, 2u}) {
        Start({3, 1920, 1080, codec, 0, 0, 30}).Shutdown();
        ExpectTrace(lux::LUX_TRACE_INFO, message);
        script.ForgetCalls();
    }
}

TEST_F(PipelineSetupTest, AnotherCodecHasNoEncoder) {
    Start({3, 1920, 1080, 3, 0, 0, 30});
    EXPECT_EQ(2u, script.Count("factory.CreateComponent"));
    ExpectTrace(lux::LUX_TRACE_INFO, "Initialize Encoder for display 3.0");
}

TEST_F(PipelineSetupTest, AWidthOrHeightOfZeroStaysZero) {
    Start({3, 0, 1080, 0, 0, 0, 30});
    EXPECT_EQ(Calls{"LUXVideoEncoderHW_AV1.Init 1 0x1080"}, script.Calls("LUXVideoEncoderHW_AV1.Init"));
}

namespace {

struct FailingStep {
    uint32_t codec;
    const char* call;
    scripted::Answer answer;
    lux::LUX_RESULT result;
    const char* message;  // behind the head
    size_t components;    // that were tried
};

constexpr lux::LUX_RESULT kFail = lux::LUX_NOT_SUPPORTED;

const FailingStep kFailingSteps[] = {
    {0,
     "factory.CreateComponent LUXDisplayCapture",
     {kFail},
     kFail,
     "Assertion failed:m_pDisplayCapture != nullptr: Fail to create Capture Tarvix API component for display "
     "3.0, result=6",
     1},
    {0,
     "factory.CreateComponent LUXDisplayCapture",
     {lux::LUX_OK, true},
     lux::LUX_FAIL,
     "Assertion failed:m_pDisplayCapture != nullptr: Fail to create Capture Tarvix API component for display "
     "3.0, result=1",
     1},
    {0,
     "LUXDisplayCapture.Init",
     {kFail},
     kFail,
     "LUX_ERROR 6 : the runtime's text: Failed to initialize Capture component for display 3.0",
     1},
    {0,
     "factory.CreateComponent LUXVideoConverter",
     {kFail},
     kFail,
     "LUX_ERROR 6 : the runtime's text: Failed to create video converter LUXVideoConverter for display 3.0",
     2},
    {0,
     "factory.CreateComponent LUXVideoConverter",
     {lux::LUX_OK, true},
     lux::LUX_FAIL,
     "LUX_ERROR 1 : the runtime's text: Failed to create video converter LUXVideoConverter for display 3.0",
     2},
    {0,
     "LUXVideoConverter.Init",
     {kFail},
     kFail,
     "LUX_ERROR 6 : the runtime's text: Failed to initialize video converter for display 3.0: input "
     "resolution: 1920x1080, format: BGRA, output resolution 1920x1080, format: NV12",
     2},
    {0,
     "factory.CreateComponent LUXVideoEncoderHW_AV1",
     {kFail},
     kFail,
     "Assertion failed:result == LUX_OK && m_pEncoder != nullptr: Failed to create encoder for display 3.0: "
     "codec ID: 1, acceleration: 0, result: the runtime's text",
     3},
    {0,
     "factory.CreateComponent LUXVideoEncoderHW_AV1",
     {kFail, false, true},
     kFail,
     "Assertion failed:result == LUX_OK && m_pEncoder != nullptr: Failed to create encoder for display 3.0: "
     "codec ID: 1, acceleration: 0, result: the runtime's text",
     3},
    {1,
     "factory.CreateComponent LUXVideoEncoderRDE_AVC",
     {lux::LUX_OK, true},
     lux::LUX_FAIL,
     "Assertion failed:result == LUX_OK && m_pEncoder != nullptr: Failed to create encoder for display 3.0: "
     "codec ID: 1, acceleration: 0, result: the runtime's text",
     3},
    {2,
     "factory.CreateComponent LUXVideoEncoderHW_HEVC",
     {kFail},
     kFail,
     "Assertion failed:result == LUX_OK && m_pEncoder != nullptr: Failed to create encoder for display 3.0: "
     "codec ID: 2, acceleration: 0, result: the runtime's text",
     3},
    {0,
     "LUXVideoEncoderHW_AV1.Init",
     {kFail},
     kFail,
     "LUX_ERROR 6 : the runtime's text: Failed to initialize LUXVideoEncoderHW_AV1 encoder for display 3.0: "
     "format: NV12, resolution: 1920x1080",
     3},
    {1,
     "LUXVideoEncoderRDE_AVC.Init",
     {kFail},
     kFail,
     "LUX_ERROR 6 : the runtime's text: Failed to initialize LUXVideoEncoderRDE_AVC encoder for display 3.0: "
     "format: NV12, resolution: 1920x1080",
     3},
    {2,
     "LUXVideoEncoderHW_HEVC.Init",
     {kFail},
     kFail,
     "LUX_ERROR 6 : the runtime's text: Failed to initialize LUXVideoEncoderHW_HEVC encoder for display 3.0: "
     "format: NV12, resolution: 1920x1080",
     3},
};

}  // namespace

TEST_F(PipelineSetupTest, AFailingStepIsTracedAndEndsTheSetup) {
    for (const FailingStep& step : kFailingSteps) {
        SCOPED_TRACE(step.call);
        script.Reset();
        DisplayCapturePipeline& pipeline = Make({3, 1920, 1080, step.codec, 0, 0, 30});
        ASSERT_EQ(lux::LUX_OK, pipeline.InitContext());
        script.Next(step.call, step.answer);
        EXPECT_EQ(step.result, pipeline.InitComponents());
        ExpectTrace(lux::LUX_TRACE_ERROR, step.message);
        EXPECT_EQ(step.components, script.Count("factory.CreateComponent"));
        // The same object can be set up again.
        EXPECT_EQ(lux::LUX_OK, pipeline.InitComponents());
        pipeline.Shutdown();
    }
}

TEST_F(PipelineSetupTest, ARuntimeWithoutTraceIsEnough) {
    script.withoutTrace = true;
    DisplayCapturePipeline& pipeline = Start();
    EXPECT_EQ("packet of surface 1", Frame(pipeline));
    script.Always("factory.CreateComponent LUXDisplayCapture", {lux::LUX_FAIL});
    EXPECT_EQ(lux::LUX_FAIL, pipeline.InitComponents());
    EXPECT_EQ(Calls{}, Messages());
}

TEST_F(PipelineSetupTest, AHalfLoadedRuntimeFailsTheContext) {
    script.Next("LUXInit", {lux::LUX_FAIL});
    EXPECT_EQ(lux::LUX_FAIL, factory->Init());
    DisplayCapturePipeline& pipeline = Make();
    EXPECT_EQ(lux::LUX_FAIL, pipeline.InitContext());
    EXPECT_EQ(lux::LUX_FAIL, pipeline.InitComponents());
}
