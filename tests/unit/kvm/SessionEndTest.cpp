// The ways in which a session ends, its clean-up, and what comes after it.
#include <gtest/gtest.h>

#include <thread>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;
using KvmSessionEnd = KvmFixture;

constexpr char kCloseReceived[] = "MPM_ZEL_CMD_VNC_SOC_CLOSE received";
constexpr char kTerminateFailed[] = "TerminateKVMAgent()  failed with error: ";

}  // namespace

TEST_F(KvmSessionEnd, TheFirmwareEndsItByCommand35) {
    ConsoleClient client = StartSession();
    SendTrust("127.0.0.9", 5900);
    CloseSession();
    EXPECT_TRUE(client.AwaitClose());
    const auto request = firmware.AwaitRequest("WriteCloseSocketcmd");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<CloseSocketRecord>().port, 22);
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmClosing);
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmSocketState, kKvmCleanedUp);
    EXPECT_STREQ(service->KVMStatus, "NO");
    EXPECT_EQ(StatusFileKvm(), "NO");
}

TEST_F(KvmSessionEnd, EveryStepOfTheCleanUpIsToldInItsOrder) {
    const ConsoleClient client = StartSession();
    AllowError("accept() API failed with error: 10004");
    CloseSession();
    PassAgentCleanUp();
    const std::vector<std::string> steps = {
        "RunServerKVMThread: KVM socket Accept failed, closing the base socket and retry...",
        "Do KVM Cleanup",
        "DoKVMCleanUp called with socket state: 1",
        "Termiante 'is written to terminate file.",
        "called TerminateKVMAgent",
        "DoCleanUp: closesocket() API successful on KVM socket",
        "DoCleanUp: Waiting for the DataRecvThread to exit",
        "DoCleanUp: DataRecvThread exit complete",
        "DoCleanUp, function exit",
        "WriteCloseSocketcmd: connecting to Driver. Input buffer size = 2",
        "Cleaned Tarvix KVM App if still open.",
        kCleanedUp};
    ExpectLogInOrder(steps);
    for (size_t i = 1; i < steps.size(); ++i)
        EXPECT_TRUE(HasLine("INFO", steps[i])) << steps[i];
    EXPECT_TRUE(HasLine("INFO", kCloseReceived));
    // A receive thread that is woken by the end starts no second one.
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
    ExpectLogInOrder({"Cleaned Tarvix KVM App if still open.",
                      "Forcefully exited ZELKVMApp.exe by kill by process", kAgentRemoved,
                      "Terminate file deleted successfully", "DisplayMgr file does not exist"});
}

TEST_F(KvmSessionEnd, TheAgentIsAskedToLeaveAndMadeToTwoSecondsLater) {
    const ConsoleClient client = StartSession();
    ASSERT_EQ(Agents(), 1u);
    CloseSession();
    EXPECT_EQ(ReadFile(TerminateFile()), "terminate\n");
    ASSERT_TRUE(Clock().AwaitSleeper(2s));
    Advance(1999ms);
    EXPECT_EQ(Agents(), 1u);
    EXPECT_TRUE(Exists(TerminateFile()));
    Advance(1ms);
    EXPECT_TRUE(AwaitAgents(0));
    AwaitLog("DisplayMgr file does not exist");
    EXPECT_FALSE(Exists(TerminateFile()));
    EXPECT_EQ(LogCount("Forcefully exited ZELKVMApp.exe by kill by process"), 1u);
}

TEST_F(KvmSessionEnd, AnAgentThatLeavesWhenAskedNeedsNoForce) {
    WriteProgram(kAgent, kObedient);
    const ConsoleClient client = StartSession();
    CloseSession();
    EXPECT_TRUE(AwaitAgents(0));
    PassAgentCleanUp();
    EXPECT_EQ(LogCount("Forcefully exited"), 0u);
    EXPECT_FALSE(Exists(TerminateFile()));
}

TEST_F(KvmSessionEnd, BothAgentsOfASessionAreMadeToLeave) {
    ConsoleClient first = StartSession();
    ConsoleClient second = ConnectSession();
    ASSERT_EQ(Agents(), 2u);
    CloseSession();
    PassAgentCleanUp();
    EXPECT_TRUE(AwaitAgents(0));
    EXPECT_EQ(LogCount("Forcefully exited ZELKVMApp.exe by kill by process"), 2u);
}

TEST_F(KvmSessionEnd, TheAgentsLogIsDeletedWithTheTerminateFile) {
    const ConsoleClient client = StartSession();
    WriteFile(DisplayMgrLog(), "log");
    CloseSession();
    PassAgentCleanUp();
    EXPECT_TRUE(HasLine("INFO", "Terminate file deleted successfully"));
    EXPECT_TRUE(HasLine("INFO", "DisplayMgr file deleted successfully"));
    EXPECT_FALSE(Exists(DisplayMgrLog()));
}

TEST_F(KvmSessionEnd, ATerminateFileThatCannotBeCreatedDoesNotHoldTheCleanUp) {
    ConsoleClient client = StartSession();
    std::filesystem::create_directories(HostPath(TerminateFile() + "\\taken"));
    std::filesystem::create_directories(HostPath(DisplayMgrLog() + "\\taken"));
    CloseSession();
    EXPECT_TRUE(client.AwaitClose());
    PassAgentCleanUp();
    EXPECT_TRUE(HasLine("INFO", "Failed to create terminate.txt file."));
    ExpectLogInOrder(
        {"Failed to create terminate.txt file.", "called TerminateKVMAgent", "DoCleanUp, function exit"});
    EXPECT_EQ(LogCount("Termiante 'is written"), 0u);
    // Nor can these be deleted; the agent has to leave all the same.
    EXPECT_TRUE(HasLine("WARN", "Terminate file deletion failed"));
    EXPECT_TRUE(HasLine("WARN", "DisplayMgr file deletion failed"));
    EXPECT_TRUE(AwaitAgents(0));
}

TEST_F(KvmSessionEnd, ATerminateFileThatCannotBeWrittenDoesNotHoldTheCleanUp) {
    ConsoleClient client = StartSession();
    ExpectError(kTerminateFailed);
    FillDiskFor(TerminateFile());
    CloseSession();
    EXPECT_TRUE(client.AwaitClose());
    ExpectLogInOrder({"Termiante 'is written to terminate file.", kTerminateFailed,
                      "DoCleanUp: closesocket() API successful on KVM socket", kCleanedUp});
    EXPECT_EQ(LogCount("called TerminateKVMAgent"), 0u);
    EXPECT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
}

TEST_F(KvmSessionEnd, ASocketThatCannotBeClosedIsTold) {
    constexpr char kFailed[] = "closesocket() API failed with error: 10038";
    ConsoleClient client = StartSession();
    ExpectError(kFailed);
    // The first that is closed is the listener.
    Gate().FailNth("closesocket", 2, WSAENOTSOCK);
    SendClose();
    AwaitLog(kFailed);
    EXPECT_TRUE(HasLine("ERROR", kFailed));
    // The receive thread waits on the socket that is still open.
    client.Close();
    AwaitLog(kCleanedUp);
}

TEST_F(KvmSessionEnd, AListenerThatNobodyCameToIsClosedAndCleanedUp) {
    Start();
    Enable();
    CloseSession();
    EXPECT_EQ(TakenPort(Port()).Port(), Port()) << "somebody still listens";
    ExpectLogInOrder({kCloseReceived, "Do KVM Cleanup", "DoKVMCleanUp called with socket state: 0",
                      "DoCleanUp, function exit", kCleanedUp});
    EXPECT_EQ(LogCount("closesocket() API successful"), 0u);
    EXPECT_EQ(LogCount("Waiting for the DataRecvThread"), 0u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmSessionEnd, Command35WithoutAListenerOnlySaysSo) {
    Start();
    CloseSession();
    EXPECT_EQ(LogCount(kCloseReceived), 1u);
    EXPECT_EQ(LogCount("Do KVM Cleanup"), 0u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
    // And KVM can be enabled all the same.
    Enable();
    ConnectSession();
}

TEST_F(KvmSessionEnd, Command35TurnsTheDisplayPathOffFromVersion50) {
    for (const uint32_t version : {49u, 50u}) {
        service->m_vorkVersion = version;
        service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled = 1;
        service->m_kvmClientInterface.CloseKVMSession();
        EXPECT_EQ(service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled, version < 50 ? 1 : 0)
            << version;
    }
}

TEST_F(KvmSessionEnd, TheCleanUpTurnsTheDisplayPathOff) {
    const ConsoleClient client = StartSession(49);
    service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled = 1;
    CloseSession();
    EXPECT_EQ(service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled, 0);
}

TEST_F(KvmSessionEnd, Command35EndsItWhileTheClientFloods) {
    ConsoleClient client = StartSession();
    std::thread flood([&] {
        const std::string block(100000, 'f');
        while (client.Send(block)) {
        }
    });
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 20));
    CloseSession();
    flood.join();
    EXPECT_EQ(LogCount(kReceiverExit), 1u);
    const size_t count = firmware.Count("WriteKVMPacket");
    AwaitHandled();
    EXPECT_EQ(firmware.Count("WriteKVMPacket"), count);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmSessionEnd, AfterTheClientsCloseOnly35And38BringKvmBack) {
    StartNoAgents();
    { const ConsoleClient client = StartSession(); }
    AwaitLog(kCleanedUp);
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmClosing);
    SendEnable();
    AwaitHandled();
    EXPECT_TRUE(HasLine("INFO", "Setting KVM Enabled to true"));
    PassAgentCleanUp();
    ASSERT_TRUE(AwaitState(kKvmNeverEnabled));
    SendEnable();
    AwaitHandled();
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmNeverEnabled);
    EXPECT_TRUE(HasLine("INFO", "Setting KVM Enabled to false"));

    CloseSession();
    Enable();
    ConsoleClient client = ConnectSession();
    ASSERT_TRUE(client.Send("back"));
    EXPECT_TRUE(AwaitFirmwareBytes("back"));
}

TEST_F(KvmSessionEnd, ANewListenerWaitsUntilTheEarlierSessionIsOver) {
    StartNoAgents();
    const ConsoleClient client = StartSession();
    CloseSession();
    SendEnable();
    ASSERT_TRUE(Clock().AwaitSleeper(2s));
    for (int polls = 0; polls < 3; ++polls)
        PassSleepOf(500ms);
    ASSERT_TRUE(Clock().AwaitSleepersOf(500ms, 2));
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmClosing);
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);

    Advance(500ms);
    // The agent's end and the listener's wait fall together: at the latest the next look sees it.
    ASSERT_TRUE(Eventually([&] {
        if (Clock().AwaitSleeper(500ms, 1ms)) Advance(500ms);
        return LogCount(kAccepting) == 3;
    }));
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmEnabled);
    ConnectSession();
}

TEST_F(KvmSessionEnd, Command35EndsAListenerThatStillWaitsForTheEarlierSession) {
    StartNoAgents();
    const ConsoleClient client = StartSession();
    CloseSession();
    ASSERT_TRUE(Clock().AwaitSleeper(2s));
    SendEnable();
    ASSERT_TRUE(Clock().AwaitSleeper(500ms));
    SendClose();
    AwaitLog(kCloseReceived, 2);
    ASSERT_TRUE(Clock().AwaitSleeper(500ms));
    Advance(500ms);
    AwaitHandled();
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
    EXPECT_EQ(LogCount(kCleanedUp), 2u);
    // The session was cleaned up once.
    EXPECT_EQ(LogCount("DoKVMCleanUp called with socket state: 2"), 1u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);

    PassSleepOf(1500ms);
    ASSERT_TRUE(AwaitState(kKvmNeverEnabled));
    Enable();
    ConnectSession();
}

TEST_F(KvmSessionEnd, AnAgentThatANewSessionStartsTooEarlyGoesWithTheOldOnes) {
    const ConsoleClient client = StartSession();
    CloseSession();
    ASSERT_TRUE(Clock().AwaitSleeper(2s));
    // A safe boot's session waits for nothing.
    SendSafeboot(1);
    EXPECT_TRUE(AwaitAgents(2));
    PassAgentCleanUp();
    EXPECT_TRUE(AwaitAgents(0));
    AwaitHandled();
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmEnabled);
}

TEST_F(KvmSessionEnd, OfTwoCleanUpsTheSecondFindsNothingToDo) {
    const ConsoleClient client = StartSession();
    service->m_kvmClientInterface.DoKVMCleanUp();
    service->m_kvmClientInterface.DoKVMCleanUp();
    EXPECT_EQ(LogCount("DoKVMCleanUp called with socket state: 1"), 1u);
    EXPECT_EQ(LogCount("DoKVMCleanUp called with socket state: 2"), 1u);
    EXPECT_EQ(LogCount("DoCleanUp, function exit"), 1u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmSessionEnd, TwoCleanUpsAtOnceMakeOne) {
    const ConsoleClient client = StartSession();
    std::thread other([this] { service->m_kvmClientInterface.DoKVMCleanUp(); });
    service->m_kvmClientInterface.DoKVMCleanUp();
    other.join();
    EXPECT_EQ(LogCount("DoKVMCleanUp called with socket state: 1"), 1u);
    EXPECT_EQ(LogCount("DoKVMCleanUp called with socket state: 2"), 1u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

// The log of so many would take long to be read again and again: it is not what this waits for.
TEST_F(KvmSessionEnd, AHundredSessionsLeaveNothingBehind) {
    constexpr size_t kSessions = 100;
    StartNoAgents();
    Start();
    size_t handles = 0;
    for (size_t count = 1; count <= kSessions; ++count) {
        SendEnable();
        ConsoleClient first = Connect();
        ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", 2 * count - 1));
        ConsoleClient second = Connect();
        PassScanPatience();
        ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", 2 * count));
        ASSERT_TRUE(Eventually([&] { return Gate().Count("accept") == 3 * count; }));
        SendClose();
        EXPECT_TRUE(second.AwaitClose());
        EXPECT_TRUE(first.AwaitClose());
        PassSleepOf(2s);
        ASSERT_TRUE(AwaitState(kKvmNeverEnabled));
        if (count == 1) handles = OpenHandles();
    }
    EXPECT_TRUE(Eventually([&] { return OpenHandles() == handles; })) << OpenHandles() << " for " << handles;
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), kSessions);
}
