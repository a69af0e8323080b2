// A socket that is closed under the threads that use it.
#include <atomic>

#include "winhost/tests/WinsockFixture.h"

namespace {

using WinsockClose = WinsockFixture;

TEST_F(WinsockClose, ClosingAListenerInterruptsItsAccept) {
    const SOCKET listener = NewListener();
    BlockedCall blocked([=] { return static_cast<long long>(accept(listener, nullptr, nullptr)); });
    EXPECT_EQ(0, closesocket(listener));
    EXPECT_EQ(-1, blocked.Result());
    EXPECT_EQ(WSAEINTR, blocked.Error());
}

TEST_F(WinsockClose, ClosingAConnectionInterruptsItsRecv) {
    auto [s, peer] = Connect();
    BlockedCall blocked([s = s] {
        char byte;
        return recv(s, &byte, 1, 0);
    });
    EXPECT_EQ(0, closesocket(s));
    EXPECT_EQ(SOCKET_ERROR, blocked.Result());
    EXPECT_EQ(WSAEINTR, blocked.Error());
    EXPECT_TRUE(peer.AwaitEnd());
}

TEST_F(WinsockClose, ClosingAConnectionInterruptsItsSend) {
    auto [s, peer] = Connect();
    BlockedCall blocked([s = s] {
        const std::string block(1 << 16, 'x');
        int sent = 0;
        while (sent >= 0)
            sent = send(s, block.data(), static_cast<int>(block.size()), 0);
        return sent;
    });
    EXPECT_EQ(0, closesocket(s));
    EXPECT_EQ(SOCKET_ERROR, blocked.Result());
    EXPECT_TRUE(blocked.Error() == WSAEINTR || blocked.Error() == WSAENOTSOCK) << blocked.Error();
}

TEST_F(WinsockClose, ASecondCloseFindsNoSocket) {
    const SOCKET s = NewSocket();
    EXPECT_EQ(0, closesocket(s));
    EXPECT_EQ(WSAENOTSOCK, SocketErrorOf(closesocket(s)));
}

TEST_F(WinsockClose, WhatWasSentBeforeTheCloseArrives) {
    auto [s, peer] = Connect();
    const std::string text(100'000, 'x');
    ASSERT_EQ(static_cast<int>(text.size()), send(s, text.data(), static_cast<int>(text.size()), 0));
    closesocket(s);
    EXPECT_EQ(text, peer.Receive(text.size()));
    EXPECT_TRUE(peer.AwaitEnd());
}

// Each reader may only ever see its own connection's bytes, or an error: a descriptor that was reused under
// it would hand it those of another.
TEST_F(WinsockClose, APollingReaderNeverReadsAnotherConnection) {
    constexpr int kRounds = 200;
    const SOCKET listener = NewListener();
    const uint16_t port = PortOf(listener);
    for (int round = 0; round < kRounds; ++round) {
        const char own = static_cast<char>('a' + round % 26);
        PosixPeer peer = PosixPeer::ConnectTo(port);
        const SOCKET s = accept(listener, nullptr, nullptr);
        SetNonBlocking(s);
        peer.Send(std::string(64, own));
        std::atomic<bool> strange{false};
        std::atomic<bool> read{false};
        std::thread reader([&] {
            char byte = 0;
            int received = 1;
            while (received > 0 || (received < 0 && WSAGetLastError() == WSAEWOULDBLOCK)) {
                received = recv(s, &byte, 1, 0);
                if (received > 0 && byte != own) strange = true;
                read = true;
            }
        });
        while (!read)
            std::this_thread::yield();
        EXPECT_EQ(0, closesocket(s));
        reader.join();
        EXPECT_FALSE(strange);
    }
    closesocket(listener);
}

TEST_F(WinsockClose, OnlyOneOfManyClosesSucceeds) {
    for (int round = 0; round < 50; ++round) {
        const SOCKET s = NewSocket();
        std::atomic<int> successes{0};
        std::vector<std::thread> closers;
        for (int i = 0; i < 4; ++i)
            closers.emplace_back([&] { successes += closesocket(s) == 0; });
        for (std::thread& closer : closers)
            closer.join();
        EXPECT_EQ(1, successes);
    }
}

}  // namespace
