#include "connection/SocketServers.h"

#include <handleapi.h>

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <thread>

#include "tests/support/ThrowAt.h"
#include "tests/unit/dash/DashFixture.h"

namespace {

// The two servers differ in nothing but what the log says of a failed accept while the service stops, so that
// most of this is tested on both.
template <class Server>
class SocketServers : public DashFixture {};
using Servers = ::testing::Types<HttpsSocket, KvmSocket>;
TYPED_TEST_SUITE(SocketServers, Servers);

UniqueSocket Accept(SocketServer& server, bool blocking) {
    sockaddr_in peer{};
    return server.AcceptSocket(blocking, peer);
}

}  // namespace

TYPED_TEST(SocketServers, ListenOnTheGivenPortAndTellThePeer) {
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    ConsoleClient client = this->Connect();
    sockaddr_in peer{};
    const UniqueSocket accepted = server.AcceptSocket(false, peer);
    ASSERT_TRUE(accepted);
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(peer.sin_addr.s_addr, inet_addr("127.0.0.1"));
    EXPECT_EQ(ntohs(peer.sin_port), client.Port());
}

TYPED_TEST(SocketServers, ListenOnAllAddressesOfThePc) {
    this->Pc().Change([](auto& description) { description.openPorts = true; });
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    sockaddr_in other{};
    other.sin_family = AF_INET;
    other.sin_addr.s_addr = inet_addr("127.0.0.2");
    other.sin_port = htons(this->Port());
    const UniqueSocket client(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&other), sizeof other), 0);
}

TYPED_TEST(SocketServers, LetOneConnectionWait) {
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    EXPECT_EQ(BacklogOf(this->Port()), 1);
}

TYPED_TEST(SocketServers, ANonBlockingSocketAnswersAtOnceWhenNothingHasCome) {
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    ConsoleClient client = this->Connect();
    const UniqueSocket accepted = Accept(server, false);
    char byte;
    EXPECT_EQ(recv(accepted.Get(), &byte, 1, 0), -1);
    EXPECT_EQ(WSAGetLastError(), WSAEWOULDBLOCK);
}

TYPED_TEST(SocketServers, ABlockingSocketWaitsForTheBytes) {
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    ConsoleClient client = this->Connect();
    const UniqueSocket accepted = Accept(server, true);
    std::thread sender([&] { client.Send("x"); });
    char byte = 0;
    EXPECT_EQ(recv(accepted.Get(), &byte, 1, 0), 1);
    EXPECT_EQ(byte, 'x');
    sender.join();
}

TYPED_TEST(SocketServers, AnAcceptedSocketHasNothingToDoWithTheServerAnyMore) {
    auto server = std::make_unique<TypeParam>();
    ASSERT_EQ(server->CreateSocket(664), 0);
    ConsoleClient client = this->Connect();
    const UniqueSocket accepted = Accept(*server, true);
    server->CloseBaseSocket();
    EXPECT_EQ(send(accepted.Get(), "still here", 10, 0), 10);
    EXPECT_EQ(client.Receive(10), "still here");
}

TYPED_TEST(SocketServers, KeepTheirSocketsFromOtherPrograms) {
    TypeParam server;
    server.CreateSocket(664);
    const ConsoleClient client = this->Connect();
    Accept(server, false);
    EXPECT_EQ(this->ArgumentsOf("SetHandleInformation", "dwMask"),
              std::vector<uint32_t>(2, HANDLE_FLAG_INHERIT));
}

TYPED_TEST(SocketServers, CreateSocketReplacesAListenerOfItsOwn) {
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    ASSERT_EQ(server.CreateSocket(664), 0);
    ConsoleClient client = this->Connect();
    const UniqueSocket accepted = Accept(server, false);
    EXPECT_TRUE(accepted);
}

TYPED_TEST(SocketServers, ATakenPortIsReported) {
    TakenPort taken;
    this->UsePort(taken.Port());
    this->ExpectErrors({"bind() API failed with error: 10048"});
    TypeParam server;
    EXPECT_EQ(server.CreateSocket(664), WSAEADDRINUSE);
    this->AwaitLog("bind() API failed with error: 10048");
}

TYPED_TEST(SocketServers, AServerThatFailedListensLater) {
    auto taken = std::make_unique<TakenPort>();
    this->UsePort(taken->Port());
    this->ExpectErrors({"bind() API failed with error: 10048"});
    TypeParam server;
    EXPECT_EQ(server.CreateSocket(664), WSAEADDRINUSE);
    taken.reset();
    EXPECT_EQ(server.CreateSocket(664), 0);
}

TYPED_TEST(SocketServers, ClosingTheListenerBreaksTheOwnerOutOfAccept) {
    TypeParam server;
    this->ExpectErrors({"accept() API failed with error: 10004"});
    ASSERT_EQ(server.CreateSocket(664), 0);
    std::thread owner([&] { EXPECT_FALSE(Accept(server, false)); });
    EXPECT_TRUE(this->Eventually([this] { return this->Gate().Count("accept") == 1; }));
    server.CloseBaseSocket();
    owner.join();
}

TYPED_TEST(SocketServers, ClosingTwiceIsHarmless) {
    TypeParam server;
    server.CloseBaseSocket();
    ASSERT_EQ(server.CreateSocket(664), 0);
    server.CloseBaseSocket();
    server.CloseBaseSocket();
    EXPECT_EQ(this->Gate().Count("closesocket"), 1u);
}

TYPED_TEST(SocketServers, ReportEveryFailedCallAndGoOn) {
    auto& gate = this->Gate();
    this->ExpectErrors({"() API failed with error: 10055", "Error in closing baseSocket"});
    TypeParam server;

    gate.FailNth("socket", 1, WSAENOBUFS);
    EXPECT_EQ(server.CreateSocket(664), WSAENOBUFS);
    this->AwaitLog("socket() API failed with error: 10055");

    gate.FailNth("bind", 1, WSAENOBUFS);
    EXPECT_EQ(server.CreateSocket(664), WSAENOBUFS);
    this->AwaitLog("bind() API failed with error: 10055");

    gate.FailNth("listen", 1, WSAENOBUFS);
    gate.FailNth("closesocket", 1, WSAENOTSOCK);
    EXPECT_EQ(server.CreateSocket(664), WSAENOBUFS);
    this->AwaitLog("listen() API failed with error: 10055");
    this->AwaitLog("Error in closing baseSocket");

    gate.FailNth("accept", 1, WSAENOBUFS);
    EXPECT_FALSE(Accept(server, false));
    this->AwaitLog("accept() API failed with error: 10055");
}

TYPED_TEST(SocketServers, AnAcceptedSocketWhoseModeCannotBeSetIsClosed) {
    auto& gate = this->Gate();
    this->ExpectErrors({"ioctlsocket() API failed with error: 10022", "Error in closing Data socket"});
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    for (const bool blocking : {false, true}) {
        ConsoleClient client = this->Connect();
        gate.FailNth("ioctlsocket", 1, WSAEINVAL);
        EXPECT_FALSE(Accept(server, blocking));
        EXPECT_TRUE(client.AwaitClose());
    }
    this->AwaitLog("ioctlsocket() API failed with error: 10022", 2);

    ConsoleClient client = this->Connect();
    gate.FailNth("ioctlsocket", 1, WSAEINVAL);
    gate.FailNth("closesocket", 1, WSAENOTSOCK);
    EXPECT_FALSE(Accept(server, false));
    this->AwaitLog("Error in closing Data socket");
}

TYPED_TEST(SocketServers, AnExceptionLeavesNoAcceptedSocketOpen) {
    TypeParam server;
    ASSERT_EQ(server.CreateSocket(664), 0);
    ConsoleClient client = this->Connect();
    ThrowAt("ioctlsocket", std::runtime_error("boom"));
    EXPECT_THROW(Accept(server, true), std::runtime_error);
    this->Gate().Reset();
    EXPECT_TRUE(client.AwaitClose());
}

TYPED_TEST(SocketServers, AskForTheSecondVersionOfWinsock) {
    const size_t before = this->ArgumentsOf("WSAStartup", "wVersionRequested").size();
    const TypeParam server;
    const std::vector<uint32_t> versions = this->ArgumentsOf("WSAStartup", "wVersionRequested");
    ASSERT_EQ(versions.size(), before + 1);
    EXPECT_EQ(versions.back(), 0x0002u);  // the major version is the low byte
}

TYPED_TEST(SocketServers, AFailedStartOfWinsockStopsNothing) {
    this->ExpectErrors(
        {"WSAStartup() call failed with error: 10091", "WSACleanup() API failed with error: 10050"});
    this->Gate().FailNth("WSAStartup", 1, WSASYSNOTREADY);
    this->Gate().FailNth("WSACleanup", 1, WSAENETDOWN);
    { TypeParam server; }
    this->AwaitLog("WSAStartup() call failed with error: 10091");
    this->AwaitLog("WSACleanup() API failed with error: 10050");
}

namespace {

class FailedAccept : public DashFixture {
  protected:
    void FailAccept(SocketServer& server) {
        Gate().FailNth("accept", 1, WSAEINTR);
        EXPECT_FALSE(Accept(server, false));
    }
};

}  // namespace

TEST_F(FailedAccept, OfTheHttpsSocketStaysOutOfTheLogWhileTheServiceStops) {
    ExpectErrors({"accept() API failed with error: 10004"});
    HttpsSocket https;
    KvmSocket kvm;
    FailAccept(https);
    AwaitLog("accept() API failed with error: 10004", 1);

    service->m_bServiceStopping = 1;
    FailAccept(https);
    FailAccept(kvm);
    AwaitLog("accept() API failed with error: 10004", 2);
    EXPECT_EQ(LogCount("accept() API failed"), 2u);
}
