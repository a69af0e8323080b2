// The tables of the IP helper as lists, and an adapter to stand in them.
#pragma once

#include <gtest/gtest.h>

#include <iphlpapi.h>
#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "winhost/pc/Pc.h"

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
