#include "companions/nubaapi/Tls.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace {

std::string OpenSslReason() {
    const unsigned long error = ERR_get_error();
    ERR_clear_error();
    const char* const text = error ? ERR_reason_error_string(error) : nullptr;
    return text ? text : "unknown error";
}

void Require(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what + ": " + OpenSslReason());
}

}  // namespace

Tls::Tls(const TlsFiles& files, const std::string& host) : m_context(SSL_CTX_new(TLS_client_method())) {
    SSL_CTX* const context = m_context.get();
    Require(context, "TLS");
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    Require(SSL_CTX_use_certificate_chain_file(context, files.certificate.c_str()) == 1, files.certificate);
    Require(SSL_CTX_use_PrivateKey_file(context, files.key.c_str(), SSL_FILETYPE_PEM) == 1, files.key);
    Require(SSL_CTX_load_verify_locations(context, files.authority.c_str(), nullptr) == 1, files.authority);
    m_ssl.reset(SSL_new(context));
    Require(m_ssl != nullptr, "TLS");
    X509_VERIFY_PARAM* const verification = SSL_get0_param(m_ssl.get());
    const bool isAddress = X509_VERIFY_PARAM_set1_ip_asc(verification, host.c_str()) == 1;
    ERR_clear_error();
    if (!isAddress) {
        Require(X509_VERIFY_PARAM_set1_host(verification, host.c_str(), host.size()) == 1, host);
        SSL_set_tlsext_host_name(m_ssl.get(), host.c_str());
    }
    m_input = BIO_new(BIO_s_mem());
    m_output = BIO_new(BIO_s_mem());
    SSL_set_bio(m_ssl.get(), m_input, m_output);
    SSL_set_connect_state(m_ssl.get());
    SSL_do_handshake(m_ssl.get());
}

bool Tls::Fail(int result) {
    switch (SSL_get_error(m_ssl.get(), result)) {
        case SSL_ERROR_WANT_READ:
        case SSL_ERROR_WANT_WRITE:
            return true;
        case SSL_ERROR_ZERO_RETURN:
            m_reason = "the cloud has ended the connection";
            return false;
        default:
            m_reason = OpenSslReason();
            if (const long verified = SSL_get_verify_result(m_ssl.get()); verified != X509_V_OK)
                m_reason += std::string(": ") + X509_verify_cert_error_string(verified);
            return false;
    }
}

bool Tls::Feed(std::string_view bytes, std::string& received) {
    ERR_clear_error();
    BIO_write(m_input, bytes.data(), static_cast<int>(bytes.size()));
    if (!m_isEstablished) {
        const int result = SSL_do_handshake(m_ssl.get());
        if (result != 1) return Fail(result);
        m_isEstablished = true;
    }
    char block[16384];
    for (;;) {
        const int size = SSL_read(m_ssl.get(), block, sizeof block);
        if (size <= 0) return Fail(size);
        received.append(block, static_cast<size_t>(size));
    }
}

bool Tls::Send(std::string_view bytes) {
    ERR_clear_error();
    const int result = SSL_write(m_ssl.get(), bytes.data(), static_cast<int>(bytes.size()));
    return result > 0 || Fail(result);
}

std::string Tls::TakeOutput() {
    std::string output(BIO_ctrl_pending(m_output), '\0');
    if (!output.empty()) BIO_read(m_output, output.data(), static_cast<int>(output.size()));
    return output;
}
