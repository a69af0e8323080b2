// The tables of addresses and interfaces of a PC whose description names its adapters.
#include <iphlpapi.h>

#include <cstddef>

#include "winhost/tests/IpTables.h"

namespace {

using IpTables = IpFixture;

TEST_F(IpTables, ATooSmallBufferLearnsTheSizeNeeded) {
    Describe({Wired(3), Wired(4)});
    ULONG size = 0;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetIpAddrTable(nullptr, &size, FALSE));
    EXPECT_EQ(4 + 3 * sizeof(MIB_IPADDRROW), size) << "two, and the loopback's";
    MIB_IPADDRTABLE one;
    size = sizeof(one);
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetIpAddrTable(&one, &size, FALSE));
    MIB_IFTABLE row;
    size = sizeof(row);
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetIfTable(&row, &size, FALSE));
    EXPECT_EQ(4 + 3 * sizeof(MIB_IFROW), size);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetIfTable(&row, nullptr, FALSE));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, GetIfTable(&row, &size, TRUE)) << "no order but the PC's";
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetIpAddrTable(&one, nullptr, FALSE));
}

TEST_F(IpTables, AnAddressIsToldWithItsInterfaceAndMask) {
    Describe({Wired(3)});
    const auto rows = AddressRows();
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("127.0.0.1", Dotted(rows[0].dwAddr));
    EXPECT_EQ("192.168.1.3", Dotted(rows[1].dwAddr));
    EXPECT_EQ("255.255.255.0", Dotted(rows[1].dwMask));
    EXPECT_EQ(3u, rows[1].dwIndex);
    EXPECT_EQ(MIB_IPADDR_PRIMARY | MIB_IPADDR_DYNAMIC, rows[1].wType);
}

TEST_F(IpTables, AnAddressSaysWhatKindItIs) {
    winhost::Adapter fixed = Wired(3), unplugged = Wired(4), going = Wired(5);
    fixed.dhcp = false;
    unplugged.operStatus = IF_OPER_STATUS_DISCONNECTED;
    going.addressBits = MIB_IPADDR_DELETED | MIB_IPADDR_TRANSIENT;
    Describe({fixed, unplugged, going});
    const auto rows = AddressRows();
    ASSERT_EQ(4u, rows.size());
    EXPECT_EQ(MIB_IPADDR_PRIMARY, rows[1].wType);
    EXPECT_EQ(MIB_IPADDR_PRIMARY | MIB_IPADDR_DYNAMIC | MIB_IPADDR_DISCONNECTED, rows[2].wType);
    EXPECT_EQ(MIB_IPADDR_PRIMARY | MIB_IPADDR_DYNAMIC | MIB_IPADDR_DELETED | MIB_IPADDR_TRANSIENT,
              rows[3].wType);
}

TEST_F(IpTables, AnInterfaceCanHaveTwoAddresses) {
    winhost::Adapter both = Wired(3);
    both.moreAddresses = {{"10.0.0.9", "255.0.0.0"}};
    Describe({both});
    const auto rows = AddressRows();
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ(3u, rows[2].dwIndex);
    EXPECT_EQ("10.0.0.9", Dotted(rows[2].dwAddr));
    EXPECT_EQ(0, rows[2].wType) << "neither the first nor dynamic";
    EXPECT_EQ(2u, InterfaceRows().size());
    const IP_ADDR_STRING& first = Info().IpAddressList;
    EXPECT_STREQ("192.168.1.3", first.IpAddress.String);
    ASSERT_NE(nullptr, first.Next);
    EXPECT_STREQ("10.0.0.9", first.Next->IpAddress.String);
    EXPECT_EQ(nullptr, first.Next->Next);
}

TEST_F(IpTables, AnInterfaceIsToldWithAllThatIsKnownOfIt) {
    winhost::Adapter wireless = Wired(7);
    wireless.description = "Software Loopback by name";
    wireless.type = IF_TYPE_IEEE80211;
    wireless.operStatus = IF_OPER_STATUS_CONNECTED;
    wireless.speed = 866'700'000;
    Describe({wireless});
    const auto rows = InterfaceRows();
    ASSERT_EQ(2u, rows.size());
    const MIB_IFROW& row = rows[1];
    EXPECT_EQ(L"\\DEVICE\\TCPIP_{2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81}", std::wstring(row.wszName));
    EXPECT_EQ(7u, row.dwIndex);
    EXPECT_EQ(DWORD{IF_TYPE_IEEE80211}, row.dwType);
    EXPECT_EQ(866'700'000u, row.dwSpeed);
    EXPECT_EQ(DWORD{IF_OPER_STATUS_CONNECTED}, row.dwOperStatus);
    EXPECT_EQ(DWORD{MIB_IF_ADMIN_STATUS_UP}, row.dwAdminStatus);
    ASSERT_EQ(6u, row.dwPhysAddrLen);
    const BYTE mac[] = {0x02, 0x00, 0x5E, 0x10, 0x00, 0x0F};
    EXPECT_EQ(0, std::memcmp(mac, row.bPhysAddr, sizeof(mac)));
    EXPECT_EQ("Software Loopback by name", DescriptionOf(row));
}

TEST_F(IpTables, ASpeedBeyondTheFieldIsItsHighest) {
    winhost::Adapter fast = Wired(3);
    fast.speed = 10'000'000'000;
    Describe({fast});
    EXPECT_EQ(0xFFFFFFFFu, InterfaceRows()[1].dwSpeed);
}

TEST_F(IpTables, EveryPcHasALoopbackWithAnIndexOfItsOwn) {
    Describe({Wired(1), Wired(2)});
    const auto rows = InterfaceRows();
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ(DWORD{IF_TYPE_SOFTWARE_LOOPBACK}, rows[0].dwType);
    EXPECT_EQ(3u, rows[0].dwIndex);
    EXPECT_EQ("Software Loopback Interface 1", DescriptionOf(rows[0]));
}

TEST_F(IpTables, ARowIsReadAgainAsItIsNow) {
    Describe({Wired(3)});
    MIB_IFROW row{};
    row.dwIndex = 3;
    ASSERT_EQ(NO_ERROR, GetIfEntry(&row));
    EXPECT_EQ(DWORD{IF_OPER_STATUS_OPERATIONAL}, row.dwOperStatus);
    SetOperStatus(IF_OPER_STATUS_DISCONNECTED);
    ASSERT_EQ(NO_ERROR, GetIfEntry(&row));
    EXPECT_EQ(DWORD{IF_OPER_STATUS_DISCONNECTED}, row.dwOperStatus);
    Change([](auto& pc) { pc.adapters->clear(); });
    EXPECT_EQ(ERROR_INVALID_DATA, GetIfEntry(&row)) << "the interface has gone";
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetIfEntry(nullptr));
}

TEST_F(IpTables, SeventeenAdaptersOverflowABufferForSixteen) {
    std::vector<winhost::Adapter> adapters;
    for (uint32_t i = 1; i <= 16; ++i)
        adapters.push_back(Wired(i));
    Describe(adapters);
    std::vector<std::byte> buffer(11264);
    auto* info = reinterpret_cast<IP_ADAPTER_INFO*>(buffer.data());
    auto size = static_cast<ULONG>(buffer.size());
    EXPECT_EQ(ERROR_SUCCESS, GetAdaptersInfo(info, &size));
    adapters.push_back(Wired(17));
    Describe(adapters);
    EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersInfo(info, &size));
    EXPECT_EQ(17 * sizeof(IP_ADAPTER_INFO), size);
}

TEST_F(IpTables, ThePcIsConnectedWhileAnAdapterThatIsUpHasAGateway) {
    Describe({Wired(3)});
    EXPECT_EQ(ConnectedState(TRUE, 0x12), GetConnectedState());
    SetOperStatus(IF_OPER_STATUS_DISCONNECTED);
    EXPECT_EQ(ConnectedState(FALSE, 0x10), GetConnectedState());
    EXPECT_EQ(ERROR_NOT_CONNECTED, static_cast<long>(GetLastError()));
    SetOperStatus(IF_OPER_STATUS_OPERATIONAL);
    Change([](auto& pc) { pc.adapters->front().gateway.clear(); });
    EXPECT_EQ(ConnectedState(FALSE, 0x10), GetConnectedState());
}

}  // namespace
