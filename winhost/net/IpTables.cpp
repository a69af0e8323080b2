// The tables of addresses and interfaces.
#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/WideText.h"
#include "winhost/net/IpFields.h"
#include "winhost/net/NetworkSource.h"

using winhost::Adapter;
using winhost::AdapterAddress;

namespace {

constexpr const char* kDevicePrefix = "\\DEVICE\\TCPIP_";
constexpr DWORD kBroadcastOfOnes = 1;
constexpr DWORD kReassemblySize = 65535;

MIB_IPADDRROW AddressRow(const Adapter& adapter, const AdapterAddress& address, DWORD bits) {
    MIB_IPADDRROW row{};
    row.dwAddr = winhost::AddressWord(address.address);
    row.dwIndex = adapter.index;
    row.dwMask = winhost::AddressWord(address.mask);
    row.dwBCastAddr = kBroadcastOfOnes;
    row.dwReasmSize = kReassemblySize;
    if (address.dhcp) bits |= MIB_IPADDR_DYNAMIC;
    if (adapter.operStatus < IF_OPER_STATUS_CONNECTED) bits |= MIB_IPADDR_DISCONNECTED;
    row.wType = static_cast<unsigned short>(bits | address.bits);
    return row;
}

std::vector<MIB_IPADDRROW> AddressRows(const std::vector<Adapter>& adapters) {
    std::vector<MIB_IPADDRROW> rows;
    for (const Adapter& adapter : adapters) {
        if (!adapter.address.empty()) {
            const AdapterAddress first{adapter.address, adapter.mask, adapter.dhcp, adapter.addressBits};
            rows.push_back(AddressRow(adapter, first, MIB_IPADDR_PRIMARY));
        }
        for (const AdapterAddress& more : adapter.moreAddresses)
            rows.push_back(AddressRow(adapter, more, 0));
    }
    return rows;
}

void Fill(MIB_IFROW& row, const Adapter& adapter) {
    row = {};
    winhost::PutWide(row.wszName, kDevicePrefix + adapter.name);
    row.dwIndex = adapter.index;
    row.dwType = adapter.type;
    row.dwMtu = adapter.mtu;
    row.dwSpeed = static_cast<DWORD>(std::min<uint64_t>(adapter.speed, std::numeric_limits<DWORD>::max()));
    const auto mac = winhost::MacBytes(adapter.mac);
    row.dwPhysAddrLen = static_cast<DWORD>(std::min(mac.size(), std::size(row.bPhysAddr)));
    std::copy_n(mac.begin(), row.dwPhysAddrLen, row.bPhysAddr);
    row.dwAdminStatus = adapter.operStatus == IF_OPER_STATUS_NON_OPERATIONAL ? MIB_IF_ADMIN_STATUS_DOWN
                                                                             : MIB_IF_ADMIN_STATUS_UP;
    row.dwOperStatus = adapter.operStatus;
    row.dwDescrLen = static_cast<DWORD>(std::min(adapter.description.size(), std::size(row.bDescr) - 1));
    std::copy_n(adapter.description.begin(), row.dwDescrLen, row.bDescr);
}

std::vector<MIB_IFROW> InterfaceRows(const std::vector<Adapter>& adapters) {
    std::vector<MIB_IFROW> rows(adapters.size());
    for (size_t i = 0; i < rows.size(); ++i)
        Fill(rows[i], adapters[i]);
    return rows;
}

// A table is a count, and rows behind it.
template <class Table, class Row>
DWORD HandOver(const std::vector<Row>& rows, Table* table, PULONG size) {
    const size_t needed = std::max(sizeof(Table), offsetof(Table, table) + rows.size() * sizeof(Row));
    if (!winhost::HasRoom(table, size, needed)) return ERROR_INSUFFICIENT_BUFFER;
    table->dwNumEntries = static_cast<DWORD>(rows.size());
    std::copy(rows.begin(), rows.end(), &table->table[0]);
    return NO_ERROR;
}

}  // namespace

DWORD GetIpAddrTable(PMIB_IPADDRTABLE pIpAddrTable, PULONG pdwSize, BOOL bOrder) {
    WINHOST_GATE_CODE("GetIpAddrTable");
    if (!pdwSize) return ERROR_INVALID_PARAMETER;
    if (bOrder) return ERROR_NOT_SUPPORTED;
    return winhost::Guarded(
        [&] { return HandOver(AddressRows(winhost::Adapters()), pIpAddrTable, pdwSize); });
}

DWORD GetIfTable(PMIB_IFTABLE pIfTable, PULONG pdwSize, BOOL bOrder) {
    WINHOST_GATE_CODE("GetIfTable");
    if (!pdwSize) return ERROR_INVALID_PARAMETER;
    if (bOrder) return ERROR_NOT_SUPPORTED;
    return winhost::Guarded([&] { return HandOver(InterfaceRows(winhost::Adapters()), pIfTable, pdwSize); });
}

DWORD GetIfEntry(PMIB_IFROW pIfRow) {
    WINHOST_GATE_CODE("GetIfEntry");
    if (!pIfRow) return ERROR_INVALID_PARAMETER;
    return winhost::Guarded([&]() -> DWORD {
        const auto adapter = winhost::AdapterByIndex(pIfRow->dwIndex);
        if (!adapter) return ERROR_INVALID_DATA;
        Fill(*pIfRow, *adapter);
        return NO_ERROR;
    });
}
