// The display manager: the runtime's holds, attempts, and the one success that captures nothing.
#include <gmock/gmock.h>

#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

using Calls = std::vector<std::string>;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;

class DisplayMgrTest : public PipelineFixture {
  protected:
    void SetUp() override {
        PipelineFixture::SetUp();
        mgr.emplace(*factory, *shared);
    }
    std::string Frame() {
        size_t size = 0;
        if (!mgr->CaptureEncode(&buffer, &size)) return "false";
        return std::string(buffer.bytes.get(), buffer.bytes.get() + size);
    }

    std::optional<DisplayMgr> mgr;
};

TEST_F(DisplayMgrTest, InitHoldsTheRuntimeTwiceAndSilencesIt) {
    EXPECT_TRUE(mgr->Init(kArgs));
    const Calls calls = script.Calls();
    ASSERT_GT(calls.size(), 6u);
    EXPECT_EQ((Calls{"LUXInit 1.4.33.0", "LUXQueryVersion", "debug.EnableAssertions 0", "trace.EnableAsync 0",
                     "trace.EnableWriter File 0", "factory.CreateContext"}),
              Calls(calls.begin(), calls.begin() + 6));
    EXPECT_EQ("packet of surface", Frame().substr(0, 17));
    mgr->Terminate();
    // One hold is left for the rest of the process.
    EXPECT_NE(nullptr, factory->GetFactory());
    factory->Terminate();
    EXPECT_EQ(nullptr, factory->GetFactory());
}

TEST_F(DisplayMgrTest, ARuntimeThatCannotBeLoadedCountsAsASuccess) {
    Gate().FailNth("LoadLibraryW", 1, ERROR_MOD_NOT_FOUND);
    CaptureStdout();
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ("LUX Failed to initialize", GetCapturedStdout());
    size_t size = 7;
    EXPECT_FALSE(mgr->CaptureEncode(&buffer, &size));
    EXPECT_EQ(7u, size);
    mgr->Terminate();
    EXPECT_TRUE(shared->pipelines.empty());
}

TEST_F(DisplayMgrTest, ARuntimeThatIsTooOldCapturesNothing) {
    script.Next("LUXInit", {lux::LUX_VERSION_TOO_OLD});
    CaptureStdout();
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ("LUX Failed to initialize", GetCapturedStdout());
    EXPECT_EQ("false", Frame());
    mgr->Terminate();
    // The library counts as loaded now. Init fails because there is no factory.
    EXPECT_FALSE(mgr->Init(kArgs));
    EXPECT_EQ("false", Frame());
    mgr->Terminate();
}

TEST_F(DisplayMgrTest, CallsWithoutInitDoNothing) {
    EXPECT_EQ("false", Frame());
    mgr->Terminate();
    EXPECT_EQ(Calls{}, script.Calls());
}

TEST_F(DisplayMgrTest, ATerminateWithoutInitReleasesNoHold) {
    EXPECT_TRUE(mgr->Init(kArgs));
    mgr->Terminate();
    mgr->Terminate();
    mgr->Terminate();
    EXPECT_NE(nullptr, factory->GetFactory());
}

TEST_F(DisplayMgrTest, FramesEndWithTerminateAndComeBackWithInit) {
    EXPECT_TRUE(mgr->Init(kArgs));
    mgr->Terminate();
    EXPECT_EQ("false", Frame());
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ("packet of surface", Frame().substr(0, 17));
    EXPECT_EQ(2u, script.Count("context.InitDX11"));
    mgr->Terminate();
    EXPECT_EQ(1u, script.Count("LUXInit"));
}

TEST_F(DisplayMgrTest, AFailedAttemptKeepsItsComponentsAndTheContext) {
    script.Next("LUXVideoEncoderHW_AV1.Init", {lux::LUX_NO_DEVICE});
    EXPECT_FALSE(mgr->Init(kArgs));
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ(1u, script.Count("factory.CreateContext"));
    ExpectTrace(lux::LUX_TRACE_INFO, "Successfully initialized Capture for display 3.1, capturing at 30 fps");
    EXPECT_EQ(0u, script.Count("LUXDisplayCapture.Terminate"));

    // The count never falls to 0 again: context and device outlive the session.
    mgr->Terminate();
    EXPECT_EQ(1u, script.Count("LUXDisplayCapture.Terminate"));
    EXPECT_EQ(0u, script.Count("context.Terminate"));
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ(1u, script.Count("factory.CreateContext"));
    EXPECT_EQ("packet of surface", Frame().substr(0, 17));
}

TEST_F(DisplayMgrTest, AFailingContextStepTriesNoComponents) {
    script.Next("context.InitDX11", {lux::LUX_NO_DEVICE});
    EXPECT_FALSE(mgr->Init(kArgs));
    EXPECT_EQ(0u, script.Count("factory.CreateComponent"));
    EXPECT_EQ("false", Frame());
    EXPECT_TRUE(mgr->Init(kArgs));
}

TEST_F(DisplayMgrTest, TheTimersResolutionIsRaisedOnceToWhatThePcHas) {
    winhost::PcDescription pc = Pc().Description();
    pc.timerPeriod = 3;
    Pc().Reset(pc);
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ(3u, shared->timerPeriod);
    EXPECT_EQ(3u, Gate().Count("timeBeginPeriod"));
    mgr->Terminate();
    EXPECT_TRUE(mgr->Init(kArgs));
    EXPECT_EQ(3u, Gate().Count("timeBeginPeriod"));
}

TEST_F(DisplayMgrTest, AThousandFramesAllocateOneBuffer) {
    EXPECT_TRUE(mgr->Init(kArgs));
    script.DeliverBytes(64);
    Frame();
    const uint8_t* const bytes = buffer.bytes.get();
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ("packet of surface", Frame().substr(0, 17));
    EXPECT_EQ(bytes, buffer.bytes.get());
}

TEST_F(DisplayMgrTest, SessionsLeaveNothingOfTheRuntimeBehind) {
    for (int session = 0; session < 20; ++session) {
        EXPECT_TRUE(mgr->Init(kArgs));
        Frame();
        mgr->Terminate();
        EXPECT_EQ(0, script.LiveObjects());
    }
}
