// Stores the network state that was reported last. Later scans are compared with it.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>

#include "mailbox/MailboxRecords.h"

class IPv4InfoStore;

// Every method may be called on any thread. A thread that holds this lock may take the lock of IPv4InfoStore,
// but not the reverse.
class NetworkStateStore {
  public:
    // A host without interfaces has no primary address either, so the record of `addresses` is cleared
    // together with the stored state.
    explicit NetworkStateStore(IPv4InfoStore& addresses) : m_addresses(addresses) {}

    // The fields whose change counts as a change of an interface. Speed, mask and gateway do not count.
    struct Interface {
        std::string Name;
        std::string MACAddress;
        uint16_t StatusInfo = 0;
        uint16_t LinkTechnology = 0;
        uint32_t AddressOrigin = 0;
        uint32_t IPv4Address = 0;

        bool operator==(const Interface&) const = default;
    };

    // Stores the record's count unchanged, and the interfaces of its five slots.
    void Store(const MultiNwInfo& record);
    void Clear();
    // Returns true when the record has the stored count and interfaces. Logs nothing and clears nothing.
    bool Holds(const MultiNwInfo& record) const;
    // Returns true when a new record differs from the stored state, and logs the first difference. A record
    // without interfaces always differs; it clears the stored state and the primary address.
    bool HasChanged(const MultiNwInfo& record);
    // Returns true when the connection to the cloud cannot outlive the change to this record: no interface is
    // left, their number differs, or an address does. Logs the reason.
    bool EndsCloudConnection(const MultiNwInfo& record) const;
    // Locks the store. A scan holds this lock throughout, so that two scans do not mix.
    std::unique_lock<std::recursive_mutex> Lock() const { return std::unique_lock(m_mutex); }
    // Returns the number of interfaces that the host had, including those beyond the slots.
    uint32_t GetCount() const;

  private:
    // Each logs a difference.
    bool HasOtherCount(const MultiNwInfo& record) const;
    bool HasOtherAddress(const Interface& current, const NwInfoEntry& entry) const;
    bool InterfaceHasChanged(const Interface& current, const NwInfoEntry& entry) const;

    IPv4InfoStore& m_addresses;
    mutable std::recursive_mutex m_mutex;
    uint32_t Count = 0;
    std::array<Interface, MultiNwInfo::kSlots> m_interfaces;
};
