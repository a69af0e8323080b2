// HTTP as the DASH endpoint speaks it.
#include "firmware/dash/HttpConnection.h"

#include <gtest/gtest.h>

#include <random>

namespace mpm::test {
namespace {

HttpResponse Reflect(const HttpRequest& request) {
    return {200, "text/plain", request.method + " " + request.target + " [" + request.body + "]", {}};
}

class HttpConnectionTest : public testing::Test {
  protected:
    std::string Status(const std::string& answer) { return answer.substr(0, answer.find('\r')); }
    static bool Has(const std::string& answer, const std::string& part) {
        return answer.find(part) != answer.npos;
    }

    HttpConnection m_http{Reflect};
};

const std::string kPost = "POST /wsman HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\n\r\nabc";

TEST_F(HttpConnectionTest, AnswersARequestAndStaysOpen) {
    for (int i = 0; i < 3; ++i) {
        const std::string answer = m_http.Feed(kPost);
        EXPECT_EQ(Status(answer), "HTTP/1.1 200 OK");
        EXPECT_TRUE(Has(answer, "Content-Length: 17\r\n")) << answer;
        EXPECT_TRUE(answer.ends_with("\r\n\r\nPOST /wsman [abc]")) << answer;
        EXPECT_FALSE(m_http.Ended());
    }
}

TEST_F(HttpConnectionTest, TakesARequestByteByByte) {
    std::string answer;
    for (const char c : kPost)
        answer += m_http.Feed({&c, 1});
    EXPECT_TRUE(answer.ends_with("POST /wsman [abc]")) << answer;
}

TEST_F(HttpConnectionTest, AnswersPipelinedRequestsInOrder) {
    const std::string answer = m_http.Feed(kPost + "GET /second HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_LT(answer.find("POST /wsman [abc]"), answer.find("GET /second []"));
}

TEST_F(HttpConnectionTest, TakesAChunkedBody) {
    const std::string answer = m_http.Feed(
        "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: "
        "chunked\r\n\r\n2\r\nab\r\n3;x=y\r\ncde\r\n0\r\n\r\n");
    EXPECT_TRUE(answer.ends_with("POST / [abcde]")) << answer;
}

TEST_F(HttpConnectionTest, ClosesWhenTheClientAsks) {
    const std::string answer = m_http.Feed("GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n" + kPost);
    EXPECT_TRUE(Has(answer, "Connection: close\r\n")) << answer;
    EXPECT_FALSE(Has(answer, "abc"));
    EXPECT_TRUE(m_http.Ended());
    EXPECT_EQ(m_http.Feed(kPost), "");
}

TEST_F(HttpConnectionTest, KeepsAnOldClientOnlyWhenItAsks) {
    const std::string kept = m_http.Feed("GET / HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n");
    EXPECT_TRUE(Has(kept, "\r\nConnection: keep-alive\r\n")) << kept;
    EXPECT_FALSE(m_http.Ended());
    EXPECT_TRUE(Has(m_http.Feed("GET / HTTP/1.0\r\n\r\n"), "\r\nConnection: close\r\n"));
    EXPECT_TRUE(m_http.Ended());
}

TEST_F(HttpConnectionTest, DoesNotInviteTheBodyOfAnOldClient) {
    EXPECT_EQ(m_http.Feed("POST / HTTP/1.0\r\nConnection: keep-alive\r\nExpect: 100-continue\r\n"
                          "Content-Length: 3\r\n\r\n"),
              "");
    HttpConnection closing(Reflect);
    EXPECT_EQ(closing.Feed("POST / HTTP/1.1\r\nHost: x\r\nConnection: close\r\nExpect: 100-continue\r\n"
                           "Content-Length: 3\r\n\r\n"),
              "HTTP/1.1 100 Continue\r\n\r\n");
}

TEST_F(HttpConnectionTest, TellsAClientThatAsksToSendItsBody) {
    EXPECT_EQ(m_http.Feed("POST / HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n"),
              "HTTP/1.1 100 Continue\r\n\r\n");
    EXPECT_TRUE(m_http.Feed("abc").ends_with("POST / [abc]"));
}

TEST_F(HttpConnectionTest, HandsOverTheCredentials) {
    HttpConnection http([](const HttpRequest& request) {
        return HttpResponse{200, "", request.authorization, ""};
    });
    EXPECT_TRUE(
        http.Feed("GET / HTTP/1.1\r\nauthorization: Basic YQ==\r\n\r\n").ends_with("\r\n\r\nBasic YQ=="));
    EXPECT_TRUE(http.Feed("GET / HTTP/1.1\r\n\r\n").ends_with("\r\n\r\n"));
    EXPECT_TRUE(http.Feed("GET / HTTP/1.1\r\nAuthorization: a\r\nAuthorization: b\r\n\r\n")
                    .ends_with("\r\n\r\na, b"));
}

TEST_F(HttpConnectionTest, SpeaksNoOtherProtocol) {
    const std::string answer = m_http.Feed(
        "POST / HTTP/1.1\r\nHost: x\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nContent-Length: "
        "3\r\n\r\nabc");
    EXPECT_TRUE(answer.ends_with("POST / [abc]")) << answer;
}

TEST_F(HttpConnectionTest, EndsWith400OnWhatIsNoHttp) {
    for (const char* bytes :
         {"\r\n\r\nxyz\r\n\r\n", "GET\r\n\r\n", "POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
          "POST / HTTP/1.1\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\n",
          "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"}) {
        HttpConnection http(Reflect);
        EXPECT_EQ(Status(http.Feed(bytes)), "HTTP/1.1 400 Bad Request") << bytes;
        EXPECT_TRUE(http.Ended());
    }
}

TEST_F(HttpConnectionTest, EndsWhenTheBodyIsAnnouncedTooLong) {
    EXPECT_EQ(Status(m_http.Feed("POST / HTTP/1.1\r\nContent-Length: 65537\r\n\r\n")),
              "HTTP/1.1 413 Payload Too Large");
    EXPECT_TRUE(m_http.Ended());
}

TEST_F(HttpConnectionTest, EndsWhenChunksGrowTooLong) {
    std::string answer = m_http.Feed("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n");
    const std::string chunk = "4000\r\n" + std::string(0x4000, 'x') + "\r\n";
    for (int i = 0; i < 5 && !m_http.Ended(); ++i)
        answer += m_http.Feed(chunk);
    EXPECT_EQ(Status(answer), "HTTP/1.1 413 Payload Too Large");
}

TEST_F(HttpConnectionTest, TakesABodyOfExactlyTheLimit) {
    const std::string body(HttpConnection::kMaxBody, 'x');
    EXPECT_EQ(Status(m_http.Feed("POST / HTTP/1.1\r\nContent-Length: 65536\r\n\r\n" + body)),
              "HTTP/1.1 200 OK");
}

TEST_F(HttpConnectionTest, EndsOnTooLongATargetOrHeader) {
    EXPECT_EQ(Status(m_http.Feed("GET /" + std::string(3000, 'a') + " HTTP/1.1\r\n\r\n")),
              "HTTP/1.1 414 URI Too Long");
    HttpConnection other(Reflect);
    EXPECT_EQ(Status(other.Feed("GET / HTTP/1.1\r\nX: " + std::string(20000, 'a') + "\r\n\r\n")),
              "HTTP/1.1 431 Request Header Fields Too Large");
}

TEST_F(HttpConnectionTest, SurvivesRandomBytesAndMutatedRequests) {
    std::mt19937 random(42);
    for (int round = 0; round < 5000; ++round) {
        HttpConnection http(Reflect);
        std::string bytes = round % 2 ? kPost + kPost : std::string(random() % 200, ' ');
        for (int i = 0; i < 1 + round % 20; ++i)
            if (!bytes.empty()) bytes[random() % bytes.size()] = char(random());
        for (size_t at = 0; at < bytes.size();) {
            const size_t size = std::min<size_t>(1 + random() % 50, bytes.size() - at);
            const std::string answer = http.Feed(std::string_view(bytes).substr(at, size));
            EXPECT_TRUE(answer.empty() || answer.starts_with("HTTP/1.1 "));
            at += size;
        }
    }
}

}  // namespace
}  // namespace mpm::test
