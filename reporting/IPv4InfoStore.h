// Stores the host's primary IPv4 address in the form that the service reports to the firmware.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "mailbox/MailboxRecords.h"

// Returns the primary address: that of the first adapter with an address and a gateway. When there is none,
// it looks again after 3 seconds, or at once when the service stops, and then falls back to 127.0.0.1. When
// the adapter list cannot be read, the address is 0. `port` goes into the record. Any thread; no lock is
// held.
IPCompleteInfo GetPrimaryAddress(uint32_t port);

// Every method may be called on any thread. IPv4 addresses are in network byte order, as inet_addr returns
// them.
class IPv4InfoStore {
  public:
    // Stores the address that GetPrimaryAddress returns and clears the peer. This may take 3 seconds.
    // `wireless` has no effect on the choice of the adapter.
    void UpdateNetworkAddress(bool wireless);
    // Calls UpdateNetworkAddress unless network updates are disabled.
    void UpdateIfEnabled(bool wireless);
    // Sends the record to the firmware. Sends nothing when both this record and the previously sent one have
    // the loopback address.
    void SendIPCompleteInfo();
    uint32_t GetCurrentIPv4() const;

    // Stores the peer of a new connection. The local port is in host byte order, the peer's port as in
    // sockaddr_in.
    void SetPeer(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort, uint16_t marker);
    void ClearPeer();
    // Clears the whole record to zeros, including ports and peer.
    void ClearAddresses();

    // Returns a copy of the record and stores its address as the last one sent.
    IPCompleteInfo TakeForSending();
    // Performs SetPeer and TakeForSending under one lock, so that the copy contains this peer and not that of
    // another connection.
    IPCompleteInfo TakeForNewConnection(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort,
                                        uint16_t marker);

    // Stores what a scan found about the interface with this address: the address origin (3 static, 4 DHCP),
    // the DHCP server and the adapter type. Later scans overwrite an entry; no entry is removed.
    void RememberInterface(uint32_t address, uint32_t addressOrigin, uint32_t dhcpServer,
                           const std::string& adapterType);

    // Texts for the status file and the log. Addresses are in plain hexadecimal; "0" means none.
    std::string IPv4AddressText() const;
    std::string SubnetText() const;
    std::string GatewayText() const;
    std::string DnsServerText() const;
    std::string AddressOriginText(uint32_t address) const;  // "Dynamic", "Static" or "Unknown"
    std::string DHCPServerText(uint32_t address) const;
    std::string AdapterTypeText(uint32_t address) const;  // "Wired LAN", "PPP", ...; empty if unknown

  private:
    mutable std::recursive_mutex m_mutex;
    IPCompleteInfo m_ipCompleteInfo{};
    std::map<uint32_t, uint32_t> m_addressOriginByIP;
    std::map<uint32_t, uint32_t> m_dhcpServerByIP;
    std::map<uint32_t, std::string> m_adapterTypeByIP;
    uint32_t m_lastSentIPv4 = 0;
};
