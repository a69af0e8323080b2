// What of sockets differs between systems. posix/SystemSockets.h is its counterpart.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

#include <vector>

using SystemSocket = SOCKET;

inline constexpr int kSendFlags = 0;

// For the life of the process.
inline void StartSockets() {
    static const int result = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    static_cast<void>(result);
}

// Programs that the service starts do not inherit it.
inline SystemSocket OpenSystemSocket(int family, int type) {
    const SOCKET socket =
        WSASocketW(family, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    u_long isNonBlocking = 1;
    if (socket != INVALID_SOCKET) ioctlsocket(socket, FIONBIO, &isNonBlocking);
    return socket;
}

inline void CloseSystemSocket(SystemSocket socket) {
    closesocket(socket);
}

inline int PollSockets(std::vector<pollfd>& polled, int milliseconds) {
    return WSAPoll(polled.data(), static_cast<ULONG>(polled.size()), milliseconds);
}

inline int LastSocketError() {
    return WSAGetLastError();
}

// Whether a call with this error has begun, or may succeed when it is repeated.
inline bool IsForLater(int error) {
    return error == WSAEWOULDBLOCK;
}
