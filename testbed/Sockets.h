// Sockets of the host. A socket that cannot be had is an empty descriptor, with the reason in errno.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "testbed/Descriptor.h"

namespace testbed {

// `type` is SOCK_STREAM or SOCK_SEQPACKET, with SOCK_NONBLOCK where it is wanted. ENAMETOOLONG for a path
// that is empty or too long.
Descriptor ConnectUnix(const std::string& path, int type = SOCK_STREAM);
// Takes the place of a socket that an earlier process left at the path. EADDRINUSE when a process listens
// there, or when the path is something else.
Descriptor ListenUnix(const std::string& path, int backlog, int type = SOCK_STREAM);

// Whether the path is a socket on which no process listens any more. The type has to be that of the socket.
bool IsAbandonedSocket(const std::string& path, int type = SOCK_STREAM);

// On the loopback address; port 0 listens at any free one.
Descriptor ConnectTcp(uint16_t port);
Descriptor ListenTcp(uint16_t port, int backlog);
// The port that a TCP socket is bound to, in host order.
uint16_t PortOf(const Descriptor& socket);

// Blocks until all bytes are handed over. False when the connection ends before.
bool SendAll(const Descriptor& socket, const void* bytes, size_t size);
// Blocks until so many bytes have come; fewer only when the connection ends.
size_t ReceiveAll(const Descriptor& socket, void* bytes, size_t size);

// Sends bytes over a Unix socket, the file's descriptor with them unless it is empty. Does not block: false
// when not all of them could be sent. They must be few enough for that to mean none of them.
bool SendWithFile(const Descriptor& socket, const void* bytes, size_t size, const Descriptor& file);
// What recv returns. A file that came with the bytes replaces `file`.
ssize_t ReceiveWithFile(const Descriptor& socket, void* bytes, size_t size, Descriptor& file);
bool IsUnix(const Descriptor& socket);

}  // namespace testbed
