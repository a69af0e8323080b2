// Collects the host's interfaces in the form that the service reports to the firmware.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "mailbox/MailboxRecords.h"

class IPv4InfoStore;
class NetworkStateStore;

class NetworkInventory {
  public:
    NetworkInventory(IPv4InfoStore& addresses, NetworkStateStore& reported)
        : m_addresses(addresses), m_reported(reported) {}

    // Scans the host and fills the record with the true number of interfaces and the first five of them.
    // Stores what the scan finds about each address in IPv4InfoStore. Holds the lock of NetworkStateStore
    // during the scan. Any thread.
    void FillMultiNwInfo(MultiNwInfo& record);

    // Stores the record as the state that later scans are compared with, and reports the primary address when
    // it may have changed: when it is not that of the first interface, unless the host is as it was reported.
    // Returns true when at least one interface is not Ethernet. May block for 3 seconds, and until the
    // firmware answers. Any thread.
    bool CommitNwInfo(const MultiNwInfo& record);

  private:
    void LogEntry(size_t index, const NwInfoEntry& entry) const;

    IPv4InfoStore& m_addresses;
    NetworkStateStore& m_reported;
};

// Chooses the interface for firmware that accepts only one: the first wireless one, or else the last. Returns
// false when there is none.
bool ChoosePrimaryEntry(const MultiNwInfo& record, size_t& index);
NwInfo MakeNwInfo(const NwInfoEntry& entry);

// Reports to the firmware how the host is connected. Any thread.
void SendNetworkStatus(bool wireless);

// Returns the local time's offset from UTC in seconds, east positive. Returns 0 when it cannot be determined.
int32_t GetTimezoneDiff();

// Returns the number of filled slots. The record's Count may be larger.
inline size_t FilledSlots(const MultiNwInfo& record) {
    return record.Count < MultiNwInfo::kSlots ? record.Count : MultiNwInfo::kSlots;
}
