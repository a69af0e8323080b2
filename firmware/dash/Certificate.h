// A self-signed certificate and its key (EC P-256), made in memory: CN=mpmsim, for localhost and 127.0.0.1.
#pragma once

#include <string>

#include "testbed/Openssl.h"

namespace mpm {

struct Certificate {
    testbed::KeyPointer key;
    testbed::CertificatePointer certificate;
};

// Both throw std::runtime_error with OpenSSL's reason.
Certificate MakeCertificate();
std::string PemOf(const Certificate& certificate);

// A server's context that speaks TLS 1.2 and 1.3, with session tickets.
testbed::TlsContextPointer MakeServerContext(const Certificate& certificate);

}  // namespace mpm
