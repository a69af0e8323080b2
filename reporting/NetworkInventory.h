// The host's interfaces as the firmware is told of them.
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

    // Scans the host into the record: the true count, and the first five interfaces. What the scan learns of
    // each address goes into IPv4InfoStore. Holds the lock of NetworkStateStore for as long as the scan
    // takes. Any thread.
    void FillMultiNwInfo(MultiNwInfo& record);

    // Makes the record the picture that later scans are compared with, and reports the primary address when
    // it has moved. Returns true when an interface is other than Ethernet. May take 3 seconds, and as long as
    // the firmware takes to answer. Any thread.
    bool CommitNwInfo(const MultiNwInfo& record);

  private:
    void LogEntry(size_t index, const NwInfoEntry& entry) const;

    IPv4InfoStore& m_addresses;
    NetworkStateStore& m_reported;
};

// For firmware that is told of one interface: the first wireless one, or the last. False when there is none.
bool ChoosePrimaryEntry(const MultiNwInfo& record, size_t& index);
NwInfo MakeNwInfo(const NwInfoEntry& entry);

// Tells the firmware over what the host is connected. Any thread.
void SendNetworkStatus(bool wireless);

// The local time's offset from UTC in seconds, east positive; 0 when it can't be told.
int32_t GetTimezoneDiff();

// False, with the domain "N/A", when a name can't be read.
bool GetHostAndDnsDomain(std::string& host, std::string& domain);

// The filled slots of a record, whose count may be above that.
inline size_t FilledSlots(const MultiNwInfo& record) {
    return record.Count < MultiNwInfo::kSlots ? record.Count : MultiNwInfo::kSlots;
}
