#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "base/Log.h"
#include "reporting/IPv4InfoStore.h"
#include "state/ServiceState.h"

namespace {

constexpr size_t kAdapterBufferSize = 11264;  // fixed: a host with more adapters reports no address
constexpr size_t kNetworkParamsSize = 600;
constexpr int kAttempts = 2;
constexpr DWORD kRetryMilliseconds = 3000;

bool IsAddress(const IP_ADDRESS_STRING& address) {
    return address.String[0] && std::strcmp(address.String, "0.0.0.0") != 0;
}

// Returns the first DNS server as text. Returns an empty text when there is none or it cannot be read.
std::string FirstDnsServer() {
    std::vector<uint64_t> buffer(kNetworkParamsSize / sizeof(uint64_t));
    ULONG size = kNetworkParamsSize;
    const auto info = [&] { return reinterpret_cast<FIXED_INFO*>(buffer.data()); };
    DWORD error = GetNetworkParams(info(), &size);
    if (error == ERROR_BUFFER_OVERFLOW) {
        buffer.resize(size / sizeof(uint64_t) + 1);
        error = GetNetworkParams(info(), &size);
    }
    return error == ERROR_SUCCESS ? info()->DnsServerList.IpAddress.String : "";
}

void Take(const IP_ADAPTER_INFO& adapter, IPCompleteInfo& info) {
    const char* address = adapter.IpAddressList.IpAddress.String;
    const char* mask = adapter.IpAddressList.IpMask.String;
    const char* gateway = adapter.GatewayList.IpAddress.String;
    LogInfo("Adapter Name: %s", adapter.AdapterName);
    LogInfo("Adapter Description: %s", adapter.Description);
    info.IPv4Address = inet_addr(address);
    LogInfo("IPv4 Address: %s", address);
    info.Subnet = inet_addr(mask);
    LogInfo("Subnet Mask: %s", mask);
    info.Gateway = inet_addr(gateway);
    LogInfo("Gateway: %s", gateway);
    std::string server = FirstDnsServer();
    if (server.empty()) {
        LogError("No DNS server found, using fallback 0.0.0.0");
        server = "0.0.0.0";
    }
    info.DnsServer = inet_addr(server.c_str());
    LogInfo("DNS Server: %s", server);
}

}  // namespace

IPCompleteInfo GetPrimaryAddress(uint32_t port) {
    IPCompleteInfo info{};
    info.Port = port;
    for (int attempt = 1;; ++attempt) {
        alignas(IP_ADAPTER_INFO) std::array<std::byte, kAdapterBufferSize> buffer{};
        auto* adapter = reinterpret_cast<IP_ADAPTER_INFO*>(buffer.data());
        ULONG size = kAdapterBufferSize;
        if (const DWORD error = GetAdaptersInfo(adapter, &size)) {
            LogError("GetAdaptersInfo failed with error: %d", error);
            return info;
        }
        for (; adapter; adapter = adapter->Next) {
            // An adapter without a gateway does not count, whatever its address is.
            if (!IsAddress(adapter->IpAddressList.IpAddress) || !IsAddress(adapter->GatewayList.IpAddress))
                continue;
            Take(*adapter, info);
            return info;
        }
        if (attempt == kAttempts) break;
        g_pServiceState->SleepUnlessStopping(kRetryMilliseconds);
    }
    LogError("No valid IPv4 address found after 2 attempts.");
    info.IPv4Address = inet_addr("127.0.0.1");
    return info;
}
