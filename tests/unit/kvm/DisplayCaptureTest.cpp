// Frames and their chunks, as the firmware has them.
#include <gtest/gtest.h>

#include "tests/support/RefusedMemory.h"
#include "tests/unit/kvm/DisplayFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kCaptureFailed[] = "CaptureEncode failed";
constexpr size_t kMaxData = EncodedFrameChunk::kMaxData;

class DisplayCapture : public DisplayFixture {
  protected:
    static EncodedFrameChunk HeadOf(const mpm::Request& request) {
        EncodedFrameChunk head;
        std::memcpy(&head, request.data.data(), sizeof head);
        return head;
    }
    // The next request's record is this slice of this frame.
    void ExpectChunk(uint32_t required, uint32_t chunkSize, uint32_t frameSize, size_t frame, size_t offset) {
        const mpm::Request request = AskForChunk();
        EXPECT_EQ(request.fault, "");
        ASSERT_EQ(request.data.size(), sizeof(EncodedFrameChunk) + chunkSize);
        const EncodedFrameChunk head = HeadOf(request);
        EXPECT_EQ(head.RequiredChunk, required);
        EXPECT_EQ(head.ChunkSize, chunkSize);
        EXPECT_EQ(head.FrameSize, frameSize);
        for (size_t byte = 0; byte < chunkSize; ++byte)
            ASSERT_EQ(request.data[sizeof head + byte], ScriptedDisplayMgr::ByteAt(frame, offset + byte))
                << byte;
    }
    // The next request's record is a bare head.
    void ExpectEmptyChunk(uint32_t required) {
        const size_t before = firmware.Count("SendEncodedDrvFrameBuffer");
        manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
        ASSERT_TRUE(firmware.AwaitCount("SendEncodedDrvFrameBuffer", before + 1));
        const auto head = firmware.Requests("SendEncodedDrvFrameBuffer").back().As<EncodedFrameChunk>();
        EXPECT_EQ(head.RequiredChunk, required);
        EXPECT_EQ(head.ChunkSize, 0u);
        EXPECT_EQ(head.FrameSize, 0u);
    }
    static std::string Served(unsigned required, int count, unsigned offset) {
        return "LUX_KVM: DispEvtCaptureEncodeStart RequiredChunk " + std::to_string(required) +
               " m_requestCount " + std::to_string(count) + " offset " + std::to_string(offset);
    }
};

}  // namespace

TEST_F(DisplayCapture, OneRequestIsOneChunkOfAFrame) {
    mgr.SetSizes({21000, 30000});
    BringUp();
    EXPECT_EQ(mgr.captures, 0u);
    ExpectChunk(1, 21000, 21000, 0, 0);
    EXPECT_EQ(mgr.captures, 1u);
    ExpectChunk(1, 30000, 30000, 1, 0);
    ExpectLogInOrder({Served(1, 1, 0), "WriteEncodedBuffer: connecting to Driver. Input buffer size = 21012",
                      Served(1, 2, 0),
                      "WriteEncodedBuffer: connecting to Driver. Input buffer size = 30012"});
}

TEST_F(DisplayCapture, AFrameOf524288BytesIsOneChunk) {
    mgr.SetSizes({kMaxData, 1});
    BringUp();
    ExpectChunk(1, kMaxData, kMaxData, 0, 0);
    ExpectChunk(1, 1, 1, 1, 0);
}

TEST_F(DisplayCapture, OneByteMoreIsASecondChunk) {
    mgr.SetSizes({kMaxData + 1, 5});
    BringUp();
    ExpectChunk(2, kMaxData, kMaxData + 1, 0, 0);
    EXPECT_EQ(mgr.captures, 1u);
    ExpectChunk(1, 1, kMaxData + 1, 0, kMaxData);
    EXPECT_EQ(mgr.captures, 1u);
    AwaitLog(Served(1, 2, 524288));
    ExpectChunk(1, 5, 5, 1, 0);
    EXPECT_EQ(mgr.captures, 2u);
}

TEST_F(DisplayCapture, TwentyMegabytesAreFortyChunks) {
    constexpr size_t kFrame = 20 << 20;
    mgr.SetSizes({kFrame, 9});
    BringUp();
    std::vector<uint8_t> frame;
    for (uint32_t required = 40; required > 0; --required) {
        const mpm::Request request = AskForChunk();
        const EncodedFrameChunk head = HeadOf(request);
        ASSERT_EQ(head.RequiredChunk, required);
        ASSERT_EQ(head.FrameSize, kFrame);
        ASSERT_EQ(request.data.size(), sizeof head + head.ChunkSize);
        frame.insert(frame.end(), request.data.begin() + sizeof head, request.data.end());
    }
    ASSERT_EQ(frame.size(), kFrame);
    for (size_t byte = 0; byte < kFrame; byte += 997)
        ASSERT_EQ(frame[byte], ScriptedDisplayMgr::ByteAt(0, byte));
    EXPECT_EQ(mgr.captures, 1u);
    ExpectChunk(1, 9, 9, 1, 0);
}

TEST_F(DisplayCapture, AFailedCaptureLeaves8192EmptyRecords) {
    ExpectError(kCaptureFailed);
    mgr.failing = 1;
    BringUp();
    // Each record is the cause of the next request.
    std::vector<EncodedFrameChunk> heads;
    std::atomic<bool> over{false};
    firmware.Observe([&](const mpm::Event& event) {
        if (event.kind != mpm::Event::Kind::Request || event.name != "SendEncodedDrvFrameBuffer") return;
        EncodedFrameChunk head;
        std::memcpy(&head, event.data.data(), sizeof head);
        heads.push_back(head);
        if (head.RequiredChunk == 1) {
            over = true;
        } else {
            manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
        }
    });
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    ASSERT_TRUE(Eventually([&] { return over.load(); }, 50s));
    ASSERT_EQ(heads.size(), 8192u);
    for (uint32_t number = 0; number < heads.size(); ++number) {
        ASSERT_EQ(heads[number].RequiredChunk, 8192 - number);
        ASSERT_EQ(heads[number].ChunkSize, 0u);
        ASSERT_EQ(heads[number].FrameSize, 0u);
    }
    EXPECT_EQ(mgr.captures, 1u);
    ExpectChunk(1, 21000, 21000, 1, 0);
    EXPECT_EQ(LogCount(kCaptureFailed), 1u);
}

TEST_F(DisplayCapture, AnEmptyFrameIsAFailedCapture) {
    ExpectError(kCaptureFailed);
    mgr.SetSizes({0});
    BringUp();
    ExpectEmptyChunk(8192);
    ExpectEmptyChunk(8191);
}

TEST_F(DisplayCapture, AFrameNeverReachesBeyondItsBytes) {
    ExpectError(kCaptureFailed);
    mgr.claimed = 1000;
    BringUp();
    ExpectEmptyChunk(8192);
}

TEST_F(DisplayCapture, ARequestBeforeTheConfigurationIsAnsweredAfterTheBringUp) {
    Begin();
    AwaitLog(kAwaitsAgent);
    for (int request = 0; request < 100; ++request)
        manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog("LUX_KVM: request before the display configuration, it waits");
    EXPECT_EQ(mgr.captures, 0u);
    AgentPeer().SendConfig();
    ASSERT_TRUE(firmware.AwaitCount("WriteEncodedBuffer", 1));
    AwaitLog(Served(1, 1, 0));
    ExpectChunk(1, 21000, 21000, 1, 0);
    EXPECT_EQ(firmware.Count("WriteEncodedBuffer"), 2u);
}

// The firmware knows the size before the pipeline exists.
TEST_F(DisplayCapture, ARequestDuringTheBringUpIsAnsweredAfterIt) {
    mgr.failures = 1;
    Begin();
    AgentPeer().SendConfig();
    ASSERT_TRUE(Clock().AwaitSleeper(1s));
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    Advance(1s);
    EXPECT_TRUE(firmware.AwaitCount("WriteEncodedBuffer", 1));
}

TEST_F(DisplayCapture, RequestsDuringARequestAreOne) {
    BringUp();
    firmware.Hold("WriteEncodedBuffer");
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    ASSERT_TRUE(firmware.AwaitCount("WriteEncodedBuffer", 1));
    for (int request = 0; request < 1000; ++request)
        manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    firmware.Release("WriteEncodedBuffer");
    ASSERT_TRUE(firmware.AwaitCount("WriteEncodedBuffer", 2));
    AwaitLog(Served(1, 2, 0));
    StopCapture();
    EXPECT_EQ(firmware.Count("WriteEncodedBuffer"), 2u);
}

TEST_F(DisplayCapture, ARefusedChunkEndsTheThread) {
    ExpectErrors(
        {kRefused, kRefusedReturn, "LUX_KVM: DisplayCaptureThread: SendIOCtlToDriver failed, dwError: 31"});
    BringUp();
    firmware.Refuse("WriteEncodedBuffer", ERROR_GEN_FAILURE, 1);
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog(kTerminated);
    EXPECT_EQ(mgr.terminations, 1u);
    EXPECT_TRUE(Eventually([&] {
        manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
        return LogCount("LUX_KVM: m_DisplayMgrEvent null, nothing to post 1") != 0;
    }));
    // A second request for the configuration does not revive it.
    manager->DoInitLUXKVM();
    EXPECT_EQ(Gate().Count("CreateNamedPipeA"), 1u);
    EXPECT_EQ(firmware.Count("WriteEncodedBuffer"), 1u);
    // The next session does.
    StopCapture();
    StopApp();
    BringUp();
    ExpectChunk(1, 21000, 21000, 1, 0);
}

TEST_F(DisplayCapture, TheRetryStatusIsAFailureLikeOthers) {
    ExpectErrors(
        {kRefused, kRefusedReturn, "LUX_KVM: DisplayCaptureThread: SendIOCtlToDriver failed, dwError: 1450"});
    BringUp();
    firmware.Refuse("WriteEncodedBuffer", 1450, 1);
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog(kTerminated);
    EXPECT_EQ(firmware.Count("WriteEncodedBuffer"), 1u);
}

TEST_F(DisplayCapture, AChunkWithoutADeviceEndsTheThread) {
    AllowErrorsOfAStop();
    ExpectError("LUX_KVM: DisplayCaptureThread: SendIOCtlToDriver failed, dwError: 6");
    BringUp();
    service->m_mailBoxDriverInterface.CloseMPMDevice();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog(kTerminated);
}

TEST_F(DisplayCapture, AnExceptionOfTheCaptureEndsTheThread) {
    ExpectError("DisplayCaptureThread: ended by an exception: no more memory");
    mgr.throws = true;
    BringUp();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog(kTerminated);
    StopCapture();
}

TEST_F(DisplayCapture, TheEndOfTheModeIsNoticedAtTheNextRequest) {
    BringUp();
    manager->m_bLuxKvmEnabled = 0;
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog(kTerminated);
    EXPECT_EQ(firmware.Count("WriteEncodedBuffer"), 1u);
}

TEST_F(DisplayCapture, AFailedInitIsRepeatedEverySecond) {
    mgr.failures = 2;
    Begin();
    AgentPeer().SendConfig();
    PassSleepOf(1s);
    PassSleepOf(1s);
    AwaitLog(kBroughtUp);
    ExpectLogInOrder({"LUX_KVM: mgr.Init started", "LUX_KVM: mgr.Init failed on attempt 1 of 20",
                      "LUX_KVM: Retrying mgr.Init, attempt 2 of 20",
                      "LUX_KVM: mgr.Init failed on attempt 2 of 20",
                      "LUX_KVM: Retrying mgr.Init, attempt 3 of 20",
                      "LUX_KVM: mgr.Init succeeded on attempt 3", "LUX_KVM: mgr.Init Done"});
    EXPECT_TRUE(HasLine("WARN", "LUX_KVM: mgr.Init failed on attempt 1 of 20"));
}

TEST_F(DisplayCapture, TwentyFailedInitsEndTheThread) {
    ExpectError("LUX_KVM: mgr.Init failed after all retry attempts");
    mgr.failures = 20;
    Begin();
    AgentPeer().SendConfig();
    for (int pause = 0; pause < 19; ++pause)
        PassSleepOf(1s);
    AwaitLog(kTerminated);
    EXPECT_EQ(mgr.Inits().size(), 20u);
    EXPECT_EQ(mgr.terminations, 1u);
    EXPECT_EQ(LogCount("mgr.Init Done"), 0u);
}

TEST_F(DisplayCapture, WithoutMemoryForTheChunkTheThreadEnds) {
    const RefusedMemory refused(sizeof(EncodedFrameChunk) + kMaxData);
    Begin();
    AgentPeer().SendConfig();
    AwaitLog(kTerminated);
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: Allocation failed for pSendBuffer"));
}

TEST_F(DisplayCapture, AWaitThatFailsEndsTheThread) {
    ExpectError("Error in Wait for Single Object Error code: 6");
    FailWaitBehind("LUX_KVM: request before the display configuration, it waits");
    Begin();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    AwaitLog("Error in Wait for Single Object Error code: 6");
    Gate().Reset();
    AwaitLog(kTerminated);
}
