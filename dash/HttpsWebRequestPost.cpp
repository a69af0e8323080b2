#include "dash/HttpsWebRequestPost.h"

#include <winsock2.h>
#include <windows.h>
#include <winhttp.h>

#include <cstdio>
#include <cstring>

#include "base/Handles.h"
#include "base/Log.h"
#include "base/WideText.h"

namespace {

constexpr int kTimeout = 10'000;  // milliseconds
constexpr size_t kHeaderSize = 1024;

struct HttpHandleTraits {
    using Value = HINTERNET;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { WinHttpCloseHandle(value); }
};
using UniqueHttpHandle = UniqueResource<HttpHandleTraits>;

std::wstring Headers(const std::string& host, uint16_t port, size_t length) {
    char text[kHeaderSize] = "";
    std::snprintf(text, sizeof text,
                  "Host: %s:%d\r\nContent-Type: application/soap+xml;charset=UTF-8\r\nAccept: */*\r\n"
                  "Content-Length: %zd\r\n",
                  host.c_str(), port, static_cast<std::ptrdiff_t>(length));
    return WidenBytes(text);
}

// Returns 0 or the error.
DWORD Send(HINTERNET request, const std::wstring& headers, const char* body, size_t length) {
    // Some platforms refuse a length of 0 here and take the same block with the request. Others take it twice
    // and send it once.
    WinHttpAddRequestHeaders(request, headers.c_str(), 0, WINHTTP_ADDREQ_FLAG_ADD_IF_NEW);
    DWORD flags = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID |
                  SECURITY_FLAG_IGNORE_CERT_CN_INVALID;
    if (!WinHttpSetOption(request, WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof flags)) {
        const DWORD error = GetLastError();
        LogInfo("HttpsWebRequestPost: WinHttpSetOption failed, Options not set, error: %u", error);
        return error;
    }
    const auto size = static_cast<DWORD>(length);
    if (!WinHttpSendRequest(request, headers.c_str(), 0, const_cast<char*>(body), size, size, 0)) {
        const DWORD error = GetLastError();
        LogInfo("HttpsWebRequestPost: WinHttpSendRequest failed, Request not sent, error: %u", error);
        return error;
    }
    return ERROR_SUCCESS;
}

}  // namespace

uint32_t HttpsWebRequestPost(const std::string& host, uint16_t port, const std::string& uri, bool secure,
                             const char* body) {
    const size_t length = std::strlen(body);
    const UniqueHttpHandle session(
        WinHttpOpen(L"WinHTTP Example/1.0", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0));
    if (!session) {
        const DWORD error = GetLastError();
        LogInfo("HttpsWebRequestPost: WinHttpOpen failed, Session not established, error: %u", error);
        return error;
    }
    WinHttpSetTimeouts(session.Get(), kTimeout, kTimeout, kTimeout, kTimeout);
    const UniqueHttpHandle connection(WinHttpConnect(session.Get(), WidenBytes(host).c_str(), port, 0));
    if (!connection) {
        const DWORD error = GetLastError();
        LogInfo("HttpsWebRequestPost: WinHttpConnect failed, Connection not attempted, error: %u", error);
        return error;
    }
    const UniqueHttpHandle request(WinHttpOpenRequest(connection.Get(), L"POST", WidenBytes(uri).c_str(),
                                                      nullptr, nullptr, nullptr,
                                                      secure ? WINHTTP_FLAG_SECURE : 0));
    if (!request) {
        const DWORD error = GetLastError();
        LogInfo("HttpsWebRequestPost: WinHttpOpenRequest failed, Request not opened, error: %u", error);
        return error;
    }
    return Send(request.Get(), Headers(host, port, length), body, length);
}
