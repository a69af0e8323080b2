// Owners of OpenSSL's objects, its errors as exceptions, and texts in memory.
#pragma once

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace testbed {

template <auto Free>
struct OpensslDelete {
    template <class Object>
    void operator()(Object* object) const {
        Free(object);
    }
};
using BioPointer = std::unique_ptr<BIO, OpensslDelete<BIO_free>>;
using CertificatePointer = std::unique_ptr<X509, OpensslDelete<X509_free>>;
using KeyPointer = std::unique_ptr<EVP_PKEY, OpensslDelete<EVP_PKEY_free>>;
using RequestPointer = std::unique_ptr<X509_REQ, OpensslDelete<X509_REQ_free>>;
using TlsContextPointer = std::unique_ptr<SSL_CTX, OpensslDelete<SSL_CTX_free>>;
using TlsPointer = std::unique_ptr<SSL, OpensslDelete<SSL_free>>;

// Throws std::runtime_error with OpenSSL's reason, if it has one.
inline void CheckOpenssl(bool ok, const char* what) {
    if (ok) return;
    char reason[256] = "";
    if (const unsigned long error = ERR_get_error()) ERR_error_string_n(error, reason, sizeof reason);
    throw std::runtime_error(std::string(what) + (*reason ? ": " : "") + reason);
}

inline BioPointer ReaderOf(const std::string& text) {
    return BioPointer(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// What has been written to a BIO in memory.
inline std::string TextOf(const BioPointer& bio) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<size_t>(size)};
}

}  // namespace testbed
