// A session's beginning, and its second client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

class KvmSession : public KvmFixture {
  protected:
    // Until the service waits for a client's bytes for the so-manieth time.
    static bool AwaitReceives(uint64_t count) {
        return Eventually([=] { return Gate().Count("recv") == count; });
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
    service->m_kvmClientInterface.m_bLuxKvmEnabled = 1;
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

TEST_F(KvmSession, GoesOverToItsSecondClient) {
    ConsoleClient first = StartSession();
    ASSERT_TRUE(first.Send("1"));
    ASSERT_TRUE(AwaitFirmwareBytes("1"));
    ASSERT_TRUE(AwaitReceives(2));
    ConsoleClient second = ConnectSession();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 2u);
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 2u);

    // The firmware's bytes go to the second at once.
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "to the second");
    EXPECT_EQ(second.Receive(13), "to the second");
    // The receive thread still waits for the first's, and turns to the second after them.
    ASSERT_TRUE(first.Send("2"));
    ASSERT_TRUE(AwaitFirmwareBytes("12"));
    ASSERT_TRUE(second.Send("3"));
    ASSERT_TRUE(AwaitFirmwareBytes("123"));
    ASSERT_TRUE(first.Send("never read"));
    ASSERT_TRUE(second.Send("4"));
    ASSERT_TRUE(AwaitFirmwareBytes("1234"));
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

TEST_F(KvmSession, SurvivesTheEndOfAFirstClientThatItNoLongerListensTo) {
    ConsoleClient first = StartSession();
    ASSERT_TRUE(AwaitReceives(1));
    ConsoleClient second = ConnectSession();
    ASSERT_TRUE(first.Send("1"));
    ASSERT_TRUE(AwaitFirmwareBytes("1"));
    ASSERT_TRUE(second.Send("2"));
    ASSERT_TRUE(AwaitFirmwareBytes("12"));
    first.Close();
    ASSERT_TRUE(second.Send("3"));
    ASSERT_TRUE(AwaitFirmwareBytes("123"));
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
}

TEST_F(KvmSession, EndsForBothClientsWhenTheSecondCannotHaveItsAgent) {
    ConsoleClient first = StartSession();
    ExpectErrors({"CreateProcessAsUser failed with error: 5", kLaunchFailed, kInitFailed});
    Gate().FailNth("CreateProcessAsUserA", 1, ERROR_ACCESS_DENIED);
    ConsoleClient second = Connect();
    EXPECT_TRUE(second.AwaitClose());
    EXPECT_TRUE(first.AwaitClose());
    AwaitLog(kCleanedUp);
    EXPECT_EQ(StatusFileKvm(), "NO");
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmSession, TellsThatAReceiverCannotBeStartedAnyMore) {
    constexpr char kFailed[] = "StartDataRecvThread: Failed to start the KVM data receiver thread";
    ExpectError(kFailed);
    // The process is ending.
    ASSERT_TRUE(service->m_detachedThreads.AwaitEnd(0));
    service->m_kvmClientInterface.StartDataRecvThread();
    EXPECT_TRUE(HasLine("ERROR", kFailed));
}
