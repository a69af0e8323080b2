// One alert on its way to real consoles, good ones and bad ones.
#include "dash/HttpsWebRequestPost.h"

#include <future>

#include "tests/support/AlertConsole.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

using namespace std::chrono_literals;
using Certificate = AlertConsole::Certificate;
using Behaviour = AlertConsole::Behaviour;

class HttpsPost : public ServiceFixture {
  protected:
    static constexpr char kHost[] = "127.0.0.1";
    static constexpr char kUri[] = "/events/alerts";
    static constexpr char kNotSent[] =
        "HttpsWebRequestPost: WinHttpSendRequest failed, Request not sent, error: ";

    // More bytes than the sockets of a connection take while the console does not read.
    static constexpr size_t kMoreThanBuffers = 16 << 20;

    static uint32_t Post(const AlertConsole& console, bool secure, const std::string& body = "<alert/>") {
        return HttpsWebRequestPost(kHost, console.Port(), kUri, secure, body.c_str());
    }
    // Posts on another thread, whose wait ends as soon as so much time has passed, and not before.
    uint32_t PostThatWaits(const AlertConsole& console, bool secure, std::chrono::milliseconds time,
                           const std::string& body = "<alert/>", size_t connections = 1) {
        auto post = std::async(std::launch::async, [&] { return Post(console, secure, body); });
        EXPECT_TRUE(console.AwaitConnections(connections));
        EXPECT_TRUE(Clock().AwaitSleeper(time, kPatience));
        Advance(time - 1ms);
        EXPECT_EQ(post.wait_for(50ms), std::future_status::timeout);
        Advance(1ms);
        if (post.wait_for(kPatience) != std::future_status::ready) {
            ADD_FAILURE() << "the post does not end";
            Clock().SetManual(false);
        }
        return post.get();
    }
    void ExpectFailure(const char* call, const std::string& line) {
        const AlertConsole console;
        Gate().FailNth(call, 1, ERROR_NOT_ENOUGH_MEMORY);
        const size_t handles = winhost::HandleTable::Instance().Size();
        EXPECT_EQ(Post(console, false), uint32_t{ERROR_NOT_ENOUGH_MEMORY}) << call;
        EXPECT_TRUE(HasLine("INFO", "HttpsWebRequestPost: " + line + ", error: 8")) << call;
        EXPECT_EQ(winhost::HandleTable::Instance().Size(), handles) << call;
        EXPECT_EQ(console.Connections(), 0u) << call;
    }
};

std::string HeadOfAlert(uint16_t port, const std::string& length) {
    return "POST /events/alerts HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
           "\r\nContent-Type: application/soap+xml;charset=UTF-8\r\nAccept: */*\r\nContent-Length: " +
           length + "\r\nConnection: Keep-Alive\r\nUser-Agent: WinHTTP Example/1.0";
}

}  // namespace

TEST_F(HttpsPost, TheHeaderBlockAndTheBodyReachTheConsole) {
    const AlertConsole console;
    EXPECT_EQ(Post(console, false, "<alert number=\"7\"/>"), 0u);
    ASSERT_TRUE(console.AwaitRequests(1));
    EXPECT_EQ(AlertConsole::HeadOf(console.Requests()[0]), HeadOfAlert(console.Port(), "19"));
    EXPECT_EQ(AlertConsole::BodyOf(console.Requests()[0]), "<alert number=\"7\"/>");
}

// As on a platform that takes no block of length 0 from that call.
TEST_F(HttpsPost, TheHeaderBlockAlsoArrivesWithTheRequestAlone) {
    const AlertConsole console;
    Gate().FailNth("WinHttpAddRequestHeaders", 1, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Post(console, false), 0u);
    ASSERT_TRUE(console.AwaitRequests(1));
    EXPECT_EQ(AlertConsole::HeadOf(console.Requests()[0]), HeadOfAlert(console.Port(), "8"));
}

TEST_F(HttpsPost, AnyCertificateWillDo) {
    for (const Certificate certificate :
         {Certificate::SelfSigned, Certificate::Expired, Certificate::WrongName}) {
        const AlertConsole console(certificate);
        EXPECT_EQ(Post(console, true), 0u) << int(certificate);
        ASSERT_TRUE(console.AwaitRequests(1)) << int(certificate);
        EXPECT_EQ(AlertConsole::HeadOf(console.Requests()[0]), HeadOfAlert(console.Port(), "8"));
        EXPECT_EQ(AlertConsole::BodyOf(console.Requests()[0]), "<alert/>");
    }
}

TEST_F(HttpsPost, HttpHasTheSameSecurityOption) {
    const AlertConsole console;
    EXPECT_EQ(Post(console, false), 0u);
    EXPECT_EQ(ArgumentsOf("WinHttpSetOption", "WINHTTP_OPTION_SECURITY_FLAGS"),
              std::vector<uint32_t>{0x3100});
}

TEST_F(HttpsPost, AnAlertOfOneMegabyteArrivesWhole) {
    std::string body(1 << 20, 'x');
    for (size_t i = 0; i < body.size(); i += 1000)
        body[i] = static_cast<char>('a' + i / 1000 % 26);
    for (const Certificate certificate : {Certificate::None, Certificate::SelfSigned}) {
        const AlertConsole console(certificate);
        EXPECT_EQ(Post(console, certificate != Certificate::None, body), 0u);
        ASSERT_TRUE(console.AwaitRequests(1));
        EXPECT_TRUE(AlertConsole::BodyOf(console.Requests()[0]) == body);
    }
}

TEST_F(HttpsPost, ASlowConsoleReceivesItToo) {
    for (const Certificate certificate : {Certificate::None, Certificate::SelfSigned}) {
        const AlertConsole console(certificate, Behaviour::IsSlow);
        EXPECT_EQ(Post(console, certificate != Certificate::None, std::string(5000, 's')), 0u);
        ASSERT_TRUE(console.AwaitRequests(1));
        EXPECT_EQ(AlertConsole::BodyOf(console.Requests()[0]), std::string(5000, 's'));
    }
}

TEST_F(HttpsPost, ARedirectionIsNotFollowed) {
    const AlertConsole other;
    const AlertConsole console(Certificate::None, Behaviour::Redirects,
                               "http://127.0.0.1:" + std::to_string(other.Port()) + "/");
    EXPECT_EQ(Post(console, false), 0u);
    EXPECT_TRUE(console.AwaitRequests(1));
    EXPECT_EQ(Post(console, false), 0u);
    EXPECT_TRUE(console.AwaitRequests(2));
    EXPECT_EQ(other.Connections(), 0u);
}

// The answer is not read, so that such a console costs nothing.
TEST_F(HttpsPost, AConsoleThatNeverAnswersGetsTheRequest) {
    const AlertConsole console(Certificate::None, Behaviour::IsSilent);
    EXPECT_EQ(Post(console, false), 0u);
}

TEST_F(HttpsPost, ASilentHandshakeEndsAfterTenSeconds) {
    const AlertConsole console(Certificate::SelfSigned, Behaviour::IsSilent);
    EXPECT_EQ(PostThatWaits(console, true, 10s), 12002u);
    EXPECT_TRUE(HasLine("INFO", std::string(kNotSent) + "12002"));
}

TEST_F(HttpsPost, AConnectionWithoutAnAnswerEndsAfterTenSeconds) {
    const AlertConsole console(Certificate::None, Behaviour::IsFull);
    EXPECT_EQ(PostThatWaits(console, false, 10s, "<alert/>", 0), 12002u);
    EXPECT_TRUE(HasLine("INFO", std::string(kNotSent) + "12002"));
}

TEST_F(HttpsPost, AConsoleThatDoesNotReadEndsItAfterTenSeconds) {
    const AlertConsole console(Certificate::None, Behaviour::IsSilent);
    EXPECT_EQ(PostThatWaits(console, false, 10s, std::string(kMoreThanBuffers, 'x')), 12002u);
}

TEST_F(HttpsPost, AConsoleThatResetsFails) {
    const AlertConsole secure(Certificate::SelfSigned, Behaviour::Resets);
    EXPECT_EQ(Post(secure, true), 12030u);
    EXPECT_TRUE(HasLine("INFO", std::string(kNotSent) + "12030"));
    const AlertConsole plain(Certificate::None, Behaviour::Resets);
    EXPECT_EQ(Post(plain, false, std::string(kMoreThanBuffers, 'x')), 12030u);
}

TEST_F(HttpsPost, AConsoleThatIsDownFailsAtOnce) {
    uint16_t port = 0;
    {
        const AlertConsole console;
        port = console.Port();
    }
    EXPECT_EQ(HttpsWebRequestPost(kHost, port, kUri, false, "<alert/>"), 12029u);
    EXPECT_TRUE(HasLine("INFO", std::string(kNotSent) + "12029"));
}

TEST_F(HttpsPost, EachFailureIsLoggedWithItsError) {
    ExpectFailure("WinHttpOpen", "WinHttpOpen failed, Session not established");
    ExpectFailure("WinHttpConnect", "WinHttpConnect failed, Connection not attempted");
    ExpectFailure("WinHttpOpenRequest", "WinHttpOpenRequest failed, Request not opened");
    ExpectFailure("WinHttpSetOption", "WinHttpSetOption failed, Options not set");
    ExpectFailure("WinHttpSendRequest", "WinHttpSendRequest failed, Request not sent");
}

TEST_F(HttpsPost, TheTimeoutsMayBeRefused) {
    const AlertConsole console;
    Gate().FailNth("WinHttpSetTimeouts", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Post(console, false), 0u);
    EXPECT_TRUE(console.AwaitRequests(1));
}

TEST_F(HttpsPost, AHostThatIsNoneIsRefused) {
    for (const char* host : {"", "two words", "a/b", "user@host", "line\r\nbreak"})
        EXPECT_EQ(HttpsWebRequestPost(host, 80, kUri, false, "<alert/>"), 12005u) << host;
    EXPECT_TRUE(HasLine(
        "INFO", "HttpsWebRequestPost: WinHttpConnect failed, Connection not attempted, error: 12005"));
}

TEST_F(HttpsPost, ALongHostCutsTheHeaderBlockAndNothingElse) {
    EXPECT_NE(HttpsWebRequestPost(std::string(1023, 'h'), 80, kUri, false, "<alert/>"), 0u);
}

TEST_F(HttpsPost, LeavesNoHandleBehind) {
    const AlertConsole console(Certificate::SelfSigned);
    const size_t before = winhost::HandleTable::Instance().Size();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Post(console, true), 0u);
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), before);
}
