// What each power option does to the PC.
#include "hostcontrol/HostControl.h"

#include "tests/unit/hostcontrol/HostControlFixture.h"
#include "winhost/power/Privileges.h"

namespace {

using namespace std::chrono_literals;

class PowerActions : public HostControlFixture {
  protected:
    bool Do(uint32_t option) { return service->m_hostControl.DoSytemShutdown(option); }
};

struct Suspend {
    uint32_t option;
    std::string initiated, threadFailed, delaying, failed, call;

    friend void PrintTo(const Suspend& suspend, std::ostream* out) { *out << suspend.call; }
};

class SuspendActions : public PowerActions, public ::testing::WithParamInterface<Suspend> {};

const Suspend kSuspends[] = {
    {kPowerHibernate, "DoSytemShutdown: Hibernate initiated", "Hibernate power event thread failed",
     "Delaying Hibernate for 2 seconds", " Power option failed PowerOption: 0x3", "SetSuspendState(1, 1, 0)"},
    {kPowerSleep, "DoSytemShutdown: Sleep initiated", "Sleep power event thread failed",
     "Delaying Sleep for 2 seconds", "Power option failed PowerOption: 0x4", "SetSuspendState(0, 1, 0)"}};

}  // namespace

TEST_F(PowerActions, ShutsDown) {
    EXPECT_TRUE(Do(kPowerShutdown));
    EXPECT_EQ(PowerCalls(), Calls{kShutdown});
    EXPECT_EQ(Messages().back(), "DoSytemShutdown: Shutdown initiated");
}

TEST_F(PowerActions, Reboots) {
    EXPECT_TRUE(Do(kPowerReboot));
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
    EXPECT_EQ(Messages().back(), "DoSytemShutdown: Reboot initiated");
}

TEST_F(PowerActions, ShutsDownByTheUsersSession) {
    EXPECT_TRUE(Do(kPowerShutdownG2S5));
    EXPECT_EQ(PowerCalls(), Calls{kShutdownG2S5});
    EXPECT_EQ(Messages().back(), "DoSytemShutdown: Shutdown G2(S5) initiated");
}

TEST_F(PowerActions, AnUnknownOptionDoesNothing) {
    for (const uint32_t option : {0u, 6u, 255u, 0x101u}) {
        EXPECT_FALSE(Do(option)) << option;
        EXPECT_EQ(Messages().back(), "DoSytemShutdown: bStatus = false, error returned: 0");
    }
    EXPECT_TRUE(PowerCalls().empty());
}

TEST_F(PowerActions, AFailedCallIsTold) {
    const std::pair<uint32_t, const char*> calls[] = {{kPowerShutdown, "InitiateSystemShutdownExA"},
                                                      {kPowerReboot, "InitiateSystemShutdownExA"},
                                                      {kPowerShutdownG2S5, "ExitWindowsEx"}};
    for (const auto& [option, call] : calls) {
        Gate().FailNth(call, 1, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(Do(option)) << call;
        EXPECT_EQ(Messages().back(), "DoSytemShutdown: bStatus = false, error returned: 5");
    }
    EXPECT_TRUE(PowerCalls().empty());
}

TEST_F(PowerActions, ASecondShutdownDuringTheFirstIsRefusedAndTold) {
    EXPECT_TRUE(Do(kPowerReboot));
    for (const uint32_t option : {kPowerShutdown, kPowerReboot, kPowerShutdownG2S5}) {
        EXPECT_FALSE(Do(option)) << option;
        EXPECT_EQ(Messages().back(), "DoSytemShutdown: bStatus = false, error returned: 1115");
    }
    EXPECT_EQ(PowerCalls(), Calls{kReboot});
}

TEST_F(PowerActions, WithoutItsPrivilegeItTouchesNothing) {
    const std::pair<const char*, std::string> steps[] = {
        {"OpenProcessToken", "DoSytemShutdown: OpenProcessToken failed with error: 5"},
        {"LookupPrivilegeValueA", "DoSytemShutdown: LookupPrivilegeValue failed with error: 5"},
        {"AdjustTokenPrivileges", "DoSytemShutdown: AdjustTokenPrivileges failed with error: 5"}};
    for (const auto& [call, line] : steps) {
        Gate().FailNth(call, 1, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(Do(kPowerReboot));
        EXPECT_EQ(Messages().back(), line);
        EXPECT_TRUE(HasLine("INFO", line));
    }
    EXPECT_EQ(LogCount("initiated"), 0u);
    EXPECT_TRUE(PowerCalls().empty());
}

TEST_F(PowerActions, AUserWithoutThePrivilegeIsRefusedByTheCallItself) {
    Pc().Change([](auto& pc) { pc.privileges.clear(); });
    EXPECT_FALSE(Do(kPowerShutdown));
    EXPECT_EQ(Messages().back(), "DoSytemShutdown: bStatus = false, error returned: 1314");
    EXPECT_TRUE(PowerCalls().empty());
}

TEST_F(PowerActions, ThePrivilegeStaysEnabledAndNoHandleIsLeft) {
    const size_t handles = winhost::HandleTable::Instance().Size();
    EXPECT_TRUE(Do(kPowerShutdown));
    EXPECT_FALSE(Do(0));
    Gate().FailNth("AdjustTokenPrivileges", 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Do(kPowerShutdown));
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), handles);
    EXPECT_TRUE(winhost::IsPrivilegeEnabled("SeShutdownPrivilege"));
}

TEST_P(SuspendActions, ComesTwoSecondsLaterOnAThreadOfItsOwn) {
    // The record of a suspend is that of a failure.
    EXPECT_FALSE(Do(GetParam().option));
    EXPECT_TRUE(HasLine("INFO", "DoSytemShutdown: bStatus = false, error returned: 0"));
    ASSERT_TRUE(Clock().AwaitSleeper(2s));
    ExpectLogInOrder({GetParam().initiated});
    EXPECT_TRUE(HasLine("INFO", GetParam().delaying));
    Advance(1999ms);
    EXPECT_TRUE(PowerCalls().empty());
    Advance(1ms);
    ASSERT_TRUE(AwaitPowerCalls(1));
    EXPECT_EQ(PowerCalls(), Calls{GetParam().call});
}

TEST_P(SuspendActions, ARealFailureIsToldByTheThread) {
    Gate().FailNth("SetSuspendState", 1, ERROR_NOT_SUPPORTED);
    EXPECT_FALSE(Do(GetParam().option));
    PassSleepOf(2s);
    EXPECT_TRUE(Eventually([&] { return HasLine("INFO", GetParam().failed); }));
    EXPECT_TRUE(PowerCalls().empty());
}

TEST_P(SuspendActions, AThreadThatDoesNotStartIsTold) {
    Gate().FailNth("CreateThread", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(Do(GetParam().option));
    ExpectLogInOrder({GetParam().initiated, GetParam().threadFailed,
                      "DoSytemShutdown: bStatus = false, error returned: 8"});
    EXPECT_TRUE(PowerCalls().empty());
}

TEST_P(SuspendActions, ASecondOneRunsBesideTheFirst) {
    EXPECT_FALSE(Do(GetParam().option));
    EXPECT_FALSE(Do(GetParam().option));
    ASSERT_TRUE(Clock().AwaitSleepers(2));
    Advance(2s);
    ASSERT_TRUE(AwaitPowerCalls(2));
    EXPECT_EQ(PowerCalls(), (Calls{GetParam().call, GetParam().call}));
}

TEST_P(SuspendActions, ItsThreadNeedsNoService) {
    EXPECT_FALSE(Do(GetParam().option));
    ASSERT_TRUE(Clock().AwaitSleeper(2s));
    service.reset();
    Advance(2s);
    EXPECT_TRUE(AwaitPowerCalls(1));
}

INSTANTIATE_TEST_SUITE_P(EachKind, SuspendActions, ::testing::ValuesIn(kSuspends), [](const auto& info) {
    return info.param.option == kPowerHibernate ? std::string("Hibernate") : std::string("Sleep");
});
