// A host whose first interface is a virtual switch without a gateway: its primary address is that of another.
#include <gtest/gtest.h>

#include <vector>

#include "tests/unit/reporting/MonitoringFixture.h"

namespace {

class VirtualSwitch : public NetworkMonitoring {
  protected:
    void SetUp() override {
        NetworkMonitoring::SetUp();
        SetHost("172.28.0.1", "192.168.7.3");
    }
    static void SetHost(const char* switchAddress, const char* primaryAddress) {
        winhost::Adapter virtualSwitch = Wired(1, switchAddress, "");
        virtualSwitch.description = "Hyper-V Virtual Ethernet Adapter";
        virtualSwitch.dhcp = false;
        SetAdapters({virtualSwitch, Wired(2, primaryAddress, "192.168.7.1")});
    }
    void Report() {
        firmware.Clear();
        service->UpdatePlatformInfoToMPM();
    }
    // Every address that the firmware has received, in order.
    std::vector<uint32_t> Addresses() {
        std::vector<uint32_t> addresses;
        for (const mpm::Request& request : firmware.Requests("WriteIPCompleteInformation"))
            addresses.push_back(request.As<IPCompleteInfo>().IPv4Address);
        return addresses;
    }
    static size_t LookUps(uint64_t before) {
        // A scan makes two of these calls, the first of them with a buffer that is too small.
        return Gate().Count("GetAdaptersInfo") - before - 2;
    }
};

using Words = std::vector<uint32_t>;

}  // namespace

TEST_F(VirtualSwitch, StaysTheFirstInterfaceOfTheReport) {
    Report();
    const auto record = firmware.Requests("WriteMultiNwInfo").at(0).As<MultiNwInfo>();
    EXPECT_EQ(record.Count, 2);
    EXPECT_EQ(record.Entries[0].IPv4Address, inet_addr("172.28.0.1"));
    EXPECT_EQ(record.Entries[1].IPv4Address, inet_addr("192.168.7.3"));
    EXPECT_EQ(service->m_ipv4InfoStore.GetCurrentIPv4(), inet_addr("192.168.7.3"));
}

TEST_F(VirtualSwitch, CostsASecondLookUpInTheFirstReportOnly) {
    const uint32_t primary = inet_addr("192.168.7.3");
    uint64_t before = Gate().Count("GetAdaptersInfo");
    Report();
    EXPECT_EQ(Addresses(), (Words{primary, primary}));
    EXPECT_EQ(LookUps(before), 2u);
    for (int report = 0; report < 2; ++report) {
        service->StopPlatformUpdates();
        before = Gate().Count("GetAdaptersInfo");
        Report();
        EXPECT_EQ(Addresses(), Words{primary});
        EXPECT_EQ(LookUps(before), 1u);
    }
}

TEST_F(VirtualSwitch, DoesNotHideAPrimaryAddressThatMoves) {
    Report();
    firmware.Clear();
    SetHost("172.28.0.1", "192.168.7.44");
    Poll();
    EXPECT_EQ(Addresses(), Words{inet_addr("192.168.7.44")});
    SetHost("172.28.0.1", "192.168.7.45");
    Report();
    EXPECT_EQ(Addresses(), (Words{inet_addr("192.168.7.45"), inet_addr("192.168.7.45")}));
}

TEST_F(VirtualSwitch, ThatChangesHasThePrimaryAddressLookedUp) {
    Report();
    firmware.Clear();
    SetHost("172.28.0.9", "192.168.7.3");
    Poll();
    EXPECT_EQ(Addresses(), Words{inet_addr("192.168.7.3")});
}

TEST_F(VirtualSwitch, DoesNotHideThatTheFirstLookUpFailed) {
    ExpectError("GetAdaptersInfo failed with error: 50");
    Report();
    Gate().FailNth("GetAdaptersInfo", 1, ERROR_NOT_SUPPORTED);
    Report();
    EXPECT_EQ(Addresses(), (Words{0, inet_addr("192.168.7.3")}));
}
