// The raw ends of Unix sockets, for those who play a hostile peer.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "firmware/link/LinkProtocol.h"
#include "fuzz/Input.h"
#include "winhost/core/Descriptor.h"

namespace fuzz {

// A folder for this process's sockets.
const std::string& SocketFolder();

winhost::Descriptor ConnectTo(const std::string& path);
winhost::Descriptor ListenAt(const std::string& path);
winhost::Descriptor Accept(const winhost::Descriptor& listener);

// All of it, unless the peer goes or doesn't read.
void SendBytes(const winhost::Descriptor& socket, Bytes bytes);
void FinishSending(const winhost::Descriptor& socket);
// Until the peer closes its end, or patience ends.
std::string ReceiveRest(const winhost::Descriptor& socket);
// Just so many bytes; fewer when the peer has gone.
std::string Receive(const winhost::Descriptor& socket, size_t size);

// Waits for all of it, however long. False when the peer has gone.
bool ReceiveAll(const winhost::Descriptor& socket, void* into, size_t size);

std::vector<uint8_t> FrameOf(mpmlink::Header header, Bytes payload);

}  // namespace fuzz
