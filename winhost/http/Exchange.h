// One request over a connection of its own: a name is looked up, a connection made, with TLS or without, and
// the request sent. libcurl does the first three.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string>

#include "winhost/core/Clock.h"

namespace winhost {

// In milliseconds of the PC's clock; 0 is no limit.
struct HttpTimeouts {
    uint32_t resolve = 0, connect = 60'000, send = 30'000, receive = 30'000;
};

// What is checked of a server's certificate.
struct HttpChecks {
    bool authorityAndDate = true, name = true;
};

class HttpExchange {
  public:
    HttpExchange(HttpTimeouts timeouts, HttpChecks checks) : m_timeouts(timeouts), m_checks(checks) {}
    ~HttpExchange();
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    // Whether this is the name or the address of a host.
    static bool IsHost(const std::string& host);

    // Each returns 0 or the error of WinHTTP, and blocks. Send follows a Connect that succeeded.
    uint32_t Connect(const std::string& host, uint16_t port, bool secure);
    uint32_t Send(const std::string& bytes);

  private:
    enum class Phase { Resolve, Connect, Handshake };

    bool SetUp(const std::string& host, uint16_t port, bool secure);
    void TrustRootStore();
    void EnterPhase(Phase phase);
    void FollowPhase();
    uint32_t TimeoutOf(Phase phase) const;
    uint32_t ErrorOf(CURLcode code) const;
    static curl_socket_t OpenSocket(void* self, curlsocktype purpose, curl_sockaddr* address);

    const HttpTimeouts m_timeouts;
    const HttpChecks m_checks;
    CURLM* m_multi = nullptr;
    CURL* m_easy = nullptr;
    curl_socket_t m_socket = CURL_SOCKET_BAD;
    Phase m_phase = Phase::Resolve;
    Clock::Deadline m_deadline = Clock::kNever;
    std::string m_rootCertificates;
    char m_errorText[CURL_ERROR_SIZE] = "";
};

}  // namespace winhost
