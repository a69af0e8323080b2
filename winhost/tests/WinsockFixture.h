// Winsock started, and sockets with a peer at the other end.
#pragma once

#include <winsock2.h>

#include <atomic>

#include "winhost/tests/PosixPeer.h"
#include "winhost/tests/PcFixture.h"

// As ErrorOf, for the failure values of Winsock.
inline long SocketErrorOf(int result) {
    return result != SOCKET_ERROR ? 0 : WSAGetLastError();
}
inline long SocketErrorOf(SOCKET s) {
    return s != INVALID_SOCKET ? 0 : WSAGetLastError();
}

class WinsockFixture : public PcFixture {
  protected:
    WinsockFixture() {
        WSADATA data;
        EXPECT_EQ(0, WSAStartup(MAKEWORD(2, 0), &data));
    }
    ~WinsockFixture() override { EXPECT_EQ(0, WSACleanup()); }

    static SOCKET NewSocket() {
        const SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        EXPECT_NE(INVALID_SOCKET, s);
        return s;
    }

    static sockaddr_in Address(uint16_t port, u_long address = INADDR_ANY) {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(port);
        name.sin_addr.s_addr = address;
        return name;
    }

    static int Bind(SOCKET s, const sockaddr_in& name) {
        return bind(s, reinterpret_cast<const sockaddr*>(&name), sizeof(name));
    }
    static int Bind(SOCKET s, uint16_t port) { return Bind(s, Address(port)); }
    static int ConnectTo(SOCKET s, const sockaddr_in& name) {
        return connect(s, reinterpret_cast<const sockaddr*>(&name), sizeof(name));
    }

    static uint16_t PortOf(SOCKET s) {
        sockaddr_in name{};
        int length = sizeof(name);
        EXPECT_EQ(0, getsockname(s, reinterpret_cast<sockaddr*>(&name), &length));
        return ntohs(name.sin_port);
    }

    static SOCKET NewListener(uint16_t port = 0) {
        const SOCKET s = NewSocket();
        EXPECT_EQ(0, Bind(s, port));
        EXPECT_EQ(0, listen(s, 1));
        return s;
    }

    static void SetNonBlocking(SOCKET s, bool nonBlocking = true) {
        u_long mode = nonBlocking;
        EXPECT_EQ(0, ioctlsocket(s, FIONBIO, &mode));
    }

    struct Connection {
        SOCKET socket;
        PosixPeer peer;
    };
    static Connection Connect() {
        const SOCKET listener = NewListener();
        PosixPeer peer = PosixPeer::ConnectTo(PortOf(listener));
        const SOCKET accepted = accept(listener, nullptr, nullptr);
        EXPECT_NE(INVALID_SOCKET, accepted);
        EXPECT_EQ(0, closesocket(listener));
        return {accepted, std::move(peer)};
    }
};

// A thread that is inside a call which blocks, and what the call left behind.
class BlockedCall {
  public:
    explicit BlockedCall(std::function<long long()> call)
        : m_thread([this, call = std::move(call)] {
              m_id = gettid();
              m_id.notify_all();
              m_result = call();
              m_error = WSAGetLastError();
          }) {
        m_id.wait(0);
        AwaitBlocked(m_id);
    }
    ~BlockedCall() {
        if (m_thread.joinable()) m_thread.join();
    }
    long long Result() {
        if (m_thread.joinable()) m_thread.join();
        return m_result;
    }
    // After Result.
    int Error() const { return m_error; }

  private:
    std::atomic<pid_t> m_id{0};
    long long m_result = 0;
    int m_error = 0;
    std::thread m_thread;
};
