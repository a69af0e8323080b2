#include "reporting/NetworkInventory.h"

#include <wininet.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "base/FieldText.h"
#include "base/Log.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkStateStore.h"
#include "reporting/NicInfo.h"
#include "state/ServiceState.h"

namespace {

constexpr uint16_t kAnyLinkTechnology = 0xFFFF;

void FillEntry(NwInfoEntry& entry, const NicInfo& nic) {
    CopyToField(entry.Name, nic.Name);
    entry.Speed = nic.Speed;
    CopyToField(entry.MACAddress, nic.MACAddress);
    entry.MaxSpeed = nic.MaxSpeed;
    CopyToField(entry.DeviceID, nic.DeviceID);
    entry.StatusInfo = nic.StatusInfo;
    entry.LinkTechnology = nic.LinkTechnology;
    entry.AddressOrigin = nic.AddressOrigin;
    entry.IPv4Address = nic.IPv4Address;
    entry.Subnet = nic.Subnet;
    entry.Gateway = nic.Gateway;
}

bool HasAddress(const MultiNwInfo& record, uint32_t address) {
    const auto* const end = record.Entries + FilledSlots(record);
    return std::any_of(record.Entries, end,
                       [&](const NwInfoEntry& entry) { return entry.IPv4Address == address; });
}

}  // namespace

void NetworkInventory::FillMultiNwInfo(MultiNwInfo& record) {
    const auto lock = m_reported.Lock();
    const std::vector<NicInfo> list = GetNicInfoList();
    record = {};
    record.Count = static_cast<uint16_t>(list.size());
    for (size_t i = 0; i < FilledSlots(record); ++i) {
        FillEntry(record.Entries[i], list[i]);
        m_addresses.RememberInterface(list[i].IPv4Address, list[i].AddressOrigin, list[i].DHCPServer,
                                      list[i].AdapterType);
    }
}

bool NetworkInventory::CommitNwInfo(const MultiNwInfo& record) {
    bool wireless = false;
    for (size_t i = 0; i < FilledSlots(record); ++i) {
        LogEntry(i, record.Entries[i]);
        wireless |= record.Entries[i].LinkTechnology != kLinkEthernet;
    }
    const bool unchanged = m_reported.Holds(record);
    m_reported.Store(record);
    const uint32_t current = m_addresses.GetCurrentIPv4();
    // The first interface need not be the primary one: a virtual switch without a gateway may precede it. The
    // primary address has not moved then as long as it and all interfaces are those of the last report.
    if (record.Entries[0].IPv4Address != current && !(unchanged && HasAddress(record, current))) {
        m_addresses.UpdateIfEnabled(wireless);
        m_addresses.SendIPCompleteInfo();
    }
    return wireless;
}

void NetworkInventory::LogEntry(size_t index, const NwInfoEntry& entry) const {
    LogInfo("Interface Index: %d", index);
    LogInfo("Name: %s", std::string(TextInField(entry.Name)));
    LogInfo("Speed: %llu", entry.Speed);
    LogInfo("MAC Address: %s", std::string(TextInField(entry.MACAddress)));
    LogInfo("Max Speed: %llu", entry.MaxSpeed);
    LogInfo("Device ID: %s", std::string(TextInField(entry.DeviceID)));
    LogInfo("Status Info: %d", entry.StatusInfo);
    LogInfo("LinkTechnology: %s", entry.LinkTechnology == kLinkEthernet ? "Ethernet" : "Wireless");
    LogInfo("Address Origin: %s", entry.AddressOrigin == kAddressDHCP ? "DHCP" : "Static");
    LogInfo("IPv4 (NBO): %x", entry.IPv4Address);
    LogInfo("Subnet (NBO): %x", entry.Subnet);
    LogInfo("Gateway (NBO): %x", entry.Gateway);
    LogInfo("Address Origin: %s", m_addresses.AddressOriginText(entry.IPv4Address));
    LogInfo("DHCP Server(NBO): %s", m_addresses.DHCPServerText(entry.IPv4Address));
    LogInfo("Adapter Type: %s", m_addresses.AdapterTypeText(entry.IPv4Address));
}

bool ChoosePrimaryEntry(const MultiNwInfo& record, size_t& index) {
    const size_t count = FilledSlots(record);
    if (count == 0) return false;
    for (index = 0; index + 1 < count; ++index)
        if (record.Entries[index].LinkTechnology != kLinkEthernet) break;
    return true;
}

NwInfo MakeNwInfo(const NwInfoEntry& entry) {
    NwInfo info{};
    info.AddressOrigin = entry.AddressOrigin;
    std::memcpy(info.DeviceID, entry.DeviceID, sizeof info.DeviceID);
    std::memcpy(info.MACAddress, entry.MACAddress, sizeof info.MACAddress);
    info.MaxSpeed = entry.MaxSpeed;
    std::memcpy(info.Name, entry.Name, sizeof info.Name);
    info.Speed = entry.Speed;
    info.StatusInfo = entry.StatusInfo;
    info.LinkTechnology = kAnyLinkTechnology;
    return info;
}

void SendNetworkStatus(bool wireless) {
    if (!g_pServiceState->m_bNetworkUpdatesEnabled) {
        LogInfo("Skipping network updates");
        return;
    }
    DWORD flags = 0;
    if (!InternetGetConnectedState(&flags, 0)) {
        LogInfo("%s: InternetGetConnectedState() failed with error: %d", "SendNetworkStatus", GetLastError());
        return;
    }
    NetworkStatusInfo status{};
    // These flags mean a local network, alone or with the RAS-installed bit. A modem or a proxy counts as not
    // connected.
    if (flags == 0x02 || flags == 0x12) {
        status.status = wireless ? 2 : 1;
        if (wireless) {
            LogInfo("Connected to internet via WLAN");
        } else {
            LogInfo("Connected to internet via LAN");
        }
    } else {
        LogInfo("Not connected to internet via LAN/WLAN %d", flags);
    }
    g_pServiceState->m_mailBoxDriverInterface.WriteNetworkStatusInfo(&status);
}
