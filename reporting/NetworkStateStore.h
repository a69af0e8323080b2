// The picture of the network that was reported last: later scans are compared with it.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>

#include "mailbox/MailboxRecords.h"

// Any thread may call each operation. Whoever holds this lock may take that of IPv4InfoStore, not the
// reverse.
class NetworkStateStore {
  public:
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
    // The interfaces that the host had, also those beyond the slots.
    uint32_t GetCount() const;

  private:
    mutable std::recursive_mutex m_mutex;
    uint32_t Count = 0;
    std::array<Interface, MultiNwInfo::kSlots> m_interfaces;
};
