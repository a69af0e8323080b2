// The list of GetAdaptersAddresses.
#include <winsock2.h>
#include <iphlpapi.h>

#include <cstddef>
#include <map>

#include "winhost/tests/IpTables.h"

namespace {

constexpr ULONG kFlags = GAA_FLAG_INCLUDE_PREFIX | GAA_FLAG_INCLUDE_GATEWAYS;

class AdapterAddressesTest : public PcFixture {
  protected:
    void Describe(const std::vector<winhost::Adapter>& adapters,
                  const std::map<std::string, std::string>& values = {}) {
        StartPc([&](auto& pc) {
            pc.adapters = adapters;
            if (values.empty()) return;
            pc.registry
                [R"(HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\Tcpip\Parameters\Interfaces\)" +
                 adapters.front().name] = values;
        });
    }
    // All entries; they live until the next call.
    std::vector<const IP_ADAPTER_ADDRESSES*> List(ULONG flags = kFlags) {
        ULONG size = 0;
        EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersAddresses(AF_UNSPEC, flags, nullptr, nullptr, &size));
        m_buffer.assign(size / sizeof(std::max_align_t) + 1, {});
        auto* first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(m_buffer.data());
        EXPECT_EQ(ERROR_SUCCESS, GetAdaptersAddresses(AF_UNSPEC, flags, nullptr, first, &size));
        std::vector<const IP_ADAPTER_ADDRESSES*> entries;
        for (const IP_ADAPTER_ADDRESSES* entry = first; entry; entry = entry->Next)
            entries.push_back(entry);
        return entries;
    }
    static std::string AddressOf(const SOCKET_ADDRESS& address) {
        return Dotted(reinterpret_cast<const sockaddr_in*>(address.lpSockaddr)->sin_addr.s_addr);
    }

  private:
    std::vector<std::max_align_t> m_buffer;
};

TEST_F(AdapterAddressesTest, AnAdapterIsToldWithItsAddressesAndItsSuffix) {
    winhost::Adapter adapter = Wired();
    adapter.moreAddresses = {{"10.0.0.9", "255.0.0.0"}};
    Describe({adapter}, {{"DhcpDomain", "corp.example.com"}});
    const auto entries = List();
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(24u, entries[0]->IfType);
    const IP_ADAPTER_ADDRESSES& entry = *entries[1];
    EXPECT_STREQ(adapter.name.c_str(), entry.AdapterName);
    EXPECT_STREQ(L"corp.example.com", entry.DnsSuffix);
    EXPECT_STREQ(L"Wired Adapter", entry.Description);
    EXPECT_EQ(IfOperStatusUp, entry.OperStatus);
    EXPECT_EQ(6u, entry.PhysicalAddressLength);
    EXPECT_EQ(1500u, entry.Mtu);
    ASSERT_NE(nullptr, entry.FirstUnicastAddress);
    EXPECT_EQ("192.168.1.3", AddressOf(entry.FirstUnicastAddress->Address));
    EXPECT_EQ(24, entry.FirstUnicastAddress->OnLinkPrefixLength);
    ASSERT_NE(nullptr, entry.FirstUnicastAddress->Next);
    EXPECT_EQ("10.0.0.9", AddressOf(entry.FirstUnicastAddress->Next->Address));
    EXPECT_EQ(nullptr, entry.FirstUnicastAddress->Next->Next);
    ASSERT_NE(nullptr, entry.FirstGatewayAddress);
    EXPECT_EQ("192.168.1.1", AddressOf(entry.FirstGatewayAddress->Address));
    EXPECT_EQ(nullptr, List(0)[1]->FirstGatewayAddress) << "on demand alone";
}

TEST_F(AdapterAddressesTest, ASuffixSetByHandComesFirst) {
    Describe({Wired()}, {{"DhcpDomain", "given.example.com"}, {"Domain", "set.example.com"}});
    EXPECT_STREQ(L"set.example.com", List()[1]->DnsSuffix);
    Describe({Wired()}, {{"DhcpDomain", "given.example.com"}, {"Domain", ""}});
    EXPECT_STREQ(L"given.example.com", List()[1]->DnsSuffix);
}

TEST_F(AdapterAddressesTest, AnUnpluggedAdapterIsDownWithoutAddresses) {
    winhost::Adapter adapter = Wired();
    adapter.operStatus = 0;
    adapter.address = adapter.mask = adapter.gateway = "";
    Describe({adapter});
    const auto entries = List();
    EXPECT_EQ(IfOperStatusDown, entries[1]->OperStatus);
    EXPECT_EQ(nullptr, entries[1]->FirstUnicastAddress);
    EXPECT_EQ(nullptr, entries[1]->FirstGatewayAddress);
    EXPECT_STREQ(L"", entries[1]->DnsSuffix);
}

TEST_F(AdapterAddressesTest, OneByteLessIsNotEnough) {
    Describe({Wired()});
    ULONG needed = 0, size = 0;
    EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, nullptr, &needed));
    std::vector<std::max_align_t> buffer(needed / sizeof(std::max_align_t) + 1);
    auto* first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
    size = needed - 1;
    EXPECT_EQ(ERROR_BUFFER_OVERFLOW, GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, first, &size));
    EXPECT_EQ(needed, size);
    EXPECT_EQ(ERROR_SUCCESS, GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, first, &size));
}

TEST_F(AdapterAddressesTest, WhatItDoesNotKnowIsRefused) {
    Describe({Wired()});
    ULONG size = 0;
    EXPECT_EQ(ERROR_NOT_SUPPORTED, GetAdaptersAddresses(23, kFlags, nullptr, nullptr, &size));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, GetAdaptersAddresses(AF_UNSPEC, 0x100, nullptr, nullptr, &size));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetAdaptersAddresses(AF_UNSPEC, kFlags, &size, nullptr, &size));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, nullptr, nullptr));
}

}  // namespace
