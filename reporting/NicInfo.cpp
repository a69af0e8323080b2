#include "reporting/NicInfo.h"

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <set>

#include "base/Log.h"
#include "reporting/IpHelperTable.h"

namespace {

struct InterfaceType {
    DWORD type;
    const char* typeName;
    const char* adapterType;  // null: same as typeName
    uint16_t linkTechnology;
};

constexpr InterfaceType kInterfaceTypes[] = {
    {1, "Other", nullptr, kLinkWireless},
    {6, "Ethernet", "Wired LAN", kLinkEthernet},
    {9, "Token Ring", nullptr, kLinkWireless},
    {23, "PPP", nullptr, kLinkWireless},
    {24, "Software Lookback", nullptr, kLinkWireless},
    {37, "ATM", nullptr, kLinkWireless},
    {71, "IEEE 802.11 Wireless", "Wireless LAN", kLinkWireless},
    {131, "Tunnel type encapsulation", nullptr, kLinkWireless},
    {144, "IEEE 1394 Firewire", nullptr, kLinkWireless},
};

std::string Dotted(DWORD address) {
    in_addr in{};
    in.s_addr = address;
    return inet_ntoa(in);
}

void TakeAddressType(NicInfo& nic, unsigned short type) {
    if (type & MIB_IPADDR_PRIMARY) LogInfo("Primary IP Address");
    if (type & MIB_IPADDR_DYNAMIC) {
        LogInfo("Dynamic IP Address");
        nic.IsDynamic = true;
    }
    if (type & MIB_IPADDR_DISCONNECTED) LogInfo("Address is on disconnected interface");
    if (type & MIB_IPADDR_DELETED) LogInfo("Address is being deleted");
    if (type & MIB_IPADDR_TRANSIENT) LogInfo("Transient address");
}

void LogAddressTableError(DWORD error) {
    char text[256] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                   sizeof text, nullptr);
    LogDebug("GetIpAddrTable failed with error %d", error);
    LogDebug("Error: %s", text);
}

void CollectAddresses(std::vector<NicInfo>& list) {
    using Table = IpHelperTable<MIB_IPADDRTABLE>;
    Table table;
    switch (table.Fill(ERROR_INSUFFICIENT_BUFFER,
                       [](MIB_IPADDRTABLE* out, ULONG* size) { return GetIpAddrTable(out, size, FALSE); })) {
        case Table::Outcome::NoFirstBuffer:
            LogInfo("GetIpAddrTable returned empty");
            return;
        case Table::Outcome::NoGrownBuffer:
            LogDebug("Memory allocation failed for GetIpAddrTable");
            return;
        case Table::Outcome::CallFailed:
            return LogAddressTableError(table.Error());
        case Table::Outcome::Filled:
            break;
    }
    LogInfo("Num Entries: %u", table->dwNumEntries);
    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
        const MIB_IPADDRROW& row = table->table[i];
        NicInfo nic;
        nic.IPv4String = Dotted(row.dwAddr);
        if (nic.IPv4String == "127.0.0.1") continue;
        nic.IPv4Address = inet_addr(nic.IPv4String.c_str());
        nic.InterfaceIndex = row.dwIndex;
        nic.DeviceID = std::to_string(row.dwIndex);
        nic.SubnetString = Dotted(row.dwMask);
        nic.Subnet = row.dwMask;
        TakeAddressType(nic, row.wType);
        nic.AddressOrigin = nic.IsDynamic ? kAddressDHCP : kAddressStatic;
        list.push_back(std::move(nic));
    }
}

const char* OperStatusText(DWORD status) {
    constexpr const char* kTexts[] = {"Non Operational", "Unreasonable", "Disconnected",
                                      "Connecting",      "Connected",    "Operational"};
    return status < std::size(kTexts) ? kTexts[status] : nullptr;
}

void TakeInterfaceType(NicInfo& nic, DWORD type) {
    const auto known = std::find_if(std::begin(kInterfaceTypes), std::end(kInterfaceTypes),
                                    [type](const InterfaceType& entry) { return entry.type == type; });
    if (known == std::end(kInterfaceTypes)) {
        nic.TypeName = "Unknown type " + std::to_string(type);
        nic.AdapterType = nic.TypeName;
        nic.LinkTechnology = kLinkWireless;
        return;
    }
    nic.TypeName = known->typeName;
    nic.AdapterType = known->adapterType ? known->adapterType : known->typeName;
    nic.LinkTechnology = known->linkTechnology;
}

std::string MacText(const MIB_IFROW& row) {
    std::string text;
    for (DWORD i = 0; i < std::min<DWORD>(row.dwPhysAddrLen, MAXLEN_PHYSADDR); ++i) {
        char byte[3];
        std::snprintf(byte, sizeof byte, "%.2X", row.bPhysAddr[i]);
        text += byte;
    }
    return text;
}

// Returns false when the description marks the interface as a loopback, whatever its address is.
bool TakeInterface(NicInfo& nic, const MIB_IFROW& row) {
    char name[260] = "";
    WideCharToMultiByte(CP_ACP, 0, row.wszName, -1, name, sizeof name - 1, nullptr, nullptr);
    nic.InterfaceName = name;
    const std::string description(reinterpret_cast<const char*>(row.bDescr),
                                  std::min<DWORD>(row.dwDescrLen, MAXLEN_IFDESCR));
    if (description.find("Loopback") != std::string::npos) return false;
    nic.Name = description;
    TakeInterfaceType(nic, row.dwType);
    nic.Speed = row.dwSpeed;
    nic.MaxSpeed = 0;
    nic.MACAddress = MacText(row);
    nic.StatusInfo = static_cast<uint16_t>(row.dwOperStatus);
    if (const char* const status = OperStatusText(row.dwOperStatus)) {
        LogInfo("%s", status);
    } else {
        LogInfo("Unknown status %ld", row.dwOperStatus);
    }
    return true;
}

bool ReadInterfaceTable(IpHelperTable<MIB_IFTABLE>& table) {
    using Table = IpHelperTable<MIB_IFTABLE>;
    switch (table.Fill(ERROR_INSUFFICIENT_BUFFER,
                       [](MIB_IFTABLE* out, ULONG* size) { return GetIfTable(out, size, FALSE); })) {
        case Table::Outcome::NoFirstBuffer:
            LogError("Error allocating memory needed to call GetIfTable call 1");
            return false;
        case Table::Outcome::NoGrownBuffer:
            LogError("Error allocating memory needed to call GetIfTable call 2");
            return false;
        case Table::Outcome::CallFailed:
            LogError("GetIfTable failed with error: %ld", table.Error());
            return false;
        case Table::Outcome::Filled:
            break;
    }
    if (table->dwNumEntries == 0) LogError("GetIfTable has no entries");
    return table->dwNumEntries != 0;
}

void CollectInterfaces(std::vector<NicInfo>& list) {
    IpHelperTable<MIB_IFTABLE> table;
    if (!ReadInterfaceTable(table)) return;
    const std::unique_ptr<MIB_IFROW> row(new (std::nothrow) MIB_IFROW{});
    if (!row) {
        LogError("Error allocating memory to MIB_IFROW");
        return;
    }
    if (list.empty()) {
        LogWarn("Interface List has no entries");
        return;
    }
    std::set<uint32_t> loopbacks;
    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
        *row = table->table[i];
        // An interface with two addresses fills only its first entry.
        const auto nic = std::find_if(list.begin(), list.end(), [&](const NicInfo& candidate) {
            return candidate.InterfaceIndex == row->dwIndex;
        });
        if (nic == list.end()) continue;
        if (const DWORD error = GetIfEntry(row.get()))
            LogInfo("GetIfEntry failed for index %d with error: %ld", row->dwIndex, error);
        if (!TakeInterface(*nic, *row)) loopbacks.insert(nic->InterfaceIndex);
    }
    std::erase_if(list, [&](const NicInfo& nic) { return loopbacks.contains(nic.InterfaceIndex); });
}

void CollectGateways(std::vector<NicInfo>& list) {
    using Table = IpHelperTable<IP_ADAPTER_INFO>;
    Table adapters;
    switch (adapters.Fill(ERROR_BUFFER_OVERFLOW,
                          [](IP_ADAPTER_INFO* out, ULONG* size) { return GetAdaptersInfo(out, size); })) {
        case Table::Outcome::NoFirstBuffer:
        case Table::Outcome::NoGrownBuffer:
            LogDebug("Error allocating memory needed to call GetAdaptersinfo");
            return;
        case Table::Outcome::CallFailed:
            LogDebug("GetAdaptersInfo failed with error: %lu", adapters.Error());
            return;
        case Table::Outcome::Filled:
            break;
    }
    for (const IP_ADAPTER_INFO* adapter = adapters.Get(); adapter; adapter = adapter->Next) {
        for (NicInfo& nic : list) {
            if (nic.IPv4String != adapter->IpAddressList.IpAddress.String) continue;
            nic.Gateway = inet_addr(adapter->GatewayList.IpAddress.String);
            nic.DHCPServer = nic.IsDynamic ? inet_addr(adapter->DhcpServer.IpAddress.String) : 0;
            LogInfo("Gateway (NBO): 0x%08x", nic.Gateway);
            LogInfo("DHCP Server (NBO): 0x%08x", nic.DHCPServer);
        }
    }
}

}  // namespace

std::vector<NicInfo> GetNicInfoList() {
    std::vector<NicInfo> list;
    CollectAddresses(list);
    CollectInterfaces(list);
    CollectGateways(list);
    return list;
}
