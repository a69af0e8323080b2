// The service stops in each state of remote KVM.
#include <gtest/gtest.h>

#include <thread>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kCleanUpStep[] = "Cleanup KVM connection";
constexpr uint32_t kRetryStatus = 1450;

class KvmStop : public KvmFixture {
  protected:
    void SetUp() override {
        KvmFixture::SetUp();
        AllowErrorsOfAStop();
    }
    // The stop, for which time passes as long as it waits for a firmware that doesn't answer.
    void StopInTime() {
        std::atomic<bool> stopped{false};
        std::thread stop([&] {
            StopService();
            stopped = true;
        });
        const bool over = Eventually([&] {
            if (!stopped && Clock().AwaitSleeper(2s, 1ms)) Advance(2s);
            return stopped.load();
        });
        if (!over) Clock().SetManual(false);
        stop.join();
        EXPECT_TRUE(over) << "the stop does not end";
    }
    // Another process of the service, with a log of its own.
    void RestartService() {
        service.reset();
        std::filesystem::remove(HostPath(std::string(kData) + "zel.log"));
        service = std::make_unique<ZELService>("");
        ASSERT_TRUE(service->InitializeLogging());
        firmware.Clear();
    }
    // The end of the process, in which time passes by itself. A hang shows by the test's own time limit.
    void End() {
        KillPrograms();
        Clock().SetManual(false);
        service.reset();
    }
};

}  // namespace

TEST_F(KvmStop, WithoutKvmCleansNothingUp) {
    Start();
    StopService();
    EXPECT_EQ(LogCount(kCleanUpStep), 0u);
    EXPECT_EQ(LogCount("DoKVMCleanUp"), 0u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

TEST_F(KvmStop, WithAListenerTellsTheFirmwareOfItsEnd) {
    Start();
    Enable();
    StopService();
    ExpectLogInOrder({kCleanUpStep, "DoKVMCleanUp called with socket state: 0", "DoCleanUp, function exit",
                      "WriteCloseSocketcmd: connecting to Driver. Input buffer size = 2",
                      "Cleaned Tarvix KVM App if still open.", "ZEL Service DOWN"});
    EXPECT_TRUE(HasLine("INFO", kCleanUpStep));
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    End();
}

TEST_F(KvmStop, WithAClientEndsTheSession) {
    ConsoleClient client = StartSession();
    StopService();
    EXPECT_TRUE(client.AwaitClose());
    const auto request = firmware.AwaitRequest("WriteCloseSocketcmd");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<CloseSocketRecord>().port, 22);
    EXPECT_EQ(ReadFile(TerminateFile()), "terminate\n");
    ExpectLogInOrder({kCleanUpStep, "DoKVMCleanUp called with socket state: 1",
                      "DoCleanUp: DataRecvThread exit complete", "Cleaned Tarvix KVM App if still open.",
                      "ZEL Service DOWN"});
    // State 2 is the firmware's last word of the host.
    EXPECT_EQ(firmware.Requests().back().name, "WriteZELStatus");
    End();
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    EXPECT_FALSE(Exists(TerminateFile()));
}

TEST_F(KvmStop, WithASecondClientClosesBoth) {
    ConsoleClient first = StartSession();
    ConsoleClient second = ConnectSession();
    StopService();
    EXPECT_TRUE(second.AwaitClose());
    EXPECT_TRUE(first.AwaitClose());
    End();
}

TEST_F(KvmStop, AfterASessionsEndLeavesTheCleanUpToIt) {
    StartNoAgents();
    { const ConsoleClient client = StartSession(); }
    AwaitLog(kCleanedUp);
    StopService();
    EXPECT_EQ(LogCount(kCleanUpStep), 0u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    End();
}

TEST_F(KvmStop, WaitsNoLongerForTheAgentThanItRuns) {
    WriteProgram(kAgent, kObedient);
    const ConsoleClient client = StartSession();
    StopService();
    ASSERT_TRUE(AwaitAgents(0));
    const auto before = Clock().Steady();
    ASSERT_TRUE(Eventually([&] {
        if (Clock().AwaitSleeper(100ms, 1ms)) Advance(100ms);
        return !Exists(TerminateFile());
    }));
    EXPECT_LE(Clock().Steady() - before, 100ms);
    EXPECT_EQ(Gate().Count("TerminateProcess"), 0u);
}

TEST_F(KvmStop, WaitsTwoSecondsForAnAgentThatStays) {
    const ConsoleClient client = StartSession();
    StopService();
    for (int look = 0; look < 19; ++look)
        PassSleepOf(100ms);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    EXPECT_EQ(Agents(), 1u);
    Advance(100ms);
    EXPECT_TRUE(AwaitAgents(0));
    EXPECT_TRUE(Eventually([] { return !Exists(TerminateFile()); }));
}

TEST_F(KvmStop, WhileAListenerWaitsForTheEarlierSession) {
    StartNoAgents();
    const ConsoleClient client = StartSession();
    CloseSession();
    SendEnable();
    ASSERT_TRUE(Clock().AwaitSleeper(500ms));
    StopService();
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
    End();
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmStop, WhileThePortIsTaken) {
    TakenPort taken;
    Pc().Change([&](auto& description) { description.ports[22] = taken.Port(); });
    ExpectErrors({"bind() API failed with error: 10048",
                  "RunServerKVMThread: Sleep and retry creating SSH port socket..."});
    Start();
    SendEnable();
    ASSERT_TRUE(Clock().AwaitSleeper(5s));
    StopService();
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
    // The listener's thread ends without any time passing.
    service.reset();
}

TEST_F(KvmStop, WhileTheFirmwareFallsSilentInMidRetry) {
    ExpectErrors({kRefused, kRefusedReturn});
    ConsoleClient client = StartSession();
    firmware.Refuse("WriteKVMPacket", kRetryStatus);
    firmware.Delay("WriteKVMPacket", 20ms);
    ASSERT_TRUE(client.Send("x"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 2));
    AwaitSilenceAt("WriteKVMPacket");
    StopInTime();
    EXPECT_TRUE(client.AwaitClose());
    ExpectLogInOrder({kCleanUpStep, "DoCleanUp: Waiting for the DataRecvThread to exit",
                      "DoCleanUp: DataRecvThread exit complete", "ZEL Service DOWN"});
    EXPECT_EQ(LogCount("Return code for KVM write packet: 995 ("), 1u);
    End();
}

TEST_F(KvmStop, WhileTheFirmwareRefusesAgainAndAgain) {
    ExpectErrors({kRefused, kRefusedReturn});
    ConsoleClient client = StartSession();
    firmware.Refuse("WriteKVMPacket", kRetryStatus);
    firmware.Delay("WriteKVMPacket", 20ms);
    ASSERT_TRUE(client.Send("x"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 2));
    StopInTime();
    EXPECT_TRUE(client.AwaitClose());
    EXPECT_LT(firmware.Count("WriteKVMPacket"), 601u);
    End();
}

TEST_F(KvmStop, WhileTheFirmwareAnswersNothingAtAll) {
    ConsoleClient client = StartSession();
    for (const char* request : {"WriteKVMPacket", "WriteCloseSocketcmd", "WriteZELStatus"})
        firmware.Hold(request);
    ASSERT_TRUE(client.Send("x"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 1));
    StopInTime();
    EXPECT_TRUE(client.AwaitClose());
    End();
}

TEST_F(KvmStop, WhileCommand35WaitsForASilentFirmware) {
    ConsoleClient client = StartSession();
    firmware.Hold("WriteKVMPacket");
    ASSERT_TRUE(client.Send("x"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 1));
    SendClose();
    AwaitLog("DoCleanUp: Waiting for the DataRecvThread to exit");
    StopInTime();
    EXPECT_EQ(LogCount(kCleanUpStep), 0u);
    EXPECT_TRUE(client.AwaitClose());
    End();
}

TEST_F(KvmStop, WhileTheFirmwareIsBeingToldOfAClient) {
    Start();
    Enable();
    firmware.Hold("WriteIPCompleteInformation");
    ConsoleClient client = Connect();
    ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", 1));
    StopInTime();
    EXPECT_TRUE(client.AwaitClose());
    End();
}

TEST_F(KvmStop, WhileAnAgentIsBeingStarted) {
    Start();
    Enable();
    Gate().Delay("CreateProcessAsUserA", 300ms);
    ConsoleClient client = Connect();
    AwaitLog("DoInitKVM: Entered");
    StopInTime();
    EXPECT_TRUE(client.AwaitClose());
    EXPECT_TRUE(Eventually([] { return Pc().Records<winhost::ProcessLaunch>().size() == 1; }));
    End();
    EXPECT_TRUE(AwaitAgents(0));
}

TEST_F(KvmStop, WhileAClientDoesNotRead) {
    ConsoleClient client = StartSession();
    const std::string block(100000, 'b');
    const auto sent = [] { return Gate().Count("send"); };
    // Until the connection has no more room: a message is on its way and doesn't get through.
    uint64_t count = 0;
    while (true) {
        firmware.Send(MPM_ZEL_CMD_KVM_DATA, block);
        ASSERT_TRUE(Eventually([&] { return sent() > count; }));
        count = sent();
        if (!Eventually([&] { return LogCount("KVM data sent: 100000") == count; }, 200ms)) break;
        ASSERT_LT(count, 1000u);
    }
    // The read loop stands still, and the stop doesn't.
    StopInTime();
    ExpectLogInOrder(
        {kCleanUpStep, "DoCleanUp: closesocket() API successful on KVM socket", "ZEL Service DOWN"});
    End();
}

TEST_F(KvmStop, WhileCommand35IsUnderWay) {
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        if (round > 0) {
            RestartService();
        } else {
            StartNoAgents();
        }
        ConsoleClient client = StartSession();
        SendClose();
        StopInTime();
        EXPECT_TRUE(client.AwaitClose());
        EXPECT_LE(firmware.Count("WriteCloseSocketcmd"), 1u);
        EXPECT_LE(LogCount("DoCleanUp, function exit"), 1u);
        service.reset();
    }
}

// The clean-up waits for the receive thread, and the listener is still open.
TEST_F(KvmStop, GivesNoSessionToAClientThatConnectsDuringTheCleanUp) {
    constexpr char kNoSession[] =
        "RunServerKVMThread: The session has been cleaned up, no client can connect";
    ConsoleClient first = StartSession();
    firmware.Hold("WriteKVMPacket");
    ASSERT_TRUE(first.Send("x"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 1));
    std::thread stop([&] { StopService(); });
    AwaitLog("DoCleanUp: Waiting for the DataRecvThread to exit");
    EXPECT_TRUE(Connect().AwaitClose());
    AwaitLog(kCleanedUp);
    EXPECT_TRUE(HasLine("INFO", kNoSession));
    firmware.Release("WriteKVMPacket");
    stop.join();
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 1u);
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
    EXPECT_EQ(LogCount(kReceiverExit), 1u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    EXPECT_STREQ(service->KVMStatus, "NO");
    End();
}

// The agent is started after the clean-up has removed the others.
TEST_F(KvmStop, RemovesAnAgentThatStartsDuringTheCleanUp) {
    Start();
    Enable();
    Gate().Delay("CreateProcessAsUserA", 300ms);
    ConsoleClient client = Connect();
    AwaitLog("DoInitKVM: Entered");
    ASSERT_TRUE(Eventually([] { return Gate().Count("CreateProcessAsUserA") == 1; }));
    StopService();
    EXPECT_TRUE(client.AwaitClose());
    ASSERT_TRUE(Eventually([] {
        if (Clock().AwaitSleeper(100ms, 1ms)) Advance(100ms);
        return Agents() == 0 && Pc().Records<winhost::ProcessLaunch>().size() == 1;
    }));
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 0u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    EXPECT_STREQ(service->KVMStatus, "NO");
    EXPECT_EQ(StatusFileKvm(), "none");
}

TEST_F(KvmStop, WhileAViewerReconnectsAgainAndAgain) {
    StartNoAgents();
    std::atomic<bool> over{false};
    const uint16_t port = Port();
    std::thread viewer([&] {
        while (!over) {
            ConsoleClient client(port);
            client.Send("a key");
            client.AwaitClose();
        }
    });
    constexpr int kStops = 20;
    for (int round = 1; round <= kStops; ++round) {
        SCOPED_TRACE(round);
        if (round > 1) RestartService();
        Start();
        SendEnable();
        AwaitLog(kAnnounced);
        // The last stop ends the connection that the viewer waits on.
        over = round == kStops;
        StopInTime();
        // Requests that the stop has cancelled may still reach the firmware in the next round.
        EXPECT_LE(LogCount("WriteCloseSocketcmd: connecting to Driver"), 1u);
        EXPECT_LE(LogCount("DoCleanUp, function exit"), 1u);
        service.reset();
    }
    viewer.join();
}

TEST_F(KvmStop, WhileTheClientCloses) {
    StartNoAgents();
    ConsoleClient client = StartSession();
    client.Close();
    StopInTime();
    EXPECT_LE(firmware.Count("WriteCloseSocketcmd"), 1u);
    End();
}
