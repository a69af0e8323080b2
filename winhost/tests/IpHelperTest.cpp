#include <iphlpapi.h>

#include "winhost/tests/IpTables.h"

namespace {

winhost::Adapter Unplugged() {
    winhost::Adapter adapter;
    adapter.name = "{B6E9B2C0-4B2A-4E67-9E0C-66A1D0A1B201}";
    adapter.index = 5;
    adapter.type = 71;
    adapter.dhcp = false;
    return adapter;
}

using IpHelperTest = IpFixture;

TEST_F(IpHelperTest, WithoutAnAdapterThereIsNoDataAndTheLoopbackIsNone) {
    winhost::Adapter loopback;
    loopback.name = "{00000000-0000-0000-0000-000000000001}";
    loopback.type = 24;
    loopback.address = "127.0.0.1";
    for (const Adapters& none : {Adapters{}, Adapters{loopback}}) {
        Describe(none);
        ULONG size = 0;
        EXPECT_EQ(ERROR_NO_DATA, GetAdaptersInfo(nullptr, &size)) << none.size();
    }
}

TEST_F(IpHelperTest, ATooSmallBufferLearnsTheSizeOfAllAdapters) {
    Describe({Wired(), Unplugged()});
    ULONG size = 0;
    EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersInfo(nullptr, &size));
    EXPECT_EQ(2 * sizeof(IP_ADAPTER_INFO), size);
    IP_ADAPTER_INFO one;
    size = sizeof(one);
    EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersInfo(&one, &size));
    EXPECT_EQ(2 * sizeof(IP_ADAPTER_INFO), size);
}

TEST_F(IpHelperTest, AnAdapterIsToldWithItsAddresses) {
    Describe({Wired()});
    const IP_ADAPTER_INFO& info = Info();
    EXPECT_EQ(nullptr, info.Next);
    EXPECT_STREQ("{2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81}", info.AdapterName);
    EXPECT_STREQ("Wired Adapter", info.Description);
    EXPECT_EQ(3u, info.Index);
    EXPECT_EQ(6u, info.Type);
    ASSERT_EQ(6u, info.AddressLength);
    const BYTE mac[] = {0x02, 0x00, 0x5E, 0x10, 0x00, 0x0F};
    EXPECT_EQ(0, std::memcmp(mac, info.Address, sizeof(mac)));
    EXPECT_EQ(1u, info.DhcpEnabled);
    EXPECT_STREQ("192.168.1.3", info.IpAddressList.IpAddress.String);
    EXPECT_STREQ("255.255.255.0", info.IpAddressList.IpMask.String);
    EXPECT_STREQ("192.168.1.1", info.GatewayList.IpAddress.String);
    EXPECT_STREQ("192.168.1.2", info.DhcpServer.IpAddress.String);
}

TEST_F(IpHelperTest, AnUnknownDhcpServerIsTheBroadcastAddress) {
    winhost::Adapter adapter = Wired();
    adapter.dhcpServer.clear();
    Describe({adapter});
    EXPECT_STREQ("255.255.255.255", Info().DhcpServer.IpAddress.String);
}

TEST_F(IpHelperTest, WhatAnAdapterLacksIsToldAsZeros) {
    Describe({Unplugged()});
    const IP_ADAPTER_INFO& info = Info();
    EXPECT_STREQ("0.0.0.0", info.IpAddressList.IpAddress.String);
    EXPECT_STREQ("0.0.0.0", info.IpAddressList.IpMask.String);
    EXPECT_STREQ("0.0.0.0", info.GatewayList.IpAddress.String);
    EXPECT_STREQ("", info.DhcpServer.IpAddress.String);
    EXPECT_EQ(0u, info.AddressLength);
    EXPECT_EQ(0u, info.DhcpEnabled);
}

TEST_F(IpHelperTest, SeveralAdaptersAreChained) {
    Describe({Wired(), Unplugged()});
    const IP_ADAPTER_INFO* second = Info().Next;
    ASSERT_NE(nullptr, second);
    EXPECT_EQ(5u, second->Index);
    EXPECT_EQ(nullptr, second->Next);
}

TEST_F(IpHelperTest, TheNameServersAreChained) {
    Describe({Wired()}, Servers{"192.168.1.1", "9.9.9.9"});
    ULONG size = sizeof(FIXED_INFO);
    FIXED_INFO one;
    ASSERT_EQ(ERROR_BUFFER_OVERFLOW, GetNetworkParams(&one, &size));
    ASSERT_EQ(sizeof(FIXED_INFO) + sizeof(IP_ADDR_STRING), size);
    const FIXED_INFO& info = Params();
    EXPECT_STREQ("WINHOST-PC", info.HostName);
    EXPECT_STREQ("192.168.1.1", info.DnsServerList.IpAddress.String);
    ASSERT_NE(nullptr, info.DnsServerList.Next);
    EXPECT_STREQ("9.9.9.9", info.DnsServerList.Next->IpAddress.String);
    EXPECT_EQ(nullptr, info.DnsServerList.Next->Next);
}

TEST_F(IpHelperTest, WithoutANameServerTheFirstEntryIsEmpty) {
    for (const std::optional<Servers>& none : {std::optional(Servers{}), {}}) {
        Describe({Wired()}, none);
        EXPECT_STREQ("", Params().DnsServerList.IpAddress.String) << none.has_value();
        EXPECT_EQ(nullptr, Params().DnsServerList.Next);
    }
}

TEST_F(IpHelperTest, AChangeOfThePcIsSeenByTheNextCall) {
    Describe({});
    Change([](auto& pc) { pc.adapters = Adapters{Wired()}; });
    ULONG size = 0;
    EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersInfo(nullptr, &size));
}

TEST_F(IpHelperTest, TheDescriptionHasTheLastWordOnTheConnection) {
    for (const DWORD flags :
         {INTERNET_CONNECTION_LAN | INTERNET_RAS_INSTALLED, INTERNET_CONNECTION_MODEM, 0}) {
        StartPc([&](auto& pc) {
            pc.adapters.emplace();
            pc.connectedFlags = flags;
        });
        EXPECT_EQ(ConnectedState(flags != 0, flags), GetConnectedState());
    }
}

}  // namespace
