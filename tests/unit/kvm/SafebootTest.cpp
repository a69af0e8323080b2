// KVM in safe boot, which the firmware drives by command 52.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

class Safeboot : public KvmFixture {
  protected:
    void StartInSafeBoot(uint32_t mode) {
        Start();
        service->m_bootMode = mode;
    }
    static size_t Reboots() { return Pc().Records<winhost::PowerAction>().size(); }
};

constexpr char kConnected[] = "Safeboot connected state received from driver";
constexpr char kDisconnected[] = "Safeboot disconnected state received from driver";

}  // namespace

TEST_F(Safeboot, ASessionStartsTheAgentAndNoListener) {
    StartInSafeBoot(1);
    SendSafeboot(1);
    AwaitHandled();
    EXPECT_EQ(Agents(), 1u);
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmEnabled);
    EXPECT_STREQ(service->KVMStatus, "YES");
    EXPECT_EQ(StatusFileKvm(), "YES");
    EXPECT_TRUE(HasLine("INFO", "MPM_ZEL_SAFEBOOT command received"));
    EXPECT_TRUE(HasLine("INFO", kConnected));
    EXPECT_EQ(LogCount("Create SSH socket"), 0u);
    EXPECT_EQ(Reboots(), 0u);
}

TEST_F(Safeboot, TheAgentIsStartedInTheModeOfTheSession) {
    StartInSafeBoot(1);
    service->m_kvmClientInterface.m_displayManager.m_bLuxKvmEnabled = 1;
    SendSafeboot(1);
    AwaitHandled();
    ASSERT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 1u);
    EXPECT_THAT(Pc().Records<winhost::ProcessLaunch>()[0].commandLine, testing::EndsWith(" -E 1"));
}

TEST_F(Safeboot, TheEndOfASessionRebootsTheHostAndIsNotToldToTheFirmware) {
    StartInSafeBoot(2);
    SendSafeboot(1);
    AwaitHandled();
    SendSafeboot(2);
    AwaitHandled();
    EXPECT_EQ(StatusFileKvm(), "NO");
    EXPECT_EQ(ReadFile(TerminateFile()), "terminate\n");
    ASSERT_EQ(Reboots(), 1u);
    EXPECT_EQ(Pc().Records<winhost::PowerAction>()[0].call,
              "InitiateSystemShutdownExA(null, null, 0, 1, 1, 0x80000000)");
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
    EXPECT_TRUE(HasLine("INFO", kDisconnected));
    ExpectLogInOrder({kConnected, "LaunchKVMAgent: KEYBOARD_MOUSE - KVM_Agent PID: ", kDisconnected,
                      "Do KVM Cleanup", "called TerminateKVMAgent", "Cleaned Tarvix KVM App if still open.",
                      kCleanedUp});
    PassAgentCleanUp();
    EXPECT_TRUE(AwaitAgents(0));
}

TEST_F(Safeboot, TheEndOfASessionLeavesKvmAsEveryOtherEnd) {
    StartInSafeBoot(2);
    SendSafeboot(1);
    AwaitHandled();
    SendSafeboot(2);
    AwaitHandled();
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmClosing);
    // No peer is named without a session.
    SendTrust("127.0.0.9");
    AwaitLog("KVM is disabled");
    // The next listener waits until the agent has been removed.
    SendEnable();
    ASSERT_TRUE(Clock().AwaitSleeper(500ms));
    EXPECT_EQ(LogCount("Create SSH socket"), 0u);
    PassAgentCleanUp();
    EXPECT_TRUE(AwaitAgents(0));
    ASSERT_TRUE(Eventually([&] {
        if (Clock().AwaitSleeper(500ms, 1ms)) Advance(500ms);
        return LogCount(kAccepting) == 1;
    }));
    ConsoleClient client = ConnectSession();
    EXPECT_TRUE(AwaitAgents(1));
    ASSERT_TRUE(client.Send("x"));
    EXPECT_TRUE(AwaitFirmwareBytes("x"));
}

TEST_F(Safeboot, ASecondSessionIsCleanedUpAsTheFirst) {
    StartInSafeBoot(2);
    for (const size_t session : {1u, 2u}) {
        SendSafeboot(1);
        AwaitHandled();
        EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmEnabled);
        SendSafeboot(2);
        AwaitHandled();
        EXPECT_EQ(LogCount("called TerminateKVMAgent"), session);
        PassAgentCleanUp();
        EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmNeverEnabled);
        EXPECT_TRUE(AwaitAgents(0));
        EXPECT_EQ(Reboots(), session);
        // The user cancels the reboot.
        Pc().Change([](auto& pc) { pc.shuttingDown = false; });
    }
}

TEST_F(Safeboot, TheEndOfASessionClosesTheListener) {
    StartInSafeBoot(2);
    Enable();
    ConsoleClient client = ConnectSession();
    SendSafeboot(2);
    EXPECT_TRUE(client.AwaitClose());
    // Here, and on the listener's thread, which thereby ends.
    AwaitLog(kCleanedUp, 2);
    EXPECT_EQ(LogCount("DoCleanUp, function exit"), 1u);
    EXPECT_EQ(Reboots(), 1u);
}

TEST_F(Safeboot, ASessionGoesOnWithoutAnAgent) {
    StartInSafeBoot(1);
    ExpectError("getWindowsLogonHandle: OpenProcess failed returning false");
    Pc().Change([](auto& description) { description.consoleSession = winhost::PcDescription::kNoSession; });
    SendSafeboot(1);
    AwaitHandled();
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmEnabled);
    EXPECT_EQ(StatusFileKvm(), "YES");
}

TEST_F(Safeboot, InARegularBootTheFirmwareIsToldOfTheEnd) {
    Start();
    SendSafeboot(2);
    AwaitHandled();
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    EXPECT_EQ(Reboots(), 1u);
}

TEST_F(Safeboot, AnotherStateDoesNothing) {
    StartInSafeBoot(1);
    for (const uint32_t state : {0u, 3u, 0xFFFFFFFFu})
        SendSafeboot(state);
    AwaitHandled();
    for (const char* state : {"0", "3", "-1"})
        EXPECT_TRUE(HasLine("INFO", std::string("Safeboot unknown state received from driver: ") + state));
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmNeverEnabled);
    EXPECT_EQ(Agents(), 0u);
    EXPECT_EQ(Reboots(), 0u);
}

// The whole message counts, with the number of the command behind the payload.
TEST_F(Safeboot, AShortPayloadIsNoState) {
    StartInSafeBoot(1);
    firmware.Send(MPM_ZEL_SAFEBOOT);
    AwaitLog("Safeboot unknown state received from driver: 52");
    firmware.Send(MPM_ZEL_SAFEBOOT, {1});
    AwaitLog("Safeboot unknown state received from driver: 13313");
    EXPECT_EQ(LogCount(kConnected), 0u);
}

TEST_F(Safeboot, OfALongPayloadTheFirst32BitsCount) {
    StartInSafeBoot(1);
    firmware.Send(MPM_ZEL_SAFEBOOT, std::string("\1\0\0\0", 4) + std::string(100000, '\xff'));
    AwaitHandled();
    EXPECT_EQ(LogCount(kConnected), 1u);
}

TEST_F(Safeboot, AStopEndsTheSession) {
    StartInSafeBoot(1);
    SendSafeboot(1);
    AwaitHandled();
    StopService();
    EXPECT_EQ(ReadFile(TerminateFile()), "terminate\n");
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
    EXPECT_EQ(Reboots(), 0u);
    ExpectLogInOrder({"Cleanup KVM connection", "DoKVMCleanUp called with socket state: 0",
                      "Cleaned Tarvix KVM App if still open."});
}

class SafeBootMode : public KvmFixture, public ::testing::WithParamInterface<uint32_t> {
  protected:
    void Describe(winhost::PcDescription& description) override {
        KvmFixture::Describe(description);
        description.cleanBoot = GetParam();
    }
};

TEST_P(SafeBootMode, IsServedFromTheStartOfTheService) {
    StartService();
    const auto request = firmware.AwaitRequest("WriteZELStatus");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<ZELStatusRecord>().state, GetParam() + 2);
    SendSafeboot(1);
    EXPECT_TRUE(AwaitAgents(1));
    SendSafeboot(2);
    AwaitHandled();
    EXPECT_EQ(Pc().Records<winhost::PowerAction>().size(), 1u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
    for (const uint16_t port : {664, 22})
        EXPECT_EQ(BacklogOf(Pc().Description().ports.at(port)), -1) << port;
}

// A console that comes by the listener in safe boot: its state is reported, and nothing else.
TEST_P(SafeBootMode, IsReportedAgainWithEachClient) {
    StartService();
    ASSERT_TRUE(firmware.AwaitCount("WriteZELStatus", 1));
    Enable();
    const ConsoleClient client = ConnectSession();
    const auto requests = firmware.Requests("WriteZELStatus");
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].As<ZELStatusRecord>().state, GetParam() + 2);
    EXPECT_EQ(firmware.Count("WriteOsInfo"), 0u);
    CloseSession();
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

INSTANTIATE_TEST_SUITE_P(BothModes, SafeBootMode, ::testing::Values(1, 2));
