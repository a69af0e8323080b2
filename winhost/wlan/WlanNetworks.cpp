#include "winhost/wlan/WlanNetworks.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace winhost {
namespace {

constexpr uint32_t kHighestChannelOf24 = 13, kLastChannelOf24 = 14;

}  // namespace

std::optional<WlanNetwork> ConnectedNetwork(const PcDescription& pc, const WlanInterface& wlan) {
    if (wlan.state != wlan_interface_state_connected || pc.wlanNetworks.empty()) return std::nullopt;
    if (wlan.network.empty()) return pc.wlanNetworks.front();
    for (const WlanNetwork& network : pc.wlanNetworks)
        if (network.name == wlan.network) return network;
    return std::nullopt;
}

std::string SsidOf(const WlanNetwork& network) {
    std::string bytes;
    for (size_t i = 0; i + 1 < network.ssidBytes.size(); i += 2)
        bytes += static_cast<char>(std::stoi(network.ssidBytes.substr(i, 2), nullptr, 16));
    return bytes.empty() ? network.ssid : bytes;
}

DOT11_SSID Dot11SsidOf(const WlanNetwork& network) {
    DOT11_SSID ssid{};
    const std::string bytes = SsidOf(network);
    ssid.uSSIDLength = static_cast<ULONG>(std::min(bytes.size(), std::size(ssid.ucSSID)));
    std::memcpy(ssid.ucSSID, bytes.data(), ssid.uSSIDLength);
    return ssid;
}

bool IsSecured(const WlanNetwork& network) {
    return AuthAlgorithmOf(network) != DOT11_AUTH_ALGO_80211_OPEN;
}

DOT11_AUTH_ALGORITHM AuthAlgorithmOf(const WlanNetwork& network) {
    static const std::map<std::string, DOT11_AUTH_ALGORITHM> kOf = {
        {"open", DOT11_AUTH_ALGO_80211_OPEN}, {"shared", DOT11_AUTH_ALGO_80211_SHARED_KEY},
        {"WPA", DOT11_AUTH_ALGO_WPA},         {"WPAPSK", DOT11_AUTH_ALGO_WPA_PSK},
        {"WPA2", DOT11_AUTH_ALGO_RSNA},       {"WPA2PSK", DOT11_AUTH_ALGO_RSNA_PSK},
        {"WPA3", DOT11_AUTH_ALGO_WPA3},       {"WPA3SAE", DOT11_AUTH_ALGO_WPA3_SAE},
        {"OWE", DOT11_AUTH_ALGO_OWE}};
    if (network.authAlgorithm != 0) return static_cast<DOT11_AUTH_ALGORITHM>(network.authAlgorithm);
    const auto found = kOf.find(network.authentication);
    return found == kOf.end() ? DOT11_AUTH_ALGO_IHV_START : found->second;
}

DOT11_CIPHER_ALGORITHM CipherAlgorithmOf(const WlanNetwork& network) {
    static const std::map<std::string, DOT11_CIPHER_ALGORITHM> kOf = {
        {"none", DOT11_CIPHER_ALGO_NONE},
        {"WEP", DOT11_CIPHER_ALGO_WEP},
        {"TKIP", DOT11_CIPHER_ALGO_TKIP},
        {"AES", DOT11_CIPHER_ALGO_CCMP},
        {"GCMP256", DOT11_CIPHER_ALGO_GCMP_256}};
    if (network.cipherAlgorithm != 0) return static_cast<DOT11_CIPHER_ALGORITHM>(network.cipherAlgorithm);
    const auto found = kOf.find(network.encryption);
    return found == kOf.end() ? DOT11_CIPHER_ALGO_IHV_START : found->second;
}

ULONG FrequencyOf(const WlanNetwork& network) {
    const uint32_t channel = network.channel;
    if (network.frequency != 0) return network.frequency;
    if (channel == 0) return 0;
    if (channel <= kHighestChannelOf24) return 2'407'000 + 5'000 * channel;
    return channel == kLastChannelOf24 ? 2'484'000 : 5'000'000 + 5'000 * channel;
}

}  // namespace winhost
