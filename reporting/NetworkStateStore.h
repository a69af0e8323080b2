// The picture of the network that was reported last: later scans are compared with it.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>

#include "mailbox/MailboxRecords.h"

class IPv4InfoStore;

// Any thread may call each operation. Whoever holds this lock may take that of IPv4InfoStore, not the
// reverse.
class NetworkStateStore {
  public:
    // A host without interfaces has no primary address either: the record of `addresses` is cleared with the
    // picture.
    explicit NetworkStateStore(IPv4InfoStore& addresses) : m_addresses(addresses) {}

    // What counts as a change of an interface; its speed, mask and gateway do not.
    struct Interface {
        std::string Name;
        std::string MACAddress;
        uint16_t StatusInfo = 0;
        uint16_t LinkTechnology = 0;
        uint32_t AddressOrigin = 0;
        uint32_t IPv4Address = 0;
    };

    // Takes the record's count as it is, and the interfaces of its five slots.
    void Store(const MultiNwInfo& record);
    void Clear();
    // Whether a newly read record differs from the stored picture; logs the first difference. A record
    // without interfaces always does, and clears the picture and the primary address.
    bool HasChanged(const MultiNwInfo& record);
    // Held for as long as a scan takes, so that two scans don't mix.
    std::unique_lock<std::recursive_mutex> Lock() const { return std::unique_lock(m_mutex); }
    // The interfaces that the host had, also those beyond the slots.
    uint32_t GetCount() const;

  private:
    bool InterfaceHasChanged(const Interface& current, const NwInfoEntry& entry) const;

    IPv4InfoStore& m_addresses;
    mutable std::recursive_mutex m_mutex;
    uint32_t Count = 0;
    std::array<Interface, MultiNwInfo::kSlots> m_interfaces;
};
