// The host's primary IPv4 address as the firmware is told of it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

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
    // The same, unless network updates are disabled.
    void UpdateIfEnabled(bool wireless);
    // Sends the record to the firmware, unless both it and the one sent before it are the loopback address.
    void SendIPCompleteInfo();
    uint32_t GetCurrentIPv4() const;

    // A new connection: the local port in host order, the peer's port as sockaddr_in has it.
    void SetPeer(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort, uint16_t marker);
    void ClearPeer();
    // Zeroes the whole record.
    void ClearAddresses();

    // Returns a copy of the record, which from then on is the one sent last.
    IPCompleteInfo TakeForSending();
    // SetPeer and TakeForSending as one step: the copy names this peer and no other connection's.
    IPCompleteInfo TakeForNewConnection(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort,
                                        uint16_t marker);

    // What a scan has learned of the interface with this address: 3 static or 4 from DHCP, the DHCP server,
    // the kind of adapter. Later scans overwrite it, nothing removes it.
    void RememberInterface(uint32_t address, uint32_t addressOrigin, uint32_t dhcpServer,
                           const std::string& adapterType);

    // Texts for the status file and the log: address words in plain hexadecimal, "0" for none.
    std::string IPv4AddressText() const;
    std::string SubnetText() const;
    std::string GatewayText() const;
    std::string DnsServerText() const;
    std::string AddressOriginText(uint32_t address) const;  // "Dynamic", "Static" or "Unknown"
    std::string DHCPServerText(uint32_t address) const;
    std::string AdapterTypeText(uint32_t address) const;  // "Wired LAN", "PPP", ...; empty when not known

  private:
    mutable std::recursive_mutex m_mutex;
    IPCompleteInfo m_ipCompleteInfo{};
    std::map<uint32_t, uint32_t> m_addressOriginByIP;
    std::map<uint32_t, uint32_t> m_dhcpServerByIP;
    std::map<uint32_t, std::string> m_adapterTypeByIP;
    uint32_t m_lastSentIPv4 = 0;
};
