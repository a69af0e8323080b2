// How the firmware hears of a new connection, of a management console as of a remote screen.
#pragma once

#include <cstdint>

// The port of remote KVM; the log calls its socket the SSH socket.
inline constexpr uint16_t kKvmPort = 22;

// What a record that names a peer is marked with.
inline constexpr uint16_t kPeerMarker = 0xFFFF;

// Puts the connection into the primary address record and sends the record. The peer's address and port are
// in network byte order, as sockaddr_in has them; localPort is in host order. The mailbox request's error
// code. Any thread.
uint32_t ForwardNewRequestToMPM(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort, uint16_t marker);
