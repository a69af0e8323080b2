// What a scan makes of the host's interfaces, and what the firmware receives about them.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "reporting/HostNames.h"
#include "reporting/NetworkInventory.h"
#include "reporting/NicInfo.h"
#include "tests/unit/reporting/ReportingFixture.h"
#include "winhost/tests/PcTime.h"

namespace {

using namespace std::chrono_literals;

class Inventory : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        OpenMailbox();
    }

    static winhost::Adapter Wireless(uint32_t index, const std::string& address) {
        winhost::Adapter adapter = Wired(index, address, "192.168.7.1");
        adapter.type = 71;
        return adapter;
    }

    MultiNwInfo Fill() const {
        MultiNwInfo record;
        service->m_networkInventory.FillMultiNwInfo(record);
        return record;
    }

    // In the middle of that second.
    static void StopClockIn(std::chrono::seconds utc) { StopClockAt(utc + 500ms); }

    // The connection status that the firmware receives.
    uint32_t StatusFor(uint32_t flags, bool wireless) {
        Pc().Change([&](auto& pc) { pc.connectedFlags = flags; });
        firmware.Clear();
        SendNetworkStatus(wireless);
        return firmware.Requests("WriteNetworkStatusInfo").at(0).As<NetworkStatusInfo>().status;
    }
};

class InterfaceTypes
    : public Inventory,
      public ::testing::WithParamInterface<std::tuple<uint32_t, const char*, const char*, uint16_t>> {};

class TimeZones : public Inventory, public ::testing::WithParamInterface<std::pair<int32_t, int32_t>> {};

}  // namespace

TEST_F(Inventory, AHostWithOnlyALoopbackAddressHasNoInterface) {
    SetAdapters({});
    EXPECT_EQ(Fill().Count, 0);
    AwaitLog("Interface List has no entries");
}

TEST_F(Inventory, TakesAnInterfaceFieldByField) {
    winhost::Adapter adapter = Wired(7, "192.168.7.3", "192.168.7.1");
    adapter.dhcpServer = "192.168.7.2";
    SetAdapters({adapter});
    const std::vector<NicInfo> list = GetNicInfoList();
    ASSERT_EQ(list.size(), 1u);
    const NicInfo& nic = list[0];
    EXPECT_EQ(nic.InterfaceIndex, 7u);
    EXPECT_EQ(nic.DeviceID, "7");
    EXPECT_EQ(nic.IPv4String, "192.168.7.3");
    EXPECT_EQ(nic.IPv4Address, 0x0307A8C0u);
    EXPECT_EQ(nic.Subnet, 0x00FFFFFFu);
    EXPECT_EQ(nic.Gateway, 0x0107A8C0u);
    EXPECT_EQ(nic.DHCPServer, 0x0207A8C0u);
    EXPECT_EQ(nic.MACAddress, "001122334455");
    EXPECT_EQ(std::string(nic.Name.c_str()), "Wired adapter 7");
    EXPECT_EQ(nic.AddressOrigin, kAddressDHCP);
    EXPECT_EQ(nic.StatusInfo, 5);
    EXPECT_EQ(nic.Speed, 1'000'000'000u);
    AwaitLog("Operational");
    AwaitLog("Gateway (NBO): 0x0107a8c0");
}

TEST_F(Inventory, AStaticAddressHasNoDhcpServer) {
    winhost::Adapter adapter = Wired(7, "192.168.7.3", "192.168.7.1");
    adapter.dhcp = false;
    adapter.dhcpServer = "192.168.7.2";
    SetAdapters({adapter});
    const NicInfo nic = GetNicInfoList().at(0);
    EXPECT_EQ(nic.AddressOrigin, kAddressStatic);
    EXPECT_EQ(nic.DHCPServer, 0u);
}

TEST_P(InterfaceTypes, HaveNamesAndALinkTechnology) {
    const auto& [type, typeName, adapterType, link] = GetParam();
    winhost::Adapter adapter = Wired(1, "192.168.7.3", "192.168.7.1");
    adapter.type = type;
    SetAdapters({adapter});
    const NicInfo nic = GetNicInfoList().at(0);
    EXPECT_EQ(nic.TypeName, typeName);
    EXPECT_EQ(nic.AdapterType, adapterType);
    EXPECT_EQ(nic.LinkTechnology, link);
}

INSTANTIATE_TEST_SUITE_P(
    All, InterfaceTypes,
    ::testing::Values(std::make_tuple(1u, "Other", "Other", 11),
                      std::make_tuple(6u, "Ethernet", "Wired LAN", 2),
                      std::make_tuple(9u, "Token Ring", "Token Ring", 11),
                      std::make_tuple(23u, "PPP", "PPP", 11),
                      std::make_tuple(24u, "Software Lookback", "Software Lookback", 11),
                      std::make_tuple(37u, "ATM", "ATM", 11),
                      std::make_tuple(71u, "IEEE 802.11 Wireless", "Wireless LAN", 11),
                      std::make_tuple(131u, "Tunnel type encapsulation", "Tunnel type encapsulation", 11),
                      std::make_tuple(144u, "IEEE 1394 Firewire", "IEEE 1394 Firewire", 11),
                      std::make_tuple(53u, "Unknown type 53", "Unknown type 53", 11)));

TEST_F(Inventory, ADescriptionWithLoopbackIsDroppedWhateverItsAddress) {
    winhost::Adapter loopback = Wired(1, "192.168.7.9", "");
    loopback.description = "Some Loopback Adapter";
    SetAdapters({loopback, Wired(2, "192.168.7.3", "192.168.7.1")});
    const std::vector<NicInfo> list = GetNicInfoList();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].InterfaceIndex, 2u);
}

TEST_F(Inventory, ASecondAddressOfAnInterfaceHasNoNameAndCountsAsWireless) {
    winhost::Adapter adapter = Wired(1, "192.168.7.3", "192.168.7.1");
    adapter.moreAddresses.push_back({"192.168.7.4", "255.255.255.0"});
    SetAdapters({adapter});
    const std::vector<NicInfo> list = GetNicInfoList();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].IPv4String, "192.168.7.4");
    EXPECT_EQ(list[1].Name, "");
    EXPECT_EQ(list[1].MACAddress, "");
    EXPECT_EQ(list[1].LinkTechnology, kLinkWireless);
}

TEST_F(Inventory, SixInterfacesGiveCountSixAndFiveEntries) {
    std::vector<winhost::Adapter> adapters;
    for (uint32_t i = 1; i <= 6; ++i)
        adapters.push_back(Wired(i, "192.168.7." + std::to_string(i), "192.168.7.254"));
    SetAdapters(adapters);
    const MultiNwInfo record = Fill();
    EXPECT_EQ(record.Count, 6);
    for (uint32_t i = 0; i < MultiNwInfo::kSlots; ++i)
        EXPECT_EQ(record.Entries[i].DeviceID, std::to_string(i + 1));
    EXPECT_FALSE(service->m_networkInventory.CommitNwInfo(record));
    EXPECT_EQ(service->m_networkStateStore.GetCount(), 6u);
    EXPECT_FALSE(service->m_networkStateStore.HasChanged(record));
}

TEST_F(Inventory, ANameLongerThanItsFieldIsCutAndTerminated) {
    winhost::Adapter adapter = Wired(1, "192.168.7.3", "192.168.7.1");
    adapter.description = std::string(250, 'n');
    SetAdapters({adapter});
    const MultiNwInfo record = Fill();
    EXPECT_EQ(std::string(record.Entries[0].Name), std::string(191, 'n'));
}

TEST_F(Inventory, FailingTablesLeaveWhatIsKnown) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    Gate().FailNth("GetIfTable", 1, ERROR_NOT_SUPPORTED, true);
    Gate().FailNth("GetAdaptersInfo", 1, ERROR_NOT_SUPPORTED, true);
    ExpectError("GetIfTable failed with error: 50");
    const std::vector<NicInfo> list = GetNicInfoList();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].IPv4String, "192.168.7.3");
    EXPECT_EQ(list[0].Name, "");
    EXPECT_EQ(list[0].Gateway, 0u);
    Gate().FailNth("GetIpAddrTable", 1, ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(GetNicInfoList().empty());
}

TEST_F(Inventory, ARowThatCannotBeRefreshedStaysAsItWas) {
    SetAdapters({Wired(4, "192.168.7.3", "192.168.7.1")});
    Gate().FailNth("GetIfEntry", 1, ERROR_INVALID_DATA);
    EXPECT_EQ(std::string(GetNicInfoList().at(0).Name.c_str()), "Wired adapter 4");
    AwaitLog("GetIfEntry failed for index 4 with error: 13");
}

TEST_F(Inventory, AMovedPrimaryAddressIsSentAndAnUnmovedOneIsNot) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    service->m_networkInventory.CommitNwInfo(Fill());
    ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", 1));
    service->m_networkInventory.CommitNwInfo(Fill());
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
}

TEST_F(Inventory, WhatIsStoredCanBeReadWhileAMovedAddressIsLookedUp) {
    constexpr std::chrono::seconds kPause(3);
    ExpectError("No valid IPv4 address found after 2 attempts.");
    SetAdapters({Wired(1, "10.0.0.2", "")});
    std::thread commit([this, record = Fill()] { service->m_networkInventory.CommitNwInfo(record); });
    ASSERT_TRUE(Clock().AwaitSleeper(kPause));
    std::atomic<bool> isRead{false};
    std::thread reader([&] {
        EXPECT_EQ(service->m_networkStateStore.GetCount(), 1u);
        service->m_statusFile.UpdateStatusFile();
        isRead = true;
    });
    EXPECT_TRUE(Eventually([&] { return isRead.load(); }));
    Advance(kPause);
    commit.join();
    reader.join();
}

TEST_F(Inventory, AnyInterfaceOtherThanEthernetMakesTheHostWireless) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    EXPECT_FALSE(service->m_networkInventory.CommitNwInfo(Fill()));
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1"), Wireless(2, "192.168.7.4")});
    EXPECT_TRUE(service->m_networkInventory.CommitNwInfo(Fill()));
}

TEST_F(Inventory, OldFirmwareIsToldOfTheWirelessInterfaceOrTheLast) {
    MultiNwInfo record{};
    size_t index = 99;
    EXPECT_FALSE(ChoosePrimaryEntry(record, index));
    record.Count = 3;
    for (auto& entry : record.Entries)
        entry.LinkTechnology = kLinkEthernet;
    ASSERT_TRUE(ChoosePrimaryEntry(record, index));
    EXPECT_EQ(index, 2u);
    record.Entries[1].LinkTechnology = kLinkWireless;
    ASSERT_TRUE(ChoosePrimaryEntry(record, index));
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(MakeNwInfo(record.Entries[1]).LinkTechnology, 0xFFFF);
}

TEST_F(Inventory, OnlyTheLocalNetworkCountsAsConnected) {
    EXPECT_EQ(StatusFor(0x02, false), 1u);
    EXPECT_EQ(StatusFor(0x12, false), 1u);
    EXPECT_EQ(StatusFor(0x12, true), 2u);
    EXPECT_EQ(StatusFor(0x01, false), 0u);
    EXPECT_EQ(StatusFor(0x06, true), 0u);
    AwaitLog("Not connected to internet via LAN/WLAN 6");
}

TEST_F(Inventory, AnUnknownConnectionIsNotReported) {
    Pc().Change([](auto& pc) { pc.connectedFlags = 0; });
    SendNetworkStatus(false);
    service->m_bNetworkUpdatesEnabled = 0;
    SendNetworkStatus(false);
    EXPECT_EQ(firmware.Count("WriteNetworkStatusInfo"), 0u);
    AwaitLog("SendNetworkStatus: InternetGetConnectedState() failed with error");
    AwaitLog("Skipping network updates");
}

TEST_P(TimeZones, AreSecondsEastOfUtc) {
    Pc().Change([](auto& pc) { pc.timeZoneBiasMinutes = GetParam().first; });
    EXPECT_EQ(GetTimezoneDiff(), GetParam().second);
}

// UTC = local + bias: UTC-05:30 has a bias of 330 minutes.
INSTANTIATE_TEST_SUITE_P(All, TimeZones,
                         ::testing::Values(std::pair(0, 0), std::pair(330, -19800), std::pair(-345, 20700),
                                           std::pair(720, -43200), std::pair(-840, 50400)));

TEST_F(Inventory, TheOffsetIncludesSummerTime) {
    Pc().Change(LiveInWesternEurope);
    StopClockIn(1782864000s);  // Wed 1 Jul 2026 00:00 UTC
    EXPECT_EQ(GetTimezoneDiff(), 7200);
    EXPECT_EQ(LogCount("Current date and time: Wed Jul 01 02:00:00 2026"), 1u);
    StopClockIn(1794587006s);  // Fri 13 Nov 2026 16:23:26 UTC
    EXPECT_EQ(GetTimezoneDiff(), 3600);
}

TEST_F(Inventory, TheOffsetIsTheSameAtTheTurnOfTheYear) {
    for (const int32_t bias : {-60, 300}) {
        Pc().Change([&](auto& pc) { pc.timeZoneBiasMinutes = bias; });
        // Thu 31 Dec 2026 23:30 and Fri 1 Jan 2027 00:30 UTC: the year differs in one of the two zones.
        for (const std::chrono::seconds utc : {1798759800s, 1798763400s}) {
            StopClockIn(utc);
            EXPECT_EQ(GetTimezoneDiff(), -60 * bias);
        }
    }
}

TEST_F(Inventory, ATimeThatCannotBeBrokenDownIsOfNoZone) {
    Pc().Change([](auto& pc) { pc.timeZoneBiasMinutes = -60; });
    Gate().FailNth("localtime_s", 1, EINVAL);
    EXPECT_EQ(GetTimezoneDiff(), 0);
    EXPECT_TRUE(HasLine("INFO", "Failed to retrieve local time"));
}

TEST_F(Inventory, ATimeWithoutATextHasItsZoneAllTheSame) {
    Pc().Change([](auto& pc) { pc.timeZoneBiasMinutes = -60; });
    Gate().FailNth("asctime_s", 1, EINVAL);
    EXPECT_EQ(GetTimezoneDiff(), 3600);
    EXPECT_TRUE(HasLine("INFO", "Failed to convert time to string"));
}

TEST_F(Inventory, AHostWithoutANameHasNoDomainEither) {
    ExpectError("gethostname failed with error: 10050");
    Gate().FailNth("gethostname", 1, WSAENETDOWN);
    std::string host, domain;
    EXPECT_FALSE(GetHostAndDnsDomain(host, domain));
    EXPECT_TRUE(host.empty());
}

TEST_F(Inventory, TellsHostAndDomain) {
    Pc().Change([](auto& pc) { pc.dnsDomain = "corp.example"; });
    std::string host, domain;
    EXPECT_TRUE(GetHostAndDnsDomain(host, domain));
    EXPECT_EQ(host, Pc().Description().computerName);
    EXPECT_EQ(domain, "corp.example");
    Gate().FailNth("GetComputerNameExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(GetHostAndDnsDomain(host, domain));
    EXPECT_EQ(domain, "N/A");
}
