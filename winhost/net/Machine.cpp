#include "winhost/net/Machine.h"

#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "winhost/net/Netlink.h"
#include "winhost/net/NetworkSource.h"

namespace winhost {
namespace {

constexpr uint32_t kOther = 1, kEthernet = 6, kLoopback = 24, kWireless = 71;
constexpr uint32_t kNonOperational = 0, kDisconnected = 2, kConnecting = 3, kOperational = 5;

uint32_t TypeOf(uint16_t hardware) {
    if (hardware == ARPHRD_ETHER) return kEthernet;
    return hardware == ARPHRD_LOOPBACK ? kLoopback : kOther;
}

uint32_t StatusOf(unsigned flags, uint32_t state) {
    if (!(flags & IFF_UP)) return kNonOperational;
    if (state == IF_OPER_UP || state == IF_OPER_UNKNOWN)
        return flags & IFF_RUNNING ? kOperational : kDisconnected;
    return state == IF_OPER_DORMANT || state == IF_OPER_TESTING ? kConnecting : kDisconnected;
}

// The file system may have been mounted in another network namespace, whose interface of this name is another
// one.
bool IsWireless(const Adapter& adapter) {
    const std::filesystem::path folder = std::filesystem::path("/sys/class/net") / adapter.name;
    std::error_code none;
    if (!std::filesystem::exists(folder / "phy80211", none) &&
        !std::filesystem::exists(folder / "wireless", none)) {
        return false;
    }
    uint32_t index = 0;
    std::string mac;
    return std::ifstream(folder / "ifindex") >> index && index == adapter.index &&
           std::ifstream(folder / "address") >> mac && mac == adapter.mac;
}

// Bits per second; 0 when the driver doesn't know.
uint64_t SpeedOf(const std::string& name) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return 0;
    ethtool_cmd command{};
    command.cmd = ETHTOOL_GSET;
    ifreq request{};
    name.copy(request.ifr_name, sizeof(request.ifr_name) - 1);
    request.ifr_data = reinterpret_cast<char*>(&command);
    const bool known = ioctl(descriptor, SIOCETHTOOL, &request) == 0;
    close(descriptor);
    const uint32_t megabits = known ? ethtool_cmd_speed(&command) : 0;
    return megabits == static_cast<uint32_t>(SPEED_UNKNOWN) ? 0 : uint64_t{megabits} * 1'000'000;
}

Adapter FromLink(const ifinfomsg& link, const Attributes& attributes) {
    Adapter adapter;
    adapter.index = static_cast<uint32_t>(link.ifi_index);
    adapter.name = attributes.Text(IFLA_IFNAME);
    adapter.description = attributes.Has(IFLA_IFALIAS) ? attributes.Text(IFLA_IFALIAS) : adapter.name;
    adapter.type = TypeOf(link.ifi_type);
    if (adapter.type == kLoopback) {
        adapter.description = kLoopbackDescription;
    } else {
        adapter.mac = attributes.Mac(IFLA_ADDRESS);
    }
    if (adapter.type == kEthernet && IsWireless(adapter)) adapter.type = kWireless;
    adapter.dhcp = false;
    adapter.speed = SpeedOf(adapter.name);
    adapter.mtu = attributes.Number(IFLA_MTU);
    adapter.operStatus = StatusOf(link.ifi_flags, attributes.Number(IFLA_OPERSTATE));
    return adapter;
}

std::string MaskOf(unsigned prefix) {
    const uint32_t mask = prefix == 0 ? 0 : ~uint32_t{0} << (32 - std::min(prefix, 32u));
    in_addr address{htonl(mask)};
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

using ByIndex = std::map<uint32_t, Adapter>;

void AddAddresses(Netlink& kernel, ByIndex& adapters) {
    std::vector<std::pair<uint32_t, AdapterAddress>> found;
    kernel.Dump<ifaddrmsg>(
        RTM_GETADDR, AF_INET, [&] { found.clear(); },
        [&](const ifaddrmsg& row, const Attributes& attributes) {
            AdapterAddress entry;
            // On a point-to-point link IFA_ADDRESS is the other end.
            entry.address = attributes.Address(attributes.Has(IFA_LOCAL) ? IFA_LOCAL : IFA_ADDRESS);
            entry.mask = MaskOf(row.ifa_prefixlen);
            const uint32_t flags = attributes.Has(IFA_FLAGS) ? attributes.Number(IFA_FLAGS) : row.ifa_flags;
            entry.dhcp = !(flags & IFA_F_PERMANENT);
            if (row.ifa_family == AF_INET) found.emplace_back(row.ifa_index, entry);
        });
    for (auto& [index, entry] : found) {
        const auto adapter = adapters.find(index);
        if (adapter == adapters.end()) continue;
        if (!adapter->second.address.empty()) {
            adapter->second.moreAddresses.push_back(std::move(entry));
            continue;
        }
        adapter->second.address = entry.address;
        adapter->second.mask = entry.mask;
        adapter->second.dhcp = entry.dhcp;
        if (entry.dhcp) adapter->second.dhcpServer = kUnknownDhcpServer;
    }
}

struct DefaultRoute {
    uint32_t index, metric;
    std::string gateway;  // empty on a point-to-point link
};

std::vector<DefaultRoute> DefaultRoutes(Netlink& kernel) {
    std::vector<DefaultRoute> routes;
    kernel.Dump<rtmsg>(
        RTM_GETROUTE, AF_INET, [&] { routes.clear(); },
        [&](const rtmsg& row, const Attributes& attributes) {
            const uint32_t table = attributes.Has(RTA_TABLE) ? attributes.Number(RTA_TABLE) : row.rtm_table;
            const bool isDefault = row.rtm_family == AF_INET && row.rtm_dst_len == 0 &&
                                   row.rtm_type == RTN_UNICAST && table == RT_TABLE_MAIN;
            const bool isUsable = !(row.rtm_flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN));
            if (isDefault && isUsable)
                routes.push_back({attributes.Number(RTA_OIF), attributes.Number(RTA_PRIORITY),
                                  attributes.Address(RTA_GATEWAY)});
        });
    std::stable_sort(routes.begin(), routes.end(),
                     [](const DefaultRoute& a, const DefaultRoute& b) { return a.metric < b.metric; });
    return routes;
}

}  // namespace

std::vector<Adapter> MachineAdapters() {
    Netlink kernel;
    ByIndex adapters;
    kernel.Dump<ifinfomsg>(
        RTM_GETLINK, AF_UNSPEC, [&] { adapters.clear(); },
        [&](const ifinfomsg& link, const Attributes& attributes) {
            adapters[static_cast<uint32_t>(link.ifi_index)] = FromLink(link, attributes);
        });
    AddAddresses(kernel, adapters);
    for (const DefaultRoute& route : DefaultRoutes(kernel)) {
        const auto adapter = adapters.find(route.index);
        if (adapter != adapters.end() && adapter->second.gateway.empty())
            adapter->second.gateway = route.gateway;
    }
    std::vector<Adapter> list;
    for (auto& [index, adapter] : adapters)
        list.push_back(std::move(adapter));
    return list;
}

std::vector<std::string> NameServersIn(std::istream& resolvConf) {
    std::vector<std::string> servers;
    for (std::string line; std::getline(resolvConf, line);) {
        std::istringstream words(line);
        std::string key, address;
        in_addr ignored;
        if (words >> key >> address && key == "nameserver" &&
            inet_pton(AF_INET, address.c_str(), &ignored) == 1) {
            servers.push_back(address);
        }
    }
    return servers;
}

}  // namespace winhost
