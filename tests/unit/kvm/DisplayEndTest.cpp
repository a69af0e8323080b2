// The end of the display's threads, in each of their states.
#include <gtest/gtest.h>

#include "tests/unit/kvm/DisplayFixture.h"

namespace {

using namespace std::chrono_literals;

class DisplayEnd : public DisplayFixture {
  protected:
    static constexpr char kForced[] = "LUX_KVM: m_pKVMDisplayMgrThreadObj forcefully exited";
    static constexpr char kStillRuns[] = "LUX_KVM: m_bIsKVMDisplayMgrThreadClosed 0 ";

    // Until the thread is inside a call that does not return, and the stop has waited for 25 seconds.
    void StopUntilForced() {
        ASSERT_TRUE(Eventually([&] { return mgr.hanging == 1; }));
        stop = std::thread([this] { manager->StopDisplayCaptureThread(); });
        for (int round = 0; round < 25; ++round)
            PassSleepOf(1s);
    }
    void AwaitStop() {
        InTime([&] { stop.join(); });
    }
    void ExpectForcedEnd() {
        EXPECT_EQ(LogCount(kStillRuns), 25u);
        ExpectLogInOrder({kStillRuns, kForced, kTerminated,
                          "LUX_KVM: Waiting for the DisplayCaptureThread to exit", kCaptureStopped});
        EXPECT_EQ(LogCount(kTerminated), 1u);
        EXPECT_EQ(LogCount(kExitEvent), 0u);
    }
    // With threads, a pipeline and a chunk record of its own.
    void ExpectNextSession() {
        StopApp();
        BringUp();
        AskForChunk();
        StopCapture();
        EXPECT_EQ(LogCount(kExitEvent), 1u);
    }

    std::thread stop;
};

}  // namespace

TEST_F(DisplayEnd, WithoutThreadsOnlyLogs) {
    StartManager();
    manager->StopDisplayCaptureThread();
    manager->StopZelKvmAppThread();
    ExpectLogInOrder({kCaptureStopped, kAppStopped});
    EXPECT_EQ(LogCount("LUX_KVM: "), 2u);
}

TEST_F(DisplayEnd, TheCaptureThreadEndsWithItsSession) {
    BringUp();
    AskForChunk();
    StopCapture();
    ExpectLogInOrder(
        {kExitEvent, kTerminated, "LUX_KVM: Waiting for the DisplayCaptureThread to exit", kCaptureStopped});
    EXPECT_TRUE(HasLine("ERROR", kExitEvent));
    EXPECT_EQ(LogCount(kForced), 0u);
    EXPECT_EQ(mgr.terminations, 1u);
    StopApp();
    // The next session begins with new threads.
    BringUp();
    AskForChunk();
}

TEST_F(DisplayEnd, AFloodOfRequestsDoesNotHideTheEnd) {
    BringUp();
    firmware.Hold("WriteEncodedBuffer");
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    ASSERT_TRUE(firmware.AwaitCount("WriteEncodedBuffer", 1));
    std::thread stop([&] { manager->StopDisplayCaptureThread(); });
    ASSERT_TRUE(Clock().AwaitSleeper(1s));
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    firmware.Release("WriteEncodedBuffer");
    AwaitLog(kTerminated);
    InTime([&] { stop.join(); }, 1s);
    EXPECT_EQ(firmware.Count("WriteEncodedBuffer"), 1u);
}

TEST_F(DisplayEnd, AStopDuringTheBringUpWaitsForItsAttempts) {
    ExpectError("LUX_KVM: mgr.Init failed after all retry attempts");
    mgr.failures = 20;
    Begin();
    AgentPeer().SendConfig();
    ASSERT_TRUE(Clock().AwaitSleeper(1s));
    std::thread stop([&] { manager->StopDisplayCaptureThread(); });
    for (int pause = 0; pause < 19; ++pause) {
        ASSERT_TRUE(Clock().AwaitSleepersOf(1s, 2));
        Advance(1s);
    }
    AwaitLog(kTerminated);
    InTime([&] { stop.join(); }, 1s);
    EXPECT_EQ(LogCount(kForced), 0u);
}

TEST_F(DisplayEnd, AServiceStopEndsTheBringUpAtOnce) {
    mgr.failures = 20;
    Begin();
    AgentPeer().SendConfig();
    ASSERT_TRUE(Clock().AwaitSleeper(1s));
    manager->SignalStop();
    AwaitLog(kTerminated);
    EXPECT_EQ(mgr.Inits().size(), 1u);
}

TEST_F(DisplayEnd, AChunkThatHangsIsCancelledAfter25Seconds) {
    AllowErrorsOfAStop();
    ExpectError("LUX_KVM: DisplayCaptureThread: SendIOCtlToDriver failed, dwError: 995");
    BringUp();
    firmware.Hold("WriteEncodedBuffer");
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    ASSERT_TRUE(firmware.AwaitCount("WriteEncodedBuffer", 1));
    std::thread stop([&] { manager->StopDisplayCaptureThread(); });
    for (int round = 0; round < 25; ++round)
        PassSleepOf(1s);
    AwaitLog(kTerminated);
    InTime([&] { stop.join(); });
    EXPECT_EQ(LogCount(kStillRuns), 25u);
    ExpectLogInOrder({kForced, "dwError: 995", kTerminated, kCaptureStopped});
    EXPECT_EQ(Gate().Count("TerminateThread"), 0u);
    firmware.Release("WriteEncodedBuffer");
    StopApp();
    BringUp();
    AskForChunk();
}

TEST_F(DisplayEnd, TheAgentThreadEndsWithoutAViewer) {
    Begin();
    AgentPeer agent;
    agent.SendConfig();
    AwaitLog(kAwaitsStart);
    const size_t handles = OpenHandles();
    StopApp();
    EXPECT_EQ(OpenHandles(), handles - 2) << "those of the event and the pipe";
    EXPECT_EQ(agent.Read(), "");
    ExpectLogInOrder({"LUX_KVM: SetKvmAppEvent posted 2", "LUX_KVM: Waiting for the ZelKvmAppThread to exit",
                      kAppStopped});
    EXPECT_EQ(LogCount("LUX_KVM: Received event 2"), 1u);
    EXPECT_EQ(LogCount("Written eNotifyDisplayConfig"), 0u);
}

TEST_F(DisplayEnd, AnAgentThatIsMissingIsAwaitedWithoutALimit) {
    Begin();
    AwaitLog(kAwaitsAgent);
    std::atomic<bool> over{false};
    std::thread stop([&] {
        manager->StopZelKvmAppThread();
        over = true;
    });
    for (int round = 0; round < 1000; ++round)
        PassSleepOf(100ms);
    EXPECT_FALSE(over);
    {
        AgentPeer agent;
        agent.SendConfig();
        AwaitLog("LUX_KVM: Received event 2");
    }
    InTime([&] { stop.join(); });
    EXPECT_GE(LogCount("LUX_KVM: m_bIsKVMAppThreadClosed 0 "), 999u);
}

TEST_F(DisplayEnd, AServiceStopDoesNotWaitForAMissingAgent) {
    Begin();
    AwaitLog(kAwaitsAgent);
    manager->SignalStop();
    const auto before = Clock().Steady();
    StopApp();
    EXPECT_LE(Clock().Steady() - before, 300ms);
    AwaitLog(kAppStopped);
}

TEST_F(DisplayEnd, AServiceStopDoesNotWaitForASilentAgent) {
    Begin();
    const AgentPeer agent;
    AwaitLog("LUX_KVM: Namedpipe connected successfully");
    manager->SignalStop();
    const auto before = Clock().Steady();
    StopApp();
    EXPECT_LE(Clock().Steady() - before, 300ms);
}

TEST_F(DisplayEnd, AServiceStopDoesNotWaitForAnAgentThatDoesNotRead) {
    Begin();
    AgentPeer agent;
    agent.SendConfig();
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
    AwaitLog("LUX_KVM: Received event 1");
    manager->SignalStop();
    const auto before = Clock().Steady();
    StopApp();
    EXPECT_LE(Clock().Steady() - before, 300ms);
    EXPECT_EQ(LogCount("Written eNotifyDisplayConfig 0"), 1u);
}

TEST_F(DisplayEnd, ACaptureThatNeverReturnsIsEndedByForceAfter25Seconds) {
    mgr.hangsInCapture = true;
    BringUp();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    StopUntilForced();
    AwaitStop();
    ExpectForcedEnd();
    EXPECT_EQ(Gate().Count("TerminateThread"), 1u);
    EXPECT_EQ(mgr.terminations, 1u);
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: m_DisplayMgrEvent null, nothing to post 1"));
    mgr.hangsInCapture = false;
    ExpectNextSession();
}

TEST_F(DisplayEnd, AnInitThatNeverReturnsIsEndedByForce) {
    mgr.hangsInInit = true;
    Begin();
    AgentPeer().SendConfig();
    StopUntilForced();
    AwaitStop();
    ExpectForcedEnd();
    mgr.hangsInInit = false;
    ExpectNextSession();
}

TEST_F(DisplayEnd, AShutdownThatNeverReturnsIsEndedByForce) {
    mgr.hangsInTerminate = true;
    BringUp();
    manager->m_bLuxKvmEnabled = 0;
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    StopUntilForced();
    AwaitStop();
    ExpectForcedEnd();
    EXPECT_EQ(mgr.terminations, 2u);
    mgr.hangsInTerminate = false;
    ExpectNextSession();
}

TEST_F(DisplayEnd, ASecondStopJoinsTheThreadThatWasEndedByForce) {
    mgr.hangsInCapture = true;
    BringUp();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    StopUntilForced();
    AwaitStop();
    manager->StopDisplayCaptureThread();
    EXPECT_EQ(LogCount(kCaptureStopped), 2u);
    manager->StopDisplayCaptureThread();
    EXPECT_EQ(LogCount("LUX_KVM: Waiting for the DisplayCaptureThread to exit"), 2u);
    EXPECT_EQ(LogCount(kCaptureStopped), 3u);
    EXPECT_EQ(Gate().Count("TerminateThread"), 1u);
}

TEST_F(DisplayEnd, AThreadThatCannotBeEndedAtOnceIsTriedAgain) {
    mgr.hangsInCapture = true;
    BringUp();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    Gate().FailNth("TerminateThread", 1, ERROR_ACCESS_DENIED);
    StopUntilForced();
    AwaitStop();
    ExpectForcedEnd();
    EXPECT_EQ(Gate().Count("TerminateThread"), 2u);
}

TEST_F(DisplayEnd, AThreadThatCannotBeEndedIsLeftUntilItReturns) {
    constexpr char kLeft[] = "LUX_KVM: DisplayCaptureThread does not end and is left";
    Gate().FailNth("OpenThread", 1, ERROR_ACCESS_DENIED);
    mgr.hangsInCapture = true;
    BringUp();
    EXPECT_TRUE(HasLine("WARN", "DisplayCaptureThread: OpenThread failed with error: 5"));
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    StopUntilForced();
    AwaitStop();
    EXPECT_TRUE(HasLine("WARN", kLeft));
    EXPECT_EQ(LogCount(kCaptureStopped), 0u);
    EXPECT_EQ(mgr.terminations, 0u);
    // No second thread uses the pipeline meanwhile.
    StopApp();
    Begin();
    EXPECT_EQ(LogCount("DisplayCaptureThread: OpenThread failed"), 1u);
    mgr.hangsInCapture = false;
    PassSleepOf(50ms);
    AwaitLog(kTerminated);
    EXPECT_EQ(Gate().Count("TerminateThread"), 0u);
    AgentPeer().SendConfig(1, 1, 1, 7);
    StopApp();
    InTime([&] { BringUp(); });
}
