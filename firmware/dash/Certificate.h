// A self-signed certificate and its key (EC P-256), made in memory: CN=mpmsim, for localhost and 127.0.0.1.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace mpm {

template <auto Free>
struct OpensslDelete {
    template <class Object>
    void operator()(Object* object) const {
        Free(object);
    }
};
using KeyPointer = std::unique_ptr<EVP_PKEY, OpensslDelete<EVP_PKEY_free>>;
using CertificatePointer = std::unique_ptr<X509, OpensslDelete<X509_free>>;
using TlsContextPointer = std::unique_ptr<SSL_CTX, OpensslDelete<SSL_CTX_free>>;

struct Certificate {
    KeyPointer key;
    CertificatePointer certificate;
};

// Both throw std::runtime_error with OpenSSL's reason.
Certificate MakeCertificate();
std::string PemOf(const Certificate& certificate);

// A server's context that speaks TLS 1.2 and 1.3, with session tickets.
TlsContextPointer MakeServerContext(const Certificate& certificate);

}  // namespace mpm
