// What each component is set to: whole tables, in the order of the calls.
#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

using Calls = std::vector<std::string>;

namespace {

// Without the calls that come with frames.
Calls CallsOf(const scripted::Script& script, const std::string& component) {
    Calls calls;
    for (const std::string& call : script.Calls(component + "."))
        calls.push_back(call.substr(component.size() + 1));
    return calls;
}

DisplayMgrInitArgs WithCodec(uint32_t codec) {
    return {3, 1920, 1080, codec, 0, 5'000'000, 30};
}

}  // namespace

class SettingsTest : public PipelineFixture {
  protected:
    // The values of a property in the order in which they were set.
    Calls ValuesOf(const std::string& component, const std::string& property) const {
        Calls values;
        const std::string begin = component + ".SetProperty " + property + " ";
        for (const std::string& call : script.Calls(begin))
            values.push_back(call.substr(begin.size()));
        return values;
    }
    DisplayCapturePipeline& MakeWithContext(const DisplayMgrInitArgs& args) {
        DisplayCapturePipeline& pipeline = Make(args);
        EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
        return pipeline;
    }
};

TEST_F(SettingsTest, TheCapture) {
    Start({3, 1280, 720, 0, 0, 5'000'000, 30});
    EXPECT_EQ((Calls{"SetProperty DisplayCaptureType int64 1", "SetProperty CaptureMode int64 0",
                     "SetProperty MonitorIndex int64 3", "SetProperty CurrentTimeInterface interface",
                     "SetProperty FrameRate rate 30/1", "SetProperty DuplicateOutput bool 0",
                     "SetProperty DisplayEnableDCC bool 1", "Init 0 0x0"}),
              CallsOf(script, "LUXDisplayCapture"));
}

TEST_F(SettingsTest, TheConverter) {
    Start({3, 1280, 720, 0, 0, 5'000'000, 30});
    EXPECT_EQ((Calls{"SetProperty OutputSize size 1280x720", "SetProperty MemoryType int64 3",
                     "SetProperty ComputeDevice int64 3", "SetProperty ScaleType int64 0",
                     "SetProperty ColorProfile int64 7", "SetProperty LinearRGB bool 0",
                     "SetProperty OutputFormat int64 1", "SetProperty OutputColorPrimaries int64 1",
                     "SetProperty OutputTransferChar int64 1", "SetProperty InputTonemapping int64 2",
                     "SetProperty OutputTonemapping int64 2", "Init 3 1280x720"}),
              CallsOf(script, "LUXVideoConverter"));
}

TEST_F(SettingsTest, TheAv1Encoder) {
    Start({3, 1280, 720, 0, 0, 7'000'000, 25});
    EXPECT_EQ((Calls{"SetProperty Av1Usage int64 2", "SetProperty Av1QualityPreset int64 100",
                     "SetProperty Av1FrameSize size 1280x720", "SetProperty Av1FrameRate rate 25/1",
                     "SetProperty Av1AlignmentMode int64 3", "SetProperty Av1TargetBitrate int64 7000000",
                     "Init 1 1280x720"}),
              CallsOf(script, "LUXVideoEncoderHW_AV1"));
}

TEST_F(SettingsTest, TheAvcEncoder) {
    Start(WithCodec(1));
    EXPECT_EQ((Calls{"SetProperty Usage int64 0", "SetProperty BPicturesPattern int64 0",
                     "SetProperty QualityPreset int64 1", "SetProperty FrameSize size 1920x1080",
                     "SetProperty FrameRate rate 30/1", "SetProperty TargetBitrate int64 50000000",
                     "Init 1 1920x1080"}),
              CallsOf(script, "LUXVideoEncoderRDE_AVC"));
}

TEST_F(SettingsTest, TheHevcEncoder) {
    Start(WithCodec(2));
    EXPECT_EQ((Calls{"SetProperty HevcUsage int64 0",
                     "SetProperty HevcQualityPreset int64 10",
                     "SetProperty HevcFrameSize size 1920x1080",
                     "SetProperty HevcFrameRate rate 30/1",
                     "SetProperty HevcProfile int64 1",
                     "SetProperty HevcProfileLevel int64 156",
                     "SetProperty LowLatencyInternal bool 1",
                     "SetProperty HevcQueryTimeout int64 20",
                     "SetProperty HevcRateControlMethod int64 2",
                     "SetProperty HevcGOPSize int64 0",
                     "SetProperty HevcGOPSPerIDR int64 1",
                     "SetProperty HevcHeaderInsertionMode int64 2",
                     "SetProperty HevcMinQP_I int64 0",
                     "SetProperty HevcMaxQP_I int64 51",
                     "SetProperty HevcMinQP_P int64 0",
                     "SetProperty HevcMaxQP_P int64 51",
                     "SetProperty HevcInputQueueSize int64 3",
                     "SetProperty HevcIntraRefreshCTBsNumberPerSlot int64 63",
                     "SetProperty HevcInColorTransferChar int64 1",
                     "SetProperty HevcInColorPrimaries int64 1",
                     "SetProperty HevcInColorProfile int64 7",
                     "SetProperty HevcOutColorTransferChar int64 1",
                     "SetProperty HevcOutColorPrimaries int64 1",
                     "SetProperty HevcOutColorProfile int64 7",
                     "SetProperty HevcTargetBitrate int64 45000000",
                     "SetProperty HevcPeakBitrate int64 50000000",
                     "GetProperty HevcFrameRate",
                     "SetProperty HevcVBVBufferSize int64 1666666",
                     "Init 1 1920x1080"}),
              CallsOf(script, "LUXVideoEncoderHW_HEVC"));
}

TEST_F(SettingsTest, EachUsageHasItsValueAndAnotherIsNotSet) {
    const std::pair<uint32_t, Calls> kUsages[] = {{0, {"int64 2"}}, {1, {"int64 1"}}, {2, {"int64 3"}},
                                                  {3, {"int64 0"}}, {4, {}},          {0xFFFFFFFF, {}}};
    for (const auto& [usage, values] : kUsages) {
        script.ForgetCalls();
        Start({0, 1920, 1080, 0, usage, 0, 30});
        EXPECT_EQ(values, ValuesOf("LUXVideoEncoderHW_AV1", "Av1Usage")) << usage;
        EXPECT_EQ(1u, script.Count("LUXVideoEncoderHW_AV1.Init"));
    }
}

TEST_F(SettingsTest, ABitrateOfZeroIsTheDefault) {
    Start({0, 1920, 1080, 0, 0, 0, 30});
    EXPECT_EQ(Calls{"int64 5000000"}, ValuesOf("LUXVideoEncoderHW_AV1", "Av1TargetBitrate"));
}

TEST_F(SettingsTest, TheRefreshCountsBlocksOf64AndCutsTheRemainder) {
    Start({0, 1921, 1081, 2, 0, 0, 30});
    EXPECT_EQ(Calls{"int64 65"}, ValuesOf("LUXVideoEncoderHW_HEVC", "HevcIntraRefreshCTBsNumberPerSlot"));
}

TEST_F(SettingsTest, TheBufferOfHevcHoldsOneFrameOfTheRateThatTheEncoderGives) {
    const auto rate = [](uint32_t numerator, uint32_t denominator) {
        return lux::LUXVariant{lux::LUX_VARIANT_RATE, {.rateValue = {numerator, denominator}}};
    };
    const std::pair<lux::LUXVariant, const char*> kRates[] = {
        {rate(60, 1), "int64 833333"},
        {rate(30000, 1001), "int64 1668333"},
        {rate(30, 0), "int64 0"},
        // The service's own rate of 30 in place of one that cannot be used.
        {rate(0, 1), "int64 1666666"},
        {rate(0, 0), "int64 1666666"},
        {{lux::LUX_VARIANT_INT64, {.int64Value = 60}}, "int64 1666666"},
        {{lux::LUX_VARIANT_EMPTY, {}}, "int64 1666666"},
    };
    for (const auto& [value, size] : kRates) {
        script.ForgetCalls();
        script.properties["LUXVideoEncoderHW_HEVC.HevcFrameRate"] = value;
        Start(WithCodec(2));
        EXPECT_EQ(Calls{size}, ValuesOf("LUXVideoEncoderHW_HEVC", "HevcVBVBufferSize"));
    }
}

TEST_F(SettingsTest, ARateThatCannotBeReadDividesNothing) {
    script.Always("LUXVideoEncoderHW_HEVC.GetProperty HevcFrameRate", {lux::LUX_UNKNOWN_PROPERTY});
    Start(WithCodec(2));
    EXPECT_EQ(Calls{"int64 1666666"}, ValuesOf("LUXVideoEncoderHW_HEVC", "HevcVBVBufferSize"));
    script.ForgetCalls();
    Start({0, 1920, 1080, 2, 0, 0, 0});
    EXPECT_EQ(Calls{"int64 0"}, ValuesOf("LUXVideoEncoderHW_HEVC", "HevcVBVBufferSize"));
}

TEST_F(SettingsTest, UntestedPropertiesMayFail) {
    const std::pair<uint32_t, std::string> kEncoders[] = {
        {0, "LUXVideoEncoderHW_AV1"}, {1, "LUXVideoEncoderRDE_AVC"}, {2, "LUXVideoEncoderHW_HEVC"}};
    const std::vector<std::string> tested = {"MonitorIndex",     "CurrentTimeInterface", "FrameRate",
                                             "Av1TargetBitrate", "TargetBitrate",        "HevcTargetBitrate",
                                             "HevcPeakBitrate",  "HevcVBVBufferSize"};
    for (const auto& [codec, encoder] : kEncoders) {
        const auto refuseAll = [&](const std::string& component, const auto& rows) {
            for (const lux::LUXPropertyRow& row : rows) {
                std::string name;
                for (const wchar_t* c = row.name; *c; ++c)
                    name += static_cast<char>(*c);
                const bool isTested = std::ranges::find(tested, name) != tested.end();
                const bool isCapture = component == "LUXDisplayCapture";
                if (!isTested || (!isCapture && name == "FrameRate"))
                    script.Always(component + ".SetProperty " + name, {lux::LUX_FAIL});
            }
        };
        refuseAll("LUXDisplayCapture", lux::kCaptureProperties);
        refuseAll("LUXVideoConverter", lux::kConverterProperties);
        refuseAll("LUXVideoEncoderHW_AV1", lux::kAv1EncoderProperties);
        refuseAll("LUXVideoEncoderRDE_AVC", lux::kAvcEncoderProperties);
        refuseAll("LUXVideoEncoderHW_HEVC", lux::kHevcEncoderProperties);
        Start(WithCodec(codec));
        EXPECT_EQ(1u, script.Count(encoder + ".Init"));
        ExpectTrace(lux::LUX_TRACE_INFO, "LUX_DISPLAY_ENABLE_DCC set to true res 1");
    }
}

TEST_F(SettingsTest, ATestedPropertyThatFailsEndsTheStep) {
    struct {
        uint32_t codec;
        const char *component, *property, *message;
    } const kTested[] = {
        {0, "LUXDisplayCapture", "MonitorIndex",
         "Failed to set Capture component monitor ID for display 3.0"},
        {0, "LUXDisplayCapture", "CurrentTimeInterface",
         "Failed to set Capture component current time interface for display 3.0"},
        {0, "LUXDisplayCapture", "FrameRate", "Failed to set Capture component frame rate for display 3.0"},
        {0, "LUXVideoEncoderHW_AV1", "Av1TargetBitrate",
         "Failed to set LUX_VIDEO_ENCODER_AVC_TARGET_BITRATE to 5000000 on encoder for display 3.0"},
        {1, "LUXVideoEncoderRDE_AVC", "TargetBitrate",
         "Failed to set LUX_VIDEO_ENCODER_AVC_TARGET_BITRATE to 50000000 on encoder for display 3.0"},
        {2, "LUXVideoEncoderHW_HEVC", "HevcTargetBitrate",
         "Failed to set LUX_VIDEO_ENCODER_HEVC_TARGET_BITRATE to 45000000 on encoder for display 3.0"},
        {2, "LUXVideoEncoderHW_HEVC", "HevcPeakBitrate",
         "Failed to set LUX_VIDEO_ENCODER_HEVC_PEAK_BITRATE to 50000000 on encoder for display 3.0"},
        {2, "LUXVideoEncoderHW_HEVC", "HevcVBVBufferSize",
         "Failed to set LUX_VIDEO_ENCODER_HEVC_VBV_BUFFER_SIZE to 1666666"},
    };
    for (const auto& row : kTested) {
        script.Reset();
        DisplayCapturePipeline& pipeline = MakeWithContext(WithCodec(row.codec));
        const std::string component = row.component, set = component + ".SetProperty " + row.property;
        script.Next(set, {lux::LUX_NOT_SUPPORTED});
        EXPECT_EQ(lux::LUX_NOT_SUPPORTED, pipeline.InitComponents());
        // Nothing follows it.
        EXPECT_EQ(0u, script.Calls().back().rfind(set, 0)) << script.Calls().back();
        ExpectFailure(lux::LUX_NOT_SUPPORTED, row.message);
        pipeline.Shutdown();
    }
}
