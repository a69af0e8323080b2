#include <arpa/inet.h>

#include <cctype>
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
constexpr uint32_t kHighestWlanState = 7;
constexpr uint32_t kLargestScreen = 32767;
constexpr size_t kLongestProcessName = 259;
constexpr size_t kLongestServiceName = 256;
constexpr uint32_t kHighestStartType = 4, kHighestServiceState = 7;
constexpr uint32_t kAllBits = 0xFFFF;
constexpr int32_t kLargestBias = 14 * 60;
constexpr int32_t kLargestDaylightBias = 2 * 60;
constexpr uint32_t kHighestClockRate = 1000;
constexpr size_t kLongestGraphicsText = 127, kLongestOutputName = 31, kLongestDriverPath = 259;
constexpr size_t kMostEngines = 64;
constexpr uint32_t kHighestEngine = 255;
constexpr uint32_t kHighestTimerPeriod = 1000;

void Require(bool holds, const std::string& place, const std::string& what) {
    if (!holds) throw DescriptionError(place, what);
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
    for (size_t i = 0; i < adapter.moreAddresses.size(); ++i) {
        const AdapterAddress& more = adapter.moreAddresses[i];
        const std::string entry = place + ".moreAddresses[" + std::to_string(i) + "]";
        RequireAddress(more.address, entry + ".address");
        RequireAddress(more.mask, entry + ".mask");
        Require(more.bits <= kAllBits, entry + ".bits", "16 bits at most");
    }
}

void CheckAdapters(const std::vector<Adapter>& adapters) {
    std::set<uint32_t> indices;
    for (size_t i = 0; i < adapters.size(); ++i) {
        const std::string place = "adapters[" + std::to_string(i) + "]";
        CheckAdapter(adapters[i], place);
        Require(indices.insert(adapters[i].index).second, place + ".index", "another adapter has it");
    }
}

void CheckWlan(const WlanInterface& wlan, const std::string& place) {
    Require(ParseGuid(wlan.guid).has_value(), place + ".guid", "\"" + wlan.guid + "\" is not a GUID");
    Require(wlan.description.size() <= kLongestWlanText, place + ".description", "too long");
    Require(wlan.state <= kHighestWlanState, place + ".state", "expected 0 to 7");
}

void CheckWlanNetwork(const WlanNetwork& network, const std::string& place) {
    static const std::regex kBytes("([0-9A-Fa-f]{2}){0,32}");
    Require(!network.name.empty(), place + ".name", "a profile has a name");
    Require(network.name.size() <= kLongestWlanText, place + ".name", "too long");
    Require(network.ssid.size() <= kLongestSsid, place + ".ssid", "32 bytes at most");
    Require(std::regex_match(network.ssidBytes, kBytes), place + ".ssidBytes",
            "expected up to 32 bytes in hexadecimal");
    Require(network.profile.empty() || network.profileFile.empty(), place + ".profileFile",
            "\"profile\" is there too");
}

void CheckWlans(const PcDescription& pc) {
    std::set<std::string> names;
    for (size_t i = 0; i < pc.wlanNetworks.size(); ++i) {
        const std::string place = "wlanNetworks[" + std::to_string(i) + "]";
        CheckWlanNetwork(pc.wlanNetworks[i], place);
        Require(names.insert(pc.wlanNetworks[i].name).second, place + ".name", "another network has it");
    }
    for (size_t i = 0; i < pc.wlanInterfaces.size(); ++i) {
        const std::string place = "wlanInterfaces[" + std::to_string(i) + "]";
        const std::string& network = pc.wlanInterfaces[i].network;
        CheckWlan(pc.wlanInterfaces[i], place);
        Require(network.empty() || names.contains(network), place + ".network",
                "\"" + network + "\" is none of wlanNetworks");
    }
}

void CheckTransition(const ZoneTransition& transition, const std::string& place) {
    Require(transition.month <= 12, place + ".month", "expected 0 to 12");
    Require(transition.week >= 1 && transition.week <= 5, place + ".week", "expected 1 to 5");
    Require(transition.weekday <= 6, place + ".weekday", "expected 0 to 6");
    Require(transition.hour <= 23, place + ".hour", "expected 0 to 23");
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
    for (size_t i = 0; i < pc.privileges.size(); ++i) {
        Require(PrivilegeByName(pc.privileges[i]) != 0, "privileges[" + std::to_string(i) + "]",
                "\"" + pc.privileges[i] + "\" is not a privilege");
    }
}

void CheckSessions(const PcDescription& pc) {
    Require(pc.consoleSession != 0, "consoleSession", "session 0 is that of the services");
    for (const auto& [size, place] :
         {std::pair(pc.screen.width, "screen.width"), {pc.screen.height, "screen.height"}})
        Require(size >= 1 && size <= kLargestScreen, place, "expected 1 to 32767");
    std::set<uint32_t> ids;
    for (size_t i = 0; i < pc.processes.size(); ++i) {
        const DescribedProcess& process = pc.processes[i];
        const std::string place = "processes[" + std::to_string(i) + "]";
        Require(!process.name.empty(), place + ".name", "a process has a name");
        Require(process.name.size() <= kLongestProcessName, place + ".name", "too long");
        Require(process.pid != 0, place + ".pid", "0 is none");
        Require(ids.insert(process.pid).second, place + ".pid", "another process has it");
    }
}

void CheckServices(const PcDescription& pc) {
    std::set<std::string> names;
    for (size_t i = 0; i < pc.services.size(); ++i) {
        const DescribedService& service = pc.services[i];
        const std::string place = "services[" + std::to_string(i) + "]";
        Require(!service.name.empty(), place + ".name", "a service has a name");
        Require(service.name.size() <= kLongestServiceName, place + ".name", "too long");
        Require(service.name.find_first_of("/\\") == std::string::npos, place + ".name",
                "a service's name has no separator");
        std::string folded = service.name;
        for (char& c : folded)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        Require(names.insert(folded).second, place + ".name", "another service has it");
        Require(service.startType <= kHighestStartType, place + ".startType", "expected 0 to 4");
        Require(service.state >= 1 && service.state <= kHighestServiceState, place + ".state",
                "expected 1 to 7");
    }
}

void CheckHash(const std::string& hash, const std::string& place) {
    static const std::regex kHash("[0-9a-f]{64}");
    Require(std::regex_match(hash, kHash), place, "expected 64 hexadecimal digits in lower case");
}

void CheckDirectory(const Directory& directory) {
    std::set<std::string> names;
    for (size_t i = 0; i < directory.accounts.size(); ++i) {
        const DirectoryAccount& account = directory.accounts[i];
        const std::string place = "directory.accounts[" + std::to_string(i) + "]";
        Require(!account.name.empty(), place + ".name", "an account has a name");
        Require(names.insert(account.name).second, place + ".name", "another account has it");
        CheckHash(account.passwordHash, place + ".passwordHash");
        for (size_t j = 0; j < account.earlierHashes.size(); ++j)
            CheckHash(account.earlierHashes[j], place + ".earlierHashes[" + std::to_string(j) + "]");
    }
}

void CheckGraphicsAdapter(const GraphicsAdapter& adapter, const std::string& place) {
    Require(adapter.description.size() <= kLongestGraphicsText, place + ".description", "too long");
    Require(adapter.luid != 0, place + ".luid", "0 is none");
    Require(adapter.driverPath.size() <= kLongestDriverPath, place + ".driverPath", "too long");
    for (size_t i = 0; i < adapter.outputs.size(); ++i)
        Require(!adapter.outputs[i].empty() && adapter.outputs[i].size() <= kLongestOutputName,
                place + ".outputs[" + std::to_string(i) + "]", "expected 1 to 31 bytes");
    Require(adapter.engines.size() <= kMostEngines, place + ".engines", "64 at most");
    for (size_t i = 0; i < adapter.engines.size(); ++i)
        Require(adapter.engines[i] <= kHighestEngine, place + ".engines[" + std::to_string(i) + "]",
                "expected 0 to 255");
    const uint32_t level = adapter.featureLevel;
    Require(level == 100 || level == 101 || level == 110 || level == 111, place + ".featureLevel",
            "expected 100, 101, 110 or 111");
    RequireFailure(adapter.direct3dError, place + ".direct3dError");
}

void CheckGraphics(const PcDescription& pc) {
    std::set<uint64_t> luids;
    for (size_t i = 0; i < pc.graphicsAdapters.size(); ++i) {
        const std::string place = "graphicsAdapters[" + std::to_string(i) + "]";
        CheckGraphicsAdapter(pc.graphicsAdapters[i], place);
        Require(luids.insert(pc.graphicsAdapters[i].luid).second, place + ".luid", "another adapter has it");
    }
    Require(pc.timerPeriod >= 1 && pc.timerPeriod <= kHighestTimerPeriod, "timerPeriod",
            "expected 1 to 1000");
}

bool HasRootKey(const std::string& key) {
    for (const char* root :
         {"HKEY_LOCAL_MACHINE\\", "HKEY_CURRENT_USER\\", "HKEY_CLASSES_ROOT\\", "HKEY_USERS\\"})
        if (key.starts_with(root) && key.size() > std::char_traits<char>::length(root)) return true;
    return false;
}

template <class Value>
void CheckKeys(const std::map<std::string, std::map<std::string, Value>>& keys, const std::string& place) {
    for (const auto& [key, values] : keys)
        Require(HasRootKey(key), place + key, "expected a key below HKEY_LOCAL_MACHINE or another root");
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
    for (size_t i = 0; pc.dnsServers && i < pc.dnsServers->size(); ++i) {
        RequireAddress((*pc.dnsServers)[i], "dnsServers[" + std::to_string(i) + "]");
    }
    CheckWlans(pc);
    Require(pc.clockRate >= 1 && pc.clockRate <= kHighestClockRate, "clockRate", "expected 1 to 1000");
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
