// The records of the network field by field, and what counts as a change of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>

#include "base/FieldText.h"
#include "reporting/NetworkInventory.h"
#include "reporting/NicInfo.h"
#include "tests/unit/reporting/ReportingFixture.h"

namespace {

class InventoryRecord : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        OpenMailbox();
        winhost::Adapter wired = Wired(3, "192.168.7.3", "192.168.7.1");
        wired.dhcpServer = "192.168.7.2";
        winhost::Adapter wireless = Wired(12, "10.1.2.3", "10.1.2.254");
        wireless.description = "Wireless adapter";
        wireless.type = 71;
        wireless.mac = "0A:B0:0C:D0:0E:FF";
        wireless.mask = "255.255.0.0";
        wireless.dhcp = false;
        wireless.speed = 3'000'000'000;
        wireless.operStatus = 4;
        SetAdapters({wired, wireless});
    }
    MultiNwInfo Reported() {
        service->UpdatePlatformInfoToMPM();
        service->m_networkMonitor.StopNetworkScanThread();
        return firmware.Requests("WriteMultiNwInfo").at(0).As<MultiNwInfo>();
    }
    // One change of a stored record, and the log line for it.
    struct Change {
        const char* name;
        std::function<void(MultiNwInfo&)> make;
        const char* line;
    };
};

}  // namespace

TEST_F(InventoryRecord, HoldsEveryFieldOfEveryInterface) {
    const MultiNwInfo record = Reported();
    ASSERT_EQ(record.Count, 2);
    const NwInfoEntry& wired = record.Entries[0];
    EXPECT_EQ(TextInField(wired.Name), "Wired adapter 3");
    EXPECT_EQ(wired.Speed, 1'000'000'000u);
    EXPECT_EQ(TextInField(wired.MACAddress), "001122334455");
    EXPECT_EQ(wired.MaxSpeed, 0u);
    EXPECT_EQ(TextInField(wired.DeviceID), "3");
    EXPECT_EQ(wired.StatusInfo, 5);
    EXPECT_EQ(wired.LinkTechnology, kLinkEthernet);
    EXPECT_EQ(wired.AddressOrigin, kAddressDHCP);
    EXPECT_EQ(wired.IPv4Address, inet_addr("192.168.7.3"));
    EXPECT_EQ(wired.Subnet, inet_addr("255.255.255.0"));
    EXPECT_EQ(wired.Gateway, inet_addr("192.168.7.1"));
    const NwInfoEntry& wireless = record.Entries[1];
    EXPECT_EQ(TextInField(wireless.Name), "Wireless adapter");
    EXPECT_EQ(wireless.Speed, 3'000'000'000u);
    EXPECT_EQ(TextInField(wireless.MACAddress), "0AB00CD00EFF");
    EXPECT_EQ(wireless.MaxSpeed, 0u);
    EXPECT_EQ(TextInField(wireless.DeviceID), "12");
    EXPECT_EQ(wireless.StatusInfo, 4);
    EXPECT_EQ(wireless.LinkTechnology, kLinkWireless);
    EXPECT_EQ(wireless.AddressOrigin, kAddressStatic);
    EXPECT_EQ(wireless.IPv4Address, inet_addr("10.1.2.3"));
    EXPECT_EQ(wireless.Subnet, inet_addr("255.255.0.0"));
    EXPECT_EQ(wireless.Gateway, inet_addr("10.1.2.254"));
}

TEST_F(InventoryRecord, OfOldFirmwareHoldsTheFieldsOfTheWirelessInterface) {
    firmware.Change([](mpm::Settings& settings) { settings.uVORKVersion = 19; });
    service->UpdatePlatformInfoToMPM();
    service->m_networkMonitor.StopNetworkScanThread();
    const NwInfo info = firmware.Requests("WriteNwInfo").at(0).As<NwInfo>();
    EXPECT_EQ(TextInField(info.Name), "Wireless adapter");
    EXPECT_EQ(info.Speed, 3'000'000'000u);
    EXPECT_EQ(TextInField(info.MACAddress), "0AB00CD00EFF");
    EXPECT_EQ(info.MaxSpeed, 0u);
    EXPECT_EQ(TextInField(info.DeviceID), "12");
    EXPECT_EQ(info.StatusInfo, 4);
    EXPECT_EQ(info.LinkTechnology, 0xFFFF);
    EXPECT_EQ(info.AddressOrigin, kAddressStatic);
}

TEST_F(InventoryRecord, TakesTheLargestSpeedOver) {
    NwInfoEntry entry{};
    entry.MaxSpeed = 5;
    EXPECT_EQ(MakeNwInfo(entry).MaxSpeed, 5u);
}

TEST_F(InventoryRecord, HoldsNothingOfWhatItsMemoryHeldBefore) {
    MultiNwInfo record;
    std::memset(&record, 0xA5, sizeof record);
    service->m_networkInventory.FillMultiNwInfo(record);
    const MultiNwInfo empty{};
    EXPECT_EQ(std::memcmp(&record.Entries[2], &empty.Entries[2], 3 * sizeof(NwInfoEntry)), 0);
    const std::string name(record.Entries[0].Name, sizeof record.Entries[0].Name);
    EXPECT_EQ(name.find_last_not_of('\0') + 1, TextInField(record.Entries[0].Name).size());
    EXPECT_EQ(record.Entries[0].MaxSpeed, 0u);
}

TEST_F(InventoryRecord, IsToldLineByLine) {
    Reported();
    const std::vector<std::string> lines = {"Interface Index: 0",
                                            "Name: Wired adapter 3",
                                            "Speed: 1000000000",
                                            "MAC Address: 001122334455",
                                            "Max Speed: 0",
                                            "Device ID: 3",
                                            "Status Info: 5",
                                            "LinkTechnology: Ethernet",
                                            "Address Origin: DHCP",
                                            "IPv4 (NBO): 307a8c0",
                                            "Subnet (NBO): ffffff",
                                            "Gateway (NBO): 107a8c0",
                                            "Address Origin: Dynamic",
                                            "DHCP Server(NBO): 207a8c0",
                                            "Adapter Type: Wired LAN",
                                            "Interface Index: 1",
                                            "Name: Wireless adapter",
                                            "Speed: 3000000000",
                                            "MAC Address: 0AB00CD00EFF",
                                            "Max Speed: 0",
                                            "Device ID: 12",
                                            "Status Info: 4",
                                            "LinkTechnology: Wireless",
                                            "Address Origin: Static",
                                            "IPv4 (NBO): 302010a",
                                            "Subnet (NBO): ffff",
                                            "Gateway (NBO): fe02010a",
                                            "Address Origin: Static",
                                            "DHCP Server(NBO): 0",
                                            "Adapter Type: Wireless LAN"};
    const std::vector<std::string> messages = Messages();
    const auto first = std::find(messages.begin(), messages.end(), lines[0]);
    ASSERT_GE(messages.end() - first, static_cast<std::ptrdiff_t>(lines.size()));
    EXPECT_EQ(std::vector<std::string>(first, first + static_cast<std::ptrdiff_t>(lines.size())), lines);
}

TEST_F(InventoryRecord, TheScanTellsWhatItFinds) {
    winhost::Adapter adapter = Wired(3, "192.168.7.3", "192.168.7.1");
    adapter.addressBits = 64 | 128;
    adapter.operStatus = 2;
    SetAdapters({adapter});
    GetNicInfoList();
    // The loopback's address comes first.
    ExpectLogInOrder({"Num Entries: 2", "Primary IP Address", "Dynamic IP Address",
                      "Address is on disconnected interface", "Address is being deleted", "Transient address",
                      "Disconnected", "Gateway (NBO): 0x0107a8c0", "DHCP Server (NBO): 0xffffffff"});
    for (const auto& [status, text] : {std::pair(0u, "Non Operational"),
                                       {1u, "Unreasonable"},
                                       {3u, "Connecting"},
                                       {4u, "Connected"},
                                       {5u, "Operational"},
                                       {6u, "Unknown status 6"}}) {
        adapter.operStatus = status;
        SetAdapters({adapter});
        GetNicInfoList();
        EXPECT_TRUE(HasLine("INFO", text)) << text;
    }
}

TEST_F(InventoryRecord, ACommitOrACompareUsesNoMoreSlotsThanThereAre) {
    MultiNwInfo record{};
    record.Count = 6;
    service->m_networkStateStore.Store(record);
    EXPECT_EQ(service->m_networkStateStore.GetCount(), 6u);
    EXPECT_FALSE(service->m_networkStateStore.HasChanged(record));
    EXPECT_TRUE(service->m_networkStateStore.Holds(record));
    record.Count = 7;
    EXPECT_FALSE(service->m_networkStateStore.Holds(record));
}

TEST_F(InventoryRecord, EachComparedFieldMakesAChangeWithItsLine) {
    const Change changes[] = {
        {"count", [](MultiNwInfo& record) { record.Count = 1; }, "NIC connected count has changed"},
        {"name", [](MultiNwInfo& record) { CopyToField(record.Entries[1].Name, "new"); },
         "Name mismatch: current value: Wireless adapter, new value: new"},
        {"MAC", [](MultiNwInfo& record) { CopyToField(record.Entries[1].MACAddress, "AA"); },
         "MACAddress mismatch: current value: 0AB00CD00EFF, new value: AA"},
        {"status", [](MultiNwInfo& record) { record.Entries[1].StatusInfo = 2; },
         "StatusInfo mismatch: current value: 4, new value: 2"},
        {"link", [](MultiNwInfo& record) { record.Entries[1].LinkTechnology = kLinkEthernet; },
         "LinkTechnology mismatch: current value: 11, new value: 2"},
        {"origin", [](MultiNwInfo& record) { record.Entries[1].AddressOrigin = kAddressDHCP; },
         "AddressOrigin mismatch: current value: 3, new value: 4"},
        {"address", [](MultiNwInfo& record) { record.Entries[1].IPv4Address = inet_addr("10.1.2.4"); },
         "IPv4Address mismatch: current value: 302010a, new value: 402010a"},
    };
    MultiNwInfo stored;
    service->m_networkInventory.FillMultiNwInfo(stored);
    service->m_networkStateStore.Store(stored);
    EXPECT_TRUE(service->m_networkStateStore.Holds(stored));
    for (const Change& change : changes) {
        MultiNwInfo record = stored;
        change.make(record);
        EXPECT_FALSE(service->m_networkStateStore.Holds(record)) << change.name;
        EXPECT_TRUE(service->m_networkStateStore.HasChanged(record)) << change.name;
        EXPECT_TRUE(HasLine("INFO", change.line)) << change.name;
    }
}

TEST_F(InventoryRecord, TheLossOfTheLastInterfaceIsLoggedOnce) {
    MultiNwInfo record{};
    record.Count = 1;
    service->m_networkStateStore.Store(record);
    record.Count = 0;
    for (int scan = 0; scan < 2; ++scan) {
        EXPECT_TRUE(service->m_networkStateStore.HasChanged(record));
        EXPECT_EQ(LogCount("The system has disconnected from the network (connected -> disconnected)"), 1u);
    }
}

TEST_F(InventoryRecord, NoOtherFieldMakesAChange) {
    MultiNwInfo record;
    service->m_networkInventory.FillMultiNwInfo(record);
    service->m_networkStateStore.Store(record);
    NwInfoEntry& entry = record.Entries[1];
    entry.Speed = 1;
    entry.MaxSpeed = 1;
    entry.Subnet = 1;
    entry.Gateway = 1;
    CopyToField(entry.DeviceID, "99");
    EXPECT_FALSE(service->m_networkStateStore.HasChanged(record));
}
