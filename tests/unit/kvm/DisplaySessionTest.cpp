// Sessions in display mode, by the firmware's commands and a viewer. There is no media runtime on this PC.
#include <gtest/gtest.h>

#include "tests/unit/kvm/DisplayFixture.h"

namespace {

using namespace std::chrono_literals;

class DisplaySession : public DisplayFixture {
  protected:
    static constexpr char kRequested[] = "LUX_KVM: MPM_ZEL_CMD_GET_DISPAY_CONFIG receveid";
    static constexpr char kBegun[] = "LUX_KVM: DoInitLUXKVM success";
    static constexpr char kPostAccept[] = "LUX_KVM: DoInitPostAccept , setting AppEvtStartKVMOperation";

    void SendGetConfig() {
        firmware.Send(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
        AwaitHandled();
    }
    void SendGetFrame() { firmware.Send(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER); }
    bool IsEnabled() const { return service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled; }
    // A session whose agent has reported the screen.
    void BeginSession() {
        Start(50);
        Enable();
        SendGetConfig();
        AgentPeer().SendConfig();
        AwaitLog(kBroughtUp);
        AwaitLog(kAwaitsStart);
    }
    // Advances the clock whenever a thread sleeps, until the text has been logged.
    void AwaitLogInTime(const std::string& text, size_t count = 1) {
        ASSERT_TRUE(Eventually([&] {
            if (Clock().AwaitSleepers(1, 1ms)) Advance(100ms);
            return LogCount(text) >= count;
        })) << text;
    }
    void CloseInTime() {
        const size_t before = LogCount(kCleanedUp);
        SendClose();
        AwaitLogInTime(kCleanedUp, before + 1);
    }
    void StopInTime() {
        AllowErrorsOfAStop();
        std::thread stop([&] { StopService(); });
        AwaitLogInTime("Gracefully exitting ZEL Service");
        stop.join();
    }
};

}  // namespace

TEST_F(DisplaySession, BeginsWithTheRequestForTheConfiguration) {
    Start(50);
    SendGetConfig();
    AwaitLog(kAwaitsAgent);
    ExpectLogInOrder({kRequested, "LUX_KVM: DoInitLUXKVM: Created ", "-V 50 -E 1",
                      "LUX_KVM:LaunchKVMAgent success", kBegun});
    EXPECT_TRUE(HasLine("INFO", kRequested));
    EXPECT_TRUE(HasLine("INFO", kBegun));
    EXPECT_TRUE(IsEnabled());
}

TEST_F(DisplaySession, ASecondRequestLaunchesTheAgentAgain) {
    Start(50);
    SendGetConfig();
    SendGetConfig();
    EXPECT_EQ(LogCount(kBegun), 2u);
    EXPECT_EQ(LogCount("KVM APP Command:"), 2u);
    EXPECT_EQ(Gate().Count("CreateNamedPipeA"), 1u);
}

TEST_F(DisplaySession, FirmwareOfLevel49GetsAnAgentOnly) {
    Start(49);
    Enable();
    SendGetConfig();
    EXPECT_EQ(LogCount(kBegun), 1u);
    EXPECT_EQ(LogCount("KVM APP Command:"), 0u);
    const ConsoleClient client = ConnectSession();
    EXPECT_EQ(LogCount("DoInitKVM: Entered"), 1u);
    EXPECT_EQ(LaunchCount(" -V 49 -E 1"), 1u);
    EXPECT_EQ(LogCount(kPostAccept), 0u);
    CloseSession();
    EXPECT_FALSE(IsEnabled());
}

TEST_F(DisplaySession, AFailedLaunchIsReportedAndTheThreadsStay) {
    ExpectErrors({"LUX_KVM:DoInitLUXKVM: Launch KVM_Agent failed", "ProcessRead: DoInitKVM failed."});
    Start(50);
    Gate().FailNth("GetModuleFileNameA", 1, ERROR_INSUFFICIENT_BUFFER, true);
    SendGetConfig();
    AwaitLog(kAwaitsAgent);
    EXPECT_EQ(LogCount(kBegun), 0u);
    EXPECT_TRUE(IsEnabled());
}

TEST_F(DisplaySession, AViewerSetsTheAgentGoing) {
    Start(50);
    Enable();
    SendGetConfig();
    AgentPeer agent;
    agent.SendConfig();
    ConsoleClient client = ConnectSession();
    EXPECT_EQ(agent.Read(), std::string("\2\0\0\0", 4));
    ExpectLogInOrder({kPostAccept, "LUX_KVM: SetKvmAppEvent posted 1", kAnnounced});
    EXPECT_TRUE(HasLine("INFO", kPostAccept));
    EXPECT_EQ(LogCount("DoInitKVM: Entered"), 0u);
    EXPECT_EQ(LogCount("KVM APP Command:"), 1u);
    EXPECT_EQ(StatusFileKvm(), "YES");
    // Data goes both ways as in agent mode.
    ASSERT_TRUE(client.Send("key"));
    EXPECT_TRUE(AwaitFirmwareBytes("key"));
}

TEST_F(DisplaySession, ASecondViewerOnlyReplacesTheFirst) {
    BeginSession();
    const ConsoleClient first = ConnectSession();
    const ConsoleClient second = ConnectSession();
    AwaitLog("LUX_KVM: m_KvmAppEvent null, nothing to post 1");
    EXPECT_EQ(LogCount(kPostAccept), 2u);
}

TEST_F(DisplaySession, EndsWithItsThreadsInOrder) {
    BeginSession();
    ConsoleClient client = ConnectSession();
    CloseInTime();
    EXPECT_TRUE(client.AwaitClose());
    ExpectLogInOrder({"MPM_ZEL_CMD_VNC_SOC_CLOSE received", "called TerminateKVMAgent",
                      "LUX_KVM: Waiting for the DisplayCaptureThread to exit", kCaptureStopped, kAppStopped,
                      "DoCleanUp: closesocket() API successful on KVM socket", "DoCleanUp, function exit"});
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(LogCount("LUX_KVM: m_bIsKVMAppThreadClosed 1 "), 0u);
}

TEST_F(DisplaySession, ASessionWithoutDisplayLogsThatNothingHasToEnd) {
    const ConsoleClient client = StartSession(50);
    CloseSession();
    ExpectLogInOrder({"called TerminateKVMAgent", kCaptureStopped, kAppStopped,
                      "DoCleanUp: closesocket() API successful on KVM socket"});
}

TEST_F(DisplaySession, TheNextSessionIsCleanedUpToo) {
    BeginSession();
    CloseInTime();
    AwaitLogInTime(kAgentRemoved);
    AwaitState(kKvmNeverEnabled);
    Enable();
    SendGetConfig();
    AgentPeer().SendConfig();
    AwaitLog(kBroughtUp, 2);
    AwaitLog(kAwaitsStart, 2);
    // No viewer has come.
    CloseInTime();
    EXPECT_EQ(LogCount("LUX_KVM: Waiting for the DisplayCaptureThread to exit"), 2u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 2u);
}

TEST_F(DisplaySession, AViewersEndEndsTheThreads) {
    BeginSession();
    { const ConsoleClient client = ConnectSession(); }
    AwaitLogInTime(kCleanedUp);
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(LogCount(kTerminated), 1u);
}

TEST_F(DisplaySession, NoneBeginsDuringACleanUp) {
    ExpectError("ProcessRead: DoInitKVM failed.");
    BeginSession();
    const ConsoleClient client = ConnectSession();
    firmware.Hold("WriteCloseSocketcmd");
    service->m_kvmClientInterface.TriggerKVMShutdown();
    AwaitLogInTime("WriteCloseSocketcmd: connecting to Driver");
    SendGetConfig();
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: the earlier session is being cleaned up, no session begins"));
    EXPECT_FALSE(IsEnabled());
    firmware.Release("WriteCloseSocketcmd");
    AwaitLog(kCleanedUp);
}

TEST_F(DisplaySession, WithoutARuntimeTheFirmwareGetsEmptyRecords) {
    ExpectError("CaptureEncode failed");
    BeginSession();
    AwaitLog("LUX_KVM: mgr.Init succeeded on attempt 1");
    SendGetFrame();
    ASSERT_TRUE(firmware.AwaitCount("SendEncodedDrvFrameBuffer", 1));
    const auto head = firmware.Requests("SendEncodedDrvFrameBuffer").back().As<EncodedFrameChunk>();
    EXPECT_EQ(head.RequiredChunk, 8192u);
    EXPECT_EQ(head.FrameSize, 0u);
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER receveid"));
}

TEST_F(DisplaySession, FrameRequestsWithoutASessionAreOnlyLogged) {
    Start(50);
    for (int request = 0; request < 100; ++request)
        SendGetFrame();
    AwaitHandled();
    EXPECT_EQ(LogCount("LUX_KVM: m_DisplayMgrEvent null, nothing to post 1"), 100u);
    EXPECT_EQ(firmware.Count("SendEncodedDrvFrameBuffer"), 0u);
}

TEST_F(DisplaySession, InSafeBootTheFirmwareHearsNothingOfTheEnd) {
    service->m_bootMode = 1;
    BeginSession();
    CloseInTime();
    EXPECT_EQ(LogCount(kCaptureStopped), 1u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

TEST_F(DisplaySession, AStopEndsASessionThatServes) {
    BeginSession();
    ConsoleClient client = ConnectSession();
    StopInTime();
    EXPECT_TRUE(client.AwaitClose());
    ExpectLogInOrder({"Cleanup KVM connection", kCaptureStopped, kAppStopped, "ZEL Service DOWN"});
}

TEST_F(DisplaySession, AStopEndsASessionWhoseAgentIsMissing) {
    Start(50);
    Enable();
    SendGetConfig();
    AwaitLog(kAwaitsAgent);
    StopInTime();
    ExpectLogInOrder({"Cleanup KVM connection", kCaptureStopped, kAppStopped, "ZEL Service DOWN"});
}

TEST_F(DisplaySession, AStopEndsASessionWhoseAgentIsSilent) {
    Start(50);
    Enable();
    SendGetConfig();
    const AgentPeer agent;
    AwaitLog("LUX_KVM: Namedpipe connected successfully");
    StopInTime();
    ExpectLogInOrder({kCaptureStopped, kAppStopped, "ZEL Service DOWN"});
}

TEST_F(DisplaySession, AStopEndsACommand35ThatWaitsForTheAgent) {
    Start(50);
    Enable();
    SendGetConfig();
    AwaitLog(kAwaitsAgent);
    SendClose();
    AwaitLogInTime("LUX_KVM: Waiting for the ZelKvmAppThread to exit");
    StopInTime();
    // Its last lines come behind those of the stop, when the log is closed.
    EXPECT_TRUE(service->EndThreads(20000));
}

TEST_F(DisplaySession, AStopCancelsTheSizeThatTheFirmwareDoesNotAnswer) {
    Start(50);
    Enable();
    SendGetConfig();
    firmware.Hold("WriteDisplayConfig");
    AgentPeer agent;
    agent.SendConfig();
    ASSERT_TRUE(firmware.AwaitCount("WriteDisplayConfig", 1));
    StopInTime();
    ExpectLogInOrder({"sent status 0x3e3", kAppStopped, "ZEL Service DOWN"});
}

TEST_F(DisplaySession, AStopCancelsTheChunkThatTheFirmwareDoesNotAnswer) {
    ExpectErrors(
        {"CaptureEncode failed", "LUX_KVM: DisplayCaptureThread: SendIOCtlToDriver failed, dwError: 995"});
    BeginSession();
    firmware.Hold("WriteEncodedBuffer");
    firmware.Hold("SendEncodedDrvFrameBuffer");
    SendGetFrame();
    ASSERT_TRUE(firmware.AwaitCount("SendEncodedDrvFrameBuffer", 1));
    StopInTime();
    EXPECT_LT(LogCount("LUX_KVM: m_bIsKVMDisplayMgrThreadClosed 0 "), 10u);
}

// The listener has not been enabled, so that the stop has no KVM to clean up.
TEST_F(DisplaySession, TheProcessEndsTheThreadsThatAStopLeaves) {
    Start(50);
    SendGetConfig();
    AwaitLog(kAwaitsAgent);
    StopInTime();
    EXPECT_EQ(LogCount("Cleanup KVM connection"), 0u);
    Clock().SetManual(false);
    EXPECT_TRUE(service->EndThreads(20000));
}
