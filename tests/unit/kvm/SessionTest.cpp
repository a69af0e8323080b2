// A session's beginning, and its second client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string_view>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

class KvmSession : public KvmFixture {
  protected:
    // Until the service waits for the bytes of so many clients, one after another.
    static bool AwaitReceives(uint64_t clients) {
        // Each but the first has waited for a client that leaves at once.
        return Eventually([=] { return Gate().Count("select") >= 2 * clients - 1; });
    }
};

constexpr char kLaunchFailed[] = "DoInitKVM: Launch KVM_Agent failed";
constexpr char kInitFailed[] =
    "RunServerKVMThread: DoInitKVM failed, closing the KVM connection and do complete cleanup";
constexpr char kNoLogonProgram[] = "getWindowsLogonHandle: OpenProcess failed returning false";

}  // namespace

TEST_F(KvmSession, BeginsWithTheAgentAndAnAnnouncementToTheFirmware) {
    const ConsoleClient client = StartSession();
    const auto request = firmware.AwaitRequest("WriteIPCompleteInformation");
    ASSERT_TRUE(request);
    const auto record = request->As<IPCompleteInfo>();
    EXPECT_EQ(record.Port, 22u);
    EXPECT_EQ(record.PeerAddress, inet_addr("127.0.0.1"));
    EXPECT_EQ(record.PeerPort, htons(client.Port()));
    EXPECT_EQ(record.PeerMarker, 0xFFFF);
    EXPECT_EQ(Agents(), 1u);
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmSocketState, kKvmClientConnected);
    EXPECT_STREQ(service->KVMStatus, "YES");
    EXPECT_EQ(StatusFileKvm(), "YES");
    ExpectLogInOrder({kAccepting, "DoInitKVM: Entered",
                      "LaunchKVMAgent: KEYBOARD_MOUSE - KVM_Agent PID: ", "Skipping platform updates to MPM",
                      "New KVM request arrived at ZEL. Forwarding KVM request to Mailbox driver", kAnnounced,
                      kAccepting});
    EXPECT_TRUE(HasLine("INFO", "DoInitKVM: Entered"));
    EXPECT_TRUE(HasLine("INFO", kAnnounced));
}

TEST_F(KvmSession, StartsTheAgentInItsMode) {
    Start();
    service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled = 1;
    Enable();
    const ConsoleClient client = Connect();
    ASSERT_TRUE(Eventually([] { return Pc().Records<winhost::ProcessLaunch>().size() == 1; }));
    EXPECT_THAT(Pc().Records<winhost::ProcessLaunch>()[0].commandLine, testing::EndsWith(" -E 1"));
}

TEST_F(KvmSession, BringsAFirmwareUpToDateThatTakesTheHostForDown) {
    Start();
    firmware.Change([](mpm::Settings& settings) {
        settings.StatusFollowsHost = false;
        settings.MPMStatus = 2;
    });
    Enable();
    firmware.Clear();
    const ConsoleClient client = Connect();
    // The session waits at most three seconds for the update, so no time passes before the update has begun.
    ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
    ASSERT_TRUE(Eventually([&] {
        if (Clock().AwaitSleeper(100ms, 1ms)) Advance(100ms);
        return LogCount(kAnnounced) == 1;
    }));
    const auto requests = firmware.Requests();
    ASSERT_GE(requests.size(), 2u);
    EXPECT_EQ(requests[0].name, "GetMPMStatus");
    EXPECT_EQ(requests[1].name, "WriteZELStatus");
}

// The firmware may send as soon as it has received the announcement.
TEST_F(KvmSession, IsConnectedBeforeItIsAnnounced) {
    Start();
    Enable();
    firmware.Hold("WriteIPCompleteInformation");
    ConsoleClient client = Connect();
    ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", 1));
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmSocketState, kKvmClientConnected);
    EXPECT_EQ(StatusFileKvm(), "YES");
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "hello");
    EXPECT_EQ(client.Receive(5), "hello");
    EXPECT_EQ(LogCount(kAnnounced), 0u);
    firmware.Release("WriteIPCompleteInformation");
    AwaitLog(kAnnounced);
    AwaitAccepting(2);
}

TEST_F(KvmSession, GoesOnWhenTheFirmwareRefusesTheAnnouncement) {
    Start();
    ExpectErrors({kRefused, kRefusedReturn});
    firmware.Refuse("WriteIPCompleteInformation", ERROR_GEN_FAILURE);
    Enable();
    ConsoleClient client = ConnectSession();
    ASSERT_TRUE(client.Send("x"));
    EXPECT_TRUE(AwaitFirmwareBytes("x"));
}

TEST_F(KvmSession, EndsAtOnceWhenTheAgentCannotBeStarted) {
    Start();
    Pc().Change([](auto& description) { description.consoleSession = winhost::PcDescription::kNoSession; });
    ExpectErrors({kNoLogonProgram, kLaunchFailed, kInitFailed});
    Enable();
    ConsoleClient client = Connect();
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog(kCleanedUp);
    ExpectLogInOrder({"DoInitKVM: Entered", kLaunchFailed, kInitFailed, "Do KVM Cleanup",
                      "DoKVMCleanUp called with socket state: 0",
                      "DoCleanUp: closesocket() API successful on KVM socket", kCleanedUp});
    EXPECT_TRUE(HasLine("ERROR", kLaunchFailed));
    EXPECT_TRUE(HasLine("ERROR", kInitFailed));
    EXPECT_EQ(LogCount(kAnnounced), 0u);
    EXPECT_EQ(StatusFileKvm(), "NO");
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmClosing);
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 0u);
    const auto request = firmware.AwaitRequest("WriteCloseSocketcmd");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<CloseSocketRecord>().port, 22);
}

TEST_F(KvmSession, EndsAtOnceWhenTheServiceDoesNotKnowItsFolder) {
    Start();
    Pc().Change([](auto& description) { description.modulePath = "ZELService.exe"; });
    ExpectErrors({kLaunchFailed, kInitFailed});
    Enable();
    ConsoleClient client = Connect();
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog(kCleanedUp);
    EXPECT_EQ(LogCount("Failed to locate service binary path"), 1u);
    EXPECT_EQ(LogCount(" Command: "), 0u);
}

TEST_F(KvmSession, ComesBackAfterAFailedOneOnlyByTheFirmwaresTwoCommands) {
    Start();
    ExpectErrors({"CreateProcessAsUser failed with error: 2", kLaunchFailed, kInitFailed});
    std::filesystem::remove(HostPath(std::string(kBin) + kAgent));
    Enable();
    EXPECT_TRUE(Connect().AwaitClose());
    AwaitLog(kCleanedUp);
    WriteProgram(kAgent, kStubborn);
    PassAgentCleanUp();
    SendEnable();
    AwaitHandled();
    EXPECT_EQ(LogCount(kAccepting), 1u);

    CloseSession();
    Enable();
    ConsoleClient client = ConnectSession();
    ASSERT_TRUE(client.Send("x"));
    EXPECT_TRUE(AwaitFirmwareBytes("x"));
}

// As the first one: a session that has been cleaned up before it must not pass for it.
TEST_F(KvmSession, IsCleanedUpAlsoWhenALaterOneCannotStartItsAgent) {
    StartNoAgents();
    { const ConsoleClient client = StartSession(); }
    AwaitLog(kCleanedUp);
    PassAgentCleanUp();
    CloseSession();

    ExpectErrors({"CreateProcessAsUser failed with error: 2", kLaunchFailed, kInitFailed});
    Gate().Reset();
    Gate().FailNth("CreateProcessAsUserA", 1, ERROR_FILE_NOT_FOUND);
    Enable();
    ConsoleClient client = Connect();
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog(kCleanedUp, 2);
    EXPECT_TRUE(firmware.AwaitCount("WriteCloseSocketcmd", 2));
}

TEST_F(KvmSession, GoesOverToItsSecondClientAtOnce) {
    ConsoleClient first = StartSession();
    ASSERT_TRUE(first.Send("1"));
    ASSERT_TRUE(AwaitFirmwareBytes("1"));
    ConsoleClient second = ConnectSession();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 2u);
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 2u);

    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "to the second");
    EXPECT_EQ(second.Receive(13), "to the second");
    // The first client sends nothing more.
    ASSERT_TRUE(second.Send("2"));
    PassReplacementPoll();
    ASSERT_TRUE(AwaitFirmwareBytes("12"));
    ASSERT_TRUE(second.Send("3"));
    ASSERT_TRUE(AwaitFirmwareBytes("123"));
    EXPECT_TRUE(first.IsQuiet());
}

TEST_F(KvmSession, TakesNothingFromAClientThatWasReplaced) {
    ConsoleClient first = StartSession();
    ASSERT_TRUE(AwaitReceives(1));
    ConsoleClient second = ConnectSession();
    // The receive thread still waits for the first client, and finds that it was replaced.
    ASSERT_TRUE(first.Send("never read"));
    ASSERT_TRUE(AwaitReceives(2));
    ASSERT_TRUE(second.Send("1"));
    ASSERT_TRUE(AwaitFirmwareBytes("1"));
    ASSERT_TRUE(first.Send("nor this"));
    ASSERT_TRUE(second.Send("2"));
    ASSERT_TRUE(AwaitFirmwareBytes("12"));
    EXPECT_TRUE(first.IsQuiet());
}

TEST_F(KvmSession, KeepsTheFirstClientsSocketOpenUntilItsEnd) {
    ConsoleClient first = StartSession();
    ASSERT_TRUE(AwaitReceives(1));
    ConsoleClient second = ConnectSession();
    EXPECT_TRUE(first.IsQuiet());
    CloseSession();
    EXPECT_TRUE(second.AwaitClose());
    EXPECT_TRUE(first.AwaitClose());
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmSession, SurvivesTheEndOfAClientThatWasReplaced) {
    ConsoleClient first = StartSession();
    ASSERT_TRUE(AwaitReceives(1));
    ConsoleClient second = ConnectSession();
    first.Close();
    ASSERT_TRUE(AwaitReceives(2));
    ConsoleClient third = ConnectSession();
    second.Reset();
    ASSERT_TRUE(AwaitReceives(3));
    ASSERT_TRUE(third.Send("3"));
    ASSERT_TRUE(AwaitFirmwareBytes("3"));
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
    EXPECT_EQ(LogCount("Client closed the connection. Socket address"), 0u);
    EXPECT_EQ(LogCount(kReceiverExit), 0u);
}

TEST_F(KvmSession, DropsWhatItReadsFromAClientWhileAnotherReplacesIt) {
    ConsoleClient first = StartSession();
    // Each recv() waits until it is let go.
    const auto held = std::make_shared<std::atomic<bool>>(true);
    Gate().Ask([held](const char* call, const void*) -> uint32_t {
        if (std::string_view(call) == "recv") held->wait(true);
        return 0;
    });
    const auto letGo = [&] {
        *held = false;
        held->notify_all();
    };
    // Also when an assertion ends the test.
    const std::shared_ptr<void> atTheEnd(nullptr, [&](void*) { letGo(); });
    ASSERT_TRUE(first.Send("never passed on"));
    ASSERT_TRUE(Eventually([] { return Gate().Count("recv") == 1; }));
    ConsoleClient second = ConnectSession();
    letGo();
    ASSERT_TRUE(second.Send("2"));
    ASSERT_TRUE(AwaitFirmwareBytes("2"));

    *held = true;
    const uint64_t before = Gate().Count("recv");
    second.Close();
    ASSERT_TRUE(Eventually([&] { return Gate().Count("recv") == before + 1; }));
    ConsoleClient third = ConnectSession();
    letGo();
    ASSERT_TRUE(third.Send("3"));
    EXPECT_TRUE(AwaitFirmwareBytes("23"));
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
}

TEST_F(KvmSession, LosesNothingToAClientThatLeavesAtOnce) {
    constexpr char kLeft[] =
        "RunServerKVMThread: Client closed the connection at once, the session continues";
    ConsoleClient viewer = StartSession();
    const auto leave = [](ConsoleClient& scan, bool byReset) { byReset ? scan.Reset() : scan.Close(); };
    size_t scans = 0;
    for (const bool byReset : {false, true}) {
        ConsoleClient scan = Connect();
        leave(scan, byReset);
        AwaitLog(kLeft, ++scans);
        AwaitAccepting(2 + scans);
    }
    EXPECT_TRUE(HasLine("INFO", kLeft));
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 1u);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "picture");
    EXPECT_EQ(viewer.Receive(7), "picture");
    ASSERT_TRUE(viewer.Send("key"));
    EXPECT_TRUE(AwaitFirmwareBytes("key"));
}

TEST_F(KvmSession, GivesAClientThatSpeaksItsSessionWithoutWaiting) {
    const ConsoleClient first = StartSession();
    ConsoleClient second = Connect();
    ASSERT_TRUE(second.Send("early"));
    AwaitLog(kAnnounced, 2);
    // The byte that was looked at is still there.
    PassReplacementPoll();
    EXPECT_TRUE(AwaitFirmwareBytes("early"));
}

// The first client replaces no other one.
TEST_F(KvmSession, BeginsForAClientThatLeavesAtOnceWhenNoneRuns) {
    Start();
    Enable();
    Connect().Close();
    AwaitLog(kCleanedUp);
    EXPECT_EQ(LogCount("DoInitKVM: Entered"), 1u);
    EXPECT_EQ(LogCount("at once, the session continues"), 0u);
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
}

TEST_F(KvmSession, ReceivesAlsoWhenTheWaitForBytesFails) {
    Start();
    Enable();
    Gate().FailNth("select", 1, WSAENOBUFS, true);
    ConsoleClient client = ConnectSession();
    ASSERT_TRUE(client.Send("x"));
    EXPECT_TRUE(AwaitFirmwareBytes("x"));
}

TEST_F(KvmSession, EndsForBothClientsWhenTheSecondCannotHaveItsAgent) {
    ConsoleClient first = StartSession();
    ExpectErrors({"CreateProcessAsUser failed with error: 5", kLaunchFailed, kInitFailed});
    Gate().FailNth("CreateProcessAsUserA", 1, ERROR_ACCESS_DENIED);
    ConsoleClient second = Connect();
    PassScanPatience();
    EXPECT_TRUE(second.AwaitClose());
    EXPECT_TRUE(first.AwaitClose());
    AwaitLog(kCleanedUp);
    EXPECT_EQ(StatusFileKvm(), "NO");
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmSession, TellsThatAReceiverCannotBeStartedAnyMore) {
    constexpr char kFailed[] = "StartDataRecvThread: Failed to start the KVM data receiver thread";
    ExpectError(kFailed);
    Start();
    Enable();
    // The process is ending; the listener still runs.
    EXPECT_FALSE(service->m_detachedThreads.AwaitEnd(0));
    service->m_kvmClientInterface.StartDataRecvThread();
    EXPECT_TRUE(HasLine("ERROR", kFailed));
}
