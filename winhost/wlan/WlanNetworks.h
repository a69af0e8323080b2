// The networks of the PC as the WLAN service sees them, and what happens to its radio.
#pragma once

#include <optional>
#include <string>

#include <wlanapi.h>

#include "winhost/pc/Pc.h"

namespace winhost {

// The network that the interface is connected to. None while it is not connected, or the PC has no network.
std::optional<WlanNetwork> ConnectedNetwork(const PcDescription& pc, const WlanInterface& wlan);

// The bytes of its SSID.
std::string SsidOf(const WlanNetwork& network);
DOT11_SSID Dot11SsidOf(const WlanNetwork& network);
bool IsSecured(const WlanNetwork& network);
DOT11_AUTH_ALGORITHM AuthAlgorithmOf(const WlanNetwork& network);
DOT11_CIPHER_ALGORITHM CipherAlgorithmOf(const WlanNetwork& network);
ULONG FrequencyOf(const WlanNetwork& network);

// Its profile as XML.
std::string ProfileOf(const WlanNetwork& network, bool withPlainKey);

// The radio of the PC's interface `number`, with the notifications that Windows sends, in their order. They
// return when the callbacks of the listeners have returned, and throw std::runtime_error for an interface or
// a network that the PC does not have.
void JoinNetwork(uint32_t number, const std::string& name);
void LeaveNetwork(uint32_t number);
// Another BSS of the same network. A frequency of 0 follows from the channel.
void Roam(uint32_t number, uint32_t channel, uint32_t frequency);
void ChangeKey(const std::string& name, const std::string& key);
// Without a notification.
void SetState(uint32_t number, uint32_t state);

}  // namespace winhost
