// Where the adapters of the PC come from: its description, or this machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "winhost/pc/Pc.h"

namespace winhost {

// Windows gives this for the server of an address that comes from DHCP while it does not know it.
inline constexpr const char* kUnknownDhcpServer = "255.255.255.255";

// The PC's IPv4 adapters as they stand now, loopback included. Each throws std::system_error when this
// machine can't be asked.
std::vector<Adapter> Adapters();
std::optional<Adapter> AdapterByIndex(uint32_t index);
std::vector<std::string> DnsServers();
// True while an adapter that is up leads to other networks.
bool HasWayOut();

// The word of "a", "a.b", "a.b.c" or "a.b.c.d", in network byte order: the last number, which as all may be
// octal or hexadecimal, fills the bytes that remain.
std::optional<uint32_t> ParseAddress(const char* text);
// The same of a dotted text; 0 for an empty one.
uint32_t AddressWord(const std::string& dotted);
// The bytes of "00:11:22:33:44:55"; none for an empty text.
std::vector<uint8_t> MacBytes(const std::string& mac);

}  // namespace winhost
