// How a console's connection ends: by the client, by the firmware, and by what is not TLS or HTTP.
#include "tests/unit/firmware/DashFixture.h"

namespace mpm::test {
namespace {

class DashEndTest : public DashFixture {
  protected:
    // Sends a request and returns everything that the client receives until the firmware ends the connection.
    std::string AskUntilTheEnd(TlsClient& client, const std::string& request) {
        client.Write(request);
        Packet(client.TakeWire());
        return ReadUntilTheEnd(client);
    }
    std::string ReadUntilTheEnd(TlsClient& client) {
        std::string plain;
        for (;;) {
            const auto message = m_host.AwaitMessage();
            if (!message || (*message)[message->size() - 2] == MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET) {
                EXPECT_TRUE(message) << "the firmware does not end the connection";
                return plain;
            }
            ++m_payloads;
            client.GiveWire(PayloadOf(message, MPM_ZEL_CMD_DASH_DATA));
            plain += client.Read();
        }
    }
    static std::string Http10(const std::string& extraHeaders = "") {
        std::string post = Post(extraHeaders);
        return post.replace(post.find("1.1"), 3, "1.0");
    }
    static size_t Count(const std::string& text, const std::string& part) {
        size_t count = 0;
        for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size())
            ++count;
        return count;
    }

    int m_payloads = 0;
};

TEST_F(DashEndTest, EndsTheConnectionBehindTheAnswerWhenTheClientAsksForTheEnd) {
    TlsClient client(m_certificate);
    Handshake(client);
    const std::string answer = AskUntilTheEnd(client, Post("Connection: close\r\n"));
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n")) << answer;
    EXPECT_NE(answer.find("\r\nConnection: close\r\n"), std::string::npos) << answer;
    EXPECT_TRUE(answer.ends_with("</s:Envelope>")) << answer;
    EXPECT_TRUE(client.ServerHasClosed());
    EXPECT_EQ(m_payloads, 1);
    ExpectSilence();
}

TEST_F(DashEndTest, EndsTheConnectionOfAnOldClientUnlessItAsksToKeepIt) {
    TlsClient client(m_certificate);
    Handshake(client);
    for (int i = 0; i < 2; ++i) {
        const std::string kept = Ask(client, Http10("Connection: keep-alive\r\n"));
        EXPECT_NE(kept.find("\r\nConnection: keep-alive\r\n"), std::string::npos) << kept;
    }
    ExpectSilence();
    const std::string answer = AskUntilTheEnd(client, Http10());
    EXPECT_NE(answer.find("\r\nConnection: close\r\n"), std::string::npos) << answer;
    EXPECT_TRUE(client.ServerHasClosed());
}

TEST_F(DashEndTest, EndsTheConnectionAfterWhatIsNotHttp) {
    TlsClient client(m_certificate);
    Handshake(client);
    EXPECT_TRUE(AskUntilTheEnd(client, "hello\r\n\r\n").starts_with("HTTP/1.1 400 Bad Request\r\n"));
    EXPECT_TRUE(client.ServerHasClosed());
}

TEST_F(DashEndTest, AnswersABrokenStreamWithOneAlertAndEndsTheConnection) {
    TlsClient client(m_certificate);
    Handshake(client);
    Packet(std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'x'));
    EXPECT_EQ(ReadUntilTheEnd(client), "");
    EXPECT_EQ(client.AlertHeard(), "bad record mac");
    client.Write(Post());
    Packet(client.TakeWire());
    ExpectSilence();
}

TEST_F(DashEndTest, EndsTheConnectionAfterAClientsFatalAlert) {
    TlsClient client(m_certificate);
    client.Connect();
    Exchange(client);
    Packet(std::string("\x15\x03\x03\x00\x02\x02\x2a", 7));  // fatal, bad certificate
    EXPECT_EQ(ReadUntilTheEnd(client), "");
}

TEST_F(DashEndTest, EndsTheConnectionOfWhatIsNotTlsWithoutAnAnswer) {
    AnnounceConnection();
    Packet("GET / HTTP/1.1\r\n\r\n");
    ExpectEnd();
    Packet("\x16\x03\x01 more");
    ExpectSilence();
    AnnounceConnection();
    TlsClient client(m_certificate);
    ExpectIdentified(client);
}

TEST_F(DashEndTest, SendsAllOfALongAnswerBeforeTheEnd) {
    TlsClient client(m_certificate);
    Handshake(client);
    std::string requests;
    for (int i = 0; i < 200; ++i)
        requests += Post();
    const std::string answers = AskUntilTheEnd(client, requests + Post("Connection: close\r\n"));
    EXPECT_EQ(Count(answers, "</s:Envelope>"), 201u);
    EXPECT_GT(answers.size(), kMaxMessagePayload);
    EXPECT_TRUE(client.ServerHasClosed());
    // The end of TLS is a message of its own behind the two of the answers: the host takes it when it has
    // sent them.
    EXPECT_EQ(m_payloads, 3);
}

TEST_F(DashEndTest, DoesNotCloseWhileTheClientStillSends) {
    m_firmware.Change([](Settings& settings) { settings.DashPause = 300; });
    TlsClient client(m_certificate);
    Handshake(client);
    client.Write("POST /wsman HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\n");
    Exchange(client);
    EXPECT_TRUE(client.Read().starts_with("HTTP/1.1 413 "));
    for (int i = 0; i < 8; ++i) {
        Packet(std::string(1000, 'x'));
        EXPECT_FALSE(m_host.AwaitMessage(std::chrono::milliseconds(75)));
    }
    ExpectEnd();
}

TEST_F(DashEndTest, AnswersTheEndOfAClientThatStays) {
    TlsClient client(m_certificate);
    ExpectIdentified(client);
    client.Close();
    Packet(client.TakeWire());
    EXPECT_EQ(ReadUntilTheEnd(client), "");
    EXPECT_TRUE(client.ServerHasClosed());
    ExpectSilence();
}

TEST_F(DashEndTest, SaysNothingMoreToAClientThatHasGone) {
    TlsClient client(m_certificate);
    ExpectIdentified(client);
    client.Close();
    Packet(client.TakeWire());
    CloseConnection();
    ExpectEnd();
    ExpectSilence();
}

TEST_F(DashEndTest, EndsAClosedConnectionItselfFromVersion45On) {
    m_firmware.Change([](Settings& settings) { settings.uVORKVersion = 45; });
    CloseConnection();
    ExpectEnd();
}

TEST_F(DashEndTest, LeavesTheEndToTheHostBelowVersion45OrWhenToldTo) {
    m_firmware.Change([](Settings& settings) { settings.uVORKVersion = 44; });
    CloseConnection();
    m_firmware.Change([](Settings& settings) {
        settings.uVORKVersion = 45;
        settings.EndsClosedSessions = false;
    });
    CloseConnection();
    ExpectSilence();
}

TEST_F(DashEndTest, EndsEachConnectionOnlyOnce) {
    AnnounceConnection();
    CloseConnection();
    ExpectEnd();
    CloseConnection();
    ExpectSilence();
    AnnounceConnection();
    m_firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    ExpectEnd();
    CloseConnection();
    ExpectSilence();
    AnnounceConnection();
    CloseConnection();
    ExpectEnd();
}

TEST_F(DashEndTest, DoesNotEndAConnectionThatTheFirmwareHasEnded) {
    AnnounceConnection();
    TlsClient client(m_certificate);
    Handshake(client);
    AskUntilTheEnd(client, Post("Connection: close\r\n"));
    CloseConnection();
    ExpectSilence();
}

}  // namespace
}  // namespace mpm::test
