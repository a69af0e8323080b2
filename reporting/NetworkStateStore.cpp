#include "reporting/NetworkStateStore.h"

#include "base/FieldText.h"
#include "base/Log.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkInventory.h"

namespace {

NetworkStateStore::Interface ComparedFields(const NwInfoEntry& entry) {
    return {std::string(TextInField(entry.Name)),
            std::string(TextInField(entry.MACAddress)),
            entry.StatusInfo,
            entry.LinkTechnology,
            entry.AddressOrigin,
            entry.IPv4Address};
}

}  // namespace

void NetworkStateStore::Store(const MultiNwInfo& record) {
    std::lock_guard lock(m_mutex);
    Clear();
    Count = record.Count;
    for (size_t i = 0; i < FilledSlots(record); ++i)
        m_interfaces[i] = ComparedFields(record.Entries[i]);
}

bool NetworkStateStore::Holds(const MultiNwInfo& record) const {
    std::lock_guard lock(m_mutex);
    if (Count != record.Count) return false;
    for (size_t i = 0; i < FilledSlots(record); ++i)
        if (m_interfaces[i] != ComparedFields(record.Entries[i])) return false;
    return true;
}

void NetworkStateStore::Clear() {
    std::lock_guard lock(m_mutex);
    Count = 0;
    m_interfaces = {};
}

uint32_t NetworkStateStore::GetCount() const {
    std::lock_guard lock(m_mutex);
    return Count;
}

bool NetworkStateStore::EndsCloudConnection(const MultiNwInfo& record) const {
    std::lock_guard lock(m_mutex);
    if (record.Count == 0) return true;
    if (HasOtherCount(record)) return true;
    for (size_t i = 0; i < FilledSlots(record); ++i)
        if (HasOtherAddress(m_interfaces[i], record.Entries[i])) return true;
    return false;
}

bool NetworkStateStore::HasOtherCount(const MultiNwInfo& record) const {
    if (static_cast<uint16_t>(Count) == record.Count) return false;
    LogInfo("NIC connected count has changed");
    return true;
}

bool NetworkStateStore::HasOtherAddress(const Interface& current, const NwInfoEntry& entry) const {
    if (current.IPv4Address == entry.IPv4Address) return false;
    LogInfo("IPv4Address mismatch: current value: %x, new value: %x", current.IPv4Address, entry.IPv4Address);
    return true;
}

bool NetworkStateStore::HasChanged(const MultiNwInfo& record) {
    std::lock_guard lock(m_mutex);
    if (record.Count == 0) {
        if (Count != 0) LogInfo("The system has disconnected from the network (connected -> disconnected)");
        Clear();
        m_addresses.ClearAddresses();
        return true;
    }
    if (HasOtherCount(record)) return true;
    if (Count == 0) {
        // This is never reached: the code above returns for a record without interfaces, and for one with
        // another count.
        LogInfo("The system is not connected to a network. (disconnected -> connected)");
    }
    for (size_t i = 0; i < FilledSlots(record); ++i)
        if (InterfaceHasChanged(m_interfaces[i], record.Entries[i])) return true;
    return false;
}

bool NetworkStateStore::InterfaceHasChanged(const Interface& current, const NwInfoEntry& entry) const {
    const std::string name(TextInField(entry.Name)), mac(TextInField(entry.MACAddress));
    if (current.Name != name) {
        LogInfo("Name mismatch: current value: %s, new value: %s", current.Name, name);
    } else if (current.MACAddress != mac) {
        LogInfo("MACAddress mismatch: current value: %s, new value: %s", current.MACAddress, mac);
    } else if (current.StatusInfo != entry.StatusInfo) {
        LogInfo("StatusInfo mismatch: current value: %d, new value: %d", current.StatusInfo,
                entry.StatusInfo);
    } else if (current.LinkTechnology != entry.LinkTechnology) {
        LogInfo("LinkTechnology mismatch: current value: %d, new value: %d", current.LinkTechnology,
                entry.LinkTechnology);
    } else if (current.AddressOrigin != entry.AddressOrigin) {
        LogInfo("AddressOrigin mismatch: current value: %d, new value: %d", current.AddressOrigin,
                entry.AddressOrigin);
    } else {
        return HasOtherAddress(current, entry);
    }
    return true;
}
