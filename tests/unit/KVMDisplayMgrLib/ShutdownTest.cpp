// The end of a pipeline, and what it leaves for the next.
#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

using Calls = std::vector<std::string>;

class ShutdownTest : public PipelineFixture {};

TEST_F(ShutdownTest, TheSourceEndsFirstAndTheContextLast) {
    DisplayCapturePipeline& pipeline = Start();
    script.ForgetCalls();
    pipeline.Shutdown();
    EXPECT_EQ((Calls{"LUXDisplayCapture.Flush", "LUXDisplayCapture.Terminate", "LUXVideoConverter.Flush",
                     "LUXVideoConverter.Terminate", "LUXVideoEncoderHW_AV1.Flush",
                     "LUXVideoEncoderHW_AV1.Terminate", "context.Terminate"}),
              script.Calls());
    EXPECT_EQ(
        (Calls{"Starting pipeline shutdown for display 3.0", "Pumping thread terminated for display 3.0",
               "Capture destroyed for display 3.0", "Converter destroyed for display 3.0",
               "Encoder destroyed for display 3.0", "Devices destroyed", "Context destroyed"}),
        Messages());
    for (const scripted::TraceLine& line : script.Traces())
        EXPECT_EQ(lux::LUX_TRACE_INFO, line.level) << line.message;
    EXPECT_EQ(0u, shared->pipelineCount);
    EXPECT_EQ(0, script.LiveObjects());
}

TEST_F(ShutdownTest, ASecondShutdownDoesNothing) {
    DisplayCapturePipeline& pipeline = Start();
    pipeline.Shutdown();
    script.ForgetCalls();
    pipeline.Shutdown();
    EXPECT_EQ(Calls{}, script.Calls());
    EXPECT_EQ(Calls{}, Messages());
}

TEST_F(ShutdownTest, APipelineThatWasOnlyMadeHasNothingToEnd) {
    Make().Shutdown();
    EXPECT_EQ(Calls{}, Messages());
}

TEST_F(ShutdownTest, AContextWithoutComponentsIsEnded) {
    DisplayCapturePipeline& pipeline = Make();
    pipeline.InitContext();
    script.ForgetCalls();
    pipeline.Shutdown();
    EXPECT_EQ(Calls{"context.Terminate"}, script.Calls());
}

TEST_F(ShutdownTest, TheContextEndsWithTheLastPipeline) {
    DisplayCapturePipeline &first = Start(), &second = Start();
    script.ForgetCalls();
    first.Shutdown();
    EXPECT_EQ(0u, script.Count("context."));
    EXPECT_EQ(1u, shared->pipelineCount);
    second.Shutdown();
    EXPECT_EQ(1u, script.Count("context.Terminate"));
}

TEST_F(ShutdownTest, TheNextPipelineMakesANewContext) {
    Start().Shutdown();
    DisplayCapturePipeline& next = Start();
    EXPECT_EQ(2u, script.Count("factory.CreateContext"));
    EXPECT_EQ(2u, script.Count("context.InitDX11"));
    EXPECT_EQ("packet of surface", Frame(next).substr(0, 17));
}

TEST_F(ShutdownTest, ADestroyedPipelineSaysSo) {
    ASSERT_EQ(lux::LUX_OK, factory->Init());
    {
        DisplayCapturePipeline pipeline(*factory, *shared, kArgs, L".\\");
        pipeline.InitContext();
    }
    ExpectTrace(lux::LUX_TRACE_INFO, "DisplayCapturePipeline for monitor 3.0 destroyed");
    EXPECT_EQ("DisplayCapturePipeline for monitor 3.0 destroyed", Messages().back());
    EXPECT_EQ(1u, script.Count("context.Terminate"));
}
