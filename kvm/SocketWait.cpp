#include "kvm/SocketWait.h"

SocketState AwaitReadable(SOCKET socket, DWORD milliseconds) {
    fd_set readable{1, {socket}};
    timeval timeout{static_cast<long>(milliseconds / 1000), static_cast<long>(milliseconds % 1000 * 1000)};
    const int ready = select(0, &readable, nullptr, nullptr, &timeout);
    if (ready < 0) return SocketState::Unknown;
    return ready == 0 ? SocketState::Quiet : SocketState::Readable;
}

bool ClosesWithin(SOCKET socket, DWORD milliseconds) {
    if (AwaitReadable(socket, milliseconds) != SocketState::Readable) return false;
    char byte = 0;
    return recv(socket, &byte, 1, MSG_PEEK) <= 0;
}
