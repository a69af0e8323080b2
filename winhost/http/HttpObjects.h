// The objects behind the handles of WinHTTP.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "winhost/core/HandleTable.h"
#include "winhost/http/Exchange.h"

namespace winhost {

// The header fields of a request. Names are compared without their case.
class HttpHeaders {
  public:
    // Lines, each with CR and LF; one without a colon is left out.
    enum class Known { Stay, AreReplaced };
    void Add(const std::string& lines, Known known);
    std::string Text() const;

  private:
    std::vector<std::pair<std::string, std::string>> m_fields;
};

class HttpObject : public Object {
  public:
    bool IsClosedByCloseHandle() const override { return false; }
};

class HttpSession final : public HttpObject {
  public:
    explicit HttpSession(std::string agent) : m_agent(std::move(agent)) {}
    const std::string m_agent;
    HttpTimeouts m_timeouts;
};

class HttpConnect final : public HttpObject {
  public:
    std::shared_ptr<HttpSession> m_session;
    std::string m_host;
    uint16_t m_port = 0;
};

class HttpRequest final : public HttpObject {
  public:
    std::shared_ptr<HttpConnect> m_connect;
    HttpTimeouts m_timeouts;
    std::string m_verb, m_path;
    bool m_secure = false;
    HttpChecks m_checks;
    HttpHeaders m_headers;
    // Kept until the handle is closed.
    std::unique_ptr<HttpExchange> m_exchange;
};

}  // namespace winhost
