// What of sockets differs between systems. windows/SystemSockets.h is its counterpart.
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

using SystemSocket = int;

inline constexpr int kSendFlags = MSG_NOSIGNAL;

inline void StartSockets() {}

inline SystemSocket OpenSystemSocket(int family, int type) {
    return socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

inline void CloseSystemSocket(SystemSocket socket) {
    close(socket);
}

inline int PollSockets(std::vector<pollfd>& polled, int milliseconds) {
    return poll(polled.data(), polled.size(), milliseconds);
}

inline int LastSocketError() {
    return errno;
}

// Whether a call with this error has begun, or may succeed when it is repeated.
inline bool IsForLater(int error) {
    return error == EAGAIN || error == EINTR || error == EINPROGRESS;
}
