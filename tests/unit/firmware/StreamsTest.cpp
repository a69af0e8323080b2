// Long streams to the host, and the bridge to a real server.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "firmware/PacedSender.h"
#include "mailbox/MailboxRecords.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

using std::chrono::milliseconds;

struct Sent {
    size_t bytes;
    EventLoop::Clock::time_point when;
};

class PacedSenderTest : public testing::Test {
  protected:
    // Runs a sender with this pause until it has drained; returns what it sent.
    std::vector<Sent> Run(milliseconds pause, const std::function<void(PacedSender&)>& use) {
        std::vector<Sent> sent;
        std::promise<void> drained;
        std::optional<PacedSender> sender;
        m_loop.Run([&] {
            sender.emplace(
                m_loop, pause,
                [&sent](std::span<const uint8_t> bytes) {
                    sent.push_back({bytes.size(), EventLoop::Clock::now()});
                },
                [&drained] { drained.set_value(); });
            use(*sender);
        });
        EXPECT_EQ(drained.get_future().wait_for(kPatience), std::future_status::ready);
        m_loop.Run([&] { sender.reset(); });
        return sent;
    }
    EventLoop m_loop;
};

TEST_F(PacedSenderTest, SendsAShortAnswerAtOnceAndWhole) {
    const auto sent = Run(milliseconds(30), [](PacedSender& sender) {
        sender.Append(Bytes("hello"));
        EXPECT_EQ(sender.Waiting(), 0u);
    });
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].bytes, 5u);
}

TEST_F(PacedSenderTest, PausesBetweenTheMessagesOfALongAnswer) {
    const auto sent = Run(milliseconds(30), [](PacedSender& sender) {
        sender.Append(std::vector<uint8_t>(2 * kMaxMessagePayload + 1));
    });
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].bytes, kMaxMessagePayload);
    EXPECT_EQ(sent[2].bytes, 1u);
    EXPECT_GE(sent[1].when - sent[0].when, milliseconds(30));
    EXPECT_GE(sent[2].when - sent[1].when, milliseconds(30));
}

TEST_F(PacedSenderTest, GathersWhatComesDuringThePause) {
    const auto sent = Run(milliseconds(30), [](PacedSender& sender) {
        for (int i = 0; i < 10; ++i)
            sender.Append(Bytes("ab"));
    });
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].bytes, 18u);
}

TEST_F(PacedSenderTest, GoesOnAtOnceWhenTheClientHasSpoken) {
    const auto sent = Run(milliseconds(30), [](PacedSender& sender) {
        sender.Append(Bytes("first"));
        sender.OnClientBytes();
        sender.Append(Bytes("second"));
        EXPECT_EQ(sender.Waiting(), 0u);
    });
    EXPECT_EQ(sent.size(), 2u);
}

// A server on a TCP port of its own that serves one connection.
class Server {
  public:
    Server() : m_listener(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof name;
        EXPECT_EQ(bind(m_listener.Get(), reinterpret_cast<sockaddr*>(&name), size), 0);
        EXPECT_EQ(listen(m_listener.Get(), 4), 0);
        getsockname(m_listener.Get(), reinterpret_cast<sockaddr*>(&name), &size);
        m_address = "127.0.0.1:" + std::to_string(ntohs(name.sin_port));
    }
    const std::string& Address() const { return m_address; }
    void Accept() {
        pollfd wait{m_listener.Get(), POLLIN, 0};
        ASSERT_EQ(poll(&wait, 1, int(kPatience.count())), 1);
        m_connection = testbed::Descriptor(accept(m_listener.Get(), nullptr, nullptr));
    }
    std::string Read(size_t size) {
        std::string text(size, 0);
        const ssize_t count = recv(m_connection.Get(), text.data(), size, MSG_WAITALL);
        text.resize(size_t(std::max<ssize_t>(count, 0)));
        return text;
    }
    void Write(const std::string& text) {
        EXPECT_EQ(send(m_connection.Get(), text.data(), text.size(), 0), ssize_t(text.size()));
    }
    void Close() { m_connection.Close(); }
    void Refuse() { m_listener.Close(); }

  private:
    testbed::Descriptor m_listener, m_connection;
    std::string m_address;
};

class BridgeTest : public testing::Test {
  protected:
    BridgeTest() {
        m_firmware.Change([this](Settings& settings) {
            settings.Set("Dash", "bridge:" + m_server.Address());
            settings.Set("Kvm", "bridge:" + m_server.Address());
        });
        m_host.Listen();
        EXPECT_TRUE(m_firmware.AwaitHostListening());
    }
    Server m_server;
    ListeningFirmware m_firmware;
    LinkHost m_host{m_firmware.Address()};
};

TEST_F(BridgeTest, CarriesBytesBothWays) {
    m_host.Ask(MailboxCode::WriteKVMPacket, "to the server");
    m_server.Accept();
    EXPECT_EQ(m_server.Read(13), "to the server");
    m_server.Write("to the client");
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_KVM_DATA), "to the client");
}

TEST_F(BridgeTest, CarriesALongAnswerWhole) {
    m_host.Ask(MailboxCode::WriteDASHPacket, "?");
    m_server.Accept();
    const std::string answer(3 * kMaxMessagePayload, 'w');
    std::thread writer([&] { m_server.Write(answer); });
    std::string received;
    while (received.size() < answer.size())
        received += PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA);
    writer.join();
    EXPECT_EQ(received, answer);
}

TEST_F(BridgeTest, HearsAServerThatSpeaksFirstAsSoonAsAViewerConnects) {
    IPCompleteInfo viewer{};
    viewer.Port = 22;
    viewer.PeerPort = 1;
    viewer.PeerMarker = 0xFFFF;
    m_host.Ask(MailboxCode::WriteIPCompleteInformation, Bytes::Of(viewer));
    m_server.Accept();
    m_server.Write("hello viewer");
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_KVM_DATA), "hello viewer");
}

TEST_F(BridgeTest, HoldsTheServerBackWhileTheHostDoesNotRead) {
    m_host.Ask(MailboxCode::WriteKVMPacket, "?");
    m_server.Accept();
    std::string picture(3 * kMaxUnreadBytes, '\0');
    for (size_t i = 0; i < picture.size(); ++i)
        picture[i] = char(i % 251);
    std::atomic<bool> written = false;
    std::thread writer([&] {
        m_server.Write(picture);
        written = true;
    });
    std::this_thread::sleep_for(kSoon);
    EXPECT_FALSE(written);
    std::string received;
    for (std::string part = "?"; !part.empty() && received.size() < picture.size(); received += part)
        part = PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_KVM_DATA);
    EXPECT_TRUE(received == picture);
    m_host.Close();
    writer.join();
}

TEST_F(BridgeTest, KeepsTheConnectionUntilItsOwnServerChanges) {
    m_host.Ask(MailboxCode::WriteKVMPacket, "one");
    m_server.Accept();
    m_firmware.Change([](Settings& settings) { settings.Dash = Peer::Echo; });
    m_host.Ask(MailboxCode::WriteKVMPacket, "two");
    EXPECT_EQ(m_server.Read(6), "onetwo");
    m_firmware.Change([](Settings& settings) { settings.Set("Kvm", "bridge:localhost:1"); });
    EXPECT_EQ(m_server.Read(1), "");
}

TEST_F(BridgeTest, EndsTheConnectionAfterTheServersLastByte) {
    m_host.Ask(MailboxCode::WriteDASHPacket, "?");
    m_server.Accept();
    EXPECT_EQ(m_server.Read(1), "?");
    m_server.Write("bye");
    m_server.Close();
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA), "bye");
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET), "");
    m_host.Ask(MailboxCode::WriteDASHPacket, "too late");
    EXPECT_FALSE(m_host.AwaitMessage(kSoon));
}

TEST_F(BridgeTest, EndsTheConnectionWhenNoServerIsThere) {
    m_server.Refuse();
    m_host.Ask(MailboxCode::WriteKVMPacket, "?");
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_VNC_SOC_CLOSE), "");
}

TEST_F(BridgeTest, LeavesTheServerWhenTheHostGoes) {
    m_host.Ask(MailboxCode::WriteKVMPacket, "one");
    m_server.Accept();
    EXPECT_EQ(m_server.Read(3), "one");
    m_host.Close();
    EXPECT_EQ(m_server.Read(1), "");
}

TEST_F(BridgeTest, ReachesTheServerAnewForEachConnection) {
    m_host.Ask(MailboxCode::WriteKVMPacket, "one");
    m_server.Accept();
    EXPECT_EQ(m_server.Read(3), "one");
    m_host.Ask(MailboxCode::WriteCloseSocketcmd, Bytes::Of(CloseSocketRecord{22}));
    EXPECT_EQ(m_server.Read(1), "");
    m_host.Ask(MailboxCode::WriteKVMPacket, "two");
    m_server.Accept();
    EXPECT_EQ(m_server.Read(3), "two");
}

}  // namespace
}  // namespace mpm::test
