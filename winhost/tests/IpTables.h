// The tables of the IP helper as lists, and an adapter to stand in them.
#pragma once

#include <iphlpapi.h>
#include <wininet.h>

#include <cstddef>
#include <cstdio>
#include <optional>

#include "winhost/tests/PcFixture.h"

template <class Table, class Row>
std::vector<Row> RowsOf(DWORD (*call)(Table*, PULONG, BOOL)) {
    ULONG size = 0;
    EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, call(nullptr, &size, FALSE));
    std::vector<std::byte> buffer(size);
    auto* table = reinterpret_cast<Table*>(buffer.data());
    EXPECT_EQ(DWORD{NO_ERROR}, call(table, &size, FALSE));
    const Row* rows = &table->table[0];
    return {rows, rows + table->dwNumEntries};
}

inline std::vector<MIB_IPADDRROW> AddressRows() {
    return RowsOf<MIB_IPADDRTABLE, MIB_IPADDRROW>(GetIpAddrTable);
}

inline std::vector<MIB_IFROW> InterfaceRows() {
    return RowsOf<MIB_IFTABLE, MIB_IFROW>(GetIfTable);
}

inline std::string DescriptionOf(const MIB_IFROW& row) {
    return {reinterpret_cast<const char*>(row.bDescr), row.dwDescrLen};
}

inline std::string Dotted(DWORD address) {
    const auto* octets = reinterpret_cast<const unsigned char*>(&address);
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", octets[0], octets[1], octets[2], octets[3]);
    return text;
}

inline winhost::Adapter Wired(uint32_t index = 3) {
    winhost::Adapter adapter;
    adapter.name = "{2F1B3C44-0E5D-4C39-9C6A-0D4C5F6E7A81}";
    adapter.description = "Wired Adapter";
    adapter.index = index;
    adapter.mac = "02:00:5E:10:00:0f";
    adapter.address = "192.168.1." + std::to_string(index);
    adapter.mask = "255.255.255.0";
    adapter.gateway = "192.168.1.1";
    adapter.dhcpServer = "192.168.1.2";
    return adapter;
}

// What InternetGetConnectedState returns, and the flags that it sets.
using ConnectedState = std::pair<BOOL, DWORD>;
inline ConnectedState GetConnectedState() {
    DWORD flags = 0xFFFF;
    const BOOL connected = InternetGetConnectedState(&flags, 0);
    return {connected, flags};
}

class IpFixture : public PcFixture {
  protected:
    using Adapters = std::vector<winhost::Adapter>;
    using Servers = std::vector<std::string>;

    void Describe(const Adapters& adapters, const std::optional<Servers>& servers = {}) {
        StartPc([&](auto& pc) {
            pc.adapters = adapters;
            pc.dnsServers = servers;
        });
    }
    static void SetOperStatus(uint32_t status) {
        Change([=](auto& pc) { pc.adapters->front().operStatus = status; });
    }
    // The first entry of GetAdaptersInfo, and that of GetNetworkParams. Each lives until the next call.
    const IP_ADAPTER_INFO& Info() { return First<IP_ADAPTER_INFO>(GetAdaptersInfo); }
    const FIXED_INFO& Params() { return First<FIXED_INFO>(GetNetworkParams); }

  private:
    template <class Entry>
    const Entry& First(DWORD (*call)(Entry*, PULONG)) {
        ULONG size = 8 * sizeof(Entry);
        m_entries.assign(size / sizeof(std::max_align_t), {});
        auto* const first = reinterpret_cast<Entry*>(m_entries.data());
        EXPECT_EQ(ERROR_SUCCESS, call(first, &size));
        return *first;
    }
    std::vector<std::max_align_t> m_entries;
};
