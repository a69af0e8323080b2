// Large requests and messages through the memory that a host shares with the firmware.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "mailbox/MailboxCodes.h"
#include "testbed/Sockets.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

using mpmlink::Header;
using mpmlink::Kind;
using mpmlink::LargeRequest;
using mpmlink::LinkMemory;

constexpr uint32_t kSize = 100'000;

std::vector<uint8_t> Filled(uint8_t value) {
    return std::vector<uint8_t>(kSize, value);
}

class LinkMemoryTest : public testing::Test {
  protected:
    LinkMemoryTest() {
        m_firmware.OnDash([this](std::span<const uint8_t> bytes) {
            m_taken.insert(m_taken.end(), bytes.begin(), bytes.end());
        });
    }
    ~LinkMemoryTest() override {
        EXPECT_EQ(LinkHost(m_firmware.Address()).Ask(MailboxCode::GetMPMStatus, {}, 1).error, 0u);
    }

    void Offer(const testbed::Descriptor& file) {
        m_memory = testbed::SharedMemory<LinkMemory>(file);
        m_host.OfferMemory(file);
        EXPECT_TRUE(m_firmware.AwaitHostListening());
    }
    void Offer() { Offer(testbed::MakeMemoryFile(sizeof(LinkMemory))); }

    void PostLarge(uint32_t id, uint32_t position, uint32_t size) {
        m_host.SendBytes(Bytes::Of(
            LargeRequest{{8, Kind::LargeRequest, id, MailboxCode::WriteDASHPacket, 0}, position, size}));
    }
    void ExpectRefused() {
        PostLarge(1, 0, kSize);
        EXPECT_TRUE(m_host.AwaitClosed());
    }
    // What the firmware sends next: its bytes, and whether they came through memory.
    std::pair<std::vector<uint8_t>, bool> Next() {
        const auto frame = m_host.AwaitFrame();
        if (frame.header.kind != Kind::LargeMessage) return {frame.payload, false};
        const auto bytes = m_memory->toHost.Get(frame.header.id, frame.header.value);
        const std::vector<uint8_t> message(bytes.begin(), bytes.end());
        m_memory->toHost.Release(frame.header.id, frame.header.value);
        return {message, true};
    }

    ListeningFirmware m_firmware;
    LinkHost m_host{m_firmware.Address()};
    testbed::SharedMemory<LinkMemory> m_memory;
    std::vector<uint8_t> m_taken;
};

TEST_F(LinkMemoryTest, TakesTheInputOfALargeRequestAndReleasesIt) {
    Offer();
    const auto first = Filled(1), second = Filled(2);
    const auto firstAt = m_memory->toFirmware.Put(first), secondAt = m_memory->toFirmware.Put(second);
    ASSERT_TRUE(firstAt && secondAt);
    PostLarge(1, *firstAt, kSize);
    PostLarge(2, *secondAt, kSize);
    EXPECT_TRUE(m_host.AwaitResponse(1));
    EXPECT_TRUE(m_host.AwaitResponse(2));
    // Answered after both: what they brought has been released.
    EXPECT_EQ(m_host.Ask(MailboxCode::GetMPMStatus, {}, 1).error, 0u);
    EXPECT_EQ(m_memory->toFirmware.Put(first), firstAt);
    ASSERT_EQ(m_taken.size(), 2 * kSize);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), m_taken.begin()));
    EXPECT_TRUE(std::equal(second.begin(), second.end(), m_taken.begin() + kSize));
}

TEST_F(LinkMemoryTest, SendsLargeMessagesThroughItAndKeepsTheOrderWhenItIsFull) {
    Offer();
    constexpr int kCount = 30;
    for (int i = 0; i < kCount; ++i) {
        m_firmware.Send(MPM_ZEL_CMD_KVM_DATA, Filled(uint8_t(i)));
        m_firmware.Send(MPM_ZEL_CMD_KVM_DATA, Bytes(std::string(1, char(i))));
    }
    int throughMemory = 0;
    for (int i = 0; i < kCount; ++i) {
        const auto [large, wasInMemory] = Next();
        throughMemory += wasInMemory;
        ASSERT_EQ(large.size(), kSize + kMailboxTrailerSize);
        EXPECT_EQ(large.front(), i);
        EXPECT_EQ(large[kSize - 1], i);
        EXPECT_EQ(large[kSize], MPM_ZEL_CMD_KVM_DATA);
        const auto [small, smallWasInMemory] = Next();
        EXPECT_FALSE(smallWasInMemory);
        ASSERT_EQ(small.size(), 1 + kMailboxTrailerSize);
        EXPECT_EQ(small.front(), i);
    }
    EXPECT_GE(throughMemory, 20);
    EXPECT_LT(throughMemory, kCount);
}

TEST_F(LinkMemoryTest, RefusesALargeRequestWithoutMemory) {
    ExpectRefused();
}

TEST_F(LinkMemoryTest, RefusesMemoryThatIsTooShort) {
    m_host.OfferMemory(testbed::MakeMemoryFile(sizeof(LinkMemory) - 1));
    ExpectRefused();
}

TEST_F(LinkMemoryTest, RefusesMemoryThatTheHostCouldShorten) {
    const testbed::Descriptor file(memfd_create("open", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    ASSERT_EQ(ftruncate(file.Get(), sizeof(LinkMemory)), 0);
    m_host.OfferMemory(file);
    ExpectRefused();
}

TEST_F(LinkMemoryTest, RefusesAFileThatIsNoMemory) {
    m_host.OfferMemory(testbed::Descriptor(open("/dev/null", O_RDWR | O_CLOEXEC)));
    ExpectRefused();
}

TEST_F(LinkMemoryTest, RefusesInputThatIsNotInTheRing) {
    for (const auto& [position, size] : {std::pair(testbed::SharedRing::kSize - 10, 11u),
                                         std::pair(0u, mpmlink::kMaxPayload + 1), std::pair(0u, 0u)}) {
        LinkHost host(m_firmware.Address());
        host.OfferMemory(testbed::MakeMemoryFile(sizeof(LinkMemory)));
        host.SendBytes(Bytes::Of(
            LargeRequest{{8, Kind::LargeRequest, 1, MailboxCode::WriteDASHPacket, 0}, position, size}));
        EXPECT_TRUE(host.AwaitClosed()) << position << " " << size;
    }
}

TEST_F(LinkMemoryTest, RefusesALargeRequestOfAnotherSize) {
    Offer();
    m_host.SendBytes(Bytes::Of(Header{0, Kind::LargeRequest, 1, MailboxCode::WriteDASHPacket, 0}));
    EXPECT_TRUE(m_host.AwaitClosed());
}

TEST_F(LinkMemoryTest, SurvivesRandomPositions) {
    std::mt19937 random(77);
    for (int round = 0; round < 300; ++round) {
        LinkHost host(m_firmware.Address());
        host.OfferMemory(testbed::MakeMemoryFile(sizeof(LinkMemory)));
        for (int i = 0; i < 5; ++i)
            host.SendBytes(Bytes::Of(LargeRequest{{8, Kind::LargeRequest, 1, MailboxCode::WriteDASHPacket, 0},
                                                  uint32_t(random()),
                                                  uint32_t(random() >> random() % 32)}));
    }
}

TEST(SocketsTest, ReceivesTheFirstOfSeveralFilesAndKeepsNoOther) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const testbed::Descriptor sender(pair[0]), receiver(pair[1]);
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openFiles();
    alignas(cmsghdr) char control[CMSG_SPACE(3 * sizeof(int))] = {};
    char byte = 'x';
    iovec part{&byte, 1};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    *header = {CMSG_LEN(3 * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    const int files[] = {pair[0], pair[0], pair[0]};
    std::memcpy(CMSG_DATA(header), files, sizeof files);
    ASSERT_EQ(sendmsg(sender.Get(), &message, 0), 1);
    {
        testbed::Descriptor file;
        EXPECT_EQ(testbed::ReceiveWithFile(receiver, &byte, 1, file), 1);
        EXPECT_TRUE(file);
    }
    EXPECT_EQ(openFiles(), before);
}

TEST(SocketsTest, RecognizesAUnixSocket) {
    ListeningFirmware firmware;
    EXPECT_TRUE(testbed::IsUnix(testbed::ConnectUnix(firmware.Address().substr(5))));
    const testbed::Descriptor listener = testbed::ListenTcp(0, 1);
    EXPECT_FALSE(testbed::IsUnix(testbed::ConnectTcp(testbed::PortOf(listener))));
}

}  // namespace
}  // namespace mpm::test
