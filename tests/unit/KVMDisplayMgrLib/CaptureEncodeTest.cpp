// Frames: from the capture through converter and encoder into the caller's buffer.
#include <future>

#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

class CaptureEncodeTest : public PipelineFixture {
  protected:
    static constexpr char kCapture[] = "LUXDisplayCapture", kConverter[] = "LUXVideoConverter",
                          kEncoder[] = "LUXVideoEncoderHW_AV1";

    // The calls of one frame.
    Calls FrameCalls(DisplayCapturePipeline& pipeline) {
        script.ForgetCalls();
        Frame(pipeline);
        return script.Calls();
    }
};

TEST_F(CaptureEncodeTest, OneFrameGoesThroughAllComponents) {
    DisplayCapturePipeline& pipeline = Start();
    script.ForgetCalls();
    EXPECT_EQ("packet of surface 1", Frame(pipeline));
    EXPECT_EQ((Calls{"LUXDisplayCapture.QueryOutput",
                     "LUXVideoConverter.SetProperty OutputHdrMetadata interface null",
                     "LUXVideoConverter.SubmitInput 1", "LUXVideoConverter.QueryOutput",
                     "LUXVideoEncoderHW_AV1.SubmitInput 1", "LUXVideoEncoderHW_AV1.QueryOutput"}),
              script.Calls());
    EXPECT_EQ((Calls{"Size 19", "Pumping thread for display 3.0 exiting"}), Messages());
    ExpectTrace(lux::LUX_TRACE_INFO, "Size 19");
    ExpectTrace(lux::LUX_TRACE_INFO, "Pumping thread for display 3.0 exiting");
    EXPECT_EQ("packet of surface 2", Frame(pipeline));
}

TEST_F(CaptureEncodeTest, TheSameSizeAndFormatNeedsNoConverterWork) {
    DisplayCapturePipeline& pipeline = Start();
    Frame(pipeline);
    const Calls calls = FrameCalls(pipeline);
    EXPECT_EQ(6u, calls.size()) << ::testing::PrintToString(calls);
    EXPECT_EQ(0u, script.Count("factory."));
}

TEST_F(CaptureEncodeTest, AnotherWidthRebuildsTheConverterOnce) {
    DisplayCapturePipeline& pipeline = Start();
    script.ForgetCalls();
    script.Show({.width = 1280});
    EXPECT_EQ("packet of surface 1", Frame(pipeline));
    const Calls calls = script.Calls();
    ASSERT_GT(calls.size(), 3u);
    EXPECT_EQ((Calls{"LUXDisplayCapture.QueryOutput", "LUXVideoConverter.Terminate",
                     "factory.CreateComponent LUXVideoConverter",
                     "LUXVideoConverter.SetProperty OutputSize size 1920x1080"}),
              Calls(calls.begin(), calls.begin() + 4));
    EXPECT_EQ(Calls{"LUXVideoConverter.Init 3 1280x1080"}, script.Calls("LUXVideoConverter.Init"));
    EXPECT_EQ(0u, script.Count("LUXVideoEncoderHW_AV1.Init"));

    EXPECT_EQ(6u, FrameCalls(pipeline).size());
}

TEST_F(CaptureEncodeTest, AnotherHeightOrFormatRebuildsItToo) {
    DisplayCapturePipeline& pipeline = Start();
    script.ForgetCalls();
    script.Show({.height = 720});
    script.Show({.format = lux::LUX_SURFACE_P010, .height = 720});
    Frame(pipeline);
    Frame(pipeline);
    EXPECT_EQ((Calls{"LUXVideoConverter.Init 3 1920x720", "LUXVideoConverter.Init 10 1920x720"}),
              script.Calls("LUXVideoConverter.Init"));
}

TEST_F(CaptureEncodeTest, AConverterThatCannotBeRebuiltGivesNoFrameAndIsBuiltByTheNext) {
    DisplayCapturePipeline& pipeline = Start();
    script.ForgetCalls();
    script.Show({.width = 1280});
    script.Next("LUXVideoConverter.Init", {lux::LUX_NOT_SUPPORTED});
    EXPECT_EQ("none", Frame(pipeline));
    ExpectTrace(lux::LUX_TRACE_WARNING,
                "Converter for display 3.0 failed to reinitialize: error: 6, format: BGRA");
    EXPECT_EQ("Pumping thread for display 3.0 exiting", Messages().back());
    EXPECT_EQ(0u, script.Count("LUXVideoConverter.SubmitInput"));

    EXPECT_EQ("packet of surface 2", Frame(pipeline));
    EXPECT_EQ((Calls{"LUXVideoConverter.Init 3 1280x1080", "LUXVideoConverter.Init 3 1280x1080"}),
              script.Calls("LUXVideoConverter.Init"));
    EXPECT_EQ(6u, FrameCalls(pipeline).size());
}

TEST_F(CaptureEncodeTest, AConverterThatCannotBeCreatedIsTriedWithEachFrame) {
    DisplayCapturePipeline& pipeline = Start();
    script.Show({.width = 1280});
    script.Next("factory.CreateComponent LUXVideoConverter", {lux::LUX_FAIL});
    script.Next("factory.CreateComponent LUXVideoConverter", {lux::LUX_OK, true});
    script.Next("factory.CreateComponent LUXVideoConverter", {lux::LUX_FAIL, false, true});
    for (int attempt = 0; attempt < 3; ++attempt)
        EXPECT_EQ("none", Frame(pipeline));
    EXPECT_EQ("packet of surface 4", Frame(pipeline));
}

TEST_F(CaptureEncodeTest, AScreenThatYieldsNothingBlocks) {
    DisplayCapturePipeline& pipeline = Start();
    Clock().SetManual(true);
    script.StandStill();
    auto frame = std::async(std::launch::async, [&] { return Frame(pipeline); });
    for (int round = 0; round < 50; ++round)
        PassSleepOf(1ms);
    EXPECT_EQ(std::future_status::timeout, frame.wait_for(0s));
    EXPECT_GE(script.Count("LUXDisplayCapture.QueryOutput"), 50u);
    EXPECT_EQ(0u, script.Count("LUXVideoConverter.SubmitInput"));

    ASSERT_TRUE(Clock().AwaitSleeper(1ms, kPatience));
    script.Always("LUXDisplayCapture.QueryOutput", {});
    PassSleepOf(1ms);
    EXPECT_EQ("packet of surface 1", frame.get());
}

TEST_F(CaptureEncodeTest, ACaptureThatFailsOrGivesNoSurfaceIsAskedAgain) {
    DisplayCapturePipeline& pipeline = Start();
    script.Next("LUXDisplayCapture.QueryOutput", {lux::LUX_FAIL});
    script.Next("LUXDisplayCapture.QueryOutput", {lux::LUX_FAIL, false, true});
    script.Show({});
    script.Show({.isSurface = false});
    script.Show({.hasPlane = false});
    script.Show({});
    EXPECT_EQ("packet of surface 4", Frame(pipeline));
}

TEST_F(CaptureEncodeTest, APacketWithoutBytesInMemoryIsNotDelivered) {
    DisplayCapturePipeline& pipeline = Start();
    script.Deliver({{1, 2, 3}, false});
    script.Deliver({{1, 2, 3}, true, false});
    EXPECT_EQ("packet of surface 3", Frame(pipeline));
    ExpectTrace(lux::LUX_TRACE_INFO, "Size 3");
}

TEST_F(CaptureEncodeTest, AnEmptyPacketIsAFrameOfSizeZero) {
    DisplayCapturePipeline& pipeline = Start();
    Frame(pipeline);
    script.Deliver({std::vector<uint8_t>(1), true, true, 0});
    EXPECT_EQ(std::string(1, '\0'), Frame(pipeline));
}

TEST_F(CaptureEncodeTest, ASurfaceThatAStageRefusesIsDropped) {
    DisplayCapturePipeline& pipeline = Start();
    script.Next("LUXVideoConverter.SubmitInput", {lux::LUX_INVALID_ARGUMENT});
    script.Next("LUXVideoEncoderHW_AV1.SubmitInput", {lux::LUX_WRONG_STATE});
    EXPECT_EQ("packet of surface 3", Frame(pipeline));
    ExpectFailure(lux::LUX_INVALID_ARGUMENT,
                  "Failed to submit input to converter for display 3.0, surface format: BGRA");
    ExpectFailure(lux::LUX_WRONG_STATE,
                  "Failed to submit input to encoder for display 3.0, surface format: NV12, encoder is "
                  "initialized for NV12");
}

TEST_F(CaptureEncodeTest, WithoutAnEncoderNoSurfaceBecomesAFrame) {
    DisplayCapturePipeline& pipeline = Start({3, 1920, 1080, 9, 0, 0, 30});
    script.Always("LUXDisplayCapture.QueryOutput", {lux::LUX_OK, true});
    script.Next("LUXDisplayCapture.QueryOutput", {});
    script.Next("LUXDisplayCapture.QueryOutput", {});
    Clock().SetManual(true);
    auto frame = std::async(std::launch::async, [&] { return Frame(pipeline); });
    ASSERT_TRUE(Clock().AwaitSleeper(1ms, kPatience));
    ExpectFailure(lux::LUX_WRONG_STATE,
                  "Failed to submit input to encoder for display 3.0, surface format: NV12, encoder is "
                  "initialized for NV12");
    // A converter that fails ends the call.
    script.Show({.width = 640});
    script.Always("LUXVideoConverter.Init", {lux::LUX_FAIL});
    script.Always("LUXDisplayCapture.QueryOutput", {});
    PassSleepOf(1ms);
    EXPECT_EQ("none", frame.get());
}

TEST_F(CaptureEncodeTest, WithoutACaptureTheCallFails) {
    DisplayCapturePipeline& pipeline = Start();
    pipeline.Shutdown();
    size_t size = 7;
    EXPECT_EQ(lux::LUX_WRONG_STATE, pipeline.CaptureEncode(&buffer, &size));
    EXPECT_EQ(7u, size);
}

// ---- the frame buffer ----

TEST_F(CaptureEncodeTest, TheBufferGrowsToJustTheLargestFrame) {
    DisplayCapturePipeline& pipeline = Start();
    EXPECT_EQ(0u, shared->frameCapacity);
    script.DeliverBytes(1000);
    script.DeliverBytes(10);
    script.DeliverBytes(1001);
    EXPECT_EQ(1000u, Frame(pipeline).size());
    EXPECT_EQ(1000u, buffer.capacity);
    const uint8_t* const first = buffer.bytes.get();
    EXPECT_EQ(10u, Frame(pipeline).size());
    EXPECT_EQ(first, buffer.bytes.get());
    EXPECT_EQ(1000u, buffer.capacity);
    EXPECT_EQ(std::string(1001, 'Z'), Frame(pipeline));
    EXPECT_EQ(1001u, buffer.capacity);
    EXPECT_EQ(1001u, shared->frameCapacity);
}

TEST_F(CaptureEncodeTest, ANewBufferHasRoomForTheLargestFrameSoFar) {
    DisplayCapturePipeline& pipeline = Start();
    script.DeliverBytes(1000);
    Frame(pipeline);
    buffer = {};
    script.DeliverBytes(10);
    EXPECT_EQ(10u, Frame(pipeline).size());
    EXPECT_EQ(1000u, buffer.capacity);
}

TEST_F(CaptureEncodeTest, ASmallBufferOfAnotherCallerIsReplaced) {
    DisplayCapturePipeline& pipeline = Start();
    script.DeliverBytes(1000);
    Frame(pipeline);
    buffer = {std::make_unique<uint8_t[]>(5), 5};
    script.DeliverBytes(10);
    EXPECT_EQ(std::string(10, 'Z'), Frame(pipeline));
    EXPECT_EQ(1000u, buffer.capacity);
}

TEST_F(CaptureEncodeTest, APacketOf20MegabytesArrivesWhole) {
    DisplayCapturePipeline& pipeline = Start();
    script.DeliverBytes(20 << 20);
    EXPECT_EQ(std::string(20 << 20, 'Z'), Frame(pipeline));
}

TEST_F(CaptureEncodeTest, APacketWithMoreThan32BitsOfSizeIsAFailure) {
    DisplayCapturePipeline& pipeline = Start();
    script.Deliver({{1}, true, true, size_t{1} << 32});
    size_t size = 7;
    EXPECT_EQ(lux::LUX_OUT_OF_MEMORY, pipeline.CaptureEncode(&buffer, &size));
    EXPECT_EQ(7u, size);
    EXPECT_EQ(0u, shared->frameCapacity);
}

// ---- waiting and full queues ----

TEST_F(CaptureEncodeTest, AnOutputIsAwaitedFor1MsAtATime) {
    DisplayCapturePipeline& pipeline = Start();
    Clock().SetManual(true);
    for (int i = 0; i < 2; ++i) {
        script.Next("LUXVideoConverter.QueryOutput", {lux::LUX_OK, true});
        script.Next("LUXVideoEncoderHW_AV1.QueryOutput", {lux::LUX_FAIL});
    }
    auto frame = std::async(std::launch::async, [&] { return Frame(pipeline); });
    for (int i = 0; i < 4; ++i)
        PassSleepOf(1ms);
    EXPECT_EQ("packet of surface 1", frame.get());
    EXPECT_EQ(3u, script.Count("LUXVideoConverter.QueryOutput"));
    EXPECT_EQ(3u, script.Count("LUXVideoEncoderHW_AV1.QueryOutput"));
    EXPECT_EQ(1u, script.Count("LUXVideoConverter.SubmitInput"));
}

TEST_F(CaptureEncodeTest, AnOutputWithAFailureIsDropped) {
    DisplayCapturePipeline& pipeline = Start();
    script.backlog = 1;
    script.Show({.width = 800});
    script.Next("LUXVideoConverter.QueryOutput", {lux::LUX_FAIL, false, true});
    EXPECT_EQ("packet of surface 1", Frame(pipeline));
}

TEST_F(CaptureEncodeTest, AFullQueueGivesAnOutputFirst) {
    script.backlog = 1;
    script.capacity = 1;
    DisplayCapturePipeline& pipeline = Start();
    script.ForgetCalls();
    EXPECT_EQ("packet of surface 1", Frame(pipeline));
    EXPECT_EQ((Calls{"LUXVideoConverter.SubmitInput 1", "LUXVideoConverter.QueryOutput",
                     "LUXVideoConverter.SubmitInput 1", "LUXVideoConverter.QueryOutput",
                     "LUXVideoEncoderHW_AV1.SubmitInput 1", "LUXVideoEncoderHW_AV1.QueryOutput",
                     "LUXVideoEncoderHW_AV1.SubmitInput 1", "LUXVideoEncoderHW_AV1.QueryOutput"}),
              [&] {
                  Calls calls;
                  for (const std::string& call : script.Calls("LUXVideo"))
                      if (call.find("Property") == call.npos) calls.push_back(call);
                  return calls;
              }());
    EXPECT_EQ("packet of surface 2", Frame(pipeline));
}

TEST_F(CaptureEncodeTest, AQueueThatStaysFullIsDrainedFurther) {
    script.backlog = 3;
    script.capacity = 1;
    DisplayCapturePipeline& pipeline = Start();
    EXPECT_EQ("packet of surface 1", Frame(pipeline));
    EXPECT_EQ(4u, script.Count("LUXVideoConverter.SubmitInput"));
    EXPECT_EQ(4u, script.Count("LUXVideoEncoderHW_AV1.SubmitInput"));
}

TEST_F(CaptureEncodeTest, ASecondSubmissionThatFailsDropsTheSurface) {
    script.backlog = 1;
    DisplayCapturePipeline& pipeline = Start();
    script.Next("LUXVideoEncoderHW_AV1.SubmitInput", {lux::LUX_INPUT_FULL});
    script.Next("LUXVideoEncoderHW_AV1.SubmitInput", {lux::LUX_FAIL});
    // The first packet, of no surface, was drained for the surface that failed.
    EXPECT_EQ("packet of surface 0", Frame(pipeline));
}

// ---- metadata of high dynamic range ----

TEST_F(CaptureEncodeTest, MetadataOfASurfaceGoToTheConverterAndAreTakenBack) {
    DisplayCapturePipeline& pipeline = Start();
    script.Show({.metadata = scripted::Metadata::Interface});
    script.Show({});
    script.Show({.metadata = scripted::Metadata::NullInterface});
    script.Show({.metadata = scripted::Metadata::String});
    script.Show({.metadata = scripted::Metadata::WideString});
    for (int i = 0; i < 5; ++i)
        Frame(pipeline);
    const std::string set = "LUXVideoConverter.SetProperty OutputHdrMetadata ";
    EXPECT_EQ((Calls{set + "interface", set + "interface null", set + "interface null",
                     set + "interface null", set + "interface null"}),
              script.Calls(set));
    EXPECT_EQ(0u, script.Count("LUXVideoEncoderHW_AV1.SetProperty Av1InHDRMetadata"));
}

TEST_F(CaptureEncodeTest, TheEncoderGetsMetadataOfHighBitDepthOnly) {
    DisplayCapturePipeline& pipeline = Start();
    const std::string set = "LUXVideoEncoderHW_AV1.SetProperty Av1InHDRMetadata ";
    for (const auto format :
         {lux::LUX_SURFACE_P010, lux::LUX_SURFACE_R10G10B10A2, lux::LUX_SURFACE_RGBA_F16}) {
        script.ForgetCalls();
        script.Show({.format = format, .metadata = scripted::Metadata::Interface});
        Frame(pipeline);
        EXPECT_EQ(Calls{set + "interface"}, script.Calls(set)) << format;
    }
    script.ForgetCalls();
    script.Show({.metadata = scripted::Metadata::Interface});
    script.Show({.format = lux::LUX_SURFACE_P010, .metadata = scripted::Metadata::String});
    script.Show({.format = lux::LUX_SURFACE_P010});
    for (int i = 0; i < 3; ++i)
        Frame(pipeline);
    EXPECT_EQ(Calls{}, script.Calls(set));
}

// ---- the thread that the service does not start ----

TEST_F(CaptureEncodeTest, TheThreadEncodesUntilItIsStopped) {
    DisplayCapturePipeline& pipeline = Make();
    ASSERT_EQ(lux::LUX_OK, pipeline.InitContext());
    EXPECT_FALSE(pipeline.IsRunning());
    ASSERT_TRUE(pipeline.Start());
    EXPECT_TRUE(Eventually([&] { return script.Count("LUXVideoEncoderHW_AV1.SubmitInput") >= 3; }));
    EXPECT_TRUE(pipeline.IsRunning());
    EXPECT_FALSE(pipeline.Start());
    EXPECT_TRUE(pipeline.RequestStop());
    EXPECT_TRUE(pipeline.WaitForStop());
    EXPECT_FALSE(pipeline.IsRunning());
    EXPECT_EQ("Pumping thread for display 3.0 exiting", Messages().back());
}

TEST_F(CaptureEncodeTest, TheThreadEndsWithoutItsComponents) {
    DisplayCapturePipeline& pipeline = Make();
    ASSERT_EQ(lux::LUX_OK, pipeline.InitContext());
    script.Next("LUXDisplayCapture.Init", {lux::LUX_FAIL});
    ASSERT_TRUE(pipeline.Start());
    EXPECT_TRUE(pipeline.WaitForStop());
    EXPECT_EQ(0u, script.Count("LUXDisplayCapture.QueryOutput"));
}

TEST_F(CaptureEncodeTest, TheThreadEndsWithItsConverter) {
    DisplayCapturePipeline& pipeline = Make();
    ASSERT_EQ(lux::LUX_OK, pipeline.InitContext());
    script.Show({.width = 800});
    script.Next("LUXVideoConverter.Init", {});
    script.Next("LUXVideoConverter.Init", {lux::LUX_FAIL});
    ASSERT_TRUE(pipeline.Start());
    EXPECT_TRUE(pipeline.WaitForStop());
    EXPECT_EQ("Pumping thread for display 3.0 exiting", Messages().back());
}
