#include "connection/ConnectionAnnouncer.h"

#include <cstdio>

#include "base/Log.h"
#include "reporting/IPv4InfoStore.h"
#include "state/ServiceState.h"

namespace {

// Marks a record that names a peer.
constexpr uint16_t kPeerMarker = 0xFFFF;

std::string Dotted(uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", address & 0xFF, address >> 8 & 0xFF, address >> 16 & 0xFF,
                  address >> 24);
    return text;
}

}  // namespace

uint32_t ConnectionAnnouncer::Announce(uint16_t localPort, const sockaddr_in& peer) {
    m_wakeFirmware();
    return ForwardNewRequestToMPM(localPort, peer.sin_addr.s_addr, peer.sin_port, kPeerMarker);
}

// Addresses and the peer's port are in network byte order.
uint32_t ConnectionAnnouncer::ForwardNewRequestToMPM(uint16_t localPort, uint32_t peerAddress,
                                                     uint16_t peerPort, uint16_t marker) {
    const char* kind = localPort == kKvmPort ? "KVM" : "HTTPS DASH";
    LogInfo("New %s request arrived at ZEL. Forwarding %s request to Mailbox driver", kind, kind);
    LogInfo("Remote Address: 0x%x (%s), Remote Port: 0x%x", peerAddress, Dotted(peerAddress), peerPort);
    const IPCompleteInfo info = m_addresses.TakeForNewConnection(localPort, peerAddress, peerPort, marker);
    return g_pServiceState->m_mailBoxDriverInterface.WriteIPCompleteInformation(&info);
}
