// The firmware misbehaves as it is set to, and recovers.
#include <gtest/gtest.h>
#include <json/json.h>

#include <atomic>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

using std::chrono::milliseconds;

class FaultsTest : public testing::Test {
  protected:
    uint32_t ReportUp() {
        return m_host->Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1})).error;
    }
    uint32_t PostUp() { return m_host->Post(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1})); }

    ListeningFirmware m_firmware;
    std::optional<LinkHost> m_host{std::in_place, m_firmware.Address()};
};

TEST_F(FaultsTest, RefusesSoManyTimes) {
    m_firmware.Refuse("WriteKVMPacket", 1450, 2);
    for (const uint32_t expected : {1450u, 1450u, 0u, 0u})
        EXPECT_EQ(m_host->Ask(MailboxCode::WriteKVMPacket, "k").error, expected);
    EXPECT_EQ(m_firmware.Count("WriteKVMPacket"), 4u);
}

TEST_F(FaultsTest, RefusesForEverUntilCleared) {
    m_firmware.Refuse("writezelstatus", 5);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(ReportUp(), 5u);
    EXPECT_FALSE(m_firmware.Host()["up"].asBool());
    m_firmware.ClearFaults();
    EXPECT_EQ(ReportUp(), 0u);
    EXPECT_TRUE(m_firmware.Host()["up"].asBool());
}

TEST_F(FaultsTest, RefusesBothOperationsThatShareACode) {
    m_firmware.Refuse(MailboxCode::WriteNwInfo, 31);
    EXPECT_EQ(m_host->Ask(MailboxCode::WriteNwInfo, Bytes::Of(NwInfo{})).error, 31u);
    EXPECT_EQ(m_host->Ask(MailboxCode::WriteNwInfo, Bytes::Of(MultiNwInfo{})).error, 31u);
    m_firmware.ClearFaults();
    m_firmware.Refuse("WriteMultiNwInfo", 31);
    EXPECT_EQ(m_host->Ask(MailboxCode::WriteNwInfo, Bytes::Of(NwInfo{})).error, 0u);
}

TEST_F(FaultsTest, KnowsOnlyRequestsOfTheCatalogue) {
    EXPECT_THROW(m_firmware.Refuse("WriteNothing", 5), std::invalid_argument);
    EXPECT_THROW(m_firmware.Hold(0x12345678), std::invalid_argument);
}

TEST_F(FaultsTest, AnswersLater) {
    m_firmware.Delay("WriteZELStatus", milliseconds(50));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(ReportUp(), 0u);
    EXPECT_GE(std::chrono::steady_clock::now() - before, milliseconds(50));
    m_firmware.Delay("WriteZELStatus", milliseconds(0));
    EXPECT_EQ(ReportUp(), 0u);
}

TEST_F(FaultsTest, GoesOnWithOtherRequestsWhileOneIsDelayed) {
    m_firmware.Delay("WriteZELStatus", milliseconds(300));
    const uint32_t slow = PostUp();
    EXPECT_EQ(m_host->Ask(MailboxCode::GetMPMStatus, {}, 1).output.at(0), 2);
    EXPECT_TRUE(m_host->AwaitResponse(slow));
    EXPECT_EQ(m_host->Ask(MailboxCode::GetMPMStatus, {}, 1).output.at(0), 1);
}

TEST_F(FaultsTest, HoldsUntilReleased) {
    m_firmware.Hold("WriteZELStatus");
    const uint32_t held = PostUp();
    ASSERT_TRUE(m_firmware.AwaitRequest("WriteZELStatus"));
    EXPECT_FALSE(m_host->AwaitResponse(held, kSoon));
    EXPECT_FALSE(m_firmware.Host()["up"].asBool());
    m_firmware.Release("WriteZELStatus");
    EXPECT_TRUE(m_host->AwaitResponse(held));
    EXPECT_TRUE(m_firmware.Host()["up"].asBool());
    EXPECT_EQ(ReportUp(), 0u);
}

TEST_F(FaultsTest, ReleasesWhatIsHeldWhenCleared) {
    m_firmware.Hold("WriteZELStatus");
    const uint32_t held = PostUp();
    ASSERT_TRUE(m_firmware.AwaitRequest("WriteZELStatus"));
    m_firmware.ClearFaults();
    EXPECT_TRUE(m_host->AwaitResponse(held));
}

TEST_F(FaultsTest, NeverAnswersACancelledRequest) {
    m_firmware.Hold("WriteZELStatus");
    const uint32_t held = PostUp();
    m_host->Cancel(held);
    m_host->Ask(MailboxCode::GetMPMStatus, {}, 1);
    m_firmware.Release("WriteZELStatus");
    EXPECT_FALSE(m_host->AwaitResponse(held, kSoon));
    EXPECT_FALSE(m_firmware.Host()["up"].asBool());
}

TEST_F(FaultsTest, ForgetsTheHeldRequestsOfAHostThatHasGone) {
    m_firmware.Hold("WriteZELStatus");
    PostUp();
    ASSERT_TRUE(m_firmware.AwaitRequest("WriteZELStatus"));
    std::atomic<bool> cancelled{false};
    m_firmware.Observe([&](const Event& event) {
        if (event.name == "cancelled") cancelled = true;
    });
    m_host->Close();
    LinkHost other(m_firmware.Address());
    for (int i = 0; i < 1000 && !cancelled; ++i)
        other.Ask(MailboxCode::GetMPMStatus, {}, 1);
    EXPECT_TRUE(cancelled);
    m_firmware.Release("WriteZELStatus");
    EXPECT_FALSE(m_firmware.Host()["up"].asBool());
}

TEST_F(FaultsTest, AnswersWithWrongLengths) {
    m_firmware.ResizeAnswer("GetZELVersion", 10);
    EXPECT_EQ(m_host->Ask(MailboxCode::GetZELVersion, {}, 80).output.size(), 10u);
    m_firmware.ResizeAnswer("GetZELVersion", 500);
    EXPECT_EQ(m_host->Ask(MailboxCode::GetZELVersion, {}, 80).output.size(), 500u);
}

TEST_F(FaultsTest, VanishesWithAllConnectionsAndComesBackAtTheSameAddress) {
    ReportUp();
    LinkHost reader(m_firmware.Address());
    reader.Listen();
    ASSERT_TRUE(m_firmware.AwaitHostListening());
    m_firmware.Vanish();
    EXPECT_TRUE(m_host->AwaitClosed());
    EXPECT_TRUE(reader.AwaitClosed());
    EXPECT_FALSE(m_firmware.HostListening());
    EXPECT_THROW(LinkHost(m_firmware.Address()), std::runtime_error);
    m_firmware.ComeBack();
    m_host.emplace(m_firmware.Address());
    EXPECT_EQ(m_host->Ask(MailboxCode::GetMPMStatus, {}, 1).output.at(0), 2);
}

TEST_F(FaultsTest, VanishesFromTcpAndComesBackAtTheSamePort) {
    Firmware firmware;
    firmware.Listen("tcp:127.0.0.1:0");
    const std::string address = firmware.Address();
    LinkHost host(address);
    host.Ask(MailboxCode::GetMPMStatus, {}, 1);
    firmware.Vanish();
    EXPECT_TRUE(host.AwaitClosed());
    firmware.ComeBack();
    EXPECT_EQ(firmware.Address(), address);
    EXPECT_EQ(LinkHost(address).Ask(MailboxCode::GetMPMStatus, {}, 1).error, 0u);
}

TEST_F(FaultsTest, MayBeOrderedByAnObserverInTheMiddleOfARequest) {
    m_firmware.Observe([this](const Event& event) {
        if (event.kind == Event::Kind::Request) m_firmware.Vanish();
    });
    PostUp();
    EXPECT_TRUE(m_host->AwaitClosed());
}

}  // namespace
}  // namespace mpm::test
