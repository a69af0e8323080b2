// What a connection promises: bytes both ways, modes, and Windows' error numbers.
#include "winhost/tests/WinsockFixture.h"

namespace {

using Winsock = WinsockFixture;

class WinsockStart : public testing::Test {
  protected:
    static void Start() { ASSERT_EQ(0, WSAStartup(MAKEWORD(2, 0), &s_data)); }
    static SOCKET NewSocket() { return socket(AF_INET, SOCK_STREAM, IPPROTO_TCP); }
    inline static WSADATA s_data{};
};

TEST_F(WinsockStart, TellsTheVersionAskedForAndTheHighestOne) {
    Start();
    EXPECT_EQ(MAKEWORD(2, 0), s_data.wVersion);
    EXPECT_EQ(MAKEWORD(2, 2), s_data.wHighVersion);
    EXPECT_EQ(0, WSACleanup());
    EXPECT_EQ(WSAVERNOTSUPPORTED, WSAStartup(0, &s_data));
    EXPECT_EQ(WSAEFAULT, WSAStartup(MAKEWORD(2, 0), nullptr));
}

TEST_F(WinsockStart, NothingWorksBeforeIt) {
    EXPECT_EQ(WSANOTINITIALISED, SocketErrorOf(NewSocket()));
    EXPECT_EQ(WSANOTINITIALISED, SocketErrorOf(WSACleanup()));
}

TEST_F(WinsockStart, EachOneNeedsItsOwnCleanupAndTheLastClosesWhatIsOpen) {
    Start();
    Start();
    EXPECT_EQ(0, WSACleanup());
    const SOCKET s = NewSocket();
    EXPECT_NE(INVALID_SOCKET, s);
    EXPECT_EQ(0, closesocket(s));
    const SOCKET left = NewSocket();
    EXPECT_EQ(0, WSACleanup());
    EXPECT_EQ(SOCKET_ERROR, WSACleanup());
    Start();
    EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(closesocket(left)));
    EXPECT_EQ(0, WSACleanup());
}

TEST_F(Winsock, ErrorsStandWhereGetLastErrorReadsThem) {
    WSASetLastError(WSAEFAULT);
    EXPECT_EQ(DWORD{WSAEFAULT}, GetLastError());
    SetLastError(5);
    EXPECT_EQ(5, WSAGetLastError());
}

TEST_F(Winsock, SocketsAreMultiplesOfFourAndNotGivenOutAgainAtOnce) {
    const SOCKET first = NewSocket();
    EXPECT_EQ(0u, first % 4);
    EXPECT_NE(0u, first);
    closesocket(first);
    for (int i = 0; i < 100; ++i) {
        const SOCKET next = NewSocket();
        EXPECT_NE(first, next);
        closesocket(next);
    }
}

TEST_F(Winsock, OtherFamiliesAndTypesAreRefused) {
    EXPECT_EQ(WSAEAFNOSUPPORT, SocketErrorOf(socket(23, SOCK_STREAM, IPPROTO_TCP)));
    EXPECT_EQ(WSAESOCKTNOSUPPORT, SocketErrorOf(socket(AF_INET, 2, 0)));
    EXPECT_EQ(WSAEPROTONOSUPPORT, SocketErrorOf(socket(AF_INET, SOCK_STREAM, 17)));
}

TEST_F(Winsock, WhatIsNoSocketIsToldAsSuch) {
    char byte;
    u_long mode = 1;
    for (const SOCKET bogus : {INVALID_SOCKET, SOCKET{0}, SOCKET{0x7f4}}) {
        EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(recv(bogus, &byte, 1, 0)));
        EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(send(bogus, &byte, 1, 0)));
        EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(accept(bogus, nullptr, nullptr)));
        EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(ioctlsocket(bogus, FIONBIO, &mode)));
        EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(closesocket(bogus)));
    }
}

TEST_F(Winsock, BytesTravelBothWays) {
    auto [s, peer] = Connect();
    peer.Send("to the PC");
    char buffer[64];
    ASSERT_EQ(9, recv(s, buffer, sizeof(buffer), 0));
    EXPECT_EQ("to the PC", std::string(buffer, 9));
    ASSERT_EQ(11, send(s, "from the PC", 11, 0));
    EXPECT_EQ("from the PC", peer.Receive(11));
}

TEST_F(Winsock, AcceptTellsThePeersAddress) {
    const SOCKET listener = NewListener();
    const PosixPeer peer = PosixPeer::ConnectTo(PortOf(listener));
    sockaddr_in name{};
    int length = sizeof(name);
    const SOCKET s = accept(listener, reinterpret_cast<sockaddr*>(&name), &length);
    ASSERT_NE(INVALID_SOCKET, s);
    EXPECT_EQ(16, length);
    EXPECT_EQ(AF_INET, name.sin_family);
    EXPECT_EQ(inet_addr("127.0.0.1"), name.sin_addr.s_addr);
    EXPECT_EQ(htons(peer.Port()), name.sin_port);
}

TEST_F(Winsock, AcceptNeedsRoomForTheAddress) {
    const SOCKET listener = NewListener();
    sockaddr_in name{};
    int length = 8;
    EXPECT_EQ(WSAEFAULT, SocketErrorOf(accept(listener, reinterpret_cast<sockaddr*>(&name), &length)));
}

TEST_F(Winsock, ANonBlockingSocketWithNothingToReadWouldBlock) {
    auto [s, peer] = Connect();
    SetNonBlocking(s);
    char byte;
    EXPECT_EQ(WSAEWOULDBLOCK, SocketErrorOf(recv(s, &byte, 1, 0)));
}

TEST_F(Winsock, ASocketCanBeMadeBlockingAgain) {
    auto [s, peer] = Connect();
    SetNonBlocking(s, true);
    SetNonBlocking(s, false);
    char byte = 0;
    BlockedCall receive([&, s = s] { return recv(s, &byte, 1, 0); });
    peer.Send("x");
    EXPECT_EQ(1, receive.Result());
    EXPECT_EQ('x', byte);
}

TEST_F(Winsock, ANonBlockingListenerWouldBlockAndItsSocketsInheritTheMode) {
    const SOCKET listener = NewListener();
    SetNonBlocking(listener);
    EXPECT_EQ(WSAEWOULDBLOCK, SocketErrorOf(accept(listener, nullptr, nullptr)));
    const PosixPeer peer = PosixPeer::ConnectTo(PortOf(listener));
    SOCKET s = accept(listener, nullptr, nullptr);
    while (s == INVALID_SOCKET && WSAGetLastError() == WSAEWOULDBLOCK)
        s = accept(listener, nullptr, nullptr);
    ASSERT_NE(INVALID_SOCKET, s);
    char byte;
    EXPECT_EQ(WSAEWOULDBLOCK, SocketErrorOf(recv(s, &byte, 1, 0)));
}

TEST_F(Winsock, ANonBlockingSendToAPeerThatDoesNotReadWouldBlock) {
    auto [s, peer] = Connect();
    SetNonBlocking(s);
    const std::string block(1 << 16, 'x');
    int sent = 0;
    while (sent >= 0)
        sent = send(s, block.data(), static_cast<int>(block.size()), 0);
    EXPECT_EQ(WSAEWOULDBLOCK, WSAGetLastError());
}

TEST_F(Winsock, AnOrderlyEndReadsAsZeroEachTime) {
    auto [s, peer] = Connect();
    peer.EndSending();
    char byte;
    EXPECT_EQ(0, recv(s, &byte, 1, 0));
    EXPECT_EQ(0, recv(s, &byte, 1, 0));
    EXPECT_EQ(1, send(s, "x", 1, 0)) << "the other direction goes on";
}

TEST_F(Winsock, AResetConnectionIsToldEachTime) {
    auto [s, peer] = Connect();
    peer.Reset();
    char byte;
    EXPECT_EQ(WSAECONNRESET, SocketErrorOf(recv(s, &byte, 1, 0)));
    EXPECT_EQ(WSAECONNRESET, SocketErrorOf(recv(s, &byte, 1, 0)));
    EXPECT_EQ(WSAECONNRESET, SocketErrorOf(send(s, &byte, 1, 0)));
}

TEST_F(Winsock, ASendToAPeerThatHasGoneFailsWithoutASignal) {
    auto [s, peer] = Connect();
    peer.Close();
    char byte;
    ASSERT_EQ(0, recv(s, &byte, 1, 0));
    int sent = 1;
    // The first one brings the peer's reset.
    while (sent == 1)
        sent = send(s, "x", 1, 0);
    EXPECT_EQ(WSAECONNABORTED, WSAGetLastError());
}

TEST_F(Winsock, AfterAShutdownThatDirectionIsClosed) {
    auto [s, peer] = Connect();
    ASSERT_EQ(0, shutdown(s, SD_SEND));
    EXPECT_TRUE(peer.AwaitEnd());
    EXPECT_EQ(WSAESHUTDOWN, SocketErrorOf(send(s, "x", 1, 0)));
    peer.Send("y");
    char byte;
    EXPECT_EQ(1, recv(s, &byte, 1, 0));
    ASSERT_EQ(0, shutdown(s, SD_RECEIVE));
    EXPECT_EQ(WSAESHUTDOWN, SocketErrorOf(recv(s, &byte, 1, 0)));
}

TEST_F(Winsock, AShutdownNeedsAConnectionAndADirection) {
    auto [s, peer] = Connect();
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(shutdown(s, 3)));
    const SOCKET listener = NewListener();
    EXPECT_EQ(WSAENOTCONN, SocketErrorOf(shutdown(listener, SD_BOTH)));
    EXPECT_NO_THROW(PosixPeer::ConnectTo(PortOf(listener))) << "it still listens";
}

TEST_F(Winsock, ASocketWithoutAConnectionMovesNoBytes) {
    const SOCKET s = NewSocket();
    char byte = 0;
    EXPECT_EQ(WSAENOTCONN, SocketErrorOf(recv(s, &byte, 1, 0)));
    EXPECT_EQ(WSAENOTCONN, SocketErrorOf(send(s, &byte, 1, 0)));
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(accept(s, nullptr, nullptr)));
}

TEST_F(Winsock, ConnectReachesAListener) {
    PosixPeer listener = PosixPeer::ListenOn(0);
    const SOCKET s = NewSocket();
    const sockaddr_in name = Address(listener.Port(), inet_addr("127.0.0.1"));
    ASSERT_EQ(0, ConnectTo(s, name));
    EXPECT_EQ(2, send(s, "hi", 2, 0));
    EXPECT_EQ("hi", listener.Accept().Receive(2));
    EXPECT_EQ(WSAEISCONN, SocketErrorOf(ConnectTo(s, name)));
}

TEST_F(Winsock, ConnectToNobodyIsRefused) {
    PosixPeer listener = PosixPeer::ListenOn(0);
    const sockaddr_in name = Address(listener.Port(), inet_addr("127.0.0.1"));
    listener.Close();
    const SOCKET s = NewSocket();
    EXPECT_EQ(WSAECONNREFUSED, SocketErrorOf(ConnectTo(s, name)));
}

TEST_F(Winsock, OnlyTheNonBlockingModeCanBeSet) {
    const SOCKET s = NewSocket();
    u_long mode = 1;
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(ioctlsocket(s, 0x4004667F, &mode)));
    EXPECT_EQ(WSAEFAULT, SocketErrorOf(ioctlsocket(s, FIONBIO, nullptr)));
}

}  // namespace
