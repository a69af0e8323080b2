// How the firmware's messages reach the host.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "firmware/link/LinkServer.h"
#include "mailbox/MailboxRecords.h"
#include "testbed/Sockets.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

class MessagesTest : public testing::Test {
  protected:
    void Listen() {
        m_host->Listen();
        ASSERT_TRUE(m_firmware.AwaitHostListening());
    }

    ListeningFirmware m_firmware;
    std::optional<LinkHost> m_host{std::in_place, m_firmware.Address()};
};

TEST_F(MessagesTest, CarryTheCommandBehindThePayload) {
    Listen();
    m_firmware.Send(MPM_ZEL_CMD_DASH_DATA, "abc", 0x5A);
    EXPECT_EQ(m_host->AwaitMessage(), (std::vector<uint8_t>{'a', 'b', 'c', 8, 0x5A}));
}

TEST_F(MessagesTest, MayHaveAnEmptyPayload) {
    Listen();
    m_firmware.Send(MPM_ZEL_CMD_S0i3_RESUME);
    EXPECT_EQ(m_host->AwaitMessage(), (std::vector<uint8_t>{37, 0}));
}

TEST_F(MessagesTest, MayHaveAnySize) {
    Listen();
    for (const size_t size : {size_t(0), size_t(1), size_t(2), kMailboxBufferSize, kMailboxBufferSize + 1,
                              size_t(mpmlink::kMaxPayload)}) {
        m_firmware.SendRaw(std::vector<uint8_t>(size, 7));
        const auto message = m_host->AwaitMessage();
        ASSERT_TRUE(message) << size;
        EXPECT_EQ(message->size(), size);
    }
    EXPECT_THROW(m_firmware.SendRaw(std::vector<uint8_t>(mpmlink::kMaxPayload + 1)), std::length_error);
}

TEST_F(MessagesTest, KeepTheOrderInWhichTheyWereSent) {
    Listen();
    for (uint8_t i = 0; i < 200; ++i)
        m_firmware.Send(MPM_ZEL_CMD_KVM_DATA, {i});
    for (uint8_t i = 0; i < 200; ++i)
        EXPECT_EQ(m_host->AwaitMessage(), (std::vector<uint8_t>{i, 9, 0}));
}

TEST_F(MessagesTest, WaitForAHostThatListens) {
    m_firmware.Send(MPM_ZEL_CMD_DASH_DATA, "first");
    m_firmware.Send(MPM_ZEL_CMD_DASH_DATA, "second");
    EXPECT_FALSE(m_firmware.HostListening());
    Listen();
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8), "first");
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8), "second");
}

TEST_F(MessagesTest, MakeRoomForNewerOnesWhenTooManyWait) {
    for (size_t i = 0; i < kMaxWaitingMessages + 2; ++i)
        m_firmware.Send(MPM_ZEL_CMD_DASH_DATA, {uint8_t(i)});
    Listen();
    for (size_t i = 2; i < kMaxWaitingMessages + 2; ++i)
        EXPECT_EQ(m_host->AwaitMessage(), (std::vector<uint8_t>{uint8_t(i), 8, 0}));
    EXPECT_FALSE(m_host->AwaitMessage(kSoon));
}

TEST_F(MessagesTest, AreDroppedWithANoteWhenAListeningHostDoesNotRead) {
    Listen();
    std::vector<std::string> notes;
    m_firmware.Observe([&notes](const Event& event) {
        if (event.kind == Event::Kind::Note) notes.push_back(event.text);
    });
    const std::vector<uint8_t> block(kMaxMessagePayload);
    for (size_t sent = 0; sent < kMaxUnreadBytes + (4u << 20); sent += block.size())
        m_firmware.Send(MPM_ZEL_CMD_KVM_DATA, block);
    m_firmware.Observe(nullptr);
    EXPECT_FALSE(notes.empty());
    for (const std::string& note : notes)
        EXPECT_EQ(note, "a message is lost: the host does not read");
    m_firmware.Send(MPM_ZEL_CMD_KVM_DATA, "still received");
    std::string last;
    while (last != "still received") {
        const auto message = m_host->AwaitMessage();
        ASSERT_TRUE(message);
        last = message->size() < 100 ? PayloadOf(message, 9) : "";
    }
}

TEST_F(MessagesTest, GoToTheHandleThatBeganToReadLast) {
    Listen();
    LinkHost second(m_firmware.Address());
    second.Listen();
    second.Ask(MailboxCode::GetMPMStatus, {}, 1);  // by now the firmware has seen the frame before
    m_firmware.Send(MPM_ZEL_CMD_DASH_DATA, "x");
    EXPECT_EQ(PayloadOf(second.AwaitMessage(), 8), "x");
    EXPECT_FALSE(m_host->AwaitMessage(kSoon));
}

TEST_F(MessagesTest, WaitAgainOnceTheListenerHasGone) {
    Listen();
    m_host->Close();
    LinkHost second(m_firmware.Address());
    while (m_firmware.HostListening())
        second.Ask(MailboxCode::GetMPMStatus, {}, 1);
    m_firmware.Send(MPM_ZEL_CMD_DASH_DATA, "kept");
    second.Listen();
    EXPECT_EQ(PayloadOf(second.AwaitMessage(), 8), "kept");
}

TEST_F(MessagesTest, SplitALongStreamBelowTheHostsBuffer) {
    Listen();
    std::string bytes(2 * kMaxMessagePayload + 5, 'q');
    m_firmware.SendDash(bytes);
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8).size(), kMaxMessagePayload);
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8).size(), kMaxMessagePayload);
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8).size(), 5u);
}

TEST_F(MessagesTest, MayBeSentFromTheFunctionThatTakesDashBytes) {
    m_firmware.OnDash([this](std::span<const uint8_t> bytes) {
        m_firmware.SendDash(std::string(bytes.rbegin(), bytes.rend()));
    });
    Listen();
    EXPECT_EQ(m_host->Ask(MailboxCode::WriteDASHPacket, "abc").error, 0u);
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8), "cba");
}

TEST_F(MessagesTest, ComeBackUnchangedInEchoMode) {
    m_firmware.Change([](Settings& settings) { settings.Dash = settings.Kvm = Peer::Echo; });
    Listen();
    m_host->Ask(MailboxCode::WriteDASHPacket, "dash");
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8), "dash");
    m_host->Ask(MailboxCode::WriteKVMPacket, "kvm");
    EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 9), "kvm");
}

class EchoPaceTest : public MessagesTest {
  protected:
    EchoPaceTest() {
        m_firmware.Change([](Settings& settings) { settings.Dash = Peer::Echo; });
        Listen();
    }
    // Sends packets until one is not answered, and returns its id.
    uint32_t SendUntilHeldBack() {
        for (; m_sent < 1000; ++m_sent) {
            const uint32_t id = m_requests.Post(MailboxCode::WriteDASHPacket, m_block);
            if (!m_requests.AwaitResponse(id, kSoon)) return ++m_sent, id;
        }
        ADD_FAILURE() << "never held back";
        return 0;
    }
    LinkHost m_requests{m_firmware.Address()};
    const std::string m_block = std::string(kMaxMessagePayload, 'e');
    size_t m_sent = 0;
};

TEST_F(EchoPaceTest, HoldsTheSenderBackUntilTheHostReads) {
    const uint32_t held = SendUntilHeldBack();
    for (size_t i = 0; i < m_sent; ++i)
        EXPECT_EQ(PayloadOf(m_host->AwaitMessage(), 8), m_block);
    EXPECT_TRUE(m_requests.AwaitResponse(held));
}

TEST_F(EchoPaceTest, HoldsNobodyBackForAReaderThatHasGone) {
    const uint32_t held = SendUntilHeldBack();
    m_host->Close();
    EXPECT_TRUE(m_requests.AwaitResponse(held));
}

TEST_F(MessagesTest, WorkOverTcpToo) {
    Firmware firmware;
    firmware.Listen("tcp:127.0.0.1:0");
    EXPECT_NE(firmware.Address(), "tcp:127.0.0.1:0");
    LinkHost host(firmware.Address());
    EXPECT_EQ(host.Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1})).error, 0u);
}

TEST(ListenTest, RefusesAnAddressThatIsNone) {
    Firmware firmware;
    for (const char* address :
         {"", "unix:", "tcp:127.0.0.1", "tcp:127.0.0.1:x", "tcp:localhost:1", "udp:1", "tcp:127.0.0.1:99999"})
        EXPECT_THROW(firmware.Listen(address), std::invalid_argument) << address;
}

TEST(ListenTest, FailsWhereItMayNotListen) {
    Firmware firmware;
    EXPECT_THROW(firmware.Listen("unix:/nonexistent/folder/x"), std::runtime_error);
}

TEST(ListenTest, LeavesAnAddressInUseToItsOwner) {
    for (const std::string& address : {std::string("tcp:127.0.0.1:0"), FreshAddress()}) {
        Firmware first;
        first.Listen(address);
        Firmware second;
        try {
            second.Listen(first.Address());
            ADD_FAILURE() << address;
        } catch (const std::runtime_error& refusal) {
            EXPECT_EQ(refusal.what(), "cannot listen on \"" + first.Address() + "\": it is in use");
        }
        LinkHost host(first.Address());
        host.Listen();
        EXPECT_TRUE(first.AwaitHostListening());
    }
}

TEST(ListenTest, TakesThePlaceOfASocketThatWasLeftBehind) {
    const std::string address = FreshAddress();
    testbed::ListenUnix(address.substr(5), 1).Close();
    Firmware firmware;
    firmware.Listen(address);
    LinkHost host(firmware.Address());
    host.Listen();
    EXPECT_TRUE(firmware.AwaitHostListening());
}

TEST(ListenTest, LeavesAFileThatIsNoSocket) {
    const std::string address = FreshAddress();
    std::ofstream(address.substr(5)) << "text";
    Firmware firmware;
    EXPECT_THROW(firmware.Listen(address), std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(address.substr(5)));
    std::filesystem::remove(address.substr(5));
}

}  // namespace
}  // namespace mpm::test
