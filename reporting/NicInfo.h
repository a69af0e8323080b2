// The working list of one scan of the host's IPv4 interfaces.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline constexpr uint16_t kLinkEthernet = 2;
inline constexpr uint16_t kLinkWireless = 11;
inline constexpr uint32_t kAddressStatic = 3;
inline constexpr uint32_t kAddressDHCP = 4;

// One address of an interface. IPv4 addresses are in network byte order.
struct NicInfo {
    uint32_t InterfaceIndex = 0;
    uint32_t Speed = 0;  // bits per second
    uint32_t MaxSpeed = 0;
    std::string IPv4String;
    std::string SubnetString;
    std::string Name;
    std::string TypeName;
    std::string InterfaceName;
    std::string MACAddress;  // hexadecimal, without separators
    std::string DeviceID;
    std::string AdapterType;  // "Wired LAN", "Wireless LAN", or the type's name
    uint16_t StatusInfo = 0;
    uint32_t AddressOrigin = kAddressDHCP;
    uint32_t IPv4Address = 0;
    uint32_t Subnet = 0;
    uint32_t Gateway = 0;
    uint32_t DHCPServer = 0;
    // An interface that is not known to be Ethernet counts as wireless, even when nothing is known about it.
    uint16_t LinkTechnology = kLinkWireless;
    bool IsDynamic = false;
};

// Scans the host: first the addresses, then the interfaces they belong to, then gateways and DHCP servers. A
// step that fails is logged and leaves its fields unchanged. Without addresses the list is empty. Any thread;
// takes no lock.
std::vector<NicInfo> GetNicInfoList();
