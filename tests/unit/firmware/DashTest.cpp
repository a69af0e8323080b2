// WS-Management over TLS in the packets of the mailbox, as a console's bytes come through the host.
#include <random>

#include "tests/unit/firmware/DashFixture.h"

namespace mpm::test {
namespace {

class DashTest : public DashFixture {};

TEST_F(DashTest, IdentifiesItselfToATlsClientThatTrustsItsCertificate) {
    AnnounceConnection();
    TlsClient client(m_certificate);
    Handshake(client);
    const std::string answer = Ask(client, Post());
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n")) << answer;
    EXPECT_NE(answer.find("<wsmid:ProductVendor>Tarvix</wsmid:ProductVendor>"), std::string::npos) << answer;
    EXPECT_NE(answer.find("<wsmid:ProductVersion>5.0.0.100</wsmid:ProductVersion>"), std::string::npos)
        << answer;
}

TEST_F(DashTest, SpeaksTls12Too) {
    TlsClient client(m_certificate, TLS1_2_VERSION);
    ExpectIdentified(client);
}

TEST_F(DashTest, RefusesOlderTlsWithAnAlert) {
    TlsClient client(m_certificate, TLS1_1_VERSION);
    EXPECT_FALSE(client.Connect());
    // The client's own library may refuse to speak so old a version at all.
    const std::vector<uint8_t> hello = client.TakeWire();
    if (hello.empty() || hello.front() != 0x16) return;
    Packet(hello);
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA).front(), 0x15);
}

TEST_F(DashTest, AnswersEachFlightInOneMessage) {
    TlsClient client(m_certificate);
    client.Connect();
    Exchange(client);
    EXPECT_TRUE(client.Connect());
    Exchange(client);
    EXPECT_EQ(client.Read(), "");
    EXPECT_TRUE(client.HasTicket());  // sent although the client has not asked for anything yet
    EXPECT_NE(Ask(client, Post()).find("IdentifyResponse"), std::string::npos);
    ExpectSilence();
}

TEST_F(DashTest, SendsTheTicketsInTheMessageOfAnAnswerThatIsDue) {
    TlsClient client(m_certificate);
    Handshake(client);
    EXPECT_NE(Ask(client, Post()).find("IdentifyResponse"), std::string::npos);
    EXPECT_TRUE(client.HasTicket());
    ExpectSilence();
}

TEST_F(DashTest, SendsNoTicketsToAClientThatHasGone) {
    TlsClient client(m_certificate);
    Handshake(client);
    client.Close();
    Packet(client.TakeWire());
    CloseConnection();
    ExpectEnd();
    ExpectSilence();
}

TEST_F(DashTest, ResumesASession) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        AnnounceConnection();
        TlsClient first(m_certificate, version);
        ExpectIdentified(first);
        EXPECT_FALSE(first.HasResumed());
        AnnounceConnection();
        TlsClient second(m_certificate, version);
        second.Resume(first);
        ExpectIdentified(second);
        EXPECT_TRUE(second.HasResumed()) << version;
    }
}

TEST_F(DashTest, KeepsTheConnectionForFurtherRequests) {
    TlsClient client(m_certificate);
    Handshake(client);
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(Ask(client, Post()).find("IdentifyResponse"), std::string::npos);
}

TEST_F(DashTest, TakesTlsRecordsInPieces) {
    TlsClient client(m_certificate);
    Handshake(client);
    client.Write(Post());
    const std::vector<uint8_t> wire = client.TakeWire();
    for (size_t at = 0; at < wire.size(); at += 50)
        Packet(std::span(wire).subspan(at, std::min<size_t>(50, wire.size() - at)));
    client.GiveWire(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA));
    EXPECT_NE(client.Read().find("IdentifyResponse"), std::string::npos);
}

TEST_F(DashTest, BeginsAgainOnTheSameConnectionAfterAnOrderlyEnd) {
    TlsClient first(m_certificate);
    ExpectIdentified(first);
    first.Close();
    Packet(first.TakeWire());
    TlsClient second(m_certificate);
    ExpectIdentified(second);
}

TEST_F(DashTest, DropsAHalfFinishedHandshakeWhenANewConnectionComes) {
    TlsClient first(m_certificate);
    first.Connect();
    Exchange(first);
    AnnounceConnection();
    TlsClient second(m_certificate);
    ExpectIdentified(second);
}

TEST_F(DashTest, BeginsAfreshAfterTheHostHasClosed) {
    TlsClient first(m_certificate);
    ExpectIdentified(first);
    m_firmware.Change([](Settings& settings) { settings.uVORKVersion = 44; });
    CloseConnection();
    TlsClient second(m_certificate);
    ExpectIdentified(second);
}

TEST_F(DashTest, IsNotDisturbedByAnAddressReportOrAKvmConnection) {
    TlsClient client(m_certificate);
    Handshake(client);
    IPCompleteInfo report{};
    report.Port = 623;
    EXPECT_EQ(m_host.Ask(MailboxCode::WriteIPCompleteInformation, Bytes::Of(report)).error, 0u);
    AnnounceConnection(22);
    CloseConnection(22);
    EXPECT_NE(Ask(client, Post()).find("IdentifyResponse"), std::string::npos);
}

TEST_F(DashTest, KeepsAConnectionWhenOtherSettingsChange) {
    TlsClient client(m_certificate);
    ExpectIdentified(client);
    m_firmware.Change([](Settings& settings) {
        settings.ProductVendor = "Another";
        settings.Kvm = Peer::Echo;
    });
    EXPECT_NE(Ask(client, Post()).find("Another"), std::string::npos);
}

TEST_F(DashTest, BeginsAnewWhenTheSettingsOfDashChange) {
    TlsClient client(m_certificate);
    ExpectIdentified(client);
    m_firmware.Change([](Settings& settings) { settings.DashPause = 0; });
    client.Write(Post());
    Packet(client.TakeWire());
    ExpectEnd();
}

TEST_F(DashTest, SurvivesRandomAndMutatedTlsBytes) {
    std::mt19937 random(99);
    m_firmware.Change([](Settings& settings) { settings.DashPause = 0; });
    for (int round = 0; round < 300; ++round) {
        AnnounceConnection();
        TlsClient client(m_certificate);
        client.Connect();
        std::vector<uint8_t> bytes = client.TakeWire();
        if (round % 3 == 0) bytes.assign(1 + random() % 3000, 0x16);
        const size_t first = round % 5 == 0 ? 0 : 1;  // mostly something that begins like TLS
        for (int i = 0; i < 1 + round % 30; ++i)
            bytes[first + random() % (bytes.size() - first)] = uint8_t(random());
        Packet(bytes);
    }
    while (m_host.AwaitMessage(std::chrono::milliseconds(50)))
        ;
    AnnounceConnection();
    TlsClient client(m_certificate);
    ExpectIdentified(client);
}

TEST_F(DashTest, SurvivesRandomPlainBytesInsideTls) {
    std::mt19937 random(3);
    // The end of one connection does not come before the next begins.
    m_firmware.Change([](Settings& settings) { settings.DashPause = 60'000; });
    for (int round = 0; round < 30; ++round) {
        AnnounceConnection();
        TlsClient client(m_certificate);
        Handshake(client);
        std::string bytes(1 + random() % 2000, ' ');
        for (char& c : bytes)
            c = char(random());
        EXPECT_TRUE(Ask(client, bytes).starts_with("HTTP/1.1 400 Bad Request"));
        EXPECT_TRUE(client.ServerHasClosed());
    }
}

}  // namespace
}  // namespace mpm::test
