// When a power command of the firmware acts.
#include "mailbox/MailboxCodes.h"
#include "service/CommandDispatch.h"
#include "tests/unit/hostcontrol/HostControlFixture.h"

namespace {

using namespace std::chrono_literals;

class PowerCommands : public HostControlFixture {
  protected:
    void Receive(MpmCommand command, std::vector<uint8_t> payload = {}) {
        const auto length = static_cast<uint32_t>(payload.size() + kMailboxTrailerSize);
        payload.push_back(command);
        payload.push_back(0);
        ProcessRead(service.get(), length, payload.data());
    }
    void ReceiveDashAnswer() { Receive(MPM_ZEL_CMD_DASH_DATA, {'o', 'k'}); }

    HostControl& Power() { return service->m_hostControl; }
};

}  // namespace

TEST_F(PowerCommands, WaitForTheNextDashAnswer) {
    Receive(MPM_ZEL_CMD_HOST_OFF_HARD);
    EXPECT_TRUE(HasLine("INFO", "ProcessRead: Shutdown Command received: MPM_ZEL_CMD_HOST_OFF_HARD"));
    EXPECT_TRUE(PowerCalls().empty());
    Receive(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_TRUE(PowerCalls().empty());
    ReceiveDashAnswer();
    EXPECT_EQ(PowerCalls(), Calls{kShutdown});
}

TEST_F(PowerCommands, AnEmptyDashMessageIsNoAnswer) {
    Receive(MPM_ZEL_CMD_HOST_CYCLE_SOFT);
    Receive(MPM_ZEL_CMD_DASH_DATA);
    EXPECT_TRUE(PowerCalls().empty());
    ReceiveDashAnswer();
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
}

TEST_F(PowerCommands, OnlyTheLastOneActs) {
    Receive(MPM_ZEL_CMD_HOST_OFF_HARD);
    Receive(MPM_ZEL_CMD_HOST_CYCLE_SOFT);
    ReceiveDashAnswer();
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
}

TEST_F(PowerCommands, ActOnce) {
    Receive(MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE);
    EXPECT_TRUE(HasLine("INFO", "ProcessRead: Sleep Command received: MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE"));
    ReceiveDashAnswer();
    ReceiveDashAnswer();
    EXPECT_EQ(PowerCalls(), Calls{kShutdownG2S5});
}

TEST_F(PowerCommands, AFailedOneIsNotRepeatedAndItsLineShowsTheEmptyLatch) {
    Gate().FailNth("InitiateSystemShutdownExA", 1, ERROR_ACCESS_DENIED);
    Receive(MPM_ZEL_CMD_HOST_OFF_HARD);
    ReceiveDashAnswer();
    ExpectLogInOrder(
        {"DoSytemShutdown: bStatus = false, error returned: 5", "Power option failed PowerOption: 0x0"});
    ReceiveDashAnswer();
    EXPECT_TRUE(PowerCalls().empty());
    EXPECT_EQ(LogCount("Shutdown initiated"), 1u);
}

TEST_F(PowerCommands, SleepLeavesTheRecordOfAFailureAndSleeps) {
    Receive(MPM_ZEL_CMD_HOST_SLEEP_LIGHT);
    EXPECT_TRUE(HasLine("INFO", "ProcessRead: Sleep Command received: MPM_ZEL_CMD_HOST_SLEEP_LIGHT"));
    ReceiveDashAnswer();
    ExpectLogInOrder({"DoSytemShutdown: Sleep initiated",
                      "DoSytemShutdown: bStatus = false, error returned: 0",
                      "Power option failed PowerOption: 0x0"});
    PassSleepOf(2s);
    ASSERT_TRUE(AwaitPowerCalls(1));
    EXPECT_EQ(PowerCalls(), Calls{kSleep});
}

TEST_F(PowerCommands, Hibernates) {
    Receive(MPM_ZEL_CMD_HOST_HIBERNATE);
    EXPECT_TRUE(HasLine("INFO", "ProcessRead: Hibernate Command received: MPM_ZEL_CMD_HOST_HIBERNATE"));
    ReceiveDashAnswer();
    PassSleepOf(2s);
    ASSERT_TRUE(AwaitPowerCalls(1));
    EXPECT_EQ(PowerCalls(), Calls{kHibernate});
}

TEST_F(PowerCommands, ARebootWithoutDashActsAtOnceAndLeavesTheLatchAlone) {
    Receive(MPM_ZEL_CMD_HOST_OFF_HARD);
    Receive(MPM_ZEL_CMD_REBOOT_NONDASH);
    EXPECT_TRUE(HasLine("INFO", "ProcessRead: Reboot Command Nondash received: MPM_ZEL_CMD_REBOOT_NONDASH"));
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
    EXPECT_EQ(LogCount("DoSytemShutdown false for Reboot_Command_Nondash"), 0u);
    // The first shutdown is cancelled: the PC refuses a second one.
    Pc().Change([](auto& pc) { pc.shuttingDown = false; });
    ReceiveDashAnswer();
    EXPECT_EQ(PowerCalls(), (Calls{kReboot, kShutdown}));
}

TEST_F(PowerCommands, ARebootThatFailsAtOnceIsTold) {
    Gate().FailNth("InitiateSystemShutdownExA", 1, ERROR_ACCESS_DENIED);
    Receive(MPM_ZEL_CMD_REBOOT_NONDASH);
    EXPECT_TRUE(HasLine("INFO", "ProcessRead: DoSytemShutdown false for Reboot_Command_Nondash"));
}

TEST_F(PowerCommands, TheLatchTakesTheLowByteAndRunsWhatIsAnOption) {
    Power().SetPowerOption(0x102);
    Power().RunPendingPowerOption();
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
    for (const uint32_t option : {0u, 6u, 0xFFu, 0x100u}) {
        Power().SetPowerOption(option);
        Power().RunPendingPowerOption();
    }
    EXPECT_EQ(PowerCalls().size(), 1u);
    EXPECT_EQ(LogCount("Power option failed"), 0u);
}

TEST_F(PowerCommands, FollowEachOtherFromTheFirmwareThroughTheMailbox) {
    StartService();
    ASSERT_TRUE(firmware.AwaitHostListening());
    firmware.Send(MPM_ZEL_CMD_HOST_CYCLE_SOFT);
    AwaitLog("ProcessRead: Reboot Command received: MPM_ZEL_CMD_HOST_CYCLE_SOFT");
    EXPECT_TRUE(PowerCalls().empty());
    firmware.SendDash("answer");
    ASSERT_TRUE(AwaitPowerCalls(1));
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
    AwaitListener();
    StopService();
}
