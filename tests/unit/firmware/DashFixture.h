// A simulated firmware that serves DASH, and the host that carries a console's TLS bytes to it.
#pragma once

#include <gtest/gtest.h>

#include "mailbox/MailboxRecords.h"
#include "tests/unit/firmware/LinkHost.h"
#include "tests/unit/firmware/TlsClient.h"

namespace mpm::test {

inline const std::string kIdentify =
    R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body>)"
    R"(<i:Identify xmlns:i="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd"/></s:Body></s:Envelope>)";

inline std::string Post(const std::string& extraHeaders = "") {
    return "POST /wsman HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/soap+xml;charset=UTF-8\r\n" +
           extraHeaders + "Content-Length: " + std::to_string(kIdentify.size()) + "\r\n\r\n" + kIdentify;
}

inline Settings Identifying() {
    Settings settings;
    settings.Dash = Peer::Identify;
    return settings;
}

class DashFixture : public testing::Test {
  protected:
    DashFixture() {
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
    // The command that ends the connection is the next message.
    void ExpectEnd() { EXPECT_EQ(PayloadOf(m_host.AwaitMessage(), MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET), ""); }
    void ExpectSilence() { EXPECT_FALSE(m_host.AwaitMessage(kSoon)); }

    ListeningFirmware m_firmware{Identifying()};
    LinkHost m_host{m_firmware.Address()};
    const std::string m_certificate = m_firmware.Certificate();
};

}  // namespace mpm::test
