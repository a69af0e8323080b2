// Bad and broken bytes on the link end their own connection, and nothing else.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

using mpmlink::Header;
using mpmlink::Kind;

class LinkTest : public testing::Test {
  protected:
    ~LinkTest() override {
        EXPECT_EQ(LinkHost(m_firmware.Address()).Ask(MailboxCode::GetMPMStatus, {}, 1).error, 0u);
    }
    ListeningFirmware m_firmware;
};

TEST_F(LinkTest, TakesFramesInPieces) {
    LinkHost host(m_firmware.Address());
    const Header header{4, Kind::Request, 1, MailboxCode::WriteZELStatus, 0};
    const uint8_t state[] = {1, 0, 0, 0};
    for (const uint8_t byte : Bytes::Of(header))
        host.SendBytes({&byte, 1});
    host.SendBytes({state, 2});
    host.SendBytes({state + 2, 2});
    EXPECT_TRUE(m_firmware.AwaitRequest("WriteZELStatus"));
}

TEST_F(LinkTest, TakesManyFramesAtOnce) {
    LinkHost host(m_firmware.Address());
    std::vector<uint8_t> burst;
    for (uint32_t id = 1; id <= 3000; ++id) {
        const Header header{0, Kind::Request, id, MailboxCode::GetMPMStatus, 1};
        const auto bytes = Bytes::Of(header);
        burst.insert(burst.end(), bytes.begin(), bytes.end());
    }
    host.SendBytes(burst);
    for (uint32_t id = 1; id <= 3000; ++id)
        ASSERT_TRUE(host.AwaitResponse(id)) << id;
}

TEST_F(LinkTest, ClosesOnAFrameThatIsTooLong) {
    LinkHost host(m_firmware.Address());
    host.SendBytes(Bytes::Of(Header{mpmlink::kMaxPayload + 1, Kind::Request, 1, 0, 0}));
    EXPECT_TRUE(host.AwaitClosed());
}

TEST_F(LinkTest, ClosesOnAFrameOfAKindThatAHostDoesNotSend) {
    for (const uint32_t kind : {0u, uint32_t(Kind::Response), uint32_t(Kind::Message), 99u}) {
        LinkHost host(m_firmware.Address());
        host.SendBytes(Bytes::Of(Header{0, Kind(kind), 1, 0, 0}));
        EXPECT_TRUE(host.AwaitClosed()) << kind;
    }
}

TEST_F(LinkTest, SurvivesAHostThatGoesInTheMiddleOfAFrame) {
    LinkHost host(m_firmware.Address());
    host.SendBytes(Bytes::Of(Header{1000, Kind::Request, 1, MailboxCode::WriteOsInfo, 0}));
    host.SendBytes(Bytes("abc"));
}

TEST_F(LinkTest, SurvivesRandomBytes) {
    std::mt19937 random(4711);
    for (int round = 0; round < 50; ++round) {
        LinkHost host(m_firmware.Address());
        std::vector<uint8_t> bytes(random() % 5000);
        for (uint8_t& byte : bytes)
            byte = uint8_t(random());
        host.SendBytes(bytes);
    }
}

TEST_F(LinkTest, SurvivesRandomRequests) {
    std::mt19937 random(815);
    m_firmware.Change([](Settings& settings) { settings.Dash = Peer::Identify; });
    m_firmware.Observe([](const Event& event) { EXPECT_FALSE(event.name.empty()); });
    LinkHost host(m_firmware.Address());
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> input(random() % 4 ? random() % 300 : random() % 3000);
        for (uint8_t& byte : input)
            byte = uint8_t(random());
        const uint32_t code = 0x9C416400 + (random() & 1 ? 0x4000 : 0) + (random() & 0xBC) + (random() % 2);
        host.Ask(code, input, uint32_t(random() % 2 ? 20000 : random() % 100));
    }
}

}  // namespace
}  // namespace mpm::test
