// The adapters, the name servers, and WinINet's connection flags.
#include <iphlpapi.h>
#include <wininet.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/net/IpFields.h"
#include "winhost/net/NetworkSource.h"

using winhost::Adapter;
using winhost::AdapterAddress;
using winhost::Fail;
using winhost::Put;

namespace {

constexpr const char* kNoAddress = "0.0.0.0";
constexpr const char* kHostMask = "255.255.255.255";
constexpr uint32_t kLanByDefault = INTERNET_CONNECTION_LAN | INTERNET_RAS_INSTALLED;

std::string OrNone(const std::string& address) {
    return address.empty() ? kNoAddress : address;
}

void PutAddress(IP_ADDR_STRING& entry, const std::string& address, const std::string& mask) {
    Put(entry.IpAddress.String, address);
    Put(entry.IpMask.String, mask);
}

void Fill(IP_ADAPTER_INFO& info, const Adapter& adapter) {
    info = {};
    Put(info.AdapterName, adapter.name);
    Put(info.Description, adapter.description);
    const auto mac = winhost::MacBytes(adapter.mac);
    info.AddressLength = static_cast<UINT>(std::min(mac.size(), std::size(info.Address)));
    std::copy_n(mac.begin(), info.AddressLength, info.Address);
    info.ComboIndex = info.Index = adapter.index;
    info.Type = adapter.type;
    info.DhcpEnabled = adapter.dhcp;
    PutAddress(info.IpAddressList, OrNone(adapter.address), OrNone(adapter.mask));
    PutAddress(info.GatewayList, OrNone(adapter.gateway), adapter.gateway.empty() ? kNoAddress : kHostMask);
    if (adapter.dhcp) {
        PutAddress(info.DhcpServer,
                   adapter.dhcpServer.empty() ? winhost::kUnknownDhcpServer : adapter.dhcpServer, kHostMask);
    }
    PutAddress(info.PrimaryWinsServer, kNoAddress, kNoAddress);
    PutAddress(info.SecondaryWinsServer, kNoAddress, kNoAddress);
}

// Chains the further addresses behind the first one, in the space at `free`; returns what is left of it.
IP_ADDR_STRING* Chain(IP_ADAPTER_INFO& info, const std::vector<AdapterAddress>& more, IP_ADDR_STRING* free) {
    IP_ADDR_STRING* last = &info.IpAddressList;
    for (const AdapterAddress& address : more) {
        *free = {};
        PutAddress(*free, address.address, address.mask);
        last = last->Next = free++;
    }
    return free;
}

// All but the loopback, which Windows leaves out.
std::vector<const Adapter*> Listed(const std::vector<Adapter>& adapters) {
    std::vector<const Adapter*> listed;
    for (const Adapter& adapter : adapters)
        if (adapter.type != IF_TYPE_SOFTWARE_LOOPBACK) listed.push_back(&adapter);
    return listed;
}

}  // namespace

ULONG GetAdaptersInfo(PIP_ADAPTER_INFO AdapterInfo, PULONG SizePointer) {
    WINHOST_GATE_CODE("GetAdaptersInfo");
    if (!SizePointer) return ERROR_INVALID_PARAMETER;
    return winhost::Guarded([&]() -> DWORD {
        const auto adapters = winhost::Adapters();
        const auto listed = Listed(adapters);
        if (listed.empty()) return ERROR_NO_DATA;
        size_t needed = listed.size() * sizeof(IP_ADAPTER_INFO);
        for (const Adapter* adapter : listed)
            needed += adapter->moreAddresses.size() * sizeof(IP_ADDR_STRING);
        if (!winhost::HasRoom(AdapterInfo, SizePointer, needed)) return ERROR_BUFFER_OVERFLOW;
        auto* free = reinterpret_cast<IP_ADDR_STRING*>(AdapterInfo + listed.size());
        for (size_t i = 0; i < listed.size(); ++i) {
            Fill(AdapterInfo[i], *listed[i]);
            free = Chain(AdapterInfo[i], listed[i]->moreAddresses, free);
            if (i > 0) AdapterInfo[i - 1].Next = &AdapterInfo[i];
        }
        return ERROR_SUCCESS;
    });
}

DWORD GetNetworkParams(PFIXED_INFO pFixedInfo, PULONG pOutBufLen) {
    WINHOST_GATE_CODE("GetNetworkParams");
    if (!pOutBufLen) return ERROR_INVALID_PARAMETER;
    const auto description = winhost::Pc::Instance().Description();
    const auto servers = winhost::DnsServers();
    const size_t more = servers.size() > 1 ? servers.size() - 1 : 0;
    if (!winhost::HasRoom(pFixedInfo, pOutBufLen, sizeof(FIXED_INFO) + more * sizeof(IP_ADDR_STRING))) {
        return ERROR_BUFFER_OVERFLOW;
    }
    *pFixedInfo = {};
    Put(pFixedInfo->HostName, description.computerName);
    Put(pFixedInfo->DomainName, description.dnsDomain);
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
    if (dwReserved != 0) return Fail(ERROR_INVALID_PARAMETER);
    const auto described = winhost::Pc::Instance().Description().connectedFlags;
    bool connected = described && *described != 0;
    if (!described) {
        const DWORD error = winhost::Guarded([&]() -> DWORD {
            connected = winhost::HasWayOut();
            return ERROR_SUCCESS;
        });
        if (error != ERROR_SUCCESS) return Fail(error);
    }
    if (lpdwFlags) *lpdwFlags = described ? *described : connected ? kLanByDefault : INTERNET_RAS_INSTALLED;
    if (!connected) SetLastError(ERROR_NOT_CONNECTED);
    return connected;
}
