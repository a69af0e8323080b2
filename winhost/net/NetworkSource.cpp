#include "winhost/net/NetworkSource.h"

#include <arpa/inet.h>

#include <algorithm>
#include <fstream>

#include "winhost/net/Machine.h"

namespace winhost {
namespace {

constexpr uint32_t kLoopbackType = 24;
constexpr uint32_t kConnectedAtLeast = 4;

// A description needn't name what every PC has. It takes index 1 unless an adapter does.
void AddLoopback(std::vector<Adapter>& adapters) {
    Adapter loopback;
    loopback.name = "{00000000-0000-0000-0000-000000000001}";
    loopback.description = kLoopbackDescription;
    loopback.type = kLoopbackType;
    loopback.address = "127.0.0.1";
    loopback.mask = "255.0.0.0";
    loopback.dhcp = false;
    loopback.speed = 1'073'741'824;
    uint32_t highest = 0;
    bool taken = false;
    for (const Adapter& adapter : adapters) {
        if (adapter.type == kLoopbackType) return;
        highest = std::max(highest, adapter.index);
        taken |= adapter.index == loopback.index;
    }
    if (taken) loopback.index = highest + 1;
    adapters.insert(adapters.begin(), loopback);
}

}  // namespace

std::vector<Adapter> Adapters() {
    auto described = Pc::Instance().Get(&PcDescription::adapters);
    if (!described) return MachineAdapters();
    AddLoopback(*described);
    return *std::move(described);
}

// A described one is found without a copy of all.
std::optional<Adapter> AdapterByIndex(uint32_t index) {
    const auto find = [index](const std::vector<Adapter>& adapters) {
        const auto found = std::find_if(adapters.begin(), adapters.end(),
                                        [&](const Adapter& adapter) { return adapter.index == index; });
        return found == adapters.end() ? std::nullopt : std::optional(*found);
    };
    const auto described = Pc::Instance().Get(
        [&](const PcDescription& pc) { return pc.adapters ? find(*pc.adapters) : std::nullopt; });
    return described ? described : find(Adapters());
}

std::vector<std::string> DnsServers() {
    const auto description = Pc::Instance().Description();
    if (description.dnsServers) return *description.dnsServers;
    if (description.adapters) return {};
    std::ifstream file("/etc/resolv.conf");
    return NameServersIn(file);
}

bool HasWayOut() {
    const auto adapters = Adapters();
    return std::any_of(adapters.begin(), adapters.end(), [](const Adapter& adapter) {
        return !adapter.gateway.empty() && adapter.operStatus >= kConnectedAtLeast;
    });
}

std::optional<uint32_t> ParseAddress(const char* text) {
    in_addr address{};
    return inet_aton(text, &address) != 0 ? std::optional(address.s_addr) : std::nullopt;
}

uint32_t AddressWord(const std::string& dotted) {
    return ParseAddress(dotted.c_str()).value_or(0);
}

std::vector<uint8_t> MacBytes(const std::string& mac) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < mac.size(); i += 3) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(mac.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace winhost
