// WS-Management over TLS in the packets of the mailbox, as a console's bytes come through the host.
#include <gtest/gtest.h>

#include <random>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/firmware/LinkHost.h"
#include "tests/unit/firmware/TlsClient.h"

namespace mpm::test {
namespace {

const std::string kIdentify =
    R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body>)"
    R"(<i:Identify xmlns:i="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd"/></s:Body></s:Envelope>)";

std::string Post(const std::string& extraHeaders = "") {
    return "POST /wsman HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/soap+xml;charset=UTF-8\r\n" +
           extraHeaders + "Content-Length: " + std::to_string(kIdentify.size()) + "\r\n\r\n" + kIdentify;
}

Settings Identifying() {
    Settings settings;
    settings.Dash = Peer::Identify;
    return settings;
}

class DashTest : public testing::Test {
  protected:
    DashTest() {
        m_host.Listen();
        EXPECT_TRUE(m_firmware.AwaitHostListening());
    }

    void Packet(Bytes bytes) { EXPECT_EQ(m_host.Ask(MailboxCode::WriteDASHPacket, bytes).error, 0u); }
    // Carries the client's bytes to the firmware as one packet, and the firmware's next message back.
    void Exchange(TlsClient& client) {
        Packet(client.TakeWire());
        client.GiveWire(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA));
    }
    void Handshake(TlsClient& client) {
        for (int flights = 0; !client.Connect(); ++flights) {
            ASSERT_LT(flights, 4) << client.VerifyResult();
            Exchange(client);
        }
    }
    std::string Ask(TlsClient& client, const std::string& request) {
        client.Write(request);
        Exchange(client);
        return client.Read();
    }
    void AnnounceConnection(uint32_t port = 664) {
        IPCompleteInfo info{};
        info.Port = port;
        info.PeerAddress = 0x0100007F;
        info.PeerPort = 0x39C8;
        info.PeerMarker = 0xFFFF;
        EXPECT_EQ(m_host.Ask(MailboxCode::WriteIPCompleteInformation, Bytes::Of(info)).error, 0u);
    }
    void CloseConnection(uint16_t port = 664) {
        EXPECT_EQ(m_host.Ask(MailboxCode::WriteCloseSocketcmd, Bytes::Of(CloseSocketRecord{port})).error, 0u);
    }
    void ExpectIdentified(TlsClient& client) {
        Handshake(client);
        EXPECT_NE(Ask(client, Post()).find("IdentifyResponse"), std::string::npos);
    }
    void ExpectSilence() { EXPECT_FALSE(m_host.AwaitMessage(kSoon)); }

    ListeningFirmware m_firmware{Identifying()};
    LinkHost m_host{m_firmware.Address()};
    const std::string m_certificate = m_firmware.Certificate();
};

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
    Packet(client.TakeWire());
    ExpectSilence();  // nothing that could be overtaken by the first answer
    EXPECT_NE(Ask(client, Post()).find("IdentifyResponse"), std::string::npos);
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

TEST_F(DashTest, ClosesInTheMessageOfTheLastAnswer) {
    TlsClient client(m_certificate);
    Handshake(client);
    EXPECT_NE(Ask(client, Post("Connection: close\r\n")).find("Connection: close"), std::string::npos);
    EXPECT_TRUE(client.ServerHasClosed());
    ExpectSilence();
}

TEST_F(DashTest, SaysNothingMoreToAClientThatHasClosed) {
    TlsClient client(m_certificate);
    Handshake(client);
    client.Close();
    Packet(client.TakeWire());
    ExpectSilence();
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

TEST_F(DashTest, EndsAClosedConnectionItselfFromVersion45On) {
    m_firmware.Change([](Settings& settings) { settings.uVORKVersion = 45; });
    CloseConnection();
    EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET), "");
}

TEST_F(DashTest, LeavesTheEndToTheHostBelowVersion45OrWhenToldTo) {
    m_firmware.Change([](Settings& settings) { settings.uVORKVersion = 44; });
    CloseConnection();
    m_firmware.Change([](Settings& settings) {
        settings.uVORKVersion = 45;
        settings.EndsClosedSessions = false;
    });
    CloseConnection();
    ExpectSilence();
}

TEST_F(DashTest, GivesNoAnswerToWhatIsNotTls) {
    AnnounceConnection();
    Packet("GET / HTTP/1.1\r\n\r\n");
    Packet("\x16\x03\x01 more");
    ExpectSilence();
    AnnounceConnection();
    TlsClient client(m_certificate);
    ExpectIdentified(client);
}

TEST_F(DashTest, AnswersABrokenStreamWithOneAlertAndThenNothing) {
    TlsClient client(m_certificate);
    Handshake(client);
    Packet(std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'x'));
    client.GiveWire(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA));
    EXPECT_EQ(client.Read(), "");
    EXPECT_EQ(client.AlertHeard(), "bad record mac");
    client.Write(Post());
    Packet(client.TakeWire());
    ExpectSilence();
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
