#include "firmware/dash/TlsStream.h"

#include <openssl/err.h>

#include <new>

namespace mpm {

TlsStream::TlsStream(SSL_CTX* context)
    : m_ssl(SSL_new(context)), m_in(BIO_new(BIO_s_mem())), m_out(BIO_new(BIO_s_mem())) {
    if (!m_ssl || !m_in || !m_out) throw std::bad_alloc();
    SSL_set_bio(m_ssl.get(), m_in, m_out);
    SSL_set_accept_state(m_ssl.get());
}

std::string TlsStream::Feed(std::span<const uint8_t> wire) {
    std::string plain;
    if (m_state != State::Open || wire.empty()) return plain;
    BIO_write(m_in, wire.data(), int(wire.size()));
    for (;;) {
        char block[16384];
        ERR_clear_error();
        const int count = SSL_read(m_ssl.get(), block, sizeof block);
        if (count > 0) {
            plain.append(block, size_t(count));
            continue;
        }
        switch (SSL_get_error(m_ssl.get(), count)) {
            case SSL_ERROR_WANT_READ:
            case SSL_ERROR_WANT_WRITE:
                break;
            case SSL_ERROR_ZERO_RETURN:
                m_state = State::Closed;
                break;
            default:
                Fail();
        }
        return plain;
    }
}

void TlsStream::Write(std::string_view plain) {
    if (m_state != State::Open || plain.empty()) return;
    ERR_clear_error();
    // A memory BIO takes all there is.
    if (SSL_write(m_ssl.get(), plain.data(), int(plain.size())) <= 0) Fail();
}

void TlsStream::Close() {
    if (m_state == State::Failed) return;
    m_state = State::Closed;
    ERR_clear_error();
    SSL_shutdown(m_ssl.get());
    ERR_clear_error();
}

bool TlsStream::OnlyTicketsFollow() const {
    return SSL_is_init_finished(m_ssl.get()) && SSL_version(m_ssl.get()) >= TLS1_3_VERSION;
}

void TlsStream::Fail() {
    m_state = State::Failed;
    const unsigned long code = ERR_get_error();
    const char* reason = code ? ERR_reason_error_string(code) : nullptr;
    m_reason = reason ? reason : "the TLS stream is broken";
    ERR_clear_error();
}

std::vector<uint8_t> TlsStream::TakeWire() {
    std::vector<uint8_t> wire(BIO_ctrl_pending(m_out));
    if (!wire.empty()) BIO_read(m_out, wire.data(), int(wire.size()));
    return wire;
}

}  // namespace mpm
