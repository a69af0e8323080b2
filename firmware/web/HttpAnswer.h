// An HTTP answer to a browser, written piece by piece as the connection takes it.
#pragma once

#include <string>

struct lws;
struct lws_protocol_vhost_options;

namespace mpm::web {

// What every answer says to the browser: the page consists of its own files only, and stays to itself.
const lws_protocol_vhost_options* SecurityHeaders();

class HttpAnswer {
  public:
    HttpAnswer() = default;
    HttpAnswer(unsigned status, const char* type, std::string body)
        : m_status(status), m_type(type), m_body(std::move(body)) {}

    // What a callback of the library returns: nonzero ends the connection.
    int Begin(lws* connection, bool withBody);
    int Continue(lws* connection);

  private:
    unsigned m_status = 404;
    const char* m_type = "text/plain";
    std::string m_body;
    size_t m_written = 0;
};

}  // namespace mpm::web
