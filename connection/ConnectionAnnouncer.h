// Announces each new connection to the firmware, for a management console and for a KVM viewer.
#pragma once

#include <winsock2.h>

#include <cstdint>
#include <functional>

class IPv4InfoStore;

// The port of remote KVM; the log calls its socket the SSH socket.
inline constexpr uint16_t kKvmPort = 22;

class ConnectionAnnouncer {
  public:
    // `wakeFirmware` brings the firmware up to date if it is down, and waits for that, 3 seconds at most.
    // `addresses` outlives this object.
    ConnectionAnnouncer(IPv4InfoStore& addresses, std::function<void()> wakeFirmware)
        : m_addresses(addresses), m_wakeFirmware(std::move(wakeFirmware)) {}

    // Wakes the firmware, then sends it the primary address record with the peer of the connection to
    // localPort (host order). Returns the error code of the mailbox request. Any thread.
    uint32_t Announce(uint16_t localPort, const sockaddr_in& peer);

  private:
    uint32_t ForwardNewRequestToMPM(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort,
                                    uint16_t marker);

    IPv4InfoStore& m_addresses;
    std::function<void()> m_wakeFirmware;
};
