// How the firmware hears of a new connection, of a management console as of a remote screen.
#pragma once

#include <cstdint>

// Puts the connection into the primary address record and sends the record. The peer's address and port are
// in network byte order, as sockaddr_in has them; localPort is in host order. The mailbox request's error
// code. Any thread.
uint32_t ForwardNewRequestToMPM(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort, uint16_t marker);
