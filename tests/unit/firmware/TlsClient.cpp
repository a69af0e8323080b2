#include "tests/unit/firmware/TlsClient.h"

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

namespace mpm::test {

TlsClient::TlsClient(const std::string& certificate, int maxVersion)
    : m_context(SSL_CTX_new(TLS_client_method())), m_in(BIO_new(BIO_s_mem())), m_out(BIO_new(BIO_s_mem())) {
    SSL_CTX_set_max_proto_version(m_context.get(), maxVersion);
    SSL_CTX_set_verify(m_context.get(), SSL_VERIFY_PEER, nullptr);
    const testbed::BioPointer pem = testbed::ReaderOf(certificate);
    const testbed::CertificatePointer trusted(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
    X509_STORE_add_cert(SSL_CTX_get_cert_store(m_context.get()), trusted.get());
    m_ssl.reset(SSL_new(m_context.get()));
    SSL_set1_host(m_ssl.get(), "localhost");
    SSL_set_bio(m_ssl.get(), m_in, m_out);
    SSL_set_app_data(m_ssl.get(), &m_alert);
    SSL_set_info_callback(m_ssl.get(), [](const SSL* ssl, int where, int value) {
        if ((where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT)
            *static_cast<std::string*>(SSL_get_app_data(ssl)) = SSL_alert_desc_string_long(value);
    });
    SSL_set_connect_state(m_ssl.get());
}

void TlsClient::Resume(const TlsClient& other) {
    SSL_set_session(m_ssl.get(), SSL_get_session(other.m_ssl.get()));
}
bool TlsClient::HasResumed() const {
    return SSL_session_reused(m_ssl.get()) == 1;
}
bool TlsClient::HasTicket() const {
    return SSL_SESSION_has_ticket(SSL_get_session(m_ssl.get())) == 1;
}

bool TlsClient::Connect() {
    return SSL_do_handshake(m_ssl.get()) == 1;
}
void TlsClient::Write(const std::string& plain) {
    SSL_write(m_ssl.get(), plain.data(), int(plain.size()));
}

std::string TlsClient::Read() {
    std::string plain;
    char block[4096];
    int count = 0;
    while ((count = SSL_read(m_ssl.get(), block, sizeof block)) > 0)
        plain.append(block, size_t(count));
    m_serverHasClosed = SSL_get_error(m_ssl.get(), count) == SSL_ERROR_ZERO_RETURN;
    return plain;
}

void TlsClient::Close() {
    SSL_shutdown(m_ssl.get());
}
std::string TlsClient::VerifyResult() const {
    return X509_verify_cert_error_string(SSL_get_verify_result(m_ssl.get()));
}

std::vector<uint8_t> TlsClient::TakeWire() {
    std::vector<uint8_t> wire(BIO_ctrl_pending(m_out));
    if (!wire.empty()) BIO_read(m_out, wire.data(), int(wire.size()));
    return wire;
}

void TlsClient::GiveWire(const std::string& bytes) {
    BIO_write(m_in, bytes.data(), int(bytes.size()));
}

}  // namespace mpm::test
