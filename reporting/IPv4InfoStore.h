// The host's primary IPv4 address as the firmware is told of it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <mutex>

#include "mailbox/MailboxRecords.h"

// Looks the primary address up: the first adapter that has an address and a gateway. Without one it looks
// again after 3 seconds, or at once when the service stops, and then falls back to 127.0.0.1. An adapter list
// that cannot be read leaves the address 0. `port` goes into the record. Any thread; no lock is held.
IPCompleteInfo GetPrimaryAddress(uint32_t port);

// Any thread may call each operation. IPv4 words are in network byte order, as inet_addr gives them.
class IPv4InfoStore {
  public:
    // Takes the address that GetPrimaryAddress finds, and forgets the peer. May take 3 seconds. The flag has
    // no effect on the choice of the adapter.
    void UpdateNetworkAddress(bool wireless);
    // Sends the record to the firmware, unless both it and the one sent before it are the loopback address.
    void SendIPCompleteInfo();
    uint32_t GetCurrentIPv4() const;

    // A new connection: the local port in host order, the peer's port as sockaddr_in has it.
    void SetPeer(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort, uint16_t marker);
    void ClearPeer();
    // Zeroes the whole record.
    void ClearAddresses();

    // A copy of the record, remembered as the one sent last.
    IPCompleteInfo TakeForSending();

  private:
    mutable std::recursive_mutex m_mutex;
    IPCompleteInfo m_ipCompleteInfo{};
    uint32_t m_lastSentIPv4 = 0;
};
