// The calls of WinHTTP.
#include <strings.h>
#include <winhttp.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/http/HttpObjects.h"
#include "winhost/pc/Pc.h"

using winhost::Fail;
using winhost::HandleTable;
using winhost::HttpConnect;
using winhost::HttpRequest;
using winhost::HttpSession;

namespace {

constexpr DWORD kToTheEnd = 0xFFFFFFFF;
constexpr DWORD kKnownSecurityFlags = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                                      SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;

// Null, with the error that Windows gives, for a handle of another kind or of none.
template <class Kind>
std::shared_ptr<Kind> Find(HINTERNET handle) {
    const auto object = HandleTable::Instance().Find<winhost::HttpObject>(handle);
    auto found = std::dynamic_pointer_cast<Kind>(object);
    if (!found) SetLastError(object ? ERROR_WINHTTP_INCORRECT_HANDLE_TYPE : ERROR_INVALID_HANDLE);
    return found;
}

HINTERNET Add(std::shared_ptr<winhost::HttpObject> object) {
    const HANDLE handle = HandleTable::Instance().Add(std::move(object));
    return handle ? handle : Fail(ERROR_NOT_ENOUGH_MEMORY, nullptr);
}

std::string TextOf(LPCWSTR text, DWORD length) {
    if (!text) return {};
    return testbed::ToUtf8(length == 0 || length == kToTheEnd ? std::wstring(text)
                                                              : std::wstring(text, length));
}

// The path as it stands in a request: beginning with a slash, and what may not stand there by its number.
std::string PathOf(const std::string& name) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string path = name.starts_with('/') ? "" : "/";
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= ' ' || byte >= 0x7F || std::strchr("\"<>\\^`{|}", c)) {
            ((path += '%') += kDigits[byte >> 4]) += kDigits[byte & 15];
        } else {
            path += c;
        }
    }
    return path;
}

std::string HostField(const HttpConnect& connect, bool secure) {
    const bool isDefault = connect.m_port == 0 || connect.m_port == (secure ? 443 : 80);
    return connect.m_host + (isDefault ? "" : ":" + std::to_string(connect.m_port));
}

std::string Bytes(const HttpRequest& request, const winhost::HttpHeaders& headers, const void* body,
                  DWORD size) {
    return request.m_verb + " " + request.m_path + " HTTP/1.1\r\n" + headers.Text() + "\r\n" +
           std::string(static_cast<const char*>(body), size);
}

}  // namespace

namespace winhost {

void HttpHeaders::Add(const std::string& lines, Known known) {
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = std::min(lines.find("\r\n", begin), lines.size());
        const std::string line = lines.substr(begin, end - begin);
        begin = end + 2;
        const size_t colon = line.find(':');
        if (colon == 0 || colon == std::string::npos) continue;
        std::string name = line.substr(0, colon);
        const size_t value = std::min(line.find_first_not_of(' ', colon + 1), line.size());
        const auto same = std::find_if(m_fields.begin(), m_fields.end(), [&](const auto& field) {
            return strcasecmp(field.first.c_str(), name.c_str()) == 0;
        });
        if (same == m_fields.end()) {
            m_fields.emplace_back(std::move(name), line.substr(value));
        } else if (known == Known::AreReplaced) {
            same->second = line.substr(value);
        }
    }
}

std::string HttpHeaders::Text() const {
    std::string text;
    for (const auto& [name, value] : m_fields)
        text.append(name).append(": ").append(value).append("\r\n");
    return text;
}

}  // namespace winhost

HINTERNET WinHttpOpen(LPCWSTR pszAgentW, DWORD dwAccessType, LPCWSTR pszProxyW, LPCWSTR pszProxyBypassW,
                      DWORD dwFlags) {
    WINHOST_GATE("WinHttpOpen", nullptr);
    if (dwAccessType != WINHTTP_ACCESS_TYPE_DEFAULT_PROXY || pszProxyW || pszProxyBypassW || dwFlags)
        return Fail(ERROR_NOT_SUPPORTED, nullptr);
    return Add(std::make_shared<HttpSession>(TextOf(pszAgentW, kToTheEnd)));
}

BOOL WinHttpSetTimeouts(HINTERNET hInternet, int nResolveTimeout, int nConnectTimeout, int nSendTimeout,
                        int nReceiveTimeout) {
    WINHOST_GATE("WinHttpSetTimeouts", FALSE);
    const auto session = Find<HttpSession>(hInternet);
    if (!session) return FALSE;
    for (const int timeout : {nResolveTimeout, nConnectTimeout, nSendTimeout, nReceiveTimeout})
        if (timeout < -1) return Fail(ERROR_INVALID_PARAMETER);
    const auto limit = [](int timeout) { return static_cast<uint32_t>(std::max(timeout, 0)); };
    session->m_timeouts = {limit(nResolveTimeout), limit(nConnectTimeout), limit(nSendTimeout),
                           limit(nReceiveTimeout)};
    return TRUE;
}

HINTERNET WinHttpConnect(HINTERNET hSession, LPCWSTR pswzServerName, INTERNET_PORT nServerPort,
                         DWORD dwReserved) {
    WINHOST_GATE("WinHttpConnect", nullptr);
    const auto session = Find<HttpSession>(hSession);
    if (!session) return nullptr;
    if (!pswzServerName || dwReserved) return Fail(ERROR_INVALID_PARAMETER, nullptr);
    const auto connect = std::make_shared<HttpConnect>();
    connect->m_session = session;
    connect->m_host = TextOf(pswzServerName, kToTheEnd);
    connect->m_port = nServerPort;
    if (!winhost::HttpExchange::IsHost(connect->m_host)) return Fail(ERROR_WINHTTP_INVALID_URL, nullptr);
    return Add(connect);
}

HINTERNET WinHttpOpenRequest(HINTERNET hConnect, LPCWSTR pwszVerb, LPCWSTR pwszObjectName,
                             LPCWSTR pwszVersion, LPCWSTR pwszReferrer, LPCWSTR* ppwszAcceptTypes,
                             DWORD dwFlags) {
    WINHOST_GATE("WinHttpOpenRequest", nullptr);
    const auto connect = Find<HttpConnect>(hConnect);
    if (!connect) return nullptr;
    if (pwszVersion || pwszReferrer || ppwszAcceptTypes || dwFlags & ~DWORD{WINHTTP_FLAG_SECURE})
        return Fail(ERROR_NOT_SUPPORTED, nullptr);
    const auto request = std::make_shared<HttpRequest>();
    request->m_connect = connect;
    request->m_timeouts = connect->m_session->m_timeouts;
    request->m_verb = pwszVerb ? TextOf(pwszVerb, kToTheEnd) : "GET";
    request->m_path = PathOf(TextOf(pwszObjectName, kToTheEnd));
    request->m_secure = dwFlags & WINHTTP_FLAG_SECURE;
    return Add(request);
}

BOOL WinHttpAddRequestHeaders(HINTERNET hRequest, LPCWSTR lpszHeaders, DWORD dwHeadersLength,
                              DWORD dwModifiers) {
    WINHOST_GATE("WinHttpAddRequestHeaders", FALSE);
    const auto request = Find<HttpRequest>(hRequest);
    if (!request) return FALSE;
    if (!lpszHeaders) return Fail(ERROR_INVALID_PARAMETER);
    if (dwModifiers != WINHTTP_ADDREQ_FLAG_ADD_IF_NEW) return Fail(ERROR_NOT_SUPPORTED);
    request->m_headers.Add(TextOf(lpszHeaders, dwHeadersLength), winhost::HttpHeaders::Known::Stay);
    return TRUE;
}

BOOL WinHttpSetOption(HINTERNET hInternet, DWORD dwOption, LPVOID lpBuffer, DWORD dwBufferLength) {
    WINHOST_GATE("WinHttpSetOption", FALSE);
    const auto request = Find<HttpRequest>(hInternet);
    if (!request) return FALSE;
    if (dwOption != WINHTTP_OPTION_SECURITY_FLAGS) return Fail(ERROR_WINHTTP_INVALID_OPTION);
    if (!lpBuffer || dwBufferLength != sizeof(DWORD)) return Fail(ERROR_INSUFFICIENT_BUFFER);
    DWORD flags = 0;
    std::memcpy(&flags, lpBuffer, sizeof flags);
    const bool anyAuthority = flags & SECURITY_FLAG_IGNORE_UNKNOWN_CA;
    const bool anyDate = flags & SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
    if (flags & ~kKnownSecurityFlags || anyAuthority != anyDate) return Fail(ERROR_NOT_SUPPORTED);
    winhost::Pc::Instance().Record(
        winhost::CallArgument{"WinHttpSetOption", "WINHTTP_OPTION_SECURITY_FLAGS", flags});
    request->m_checks = {!anyAuthority, !(flags & SECURITY_FLAG_IGNORE_CERT_CN_INVALID)};
    return TRUE;
}

BOOL WinHttpSendRequest(HINTERNET hRequest, LPCWSTR lpszHeaders, DWORD dwHeadersLength, LPVOID lpOptional,
                        DWORD dwOptionalLength, DWORD dwTotalLength, DWORD_PTR) {
    WINHOST_GATE("WinHttpSendRequest", FALSE);
    using Known = winhost::HttpHeaders::Known;
    const auto request = Find<HttpRequest>(hRequest);
    if (!request) return FALSE;
    if (dwOptionalLength != dwTotalLength || (dwOptionalLength && !lpOptional))
        return Fail(ERROR_NOT_SUPPORTED);
    winhost::HttpHeaders headers = request->m_headers;
    headers.Add(TextOf(lpszHeaders, dwHeadersLength), Known::AreReplaced);
    headers.Add("Connection: Keep-Alive\r\nUser-Agent: " + request->m_connect->m_session->m_agent +
                    "\r\nContent-Length: " + std::to_string(dwTotalLength) +
                    "\r\nHost: " + HostField(*request->m_connect, request->m_secure),
                Known::Stay);
    request->m_exchange = std::make_unique<winhost::HttpExchange>(request->m_timeouts, request->m_checks);
    const HttpConnect& connect = *request->m_connect;
    if (const uint32_t error =
            request->m_exchange->Connect(connect.m_host, connect.m_port, request->m_secure))
        return Fail(error);
    return winhost::Finish(request->m_exchange->Send(Bytes(*request, headers, lpOptional, dwOptionalLength)));
}

BOOL WinHttpCloseHandle(HINTERNET hInternet) {
    WINHOST_GATE("WinHttpCloseHandle", FALSE);
    return HandleTable::Instance().Close<winhost::HttpObject>(hInternet) ? TRUE : Fail(ERROR_INVALID_HANDLE);
}
