// The raw ends of Unix sockets, for those who play a hostile peer.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "firmware/link/LinkProtocol.h"
#include "fuzz/Input.h"
#include "testbed/Descriptor.h"

namespace fuzz {

// A folder for this process's sockets.
const std::string& SocketFolder();

testbed::Descriptor ConnectTo(const std::string& path);
testbed::Descriptor ListenAt(const std::string& path);
testbed::Descriptor Accept(const testbed::Descriptor& listener);

// All of it, unless the peer goes or doesn't read.
void SendBytes(const testbed::Descriptor& socket, Bytes bytes);
void FinishSending(const testbed::Descriptor& socket);
// Until the peer closes its end, or patience ends.
std::string ReceiveRest(const testbed::Descriptor& socket);
// Just so many bytes; fewer when the peer has gone.
std::string Receive(const testbed::Descriptor& socket, size_t size);

// Waits for all of it, however long. False when the peer has gone.
bool ReceiveAll(const testbed::Descriptor& socket, void* into, size_t size);

std::vector<uint8_t> FrameOf(mpmlink::Header header, Bytes payload);

}  // namespace fuzz
