// One connection of HTTP/1.1 or 1.0, fed with bytes: keep-alive, pipelined requests, bodies by length and in
// chunks.
#pragma once

#include <http_parser.h>

#include <functional>
#include <string>
#include <string_view>

namespace mpm {

struct HttpRequest {
    std::string method, target, contentType, body;
    std::string authorization = {};  // the header's value
};

struct HttpResponse {
    int status = 200;
    std::string contentType, body;
    std::string extraHeaders;  // whole lines
};

class HttpConnection {
  public:
    // Sizes above these are answered with 414, 431 and 413, and end the connection.
    static constexpr size_t kMaxTarget = 2048;
    static constexpr size_t kMaxHeaders = 16384;
    static constexpr size_t kMaxBody = 65536;

    using Handler = std::function<HttpResponse(const HttpRequest&)>;
    explicit HttpConnection(Handler handler);
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    // Takes bytes and returns the answers to all requests that they complete. Nothing is taken once Ended.
    std::string Feed(std::string_view bytes);
    // Whether the connection must be closed behind what Feed has returned.
    bool Ended() const { return m_ended; }

  private:
    template <int (HttpConnection::*Method)(std::string_view)>
    static int OnData(http_parser* parser, const char* at, size_t length);
    template <int (HttpConnection::*Method)()>
    static int OnEvent(http_parser* parser);
    static const http_parser_settings& Callbacks();

    int Begin();
    int TakeTarget(std::string_view part);
    int TakeHeaderName(std::string_view part);
    int TakeHeaderValue(std::string_view part);
    int EndHeaders();
    int TakeBody(std::string_view part);
    int End();
    int Refuse(int status);
    void FinishHeader();
    bool IsHttp11() const { return m_parser.http_major == 1 && m_parser.http_minor >= 1; }
    void Answer(const HttpResponse& response, bool keepAlive);

    Handler m_handler;
    http_parser m_parser{};
    HttpRequest m_request;
    std::string m_headerName, m_headerValue;
    bool m_inValue = false;
    size_t m_headerBytes = 0;
    bool m_expectsContinue = false;
    int m_refused = 0;
    bool m_ended = false;
    std::string m_output;
};

}  // namespace mpm
