// Which change of the network reaches the firmware, by which way, and at which version of it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/reporting/MonitoringFixture.h"

namespace {

using namespace std::chrono_literals;

class Versions : public NetworkMonitoring, public ::testing::WithParamInterface<uint32_t> {};

}  // namespace

TEST_P(Versions, ThePlatformUpdateSendsWhatThisFirmwareTakes) {
    const uint32_t version = GetParam();
    firmware.Change([&](mpm::Settings& settings) { settings.uVORKVersion = version; });
    service->UpdatePlatformInfoToMPM();
    EXPECT_EQ(Received("WriteOsInfo"), 1u);
    EXPECT_EQ(Received("WriteNetworkStatusInfo"), 1u);
    EXPECT_EQ(Received("WriteIPCompleteInformation"), 1u);
    EXPECT_EQ(Received("WriteMultiNwInfo"), version >= 20 ? 1u : 0u);
    EXPECT_EQ(Received("WriteNwInfo"), version < 20 ? 1u : 0u);
    EXPECT_EQ(Received("WriteADInfo"), version >= 45 ? 1u : 0u);
    EXPECT_EQ(LogCount("NUBA does not apply to version below VOR-K 2.0"), version < 21 ? 1u : 0u);
}

TEST_P(Versions, AnUnchangedPollSendsAndWritesNothing) {
    ReportTo(GetParam());
    RemoveStatusFile();
    Poll();
    EXPECT_FALSE(HasStatusFile());
    EXPECT_TRUE(firmware.Requests().empty());
    EXPECT_EQ(LogCount("Available NICs Count"), 0u);
}

TEST_P(Versions, AChangedPollSendsTheAddressAlone) {
    ReportTo(GetParam());
    MoveAddress();
    Poll();
    EXPECT_EQ(Received("WriteIPCompleteInformation"), 1u);
    EXPECT_EQ(firmware.Requests().size(), 1u);
    AwaitLog("IPv4Address mismatch: current value: 307a8c0, new value: 2c07a8c0");
    AwaitLog("Available NICs Count: 1");
}

TEST_P(Versions, AChangeWritesTheStatusFileByEitherWay) {
    ReportTo(GetParam());
    RemoveStatusFile();
    MoveAddress();
    Poll();
    EXPECT_TRUE(HasStatusFile());
    RemoveStatusFile();
    SetAdapters({Wired(1, "192.168.7.45", "192.168.7.1")});
    Notify(wlan_notification_acm_connection_complete);
    PassDebounce();
    EXPECT_TRUE(HasStatusFile());
}

TEST_P(Versions, AWlanEventWithAChangeSendsAddressAndInventory) {
    ReportTo(GetParam());
    MoveAddress();
    Notify(wlan_notification_acm_connection_complete);
    PassDebounce();
    const bool isNew = GetParam() >= 20;
    EXPECT_EQ(Received("WriteIPCompleteInformation"), isNew ? 2u : 1u);
    EXPECT_EQ(Received("WriteMultiNwInfo"), isNew ? 1u : 0u);
    EXPECT_EQ(Received("WriteNwInfo"), isNew ? 0u : 1u);
    EXPECT_EQ(Received("WriteOsInfo") + Received("WriteADInfo") + Received("WriteNetworkStatusInfo"), 0u);
}

TEST_P(Versions, AWlanEventWithoutAChangeSendsAndWritesNothing) {
    ReportTo(GetParam());
    RemoveStatusFile();
    Notify(wlan_notification_acm_connection_complete);
    PassDebounce();
    EXPECT_FALSE(HasStatusFile());
    EXPECT_TRUE(firmware.Requests().empty());
}

INSTANTIATE_TEST_SUITE_P(All, Versions, ::testing::Values(19, 20, 21, 30, 31, 39, 40, 44, 45, 49, 50));

TEST_F(NetworkMonitoring, OldFirmwareHearsNothingOfOtherWlanEvents) {
    ReportTo(19);
    MoveAddress();
    Notify(wlan_notification_acm_disconnected);
    PassDebounce();
    EXPECT_TRUE(firmware.Requests().empty());
    AwaitLog("WLAN_NOTIFICATION_SOURCE_ACM received -- Wlan is disconnected");
}

TEST_F(NetworkMonitoring, OldFirmwareHearsNothingOfAnotherSource) {
    ReportTo(19);
    MoveAddress();
    Notify(wlan_notification_acm_connection_complete, WLAN_NOTIFICATION_SOURCE_MSM);
    PassDebounce();
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(NetworkMonitoring, ANotificationDuringTheDebounceIsDropped) {
    ReportTo(50);
    Notify(wlan_notification_acm_disconnected);
    Notify(wlan_notification_acm_connection_complete);
    ASSERT_TRUE(Clock().AwaitSleepers(2));  // the scanning thread and one debounce
    MoveAddress();
    PassDebounce();
    EXPECT_EQ(Received("WriteMultiNwInfo"), 1u);
}

TEST_F(NetworkMonitoring, AScanByWlanPutsOffTheNextPoll) {
    ReportTo(50);
    ASSERT_TRUE(Clock().AwaitSleeper(61000ms));
    Advance(40000ms);
    const uint64_t queries = Gate().Count("WlanEnumInterfaces");
    Notify(wlan_notification_acm_connection_complete);
    PassSleepOf(2000ms);
    // The last thing that a scan without a change does.
    ASSERT_TRUE(Eventually([&] { return Gate().Count("WlanEnumInterfaces") > queries; }));
    MoveAddress();
    Advance(21000ms);
    ASSERT_TRUE(Clock().AwaitSleeper(61000ms));
    EXPECT_EQ(Received("WriteIPCompleteInformation"), 0u);
    Advance(kPeriod);
    ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", 1));
}

TEST_F(NetworkMonitoring, ASpeedThatChangesTriggersNothing) {
    ReportTo(50);
    winhost::Adapter faster = Wired(1, "192.168.7.3", "192.168.7.1");
    faster.speed = 10'000'000;
    SetAdapters({faster});
    Poll();
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(NetworkMonitoring, AHostWithoutInterfacesRewritesItsStatusFileAtEveryPoll) {
    ExpectErrors({"GetAdaptersInfo failed with error: 232"});
    ReportTo(50);
    SetAdapters({});
    for (int poll = 0; poll < 2; ++poll) {
        RemoveStatusFile();
        Poll();
        EXPECT_TRUE(HasStatusFile());
    }
    EXPECT_EQ(LogCount("The system has disconnected from the network (connected -> disconnected)"), 1u);
}

TEST_F(NetworkMonitoring, WithUpdatesDisabledAWlanEventIsOnlyLogged) {
    ReportTo(50);
    MoveAddress();
    service->m_bNetworkUpdatesEnabled = 0;
    Notify(wlan_notification_acm_connection_complete);
    PassDebounce();
    EXPECT_TRUE(firmware.Requests().empty());
    AwaitLog("Skipping network updates");
}

TEST_F(NetworkMonitoring, TheFarewellEndsScansAndNotifications) {
    ReportTo(50);
    service->StopPlatformUpdates();
    AwaitLog("Network scanning thread exitting gracefully");
    service->m_networkMonitor.UnRegisterWlanNotification();
    AwaitLog("UnRegisterWlanNotification: Skipping WLAN unregistration");
    EXPECT_EQ(service->m_ipv4InfoStore.GetCurrentIPv4(), 0u);
}

TEST_F(NetworkMonitoring, TheReportAfterAResumeStartsScansAndNotificationsAgain) {
    ReportTo(50);
    service->StopPlatformUpdates();
    EXPECT_EQ(winhost::WlanService::Instance().Listeners(), 0u);
    ReportTo(50);

    MoveAddress();
    Poll();
    EXPECT_EQ(Received("WriteIPCompleteInformation"), 1u);
    SetAdapters({Wired(1, "192.168.7.45", "192.168.7.1")});
    winhost::WlanService::Instance().Notify({.code = wlan_notification_acm_connection_complete, .data = ""});
    PassDebounce();
    EXPECT_EQ(Received("WriteMultiNwInfo"), 1u);
}

TEST_F(NetworkMonitoring, ASecondUpdateKeepsThreadAndRegistration) {
    ReportTo(50);
    service->UpdatePlatformInfoToMPM();
    EXPECT_EQ(LogCount("Network scanning thread starting"), 1u);
    AwaitLog("RegisterWlanNotification: WLAN registration already done");
}

TEST_F(NetworkMonitoring, OnlyTheFirstWlanInterfaceCounts) {
    Pc().Change([](auto& pc) {
        pc.wlanInterfaces = {{"{00000000-0000-0000-0000-000000000001}", "first", 4},
                             {"{00000000-0000-0000-0000-000000000002}", "second", 1}};
    });
    EXPECT_FALSE(service->m_networkMonitor.CheckWlanAndSyncProfile(true));
    EXPECT_EQ(LogCount("PrintWLANState: Not connected"), 2u);
    AwaitLog("System is connected to LAN");
    Pc().Change([](auto& pc) { pc.wlanInterfaces.at(0).state = 1; });
    EXPECT_TRUE(service->m_networkMonitor.CheckWlanAndSyncProfile(true));
    AwaitLog("System is connected to WLAN");
}

TEST_F(NetworkMonitoring, AFailingWlanServiceCountsAsNoWlan) {
    Pc().Change([](auto& pc) { pc.wlanService = false; });
    EXPECT_FALSE(service->m_networkMonitor.CheckWlanAndSyncProfile(true));
    AwaitLog("WlanOpenHandle failed with error: 1062");
    EXPECT_EQ(service->m_networkMonitor.RegisterWlanNotification(), 1062u);
    AwaitLog("RegisterWlanNotification: WlanOpenHandle() failed with error: 1062");
}
