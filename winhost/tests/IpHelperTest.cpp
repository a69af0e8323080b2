#include <iphlpapi.h>
#include <wininet.h>
#include <windows.h>

#include <cstring>
#include <memory>
#include <vector>

#include "winhost/tests/IpTables.h"
#include "winhost/tests/PcFixture.h"

namespace {

static_assert(sizeof(IP_ADAPTER_INFO) == 704 && sizeof(FIXED_INFO) == 600);

using Servers = std::vector<std::string>;
using Adapters = std::vector<winhost::Adapter>;

winhost::Adapter Unplugged() {
    winhost::Adapter adapter;
    adapter.name = "{B6E9B2C0-4B2A-4E67-9E0C-66A1D0A1B201}";
    adapter.index = 5;
    adapter.type = 71;
    adapter.dhcp = false;
    return adapter;
}

class IpHelperTest : public PcFixture {
  protected:
    void Describe(Adapters adapters, Servers servers = {}) {
        StartPc([&](winhost::PcDescription& pc) {
            pc.adapters = std::move(adapters);
            pc.dnsServers = std::move(servers);
        });
    }
};

TEST_F(IpHelperTest, WithoutAnAdapterThereIsNoData) {
    Describe({});
    ULONG size = 0;
    EXPECT_EQ(ULONG{ERROR_NO_DATA}, GetAdaptersInfo(nullptr, &size));
}

TEST_F(IpHelperTest, ATooSmallBufferLearnsTheSizeOfAllAdapters) {
    Describe({Wired(), Unplugged()});
    ULONG size = 0;
    EXPECT_EQ(ULONG{ERROR_BUFFER_OVERFLOW}, GetAdaptersInfo(nullptr, &size));
    EXPECT_EQ(2 * sizeof(IP_ADAPTER_INFO), size);
    IP_ADAPTER_INFO one;
    size = sizeof(one);
    EXPECT_EQ(ULONG{ERROR_BUFFER_OVERFLOW}, GetAdaptersInfo(&one, &size));
    EXPECT_EQ(2 * sizeof(IP_ADAPTER_INFO), size);
}

TEST_F(IpHelperTest, AnAdapterIsToldWithItsAddresses) {
    Describe({Wired()});
    IP_ADAPTER_INFO info;
    ULONG size = sizeof(info);
    ASSERT_EQ(ULONG{ERROR_SUCCESS}, GetAdaptersInfo(&info, &size));
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
    IP_ADAPTER_INFO info;
    ULONG size = sizeof(info);
    ASSERT_EQ(ULONG{ERROR_SUCCESS}, GetAdaptersInfo(&info, &size));
    EXPECT_STREQ("255.255.255.255", info.DhcpServer.IpAddress.String);
}

TEST_F(IpHelperTest, WhatAnAdapterLacksIsToldAsZeros) {
    Describe({Unplugged()});
    IP_ADAPTER_INFO info;
    ULONG size = sizeof(info);
    ASSERT_EQ(ULONG{ERROR_SUCCESS}, GetAdaptersInfo(&info, &size));
    EXPECT_STREQ("0.0.0.0", info.IpAddressList.IpAddress.String);
    EXPECT_STREQ("0.0.0.0", info.IpAddressList.IpMask.String);
    EXPECT_STREQ("0.0.0.0", info.GatewayList.IpAddress.String);
    EXPECT_STREQ("", info.DhcpServer.IpAddress.String);
    EXPECT_EQ(0u, info.AddressLength);
    EXPECT_EQ(0u, info.DhcpEnabled);
}

TEST_F(IpHelperTest, SeveralAdaptersAreChained) {
    Describe({Wired(), Unplugged()});
    ULONG size = 2 * sizeof(IP_ADAPTER_INFO);
    const auto buffer = std::make_unique<IP_ADAPTER_INFO[]>(2);
    ASSERT_EQ(ULONG{ERROR_SUCCESS}, GetAdaptersInfo(buffer.get(), &size));
    ASSERT_NE(nullptr, buffer[0].Next);
    EXPECT_EQ(5u, buffer[0].Next->Index);
    EXPECT_EQ(nullptr, buffer[0].Next->Next);
}

TEST_F(IpHelperTest, TheLoopbackIsNoAdapter) {
    winhost::Adapter loopback;
    loopback.name = "{00000000-0000-0000-0000-000000000001}";
    loopback.type = 24;
    loopback.address = "127.0.0.1";
    Describe({loopback});
    ULONG size = 0;
    EXPECT_EQ(ULONG{ERROR_NO_DATA}, GetAdaptersInfo(nullptr, &size));
}

TEST_F(IpHelperTest, TheNameServersAreChained) {
    Describe({Wired()}, {"192.168.1.1", "9.9.9.9"});
    ULONG size = sizeof(FIXED_INFO);
    FIXED_INFO one;
    ASSERT_EQ(DWORD{ERROR_BUFFER_OVERFLOW}, GetNetworkParams(&one, &size));
    ASSERT_EQ(sizeof(FIXED_INFO) + sizeof(IP_ADDR_STRING), size);
    const auto buffer = std::make_unique<FIXED_INFO[]>(2);
    auto* info = buffer.get();
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, GetNetworkParams(info, &size));
    EXPECT_STREQ("WINHOST-PC", info->HostName);
    EXPECT_STREQ("192.168.1.1", info->DnsServerList.IpAddress.String);
    ASSERT_NE(nullptr, info->DnsServerList.Next);
    EXPECT_STREQ("9.9.9.9", info->DnsServerList.Next->IpAddress.String);
    EXPECT_EQ(nullptr, info->DnsServerList.Next->Next);
}

TEST_F(IpHelperTest, WithoutANameServerTheFirstEntryIsEmpty) {
    Describe({Wired()}, {});
    FIXED_INFO info;
    ULONG size = sizeof(info);
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, GetNetworkParams(&info, &size));
    EXPECT_STREQ("", info.DnsServerList.IpAddress.String);
    EXPECT_EQ(nullptr, info.DnsServerList.Next);
}

TEST_F(IpHelperTest, AChangeOfThePcIsSeenByTheNextCall) {
    Describe({});
    winhost::Pc::Instance().Change([](winhost::PcDescription& pc) { pc.adapters = Adapters{Wired()}; });
    ULONG size = 0;
    EXPECT_EQ(ULONG{ERROR_BUFFER_OVERFLOW}, GetAdaptersInfo(nullptr, &size));
}

TEST_F(IpHelperTest, TheConnectionHasItsFlags) {
    StartPc([](winhost::PcDescription& pc) {
        pc.connectedFlags = INTERNET_CONNECTION_LAN | INTERNET_RAS_INSTALLED;
    });
    DWORD flags = 0;
    EXPECT_TRUE(InternetGetConnectedState(&flags, 0));
    EXPECT_EQ(0x12u, flags);
}

TEST_F(IpHelperTest, WithoutAConnectionTheStateIsFalse) {
    StartPc([](winhost::PcDescription& pc) { pc.connectedFlags = 0; });
    DWORD flags = 0x12;
    EXPECT_FALSE(InternetGetConnectedState(&flags, 0));
    EXPECT_EQ(0u, flags);
}

}  // namespace
