// The IP helper calls and WinINet's connection flags.
#include <iphlpapi.h>
#include <wininet.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "winhost/core/Gate.h"
#include "winhost/net/NetworkSource.h"

using winhost::Adapter;

namespace {

constexpr const char* kNoAddress = "0.0.0.0";
constexpr uint32_t kLoopbackType = 24;
constexpr size_t kMacSize = 6;

// Cut to the field, and always ended.
template <size_t N>
void Put(char (&field)[N], const std::string& text) {
    field[text.copy(field, N - 1)] = '\0';
}

std::string OrNone(const std::string& address) {
    return address.empty() ? kNoAddress : address;
}

void PutAddress(IP_ADDR_STRING& entry, const std::string& address, const std::string& mask) {
    Put(entry.IpAddress.String, address);
    Put(entry.IpMask.String, mask);
}

void PutMac(IP_ADAPTER_INFO& info, const std::string& mac) {
    if (mac.empty()) return;
    info.AddressLength = kMacSize;
    for (size_t i = 0; i < kMacSize; ++i) {
        info.Address[i] = static_cast<BYTE>(std::stoul(mac.substr(3 * i, 2), nullptr, 16));
    }
}

void Fill(IP_ADAPTER_INFO& info, const Adapter& adapter) {
    info = {};
    Put(info.AdapterName, adapter.name);
    Put(info.Description, adapter.description);
    PutMac(info, adapter.mac);
    info.ComboIndex = info.Index = adapter.index;
    info.Type = adapter.type;
    info.DhcpEnabled = adapter.dhcp;
    PutAddress(info.IpAddressList, OrNone(adapter.address), OrNone(adapter.mask));
    PutAddress(info.GatewayList, OrNone(adapter.gateway),
               adapter.gateway.empty() ? kNoAddress : "255.255.255.255");
    if (adapter.dhcp && !adapter.dhcpServer.empty())
        PutAddress(info.DhcpServer, adapter.dhcpServer, "255.255.255.255");
    PutAddress(info.PrimaryWinsServer, kNoAddress, kNoAddress);
    PutAddress(info.SecondaryWinsServer, kNoAddress, kNoAddress);
}

// True when the caller's buffer holds `needed` bytes; tells the caller the size when not.
bool HasRoom(const void* buffer, PULONG size, size_t needed) {
    const bool room = buffer && *size >= needed;
    if (!room) *size = static_cast<ULONG>(needed);
    return room;
}

}  // namespace

ULONG GetAdaptersInfo(PIP_ADAPTER_INFO AdapterInfo, PULONG SizePointer) {
    WINHOST_GATE_CODE("GetAdaptersInfo");
    if (!SizePointer) return ERROR_INVALID_PARAMETER;
    auto adapters = winhost::Adapters();
    std::erase_if(adapters, [](const Adapter& adapter) { return adapter.type == kLoopbackType; });
    if (adapters.empty()) return ERROR_NO_DATA;
    if (!HasRoom(AdapterInfo, SizePointer, adapters.size() * sizeof(IP_ADAPTER_INFO)))
        return ERROR_BUFFER_OVERFLOW;
    for (size_t i = 0; i < adapters.size(); ++i) {
        Fill(AdapterInfo[i], adapters[i]);
        if (i > 0) AdapterInfo[i - 1].Next = &AdapterInfo[i];
    }
    return ERROR_SUCCESS;
}

DWORD GetNetworkParams(PFIXED_INFO pFixedInfo, PULONG pOutBufLen) {
    WINHOST_GATE_CODE("GetNetworkParams");
    if (!pOutBufLen) return ERROR_INVALID_PARAMETER;
    const auto description = winhost::Pc::Instance().Description();
    const auto& servers = description.dnsServers;
    const size_t more = servers.size() > 1 ? servers.size() - 1 : 0;
    if (!HasRoom(pFixedInfo, pOutBufLen, sizeof(FIXED_INFO) + more * sizeof(IP_ADDR_STRING))) {
        return ERROR_BUFFER_OVERFLOW;
    }
    *pFixedInfo = {};
    Put(pFixedInfo->HostName, description.computerName);
    pFixedInfo->NodeType = HYBRID_NODETYPE;
    // The list's first entry is there even when there is no server: with an empty address.
    if (!servers.empty()) Put(pFixedInfo->DnsServerList.IpAddress.String, servers[0]);
    auto* next = reinterpret_cast<IP_ADDR_STRING*>(pFixedInfo + 1);
    IP_ADDR_STRING* last = &pFixedInfo->DnsServerList;
    for (size_t i = 1; i < servers.size(); ++i, ++next) {
        *next = {};
        Put(next->IpAddress.String, servers[i]);
        last = last->Next = next;
    }
    return ERROR_SUCCESS;
}

BOOL InternetGetConnectedState(LPDWORD lpdwFlags, DWORD dwReserved) {
    WINHOST_GATE("InternetGetConnectedState", FALSE);
    if (dwReserved != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const uint32_t flags = winhost::Pc::Instance().Description().connectedFlags;
    if (lpdwFlags) *lpdwFlags = flags;
    return flags != 0;
}
