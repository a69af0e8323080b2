// What a WLAN service that refuses leaves behind.
#include <gtest/gtest.h>

#include "tests/unit/reporting/ReportingFixture.h"
#include "winhost/wlan/WlanService.h"

namespace {

constexpr DWORD kNotSupported = 50;

class WlanFaults : public ReportingFixture {
  protected:
    NetworkMonitor& Monitor() { return service->m_networkMonitor; }
    static size_t Listeners() { return winhost::WlanService::Instance().Listeners(); }
};

}  // namespace

TEST_F(WlanFaults, AFailedRegistrationIsToldOnceAndKeepsItsHandle) {
    Gate().FailNth("WlanRegisterNotification", 1, kNotSupported);
    EXPECT_EQ(Monitor().RegisterWlanNotification(), kNotSupported);
    EXPECT_TRUE(HasLine("INFO", "WlanRegisterNotification failed with error: 50"));
    EXPECT_EQ(Monitor().RegisterWlanNotification(), 0u);
    EXPECT_TRUE(HasLine("INFO", "RegisterWlanNotification: WLAN registration already done"));
    EXPECT_EQ(Gate().Count("WlanOpenHandle"), 1u);
    EXPECT_EQ(Listeners(), 0u);

    Monitor().UnRegisterWlanNotification();
    EXPECT_EQ(Gate().Count("WlanCloseHandle"), 1u);
    EXPECT_EQ(LogCount("Skipping WLAN unregistration"), 0u);
}

TEST_F(WlanFaults, ARegistrationThatCannotBeEndedIsNotClosedAndTheNextOneIsNew) {
    ExpectError("UnRegisterWlanNotification: WlanRegisterNotification failed with error: 50");
    // One that never listened, or it would call back when this test is over.
    Gate().FailNth("WlanRegisterNotification", 1, kNotSupported);
    ASSERT_EQ(Monitor().RegisterWlanNotification(), kNotSupported);
    Gate().FailNth("WlanRegisterNotification", 1, kNotSupported);
    Monitor().UnRegisterWlanNotification();
    EXPECT_EQ(Gate().Count("WlanCloseHandle"), 0u);

    EXPECT_EQ(Monitor().RegisterWlanNotification(), 0u);
    EXPECT_EQ(Gate().Count("WlanOpenHandle"), 2u);
}

TEST_F(WlanFaults, AHandleThatCannotBeClosedIsToldAndForgotten) {
    ExpectError("WlanCloseHandle failed with error: 50");
    ASSERT_EQ(Monitor().RegisterWlanNotification(), 0u);
    Gate().FailNth("WlanCloseHandle", 1, kNotSupported);
    Monitor().UnRegisterWlanNotification();
    EXPECT_EQ(Listeners(), 0u);
    Monitor().UnRegisterWlanNotification();
    EXPECT_TRUE(HasLine("INFO", "UnRegisterWlanNotification: Skipping WLAN unregistration"));
}

TEST_F(WlanFaults, InterfacesThatCannotBeListedCountAsNoWlan) {
    Pc().Change([](auto& pc) {
        pc.wlanInterfaces = {{"{00000000-0000-0000-0000-000000000001}", "first", 1}};
    });
    Gate().FailNth("WlanEnumInterfaces", 1, kNotSupported);
    EXPECT_FALSE(Monitor().CheckWlanAndSyncProfile(true));
    EXPECT_TRUE(HasLine("INFO", "WlanEnumInterfaces failed with error: 50"));
    EXPECT_TRUE(HasLine("INFO", "System is connected to LAN"));
    EXPECT_TRUE(Monitor().CheckWlanAndSyncProfile(true));
}
