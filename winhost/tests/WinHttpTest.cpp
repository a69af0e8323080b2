// A request of WinHTTP without TLS: what is sent, and what is refused. The tests of the service's alerts add
// TLS, servers that misbehave, and time.
#include <winhttp.h>

#include "winhost/tests/PcFixture.h"
#include "winhost/tests/PosixPeer.h"

namespace {

class WinHttpTest : public PcFixture {
  protected:
    WinHttpTest()
        : m_server(PosixPeer::ListenOn(0)),
          m_session(WinHttpOpen(L"Agent/7", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0)),
          m_connect(WinHttpConnect(m_session, L"127.0.0.1", m_server.Port(), 0)) {}
    ~WinHttpTest() override {
        for (const HINTERNET handle : {m_request, m_connect, m_session})
            EXPECT_TRUE(!handle || WinHttpCloseHandle(handle));
    }
    HINTERNET Open(const wchar_t* path = L"/path", DWORD flags = 0) {
        EXPECT_TRUE(!m_request || WinHttpCloseHandle(m_request));
        m_request = WinHttpOpenRequest(m_connect, L"POST", path, nullptr, nullptr, nullptr, flags);
        EXPECT_NE(nullptr, m_request);
        return m_request;
    }
    // Sends the request and returns what the server gets.
    std::string Sent(const std::string& body = {}, const wchar_t* headers = nullptr) {
        std::string text;
        const auto size = static_cast<DWORD>(body.size());
        EXPECT_TRUE(WinHttpSendRequest(m_request, headers, 0, const_cast<char*>(body.data()), size, size, 0));
        PosixPeer connection = m_server.Accept();
        for (std::string line; (line = connection.ReceiveLine()) != "\r" && !line.empty();)
            text += line + "\n";
        return text + connection.Receive(body.size());
    }
    std::string HostLine() { return "Host: 127.0.0.1:" + std::to_string(m_server.Port()); }

    PosixPeer m_server;
    HINTERNET m_session, m_connect, m_request = nullptr;
};

bool SentHas(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST_F(WinHttpTest, ARequestHasItsOwnFields) {
    Open();
    const std::string sent = Sent("body");
    EXPECT_EQ(0u, sent.find("POST /path HTTP/1.1")) << sent;
    for (const char* field : {"Connection: Keep-Alive", "User-Agent: Agent/7", "Content-Length: 4"})
        EXPECT_TRUE(SentHas(sent, field)) << field << "\n" << sent;
    EXPECT_TRUE(SentHas(sent, HostLine())) << sent;
    EXPECT_TRUE(sent.ends_with("body")) << sent;
}

TEST_F(WinHttpTest, FieldsOfTheCallerReplaceItsOwn) {
    Open();
    ASSERT_TRUE(
        WinHttpAddRequestHeaders(m_request, L"Accept: a\r\nHost: b\r\n", 0, WINHTTP_ADDREQ_FLAG_ADD_IF_NEW));
    ASSERT_TRUE(
        WinHttpAddRequestHeaders(m_request, L"accept: c\r\n", 0xFFFFFFFF, WINHTTP_ADDREQ_FLAG_ADD_IF_NEW));
    const std::string sent = Sent("", L"User-Agent: d\r\n");
    EXPECT_TRUE(SentHas(sent, "Accept: a")) << sent;
    EXPECT_TRUE(SentHas(sent, "Host: b")) << sent;
    EXPECT_TRUE(SentHas(sent, "User-Agent: d")) << sent;
    EXPECT_FALSE(SentHas(sent, "Agent/7") || SentHas(sent, "accept: c") || SentHas(sent, "127.0.0.1"))
        << sent;
}

TEST_F(WinHttpTest, ALengthCutsTheFields) {
    Open();
    ASSERT_TRUE(WinHttpAddRequestHeaders(m_request, L"A: 1\r\nB: 2\r\n", 6, WINHTTP_ADDREQ_FLAG_ADD_IF_NEW));
    const std::string sent = Sent();
    EXPECT_TRUE(SentHas(sent, "A: 1")) << sent;
    EXPECT_FALSE(SentHas(sent, "B: 2")) << sent;
}

TEST_F(WinHttpTest, APathBeginsWithASlashAndIsEscaped) {
    Open(L"a b\r\nX: \u00E4");
    EXPECT_EQ(0u, Sent().find("POST /a%20b%0D%0AX:%20%C3%A4 HTTP/1.1"));
    Open(nullptr);
    EXPECT_EQ(0u, Sent().find("POST / HTTP/1.1"));
}

TEST_F(WinHttpTest, AHandleOfAnotherKindIsRefused) {
    Open();
    EXPECT_EQ(ERROR_WINHTTP_INCORRECT_HANDLE_TYPE,
              ErrorOf(WinHttpSendRequest(m_session, nullptr, 0, nullptr, 0, 0, 0)));
    EXPECT_EQ(ERROR_WINHTTP_INCORRECT_HANDLE_TYPE, ErrorOf(WinHttpSetTimeouts(m_connect, 1, 1, 1, 1)));
    EXPECT_EQ(nullptr, WinHttpConnect(m_request, L"127.0.0.1", 1, 0));
    EXPECT_EQ(nullptr, WinHttpOpenRequest(m_session, L"POST", L"/", nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(WinHttpSendRequest(nullptr, nullptr, 0, nullptr, 0, 0, 0)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(WinHttpCloseHandle(nullptr)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(m_request)));
}

TEST_F(WinHttpTest, WhatIsNotThereIsRefused) {
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(WinHttpOpen(L"a", 3, L"proxy", nullptr, 0)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(WinHttpOpenRequest(m_connect, L"POST", L"/", L"HTTP/1.0", nullptr, nullptr, 0)));
    Open();
    char body[] = "body";
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(WinHttpSendRequest(m_request, nullptr, 0, body, 4, 8, 0)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(WinHttpAddRequestHeaders(m_request, L"A: 1\r\n", 0, 0x20000000)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(WinHttpAddRequestHeaders(m_request, nullptr, 0, WINHTTP_ADDREQ_FLAG_ADD_IF_NEW)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(WinHttpSetTimeouts(m_session, -2, 1, 1, 1)));
    DWORD flags = SECURITY_FLAG_IGNORE_UNKNOWN_CA;
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(WinHttpSetOption(m_request, WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof flags)));
    EXPECT_EQ(ERROR_WINHTTP_INVALID_OPTION, ErrorOf(WinHttpSetOption(m_request, 3, &flags, sizeof flags)));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER,
              ErrorOf(WinHttpSetOption(m_request, WINHTTP_OPTION_SECURITY_FLAGS, &flags, 2)));
}

TEST_F(WinHttpTest, ANameThatDoesNotExistIsNotResolved) {
    EXPECT_TRUE(WinHttpCloseHandle(m_connect));
    // No part of a name has more than 63 characters, so that no name server is asked.
    m_connect = WinHttpConnect(m_session, std::wstring(64, L'a').c_str(), 80, 0);
    ASSERT_NE(nullptr, m_connect);
    Open();
    EXPECT_EQ(ERROR_WINHTTP_NAME_NOT_RESOLVED,
              ErrorOf(WinHttpSendRequest(m_request, nullptr, 0, nullptr, 0, 0, 0)));
}
