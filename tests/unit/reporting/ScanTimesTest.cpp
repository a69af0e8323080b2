// When the host's network is scanned, by each path, and what a scan costs the WLAN service.
#include <gtest/gtest.h>

#include "tests/unit/reporting/MonitoringFixture.h"

namespace {

using namespace std::chrono_literals;

class ScanTimes : public NetworkMonitoring {
  protected:
    static uint64_t Queries() { return Gate().Count("WlanEnumInterfaces"); }
    static uint64_t Scans() { return Gate().Count("GetIfTable"); }
    // Passes one wait of the scanning thread to the millisecond.
    void PassWait() {
        ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
        Advance(kPoll);
        ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
    }
};

class BelowWiFiSync : public ScanTimes, public ::testing::WithParamInterface<uint32_t> {};

}  // namespace

TEST_F(ScanTimes, TheReportDoesNotPutOffTheFirstPoll) {
    ReportTo(50);
    MoveAddress();
    PassWait();
    EXPECT_EQ(Received("WriteIPCompleteInformation"), 1u);
}

// The period is a millisecond longer than the wait.
TEST_F(ScanTimes, APollPutsOffTheNextOneByAWaitThatIsTooShort) {
    ReportTo(50);
    PassWait();
    MoveAddress();
    const uint64_t scans = Scans();
    PassWait();
    EXPECT_EQ(Scans(), scans);
    PassWait();
    EXPECT_GT(Scans(), scans);
    EXPECT_EQ(Received("WriteIPCompleteInformation"), 1u);
}

TEST_P(BelowWiFiSync, AnUnchangedWlanEventOnlyMovesThePoll) {
    ReportTo(GetParam());
    ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
    Advance(30000ms);
    const uint64_t queries = Queries(), scans = Scans();
    Notify(wlan_notification_acm_connection_complete);
    PassSleepOf(kDebounce);
    // A scan asks for the size of the table first.
    ASSERT_TRUE(Eventually([&] { return Scans() == scans + 2; }));
    Advance(29000ms);
    ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
    EXPECT_EQ(Scans(), scans + 2);
    EXPECT_EQ(Queries(), queries);
    EXPECT_TRUE(firmware.Requests().empty());
}

INSTANTIATE_TEST_SUITE_P(All, BelowWiFiSync, ::testing::Values(30, 39));

TEST_F(ScanTimes, AnUnchangedWlanEventChecksTheWlanFromLevel40) {
    ReportTo(40);
    const uint64_t queries = Queries();
    Notify(wlan_notification_acm_connection_complete);
    PassSleepOf(kDebounce);
    ASSERT_TRUE(Eventually([&] { return Queries() > queries; }));
    // The check is silent.
    EXPECT_EQ(LogCount("System is connected to"), 1u);
    EXPECT_EQ(LogCount("CheckIfWLANConnected: Number of Entries"), 1u);
}

TEST_F(ScanTimes, WithUpdatesDisabledAWlanEventDoesNotScan) {
    ReportTo(50);
    service->m_bNetworkUpdatesEnabled = 0;
    const uint64_t scans = Scans();
    Notify(wlan_notification_acm_connection_complete);
    PassDebounce();
    AwaitLog("Skipping network updates");
    EXPECT_EQ(Scans(), scans);
}
