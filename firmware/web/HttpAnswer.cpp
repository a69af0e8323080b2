#include "firmware/web/HttpAnswer.h"

#include <libwebsockets.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace mpm::web {

namespace {

constexpr size_t kPiece = 64u << 10;
constexpr size_t kRoomForHeaders = 2048;

}  // namespace

const lws_protocol_vhost_options* SecurityHeaders() {
    static const lws_protocol_vhost_options rows[] = {
        {&rows[1], nullptr, "content-security-policy:",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
         "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {&rows[2], nullptr, "referrer-policy:", "no-referrer"},
        {&rows[3], nullptr, "x-content-type-options:", "nosniff"},
        {&rows[4], nullptr, "cache-control:", "no-store"},
        {&rows[5], nullptr, "cross-origin-opener-policy:", "same-origin"},
        {nullptr, nullptr, "cross-origin-resource-policy:", "same-origin"},
    };
    return rows;
}

int HttpAnswer::Begin(lws* connection, bool withBody) {
    std::vector<unsigned char> buffer(LWS_PRE + kRoomForHeaders);
    unsigned char *const begin = buffer.data() + LWS_PRE, *const end = buffer.data() + buffer.size();
    unsigned char* at = begin;
    const auto type = reinterpret_cast<const unsigned char*>(m_type);
    if (lws_add_http_header_status(connection, m_status, &at, end) ||
        lws_add_http_header_by_token(connection, WSI_TOKEN_HTTP_CONTENT_TYPE, type, int(std::strlen(m_type)),
                                     &at, end) ||
        lws_add_http_header_content_length(connection, m_body.size(), &at, end) ||
        lws_finalize_write_http_header(connection, begin, &at, end))
        return -1;
    if (!withBody || m_body.empty()) return lws_http_transaction_completed(connection) ? -1 : 0;
    m_written = 0;
    lws_callback_on_writable(connection);
    return 0;
}

int HttpAnswer::Continue(lws* connection) {
    if (m_written == m_body.size()) return 0;
    const size_t size = std::min(kPiece, m_body.size() - m_written);
    std::vector<unsigned char> buffer(LWS_PRE + size);
    std::memcpy(buffer.data() + LWS_PRE, m_body.data() + m_written, size);
    m_written += size;
    const bool last = m_written == m_body.size();
    if (lws_write(connection, buffer.data() + LWS_PRE, size, last ? LWS_WRITE_HTTP_FINAL : LWS_WRITE_HTTP) !=
        int(size))
        return -1;
    if (last) return lws_http_transaction_completed(connection) ? -1 : 0;
    lws_callback_on_writable(connection);
    return 0;
}

}  // namespace mpm::web
