// The wait for a socket that can be read, and the look at what lies there.
#include "winhost/tests/WinsockFixture.h"

namespace {

using namespace std::chrono_literals;

class WinsockReadable : public WinsockFixture {
  protected:
    static int Select(fd_set& set, long seconds, long microseconds = 0) {
        const timeval timeout{seconds, microseconds};
        return select(0, &set, nullptr, nullptr, &timeout);
    }
    static int Select(SOCKET s, long seconds, long microseconds = 0) {
        fd_set set{1, {s}};
        return Select(set, seconds, microseconds);
    }
    static int SelectForEver(SOCKET s) {
        fd_set set{1, {s}};
        return select(0, &set, nullptr, nullptr, nullptr);
    }
};

TEST_F(WinsockReadable, EndsWhenBytesCome) {
    auto [s, peer] = Connect();
    BlockedCall blocked([s = s] { return SelectForEver(s); });
    peer.Send("x");
    EXPECT_EQ(1, blocked.Result());
    // The bytes are still there, at each look.
    EXPECT_EQ(1, Select(s, 0));
    char byte = 0;
    EXPECT_EQ(1, recv(s, &byte, 1, 0));
    EXPECT_EQ('x', byte);
    EXPECT_EQ(0, Select(s, 0));
}

TEST_F(WinsockReadable, EndsWhenTheTimeIsOverOnThePcsClock) {
    auto [s, peer] = Connect();
    Clock().SetManual(true);
    BlockedCall blocked([s = s] { return Select(s, 1, 500'000); });
    ASSERT_TRUE(Clock().AwaitSleeper(1500ms));
    Clock().Advance(1499ms);
    ASSERT_TRUE(Clock().AwaitSleeper(1ms));
    Clock().Advance(1ms);
    EXPECT_EQ(0, blocked.Result());
}

TEST_F(WinsockReadable, EndsByItselfOnARunningClock) {
    auto [s, peer] = Connect();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(0, Select(s, 0, 20'000));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 20ms);
}

TEST_F(WinsockReadable, EndsForBytesWhileTheClockStandsStill) {
    auto [s, peer] = Connect();
    Clock().SetManual(true);
    BlockedCall blocked([s = s] { return Select(s, 3600); });
    peer.Send("x");
    EXPECT_EQ(1, blocked.Result());
}

TEST_F(WinsockReadable, RefusesWhatIsNoSocketAnEmptySetATimeThatIsNoneAndOtherWaits) {
    const SOCKET closed = NewSocket();
    closesocket(closed);
    for (const SOCKET none : {closed, SOCKET{0}, INVALID_SOCKET})
        EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(Select(none, 0))) << none;
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(select(0, nullptr, nullptr, nullptr, nullptr)));
    fd_set empty{0, {}};
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(Select(empty, 0)));
    const SOCKET s = NewSocket();
    EXPECT_EQ(WSAEINVAL, SocketErrorOf(Select(s, -1)));
    const timeval none{};
    fd_set set{1, {s}};
    EXPECT_EQ(WSAEOPNOTSUPP, SocketErrorOf(select(0, nullptr, &set, nullptr, &none)));
    EXPECT_EQ(WSAEOPNOTSUPP, SocketErrorOf(select(0, nullptr, nullptr, &set, &none)));
}

TEST_F(WinsockReadable, LeavesInTheSetWhatCanBeRead) {
    auto [quiet, quietPeer] = Connect();
    auto [busy, busyPeer] = Connect();
    fd_set set{2, {quiet, busy}};
    busyPeer.Send("x");
    EXPECT_EQ(1, Select(set, 10));
    ASSERT_EQ(1u, set.fd_count);
    EXPECT_EQ(busy, set.fd_array[0]);
    EXPECT_EQ(0, Select(quiet, 0));
    fd_set none{1, {quiet}};
    EXPECT_EQ(0, Select(none, 0));
    EXPECT_EQ(0u, none.fd_count);
}

TEST_F(WinsockReadable, TakesAnEndOrAResetForSomethingToRead) {
    auto [s, peer] = Connect();
    peer.Close();
    EXPECT_EQ(1, Select(s, 10));
    char byte;
    EXPECT_EQ(0, recv(s, &byte, 1, MSG_PEEK));
    EXPECT_EQ(0, recv(s, &byte, 1, 0));
    closesocket(s);

    auto [other, otherPeer] = Connect();
    otherPeer.Reset();
    EXPECT_EQ(1, Select(other, 10));
    for (const int flags : {MSG_PEEK, 0, 0}) {
        EXPECT_EQ(WSAECONNRESET, SocketErrorOf(recv(other, &byte, 1, flags)));
    }
}

TEST_F(WinsockReadable, TakesAConnectionThatWaitsForSomethingToRead) {
    const SOCKET listener = NewListener();
    EXPECT_EQ(0, Select(listener, 0));
    PosixPeer peer = PosixPeer::ConnectTo(PortOf(listener));
    EXPECT_EQ(1, Select(listener, 10));
}

TEST_F(WinsockReadable, FindsNothingToReadInASocketThatIsNotConnected) {
    const SOCKET s = NewSocket();
    EXPECT_EQ(0, Select(s, 0));
}

TEST_F(WinsockReadable, EndsWhenTheSocketIsClosedUnderIt) {
    auto [s, peer] = Connect();
    BlockedCall blocked([s = s] { return SelectForEver(s); });
    EXPECT_EQ(0, closesocket(s));
    EXPECT_EQ(SOCKET_ERROR, blocked.Result());
    EXPECT_EQ(WSAENOTSOCK, blocked.Error());
}

TEST_F(WinsockReadable, APeekLeavesTheBytesThere) {
    auto [s, peer] = Connect();
    peer.Send("ab");
    char bytes[2] = {};
    EXPECT_EQ(1, recv(s, bytes, 1, MSG_PEEK));
    EXPECT_EQ('a', bytes[0]);
    EXPECT_EQ(1, Select(s, 10));
    EXPECT_EQ(1, recv(s, bytes, 1, 0));
    EXPECT_EQ(1, recv(s, bytes + 1, 1, 0));
    EXPECT_EQ('b', bytes[1]);
}

}  // namespace
