// Whether this host is in the company's network, by the DNS suffixes of its adapters.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>

#include "base/Log.h"
#include "cloud/NubaClient.h"

namespace {

constexpr ULONG kFirstSize = 15000;  // bytes
constexpr int kMaxCalls = 3;

// In units that are aligned for the list.
using Buffer = std::vector<std::max_align_t>;

DWORD ListAdapters(Buffer& buffer) {
    ULONG size = kFirstSize;
    DWORD error = ERROR_BUFFER_OVERFLOW;
    for (int call = 0; call < kMaxCalls && error == ERROR_BUFFER_OVERFLOW; ++call) {
        buffer.assign(size / sizeof(Buffer::value_type) + 1, {});
        error = GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX | GAA_FLAG_INCLUDE_GATEWAYS, nullptr,
                                     reinterpret_cast<PIP_ADAPTER_ADDRESSES>(buffer.data()), &size);
    }
    return error;
}

// Returns an empty text when there is none, or when it cannot be converted.
std::string SuffixOf(const IP_ADAPTER_ADDRESSES& adapter) {
    if (!adapter.DnsSuffix || !adapter.DnsSuffix[0]) return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, adapter.DnsSuffix, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return {};
    std::string suffix(static_cast<size_t>(size), '\0');
    if (WideCharToMultiByte(CP_UTF8, 0, adapter.DnsSuffix, -1, suffix.data(), size, nullptr, nullptr) != size)
        return {};
    suffix.pop_back();
    return suffix;
}

}  // namespace

std::vector<std::string> GetNetworkDomains() {
    Buffer buffer;
    if (const DWORD error = ListAdapters(buffer)) {
        LogError("Call to GetAdaptersAddresses failed with error: %d", error);
        return {};
    }
    std::vector<std::string> domains;
    for (auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(buffer.data()); adapter;
         adapter = adapter->Next) {
        if (adapter->OperStatus != IfOperStatusUp || !adapter->FirstUnicastAddress) continue;
        std::string suffix = SuffixOf(*adapter);
        if (!suffix.empty() && std::find(domains.begin(), domains.end(), suffix) == domains.end())
            domains.push_back(std::move(suffix));
    }
    return domains;
}

bool NubaClient::IsOutsideCorporateNetwork() {
    const std::vector<std::string> corporate = Domains();
    if (corporate.empty()) {
        LogInfo("NUBA: MPM Domain list is empty");
        return true;
    }
    const std::vector<std::string> own = GetNetworkDomains();
    if (own.empty()) {
        LogInfo("NUBA: Network Domain list is empty");
        return true;
    }
    for (size_t i = 0; i < own.size(); ++i) {
        LogInfo("NUBA: Network Domain[%zu] is %s", i, own[i]);
        const auto match = std::find(corporate.begin(), corporate.end(), own[i]);
        if (match == corporate.end()) continue;
        LogInfo("NUBA: Domain %s matches with MPM Domain %s", own[i], *match);
        return false;
    }
    LogInfo("NUBA: No matching domain found. System is outside corporate network.");
    return true;
}
