// The TLS end of a connection, apart from its socket: bytes of the network go in and out.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <string_view>

struct TlsFiles {
    std::string certificate, key, authority;
};

class Tls {
  public:
    // Takes part as a client with the certificate, and accepts only a server that the authority has certified
    // for this host. Throws std::runtime_error with OpenSSL's reason.
    Tls(const TlsFiles& files, const std::string& host);

    // Bytes from the network. Appends what they hold to `received`. False when the connection is over; Reason
    // says why.
    bool Feed(std::string_view bytes, std::string& received);
    // To the other side, once IsEstablished.
    bool Send(std::string_view bytes);
    // Bytes for the network.
    std::string TakeOutput();
    bool IsEstablished() const { return m_isEstablished; }
    const std::string& Reason() const { return m_reason; }
    void Shutdown() { SSL_shutdown(m_ssl.get()); }

  private:
    struct Free {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };
    bool Fail(int result);

    std::unique_ptr<SSL_CTX, Free> m_context;
    std::unique_ptr<SSL, Free> m_ssl;
    BIO* m_input = nullptr;  // both belong to m_ssl
    BIO* m_output = nullptr;
    bool m_isEstablished = false;
    std::string m_reason;
};
