// What the service does when the WLAN service restarts under it: all its handles are invalid then.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/unit/reporting/MonitoringFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

using winhost::WlanService;

class WlanRestart : public NetworkMonitoring {
  protected:
    static constexpr char kRenewed[] =
        "RegisterWlanNotification: WLAN client handle is no longer valid, registering again";

    void SetUp() override {
        NetworkMonitoring::SetUp();
        Pc().Change([](auto& pc) {
            pc.wlanInterfaces = {{"{00000000-0000-0000-0000-000000000001}", "first", 1}};
        });
    }
    bool IsConnected() { return service->m_networkMonitor.CheckWlanAndSyncProfile(true); }
    static void RunWlanService(bool runs) {
        Pc().Change([&](auto& pc) { pc.wlanService = runs; });
    }
    static size_t Listeners() { return WlanService::Instance().Listeners(); }
    static void NotifyByTheService() {
        WlanService::Instance().Notify({.code = wlan_notification_acm_connection_complete, .data = ""});
    }
};

}  // namespace

TEST_F(WlanRestart, NotificationsArriveAgainAfterTheNextPoll) {
    ReportTo(50);
    const size_t handles = winhost::HandleTable::Instance().Size();
    WlanService::Instance().Restart();
    NotifyByTheService();
    EXPECT_FALSE(Clock().AwaitSleeper(kDebounce, std::chrono::milliseconds(20)));
    Poll();
    EXPECT_EQ(Listeners(), 1u);
    EXPECT_TRUE(HasLine("WARN", kRenewed));
    EXPECT_EQ(LogCount("has registered ZEL to receive network change notifications successfully"), 2u);
    EXPECT_TRUE(firmware.Requests().empty());

    MoveAddress();
    NotifyByTheService();
    PassDebounce();
    EXPECT_EQ(Received("WriteMultiNwInfo"), 1u);
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), handles);
}

TEST_F(WlanRestart, APollWithoutARestartKeepsItsRegistration) {
    ReportTo(50);
    const uint64_t opened = Gate().Count("WlanOpenHandle");
    Poll();
    EXPECT_EQ(Gate().Count("WlanOpenHandle"), opened);
    EXPECT_EQ(LogCount(kRenewed), 0u);
}

TEST_F(WlanRestart, AQueryRenewsItsHandleAndTheRegistration) {
    ReportTo(50);
    ASSERT_TRUE(IsConnected());
    WlanService::Instance().Restart();
    EXPECT_TRUE(IsConnected());
    EXPECT_EQ(LogCount("WlanEnumInterfaces failed with error: 6"), 1u);
    EXPECT_EQ(LogCount(kRenewed), 1u);
    EXPECT_EQ(Listeners(), 1u);
    EXPECT_TRUE(IsConnected());
    EXPECT_EQ(LogCount("WlanEnumInterfaces failed with error: 6"), 1u);
}

TEST_F(WlanRestart, AQueryThatIsInvalidForEverIsRepeatedOnce) {
    Gate().FailNth("WlanEnumInterfaces", 1, ERROR_INVALID_HANDLE, true);
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(Gate().Count("WlanEnumInterfaces"), 2u);
    EXPECT_EQ(Gate().Count("WlanOpenHandle"), 2u);
    ASSERT_EQ(service->m_networkMonitor.RegisterWlanNotification(), 0u);
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(Gate().Count("WlanRegisterNotification"), 2u);
}

TEST_F(WlanRestart, AStoppedWlanServiceCostsNoHandleUntilItRunsAgain) {
    ReportTo(50);
    RunWlanService(false);
    const uint64_t opened = Gate().Count("WlanOpenHandle");
    EXPECT_FALSE(IsConnected());
    Poll();
    EXPECT_EQ(Gate().Count("WlanOpenHandle"), opened);
    EXPECT_EQ(LogCount(kRenewed), 0u);

    RunWlanService(true);
    Poll();
    EXPECT_EQ(LogCount(kRenewed), 1u);
    EXPECT_EQ(Listeners(), 1u);
}

TEST_F(WlanRestart, ARegistrationThatCannotBeRenewedIsTriedAgainAtTheNextPoll) {
    ReportTo(50);
    WlanService::Instance().Restart();
    Gate().FailNth("WlanOpenHandle", 1, ERROR_SERVICE_NOT_ACTIVE);
    Poll();
    EXPECT_EQ(Listeners(), 0u);
    EXPECT_TRUE(HasLine("INFO", "RegisterWlanNotification: WlanOpenHandle() failed with error: 1062"));
    Poll();
    EXPECT_EQ(Listeners(), 1u);
    EXPECT_EQ(LogCount(kRenewed), 1u);
}

TEST_F(WlanRestart, AServiceThatHasUnregisteredDoesNotRegisterAgain) {
    ReportTo(50);
    WlanService::Instance().Restart();
    Gate().FailNth("WlanOpenHandle", 1, ERROR_SERVICE_NOT_ACTIVE);
    Poll();
    service->StopPlatformUpdates();
    AwaitLog("UnRegisterWlanNotification: Skipping WLAN unregistration");
    // The check finds a Wi-Fi profile, which a service that has stopped cannot send.
    ExpectError("Service is not signalled as Up");
    WlanService::Instance().Restart();
    EXPECT_TRUE(IsConnected());
    EXPECT_EQ(Listeners(), 0u);
}

TEST_F(WlanRestart, AQueryKeepsItsHandleWhileAnotherOneRenewsIt) {
    const size_t stale = winhost::HandleTable::Instance().StaleUses();
    std::atomic<bool> over{false};
    const auto query = [&] {
        while (!over)
            IsConnected();
    };
    std::thread first(query), second(query);
    for (int restart = 0; restart < 50; ++restart) {
        WlanService::Instance().Restart();
        const uint64_t queries = Gate().Count("WlanEnumInterfaces");
        EXPECT_TRUE(Eventually([&] { return Gate().Count("WlanEnumInterfaces") >= queries + 4; }));
    }
    over = true;
    first.join();
    second.join();
    EXPECT_EQ(winhost::HandleTable::Instance().StaleUses(), stale);
    EXPECT_TRUE(IsConnected());
}
