// How the firmware switches the listener on, and whom it lets in.
#include <gtest/gtest.h>

#include <memory>

#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;
using KvmListener = KvmFixture;

constexpr char kBindFailed[] = "bind() API failed with error: 10048";
constexpr char kSleepAndRetry[] = "RunServerKVMThread: Sleep and retry creating SSH port socket...";
constexpr char kUntrusted[] =
    "RunServerKVMThread: KVM IP validation failed, closing the base socket and retry...";
constexpr char kAcceptFailed[] =
    "RunServerKVMThread: KVM socket Accept failed, closing the base socket and retry...";

}  // namespace

TEST_F(KvmListener, IsThereFromTheFirmwaresCommandOn) {
    Start();
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmNeverEnabled);
    Enable();
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmEnabled);
    EXPECT_TRUE(ConnectSession().IsQuiet());
    AwaitLog("Setting KVM Enabled to ");
    ExpectLogInOrder({"MPM_ZEL_CMD_KVM_ENABLE_STATUS says that KVM is now enabled", "Launching KVM Thread",
                      "Setting KVM Enabled to "});
    ExpectLogInOrder({"Launching KVM Thread", "Create SSH socket", kAccepting});
    for (const char* line : {"MPM_ZEL_CMD_KVM_ENABLE_STATUS says that KVM is now enabled",
                             "Launching KVM Thread", "Create SSH socket", kAccepting})
        EXPECT_TRUE(HasLine("INFO", line)) << line;
}

TEST_F(KvmListener, IsEnabledTwiceAndStartedOnce) {
    Start();
    Enable();
    SendEnable();
    AwaitHandled();
    EXPECT_EQ(LogCount("Launching KVM Thread"), 2u);
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
    EXPECT_EQ(LogCount(kAccepting), 1u);
    EXPECT_TRUE(HasLine("INFO", "Setting KVM Enabled to true"));
}

TEST_F(KvmListener, TriesEveryFiveSecondsForAPortThatIsTaken) {
    auto taken = std::make_unique<TakenPort>();
    Pc().Change([&](auto& description) { description.ports[22] = taken->Port(); });
    ExpectErrors({kBindFailed, kSleepAndRetry});
    Start();
    SendEnable();
    AwaitLog(kSleepAndRetry);
    EXPECT_TRUE(HasLine("ERROR", kSleepAndRetry));
    ASSERT_TRUE(Clock().AwaitSleeper(5s));
    Advance(4999ms);
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
    Advance(1ms);
    AwaitLog(kSleepAndRetry, 2);
    EXPECT_EQ(LogCount(kAccepting), 0u);

    taken.reset();
    PassSleepOf(5s);
    AwaitAccepting();
    EXPECT_TRUE(ConnectSession().IsQuiet());
}

TEST_F(KvmListener, GivesUpAPortThatIsTakenWhenTheFirmwareClosesKvm) {
    TakenPort taken;
    Pc().Change([&](auto& description) { description.ports[22] = taken.Port(); });
    ExpectErrors({kBindFailed, kSleepAndRetry});
    Start();
    SendEnable();
    ASSERT_TRUE(Clock().AwaitSleeper(5s));
    SendClose();
    AwaitLog("MPM_ZEL_CMD_VNC_SOC_CLOSE received");
    ASSERT_TRUE(AwaitState(kKvmClosing));
    Advance(5s);
    AwaitLog(kCleanedUp);
    EXPECT_EQ(LogCount("Create SSH socket"), 1u);
}

TEST_F(KvmListener, IsBuiltAnewAtOnceWhenAnAcceptFails) {
    ExpectErrors({"accept() API failed with error: 10055", kAcceptFailed});
    Gate().FailNth("accept", 1, WSAENOBUFS);
    Start();
    Enable();
    AwaitAccepting(2);
    ExpectLogInOrder({"Create SSH socket", kAccepting, "accept() API failed with error: 10055", kAcceptFailed,
                      "Create SSH socket", kAccepting});
    EXPECT_TRUE(HasLine("ERROR", kAcceptFailed));
    EXPECT_TRUE(ConnectSession().IsQuiet());
}

TEST_F(KvmListener, IsNotLeftBehindByACloseThatFallsIntoItsCreation) {
    Start();
    Gate().Delay("socket", 300ms);
    SendEnable();
    ASSERT_TRUE(Eventually([] { return Gate().Count("socket") == 1; }));
    CloseSession();
    EXPECT_EQ(TakenPort(Port()).Port(), Port()) << "somebody still listens";
}

TEST_F(KvmListener, LetsAnyPeerInWhileTheFirmwareHasNamedNone) {
    Start();
    Enable();
    ConsoleClient client(Port(), "127.0.0.9");
    AwaitLog(kAnnounced);
    EXPECT_EQ(LogCount(kUntrusted), 0u);
}

TEST_F(KvmListener, LetsThePeerInThatTheFirmwareNamed) {
    Start();
    Enable();
    SendTrust("127.0.0.9", 5900);
    AwaitLog("IP: 0x900007f & Port: 0x170c");
    ExpectLogInOrder({"MPM_ZEL_CMD_KVM_IP_PORT_INFO gives IP and Port to trust for KVM",
                      "Setting KVM IP and port", "IP: 0x900007f & Port: 0x170c"});
    for (const char* line : {"MPM_ZEL_CMD_KVM_IP_PORT_INFO gives IP and Port to trust for KVM",
                             "Setting KVM IP and port", "IP: 0x900007f & Port: 0x170c"})
        EXPECT_TRUE(HasLine("INFO", line)) << line;
    ConsoleClient client(Port(), "127.0.0.9");
    ASSERT_NE(client.Port(), 5900);
    AwaitLog(kAnnounced);
    EXPECT_EQ(LogCount(kUntrusted), 0u);
}

TEST_F(KvmListener, NeitherClosesNorUsesThePeerThatIsNotTrusted) {
    ExpectError(kUntrusted);
    Start();
    Enable();
    SendTrust("127.0.0.9");
    AwaitHandled();
    ConsoleClient stranger = Connect();
    AwaitAccepting(2);
    EXPECT_TRUE(HasLine("ERROR", kUntrusted));
    ExpectLogInOrder({kAccepting, kUntrusted, "Create SSH socket", kAccepting});
    ASSERT_TRUE(stranger.Send("let me in"));

    ConsoleClient trusted(Port(), "127.0.0.9");
    AwaitLog(kAnnounced);
    ASSERT_TRUE(trusted.Send("mine"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 1));
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "yours");
    EXPECT_EQ(trusted.Receive(5), "yours");
    EXPECT_EQ(FirmwareBytes(), "mine");
    EXPECT_TRUE(stranger.IsQuiet());
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);

    // It stays so when the session is over.
    CloseSession();
    EXPECT_TRUE(trusted.AwaitClose());
    EXPECT_TRUE(stranger.IsQuiet());
}

TEST_F(KvmListener, StartsNoAgentForAPeerThatIsNotTrusted) {
    ExpectError(kUntrusted);
    Start();
    Enable();
    SendTrust("127.0.0.9");
    AwaitHandled();
    ConsoleClient stranger = Connect();
    AwaitAccepting(2);
    EXPECT_TRUE(Pc().Records<winhost::ProcessLaunch>().empty());
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmSocketState, 0);
}

TEST_F(KvmListener, TrustsForOneSession) {
    Start();
    StartNoAgents();
    Enable();
    SendTrust("127.0.0.9");
    AwaitHandled();
    ConsoleClient first(Port(), "127.0.0.9");
    AwaitLog(kAnnounced);
    CloseSession();
    PassAgentCleanUp();
    Enable();
    ConsoleClient second = Connect();
    AwaitLog(kAnnounced, 2);
    EXPECT_EQ(LogCount(kUntrusted), 0u);
}

TEST_F(KvmListener, AnAddressThatComesTooEarlyIsNotKept) {
    Start();
    SendTrust("127.0.0.9", 5900);
    AwaitLog("KVM is disabled");
    EXPECT_TRUE(HasLine("INFO", "KVM is disabled"));
    EXPECT_EQ(LogCount("IP: 0x"), 0u);
    Enable();
    ConnectSession();
}

TEST_F(KvmListener, AnAddressThatComesTooLateIsNotKept) {
    StartNoAgents();
    { const ConsoleClient client = StartSession(); }
    ASSERT_TRUE(AwaitState(kKvmClosing));
    SendTrust("127.0.0.9", 5900);
    AwaitLog("KVM is disabled");
    PassAgentCleanUp();
    CloseSession();
    Enable();
    ConsoleClient client = Connect();
    AwaitLog(kAnnounced, 2);
}

TEST_F(KvmListener, AnEmptyAddressIsIgnored) {
    Start();
    Enable();
    firmware.Send(MPM_ZEL_CMD_KVM_IP_PORT_INFO);
    AwaitHandled();
    EXPECT_EQ(LogCount("MPM_ZEL_CMD_KVM_IP_PORT_INFO gives IP and Port to trust for KVM"), 1u);
    EXPECT_EQ(LogCount("Setting KVM IP and port"), 0u);
}

TEST_F(KvmListener, AShortAddressLeavesTheRestAsItWas) {
    Start();
    Enable();
    SendTrust("127.0.0.9", 5900);
    firmware.Send(MPM_ZEL_CMD_KVM_IP_PORT_INFO, {10, 20});
    AwaitLog("IP: 0x900140a & Port: 0x170c");
    firmware.Send(MPM_ZEL_CMD_KVM_IP_PORT_INFO, {127, 0, 0, 1, 1});
    AwaitLog("IP: 0x100007f & Port: 0x1701");
}

TEST_F(KvmListener, ALongAddressIsCut) {
    Start();
    Enable();
    std::string payload("\x7f\x00\x00\x01\x0c\x17\x00\x00", 8);
    payload += std::string(5000, '\xff');
    firmware.Send(MPM_ZEL_CMD_KVM_IP_PORT_INFO, payload);
    AwaitLog("IP: 0x100007f & Port: 0x170c");
    ConnectSession();
}

TEST_F(KvmListener, ForgetsTheTrustedAddressWhenTheDriverIsInitialised) {
    firmware.Hold("WriteZELStatus");
    StartService();
    // The first report to the firmware is under way, and its messages are read.
    ASSERT_TRUE(firmware.AwaitCount("WriteZELStatus", 1));
    Enable();
    SendTrust("127.0.0.9", 5900);
    AwaitLog("IP: 0x900007f & Port: 0x170c");
    firmware.Release("WriteZELStatus");
    AwaitListener();
    // The port, which is only logged, is not touched.
    EXPECT_TRUE(Eventually([&] {
        service->m_kvmClientInterface.SetKVMIPAndPort("", 0);
        return LogCount("IP: 0x0 & Port: 0x170c") > 0;
    }));
    ConnectSession();
}
