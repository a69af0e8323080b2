#include <arpa/inet.h>
#include <strings.h>

#include <regex>
#include <set>

#include "winhost/core/Guid.h"
#include "winhost/pc/DescriptionJson.h"
#include "winhost/pc/OsVersion.h"
#include "winhost/power/Privileges.h"

namespace winhost {
namespace {

constexpr size_t kLongestAdapterName = 259;
constexpr size_t kLongestAdapterText = 131;
constexpr size_t kLongestComputerName = 131;
constexpr size_t kLongestSocketPath =
    100;  // a Unix socket's 107, and room for the name it has while it is made
constexpr size_t kLongestWlanText = 255;
constexpr size_t kLongestSsid = 32;
constexpr size_t kLongestProcessName = 259;
constexpr size_t kLongestServiceName = 256;
constexpr uint32_t kAllBits = 0xFFFF;
constexpr int32_t kLargestBias = 14 * 60;
constexpr int32_t kLargestDaylightBias = 2 * 60;
constexpr size_t kLongestGraphicsText = 127, kLongestOutputName = 31, kLongestDriverPath = 259;
constexpr size_t kMostEngines = 64;

void Require(bool holds, const std::string& place, const std::string& what) {
    if (!holds) throw DescriptionError(place, what);
}

void RequireFrom(uint32_t lowest, uint32_t highest, uint32_t value, const std::string& place) {
    Require(value >= lowest && value <= highest, place,
            "expected " + std::to_string(lowest) + " to " + std::to_string(highest));
}

// Calls check(entry, place) for each entry of the list at this place.
template <class List, class Check>
void CheckEach(const List& list, const std::string& place, Check check) {
    for (size_t i = 0; i < list.size(); ++i)
        check(list[i], place + "[" + std::to_string(i) + "]");
}

void RequireAddress(const std::string& text, const std::string& place) {
    in_addr address;
    Require(inet_pton(AF_INET, text.c_str(), &address) == 1, place,
            "\"" + text + "\" is not an IPv4 address");
}

void RequireAddressOrNone(const std::string& text, const std::string& place) {
    if (!text.empty()) RequireAddress(text, place);
}

void CheckAdapter(const Adapter& adapter, const std::string& place) {
    static const std::regex kMac("([0-9A-Fa-f]{2}:){5}[0-9A-Fa-f]{2}");
    Require(!adapter.name.empty(), place + ".name", "an adapter has a name");
    Require(adapter.name.size() <= kLongestAdapterName, place + ".name", "too long");
    Require(adapter.description.size() <= kLongestAdapterText, place + ".description", "too long");
    Require(adapter.mac.empty() || std::regex_match(adapter.mac, kMac), place + ".mac",
            "\"" + adapter.mac + "\" is not six pairs of hexadecimal digits with colons between");
    RequireAddressOrNone(adapter.address, place + ".address");
    RequireAddressOrNone(adapter.mask, place + ".mask");
    RequireAddressOrNone(adapter.gateway, place + ".gateway");
    RequireAddressOrNone(adapter.dhcpServer, place + ".dhcpServer");
    Require(adapter.addressBits <= kAllBits, place + ".addressBits", "16 bits at most");
    CheckEach(adapter.moreAddresses, place + ".moreAddresses", [](const auto& more, const auto& at) {
        RequireAddress(more.address, at + ".address");
        RequireAddress(more.mask, at + ".mask");
        Require(more.bits <= kAllBits, at + ".bits", "16 bits at most");
    });
}

void CheckAdapters(const std::vector<Adapter>& adapters) {
    std::set<uint32_t> indices;
    CheckEach(adapters, "adapters", [&](const auto& adapter, const auto& place) {
        CheckAdapter(adapter, place);
        Require(indices.insert(adapter.index).second, place + ".index", "another adapter has it");
    });
}

void CheckWlan(const WlanInterface& wlan, const std::string& place) {
    Require(ParseGuid(wlan.guid).has_value(), place + ".guid", "\"" + wlan.guid + "\" is not a GUID");
    Require(wlan.description.size() <= kLongestWlanText, place + ".description", "too long");
    RequireFrom(0, 7, wlan.state, place + ".state");
}

void CheckWlanNetwork(const WlanNetwork& network, const std::string& place) {
    static const std::regex kBytes("([0-9A-Fa-f]{2}){0,32}");
    Require(!network.name.empty(), place + ".name", "a profile has a name");
    Require(network.name.size() <= kLongestWlanText, place + ".name", "too long");
    Require(network.ssid.size() <= kLongestSsid, place + ".ssid", "32 bytes at most");
    Require(std::regex_match(network.ssidBytes, kBytes), place + ".ssidBytes",
            "expected up to 32 bytes in hexadecimal");
}

void CheckWlans(const PcDescription& pc) {
    std::set<std::string> names;
    CheckEach(pc.wlanNetworks, "wlanNetworks", [&](const auto& network, const auto& place) {
        CheckWlanNetwork(network, place);
        Require(names.insert(network.name).second, place + ".name", "another network has it");
    });
    CheckEach(pc.wlanInterfaces, "wlanInterfaces", [&](const auto& wlan, const auto& place) {
        CheckWlan(wlan, place);
        Require(wlan.network.empty() || names.contains(wlan.network), place + ".network",
                "\"" + wlan.network + "\" is none of wlanNetworks");
    });
}

void CheckTransition(const ZoneTransition& transition, const std::string& place) {
    RequireFrom(0, 12, transition.month, place + ".month");
    RequireFrom(1, 5, transition.week, place + ".week");
    RequireFrom(0, 6, transition.weekday, place + ".weekday");
    RequireFrom(0, 23, transition.hour, place + ".hour");
}

void CheckZone(const PcDescription& pc) {
    Require(pc.timeZoneBiasMinutes >= -kLargestBias && pc.timeZoneBiasMinutes <= kLargestBias,
            "timeZoneBiasMinutes", "expected at most 840 minutes either way");
    Require(pc.timeZoneDaylightBiasMinutes >= -kLargestDaylightBias &&
                pc.timeZoneDaylightBiasMinutes <= kLargestDaylightBias,
            "timeZoneDaylightBiasMinutes", "expected at most 120 minutes either way");
    CheckTransition(pc.timeZoneDaylightStart, "timeZoneDaylightStart");
    CheckTransition(pc.timeZoneStandardStart, "timeZoneStandardStart");
}

// 0, or an HRESULT that says failure.
void RequireFailure(uint32_t result, const std::string& place) {
    Require(result == 0 || result >> 31, place, "expected 0 or an HRESULT of a failure");
}

void CheckSystem(const PcDescription& pc) {
    Require(ParseOsVersion(pc.osVersion).has_value(), "osVersion",
            "\"" + pc.osVersion + "\" is not <major>.<minor>.<build>");
    Require(pc.osType <= kAllBits, "osType", "16 bits at most");
    Require(pc.processorArchitecture <= kAllBits, "processorArchitecture", "16 bits at most");
    RequireFailure(pc.wmiConnectError, "wmiConnectError");
    RequireFailure(pc.wmiQueryError, "wmiQueryError");
    CheckEach(pc.privileges, "privileges", [](const auto& name, const auto& place) {
        Require(PrivilegeByName(name) != 0, place, "\"" + name + "\" is not a privilege");
    });
}

void CheckSessions(const PcDescription& pc) {
    Require(pc.consoleSession != 0, "consoleSession", "session 0 is that of the services");
    RequireFrom(1, 32767, pc.screen.width, "screen.width");
    RequireFrom(1, 32767, pc.screen.height, "screen.height");
    std::set<uint32_t> ids;
    CheckEach(pc.processes, "processes", [&](const auto& process, const auto& place) {
        Require(!process.name.empty(), place + ".name", "a process has a name");
        Require(process.name.size() <= kLongestProcessName, place + ".name", "too long");
        Require(process.pid != 0, place + ".pid", "0 is none");
        Require(ids.insert(process.pid).second, place + ".pid", "another process has it");
    });
}

void CheckServices(const PcDescription& pc) {
    const auto isBefore = [](const auto& a, const auto& b) { return strcasecmp(a.c_str(), b.c_str()) < 0; };
    std::set<std::string, decltype(isBefore)> names;
    CheckEach(pc.services, "services", [&](const auto& service, const auto& place) {
        Require(!service.name.empty(), place + ".name", "a service has a name");
        Require(service.name.size() <= kLongestServiceName, place + ".name", "too long");
        Require(service.name.find_first_of("/\\") == std::string::npos, place + ".name",
                "a service's name has no separator");
        Require(names.insert(service.name).second, place + ".name", "another service has it");
        RequireFrom(0, 4, service.startType, place + ".startType");
        RequireFrom(1, 7, service.state, place + ".state");
    });
}

void CheckHash(const std::string& hash, const std::string& place) {
    static const std::regex kHash("[0-9a-f]{64}");
    Require(std::regex_match(hash, kHash), place, "expected 64 hexadecimal digits in lower case");
}

void CheckDirectory(const Directory& directory) {
    std::set<std::string> names;
    CheckEach(directory.accounts, "directory.accounts", [&](const auto& account, const auto& place) {
        Require(!account.name.empty(), place + ".name", "an account has a name");
        Require(names.insert(account.name).second, place + ".name", "another account has it");
        CheckHash(account.passwordHash, place + ".passwordHash");
    });
}

void CheckGraphicsAdapter(const GraphicsAdapter& adapter, const std::string& place) {
    Require(adapter.description.size() <= kLongestGraphicsText, place + ".description", "too long");
    Require(adapter.luid != 0, place + ".luid", "0 is none");
    Require(adapter.driverPath.size() <= kLongestDriverPath, place + ".driverPath", "too long");
    CheckEach(adapter.outputs, place + ".outputs", [](const auto& name, const auto& at) {
        Require(!name.empty() && name.size() <= kLongestOutputName, at, "expected 1 to 31 bytes");
    });
    Require(adapter.engines.size() <= kMostEngines, place + ".engines", "64 at most");
    CheckEach(adapter.engines, place + ".engines",
              [](uint32_t engine, const auto& at) { RequireFrom(0, 255, engine, at); });
    const uint32_t level = adapter.featureLevel;
    Require(level == 100 || level == 101 || level == 110 || level == 111, place + ".featureLevel",
            "expected 100, 101, 110 or 111");
}

void CheckGraphics(const PcDescription& pc) {
    std::set<uint64_t> luids;
    CheckEach(pc.graphicsAdapters, "graphicsAdapters", [&](const auto& adapter, const auto& place) {
        CheckGraphicsAdapter(adapter, place);
        Require(luids.insert(adapter.luid).second, place + ".luid", "another adapter has it");
    });
    RequireFrom(1, 1000, pc.timerPeriod, "timerPeriod");
}

template <class Value>
void CheckKeys(const std::map<std::string, std::map<std::string, Value>>& keys, const std::string& place) {
    constexpr std::string_view kRoot = "HKEY_LOCAL_MACHINE\\";
    for (const auto& [key, values] : keys)
        Require(key.starts_with(kRoot) && key.size() > kRoot.size(), place + key,
                "expected a key below HKEY_LOCAL_MACHINE");
}

}  // namespace

void CheckDescription(const PcDescription& pc) {
    for (const auto& [name, value] : pc.environment) {
        Require(!name.empty() && name.find('=') == std::string::npos, "environment." + name,
                "not a variable's name");
    }
    Require(pc.computerName.size() <= kLongestComputerName, "computerName", "too long");
    CheckZone(pc);
    CheckKeys(pc.registry, "registry.");
    CheckKeys(pc.registryExpandTexts, "registryExpandTexts.");
    CheckKeys(pc.registryNumbers, "registryNumbers.");
    CheckSystem(pc);
    CheckSessions(pc);
    CheckServices(pc);
    CheckDirectory(pc.directory);
    CheckGraphics(pc);
    if (pc.adapters) CheckAdapters(*pc.adapters);
    if (pc.dnsServers) CheckEach(*pc.dnsServers, "dnsServers", RequireAddress);
    CheckWlans(pc);
    RequireFrom(1, 1000, pc.clockRate, "clockRate");
    Require(pc.cleanBoot <= 2, "cleanBoot", "expected 0, 1 or 2");
    for (const auto& [from, to] : pc.ports) {
        Require(from != 0 && to != 0, "ports." + std::to_string(from), "port 0 is none");
    }
    Require(pc.mailbox.empty() || pc.mailbox.starts_with("unix:") || pc.mailbox.starts_with("tcp:127.0.0.1:"),
            "mailbox", "expected unix:<path> or tcp:127.0.0.1:<port>");
    Require(pc.controlSocket.size() <= kLongestSocketPath, "controlSocket",
            "too long for a Unix socket's path");
}

}  // namespace winhost
