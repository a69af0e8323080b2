// Who may have a port, and when.
#include "winhost/tests/WinsockFixture.h"

namespace {

using WinsockListen = WinsockFixture;

TEST_F(WinsockListen, APortIsTakenFromTheBindOnAlsoByAnotherProgram) {
    const SOCKET bound = NewSocket();
    ASSERT_EQ(0, Bind(bound, 0));
    const PosixPeer other = PosixPeer::ListenOn(0);
    const SOCKET second = NewSocket();
    for (const uint16_t taken : {PortOf(bound), PortOf(NewListener()), other.Port()})
        EXPECT_EQ(WSAEADDRINUSE, SocketErrorOf(Bind(second, taken)));
    EXPECT_EQ(0, listen(bound, 1));
}

TEST_F(WinsockListen, APortThatOldConnectionsRememberIsFreeAtOnce) {
    auto [accepted, peer] = Connect();
    const uint16_t port = PortOf(accepted);
    closesocket(accepted);  // first, so that the time-wait stays on this side
    EXPECT_TRUE(peer.AwaitEnd());
    peer.Close();
    const SOCKET again = NewSocket();
    EXPECT_EQ(0, Bind(again, port));
    EXPECT_EQ(0, listen(again, 1));
}

TEST_F(WinsockListen, APortWhoseListenerHasGoneIsFreeThoughAConnectionLives) {
    auto [accepted, peer] = Connect();
    const uint16_t port = PortOf(accepted);
    NewListener(port);
    EXPECT_EQ(1, send(accepted, "x", 1, 0));
    EXPECT_EQ("x", peer.Receive(1));
    const SOCKET third = NewSocket();
    EXPECT_EQ(WSAEADDRINUSE, SocketErrorOf(Bind(third, port)));
}

TEST_F(WinsockListen, AListenerThatIsClosedUnderItsAcceptFreesThePort) {
    const SOCKET listener = NewListener();
    const uint16_t port = PortOf(listener);
    BlockedCall blocked([=] { return static_cast<long long>(accept(listener, nullptr, nullptr)); });
    closesocket(listener);
    NewListener(port);
    EXPECT_EQ(-1, blocked.Result());
}

TEST_F(WinsockListen, BindingTwiceAndListeningUnboundAreInvalid) {
    const SOCKET s = NewSocket();
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(listen(s, 1)));
    ASSERT_EQ(0, Bind(s, 0));
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(Bind(s, 0)));
}

TEST_F(WinsockListen, ANameHasToBeAWholeIPv4One) {
    const SOCKET s = NewSocket();
    sockaddr_in name = Address(0);
    EXPECT_EQ(WSAEFAULT, SocketErrorOf(bind(s, reinterpret_cast<const sockaddr*>(&name), 8)));
    name.sin_family = 23;
    EXPECT_EQ(WSAEAFNOSUPPORT, SocketErrorOf(Bind(s, name)));
    name = Address(0, inet_addr("203.0.113.1"));
    EXPECT_EQ(WSAEADDRNOTAVAIL, SocketErrorOf(Bind(s, name)));
}

TEST_F(WinsockListen, ADescribedPortIsClosedToOtherMachinesUnlessDescribedAsOpen) {
    PosixPeer probe = PosixPeer::ListenOn(0);
    const uint16_t real = probe.Port();
    probe.Close();
    for (const bool open : {false, true}) {
        StartPc([=](auto& pc) {
            pc.ports[664] = real;
            pc.openPorts = open;
        });
        const SOCKET listener = NewSocket();
        sockaddr_in name = Address(664, INADDR_ANY);
        EXPECT_EQ(0, Bind(listener, name));
        EXPECT_EQ(0, listen(listener, 2));
        int size = sizeof(name);
        EXPECT_EQ(0, getsockname(listener, reinterpret_cast<sockaddr*>(&name), &size));
        EXPECT_EQ(ULONG{INADDR_ANY}, name.sin_addr.s_addr) << "what the process asked for";
        // 127.0.0.2 is an address of this machine, and not the loopback address that the port is bound to.
        name = Address(real, inet_addr("127.0.0.2"));
        const SOCKET far = NewSocket();
        EXPECT_EQ(open ? 0 : SOCKET_ERROR, ConnectTo(far, name));
        const PosixPeer near = PosixPeer::ConnectTo(real);
        closesocket(far);
        closesocket(listener);
    }
}

TEST_F(WinsockListen, ADescribedPortStandsForTheOneAskedFor) {
    PosixPeer probe = PosixPeer::ListenOn(0);
    const uint16_t real = probe.Port();
    probe.Close();
    StartPc([=](auto& pc) { pc.ports[664] = real; });
    const SOCKET listener = NewListener(664);
    EXPECT_EQ(664, PortOf(listener));
    const PosixPeer peer = PosixPeer::ConnectTo(real);
    const SOCKET accepted = accept(listener, nullptr, nullptr);
    EXPECT_EQ(664, PortOf(accepted));
}

}  // namespace
