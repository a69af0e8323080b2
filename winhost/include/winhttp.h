// WinHTTP: one request to a server, sent and not waited for, over real connections, with TLS 1.2 as Windows
// 10 has it. The PC has no proxy.
//
// Times pass on the PC's clock. The look-up of a name takes no more than its time, a connection no more than
// its own, a TLS handshake no more than the time to receive, and the request no more than the time to send. 0
// means no limit.
#pragma once

#include <windows.h>

typedef LPVOID HINTERNET;
typedef WORD INTERNET_PORT;

#define WINHTTP_ACCESS_TYPE_DEFAULT_PROXY 0
#define WINHTTP_FLAG_SECURE 0x00800000
#define WINHTTP_ADDREQ_FLAG_ADD_IF_NEW 0x10000000
#define WINHTTP_OPTION_SECURITY_FLAGS 31

#define SECURITY_FLAG_IGNORE_UNKNOWN_CA 0x00000100
#define SECURITY_FLAG_IGNORE_CERT_CN_INVALID 0x00001000
#define SECURITY_FLAG_IGNORE_CERT_DATE_INVALID 0x00002000

#define WINHTTP_ERROR_BASE 12000
#define ERROR_WINHTTP_TIMEOUT (WINHTTP_ERROR_BASE + 2)
#define ERROR_WINHTTP_INTERNAL_ERROR (WINHTTP_ERROR_BASE + 4)
#define ERROR_WINHTTP_INVALID_URL (WINHTTP_ERROR_BASE + 5)
#define ERROR_WINHTTP_NAME_NOT_RESOLVED (WINHTTP_ERROR_BASE + 7)
#define ERROR_WINHTTP_INVALID_OPTION (WINHTTP_ERROR_BASE + 9)
#define ERROR_WINHTTP_INCORRECT_HANDLE_TYPE (WINHTTP_ERROR_BASE + 18)
#define ERROR_WINHTTP_CANNOT_CONNECT (WINHTTP_ERROR_BASE + 29)
#define ERROR_WINHTTP_CONNECTION_ERROR (WINHTTP_ERROR_BASE + 30)
#define ERROR_WINHTTP_SECURE_FAILURE (WINHTTP_ERROR_BASE + 175)

// Only the default proxy without names, and no flags: else ERROR_NOT_SUPPORTED.
HINTERNET WINAPI WinHttpOpen(LPCWSTR pszAgentW, DWORD dwAccessType, LPCWSTR pszProxyW,
                             LPCWSTR pszProxyBypassW, DWORD dwFlags);
// Of a session, for the requests that are opened later. In milliseconds; below -1 ERROR_INVALID_PARAMETER,
// and -1 as 0.
BOOL WINAPI WinHttpSetTimeouts(HINTERNET hInternet, int nResolveTimeout, int nConnectTimeout,
                               int nSendTimeout, int nReceiveTimeout);
// Connects to nothing yet. ERROR_WINHTTP_INVALID_URL for a text that is no name of a host. Port 0 is the
// protocol's own.
HINTERNET WINAPI WinHttpConnect(HINTERNET hSession, LPCWSTR pswzServerName, INTERNET_PORT nServerPort,
                                DWORD dwReserved);
// HTTP/1.1. What may not stand in a path is escaped. Another version, a referrer, accepted types and flags
// other than WINHTTP_FLAG_SECURE are ERROR_NOT_SUPPORTED.
HINTERNET WINAPI WinHttpOpenRequest(HINTERNET hConnect, LPCWSTR pwszVerb, LPCWSTR pwszObjectName,
                                    LPCWSTR pwszVersion, LPCWSTR pwszReferrer, LPCWSTR* ppwszAcceptTypes,
                                    DWORD dwFlags);
// Lines "name: value", each with CR and LF. A length of 0, or -1, means up to the NUL. A name that the
// request has keeps its value: WINHTTP_ADDREQ_FLAG_ADD_IF_NEW is the only one of the modifiers, else
// ERROR_NOT_SUPPORTED.
BOOL WINAPI WinHttpAddRequestHeaders(HINTERNET hRequest, LPCWSTR lpszHeaders, DWORD dwHeadersLength,
                                     DWORD dwModifiers);
// WINHTTP_OPTION_SECURITY_FLAGS of a request, else ERROR_WINHTTP_INVALID_OPTION. An unknown authority and a
// wrong date can only be ignored together (ERROR_NOT_SUPPORTED). What is not ignored is checked against the
// certificates of the store "ROOT".
BOOL WINAPI WinHttpSetOption(HINTERNET hInternet, DWORD dwOption, LPVOID lpBuffer, DWORD dwBufferLength);
// Connects and sends everything. Further headers replace those of the same name. The whole body must be
// given, in dwOptionalLength bytes: another total length is ERROR_NOT_SUPPORTED. Returns as soon as all has
// been sent, whatever the server does then. Fails with the ERROR_WINHTTP_... above.
BOOL WINAPI WinHttpSendRequest(HINTERNET hRequest, LPCWSTR lpszHeaders, DWORD dwHeadersLength,
                               LPVOID lpOptional, DWORD dwOptionalLength, DWORD dwTotalLength,
                               DWORD_PTR dwContext);
// The connection of a request ends with its handle.
BOOL WINAPI WinHttpCloseHandle(HINTERNET hInternet);
