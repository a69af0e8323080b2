#include "firmware/dash/HttpConnection.h"

#include <strings.h>

#include <climits>
#include <ctime>
#include <utility>

namespace mpm {

namespace {

const char* ReasonOf(int status) {
    switch (status) {
#define MPM_STATUS(number, name, text) \
    case number:                       \
        return #text;
        HTTP_STATUS_MAP(MPM_STATUS)
#undef MPM_STATUS
        default:
            return "";
    }
}

std::string DateHeader() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[64];
    std::strftime(text, sizeof text, "Date: %a, %d %b %Y %H:%M:%S GMT\r\n", &parts);
    return text;
}

}  // namespace

template <int (HttpConnection::*Method)(std::string_view)>
int HttpConnection::OnData(http_parser* parser, const char* at, size_t length) {
    return (static_cast<HttpConnection*>(parser->data)->*Method)({at, length});
}

template <int (HttpConnection::*Method)()>
int HttpConnection::OnEvent(http_parser* parser) {
    return (static_cast<HttpConnection*>(parser->data)->*Method)();
}

const http_parser_settings& HttpConnection::Callbacks() {
    static const http_parser_settings callbacks = [] {
        http_parser_settings settings;
        http_parser_settings_init(&settings);
        settings.on_message_begin = OnEvent<&HttpConnection::Begin>;
        settings.on_url = OnData<&HttpConnection::TakeTarget>;
        settings.on_header_field = OnData<&HttpConnection::TakeHeaderName>;
        settings.on_header_value = OnData<&HttpConnection::TakeHeaderValue>;
        settings.on_headers_complete = OnEvent<&HttpConnection::EndHeaders>;
        settings.on_body = OnData<&HttpConnection::TakeBody>;
        settings.on_message_complete = OnEvent<&HttpConnection::End>;
        return settings;
    }();
    return callbacks;
}

HttpConnection::HttpConnection(Handler handler) : m_handler(std::move(handler)) {
    http_parser_init(&m_parser, HTTP_REQUEST);
    m_parser.data = this;
}

std::string HttpConnection::Feed(std::string_view bytes) {
    if (!m_ended && !bytes.empty()) {
        http_parser_execute(&m_parser, &Callbacks(), bytes.data(), bytes.size());
        if (!m_ended && HTTP_PARSER_ERRNO(&m_parser) != HPE_OK) {
            const bool tooLong = HTTP_PARSER_ERRNO(&m_parser) == HPE_HEADER_OVERFLOW;
            Answer({m_refused ? m_refused : tooLong ? 431 : 400, {}, {}, {}}, false);
        }
    }
    return std::exchange(m_output, {});
}

int HttpConnection::Begin() {
    // What follows a request that ended the connection is not looked at.
    if (m_ended) return 1;
    m_request = {};
    m_headerName.clear();
    m_headerValue.clear();
    m_inValue = false;
    m_headerBytes = 0;
    m_expectsContinue = false;
    return 0;
}

int HttpConnection::Refuse(int status) {
    m_refused = status;
    return 1;
}

int HttpConnection::TakeTarget(std::string_view part) {
    m_request.target += part;
    return m_request.target.size() > kMaxTarget ? Refuse(414) : 0;
}

int HttpConnection::TakeHeaderName(std::string_view part) {
    if (m_inValue) FinishHeader();
    m_headerName += part;
    m_headerBytes += part.size();
    return m_headerBytes > kMaxHeaders ? Refuse(431) : 0;
}

int HttpConnection::TakeHeaderValue(std::string_view part) {
    m_inValue = true;
    m_headerValue += part;
    m_headerBytes += part.size();
    return m_headerBytes > kMaxHeaders ? Refuse(431) : 0;
}

void HttpConnection::FinishHeader() {
    if (strcasecmp(m_headerName.c_str(), "Content-Type") == 0) m_request.contentType = m_headerValue;
    // A second one makes both invalid.
    if (strcasecmp(m_headerName.c_str(), "Authorization") == 0)
        m_request.authorization += (m_request.authorization.empty() ? "" : ", ") + m_headerValue;
    if (strcasecmp(m_headerName.c_str(), "Expect") == 0)
        m_expectsContinue = strcasecmp(m_headerValue.c_str(), "100-continue") == 0;
    m_headerName.clear();
    m_headerValue.clear();
    m_inValue = false;
}

int HttpConnection::EndHeaders() {
    if (m_inValue) FinishHeader();
    m_request.method = http_method_str(http_method(m_parser.method));
    // No other protocol is spoken here: an upgrade that is asked for is passed over.
    m_parser.upgrade = 0;
    const bool hasLength = m_parser.content_length != ULLONG_MAX;
    if (hasLength && m_parser.content_length > kMaxBody) return Refuse(413), -1;
    if (m_expectsContinue && IsHttp11()) m_output += "HTTP/1.1 100 Continue\r\n\r\n";
    return 0;
}

int HttpConnection::TakeBody(std::string_view part) {
    if (m_request.body.size() + part.size() > kMaxBody) return Refuse(413);
    m_request.body += part;
    return 0;
}

int HttpConnection::End() {
    Answer(m_handler(m_request), http_should_keep_alive(&m_parser) != 0);
    return 0;
}

void HttpConnection::Answer(const HttpResponse& response, bool keepAlive) {
    m_output += "HTTP/1.1 " + std::to_string(response.status) + " " + ReasonOf(response.status) + "\r\n";
    m_output += DateHeader() + "Server: mpmsim\r\n" + response.extraHeaders;
    if (!response.contentType.empty()) m_output += "Content-Type: " + response.contentType + "\r\n";
    m_output += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
    if (!keepAlive)
        m_output += "Connection: close\r\n";
    else if (!IsHttp11())
        m_output += "Connection: keep-alive\r\n";  // without it a client of 1.0 waits for the end
    m_output += "\r\n" + response.body;
    m_ended = m_ended || !keepAlive;
}

}  // namespace mpm
