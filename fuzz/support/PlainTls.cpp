// The TLS end of a cloud connection without TLS: the bytes pass as they are, so that a target reaches what is
// behind the encryption.
#include "companions/nubaapi/Tls.h"

Tls::Tls(const TlsFiles&, const std::string&) : m_context(SSL_CTX_new(TLS_client_method())) {
    m_ssl.reset(SSL_new(m_context.get()));
    m_input = BIO_new(BIO_s_mem());
    m_output = BIO_new(BIO_s_mem());
    SSL_set_bio(m_ssl.get(), m_input, m_output);
    m_isEstablished = true;
}

bool Tls::Feed(std::string_view bytes, std::string& received) {
    received.append(bytes);
    return true;
}

bool Tls::Send(std::string_view bytes) {
    return BIO_write(m_output, bytes.data(), static_cast<int>(bytes.size())) > 0;
}

std::string Tls::TakeOutput() {
    std::string output(BIO_ctrl_pending(m_output), '\0');
    if (!output.empty()) BIO_read(m_output, output.data(), static_cast<int>(output.size()));
    return output;
}
