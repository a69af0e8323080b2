// Which changes of the network reach the filter driver.
#include <string_view>

#include "tests/support/DriverPc.h"
#include "tests/unit/reporting/MonitoringFixture.h"

namespace {

constexpr uint32_t kWirelessType = 71;

class FilterDriverOrder : public NetworkMonitoring {
  protected:
    void SetUp() override {
        NetworkMonitoring::SetUp();
        driverpc::WritePowerShell("exit 0");
        driverpc::Install(driverpc::Driver());
        service->m_filterDriver.m_supportsS0 = 1;
        firmware.Change([](mpm::Settings& settings) { settings.ProvisionStatus = 2; });
    }
    static winhost::Adapter Radio() {
        winhost::Adapter adapter = Wired(2, "192.168.7.90", "192.168.7.1");
        adapter.type = kWirelessType;
        return adapter;
    }
    static void PlugRadio() { SetAdapters({Radio()}); }
    static void UnplugRadio() { SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")}); }
    // Also after another one: PassDebounce leaves a notification behind, which holds the next one back.
    void PassWlanEvent() {
        if (m_isHeldBack) Advance(kDebounce);
        do {
            Notify(wlan_notification_acm_connection_complete);
        } while (!Clock().AwaitSleeper(kDebounce, std::chrono::milliseconds(20)));
        PassDebounce();
        m_isHeldBack = true;
    }

  private:
    bool m_isHeldBack = false;
};

class FilterDriverPaths : public FilterDriverOrder, public ::testing::WithParamInterface<uint32_t> {};

}  // namespace

TEST_P(FilterDriverPaths, ThePlatformUpdateTurnsItOn) {
    PlugRadio();
    ReportTo(GetParam());
    EXPECT_TRUE(driverpc::Runs());
    EXPECT_EQ(LogCount("Filter driver enable successfully"), 1u);
    // The next one finds it on.
    ReportTo(GetParam());
    EXPECT_EQ(LogCount("Filter driver enable successfully"), 1u);
}

TEST_P(FilterDriverPaths, AScanTurnsItOnAndOff) {
    ReportTo(GetParam());
    EXPECT_FALSE(driverpc::Runs());
    PlugRadio();
    Poll();
    EXPECT_TRUE(driverpc::Runs());
    UnplugRadio();
    Poll();
    EXPECT_FALSE(driverpc::Runs());
    EXPECT_EQ(LogCount("Filter driver disable successfully"), 1u);
}

TEST_P(FilterDriverPaths, AWlanEventTurnsItOnAndOff) {
    ReportTo(GetParam());
    PlugRadio();
    PassWlanEvent();
    EXPECT_TRUE(driverpc::Runs());
    UnplugRadio();
    PassWlanEvent();
    EXPECT_FALSE(driverpc::Runs());
}

TEST_P(FilterDriverPaths, TheEndOfTheProvisioningCountsWithTheNextChange) {
    PlugRadio();
    ReportTo(GetParam());
    ASSERT_TRUE(driverpc::Runs());
    firmware.Change([](mpm::Settings& settings) { settings.ProvisionStatus = 1; });
    service->UpdateManageabilityStatus();
    Poll();
    EXPECT_TRUE(driverpc::Runs()) << "nothing has changed";
    winhost::Adapter moved = Radio();
    moved.address = "192.168.7.91";
    SetAdapters({moved});
    Poll();
    EXPECT_FALSE(driverpc::Runs());
}

INSTANTIATE_TEST_SUITE_P(EachKindOfFirmware, FilterDriverPaths, ::testing::Values(19, 20, 50));

TEST_F(FilterDriverOrder, FollowsTheInventoryAndPrecedesTheStatusFile) {
    RemoveStatusFile();
    size_t inventories = 0;
    bool hadStatusFile = true;
    Gate().Ask([&](const char* call, const void*) -> uint32_t {
        if (std::string_view(call) == "StartServiceA") {
            inventories = Received("WriteMultiNwInfo");
            hadStatusFile = HasStatusFile();
        }
        return 0;
    });
    PlugRadio();
    service->UpdatePlatformInfoToMPM();
    Gate().Reset();
    EXPECT_EQ(inventories, 1u);
    EXPECT_FALSE(hadStatusFile);
    EXPECT_TRUE(HasStatusFile());
    EXPECT_TRUE(driverpc::Runs());
}
