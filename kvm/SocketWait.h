// Waits for a socket with a time limit.
#pragma once

#include <winsock2.h>
#include <windows.h>

enum class SocketState {
    Quiet,     // the time is over
    Readable,  // recv() has bytes or the end of the connection to report
    Unknown,   // the wait failed, for example because another thread closed the socket
};

// Waits `milliseconds` at most. Any thread.
SocketState AwaitReadable(SOCKET socket, DWORD milliseconds);

// Returns true when the peer closes the connection within `milliseconds`. Returns false as soon as the peer
// sends bytes, which stay in the socket. Any thread.
bool ClosesWithin(SOCKET socket, DWORD milliseconds);
