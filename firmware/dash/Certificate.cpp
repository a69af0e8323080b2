#include "firmware/dash/Certificate.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace mpm {

namespace {

using testbed::CheckOpenssl, testbed::OpensslDelete;

void AddExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, OpensslDelete<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    CheckOpenssl(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "certificate extension");
}

void SetSerial(X509* certificate) {
    uint64_t serial = 0;
    CheckOpenssl(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1, "random bytes");
    CheckOpenssl(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1) == 1,
                 "serial number");
}

}  // namespace

Certificate MakeCertificate() {
    constexpr long kDay = 24 * 60 * 60;
    Certificate made{testbed::KeyPointer(EVP_EC_gen("P-256")), testbed::CertificatePointer(X509_new())};
    X509* x509 = made.certificate.get();
    CheckOpenssl(made.key && x509 && X509_set_version(x509, X509_VERSION_3) == 1, "key");
    SetSerial(x509);
    // A day back, for clients whose clock is behind.
    CheckOpenssl(X509_gmtime_adj(X509_getm_notBefore(x509), -kDay) &&
                     X509_gmtime_adj(X509_getm_notAfter(x509), 365 * kDay) &&
                     X509_set_pubkey(x509, made.key.get()) == 1,
                 "certificate");
    X509_NAME* name = X509_get_subject_name(x509);
    CheckOpenssl(
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("mpmsim"),
                                   -1, -1, 0) == 1 &&
            X509_set_issuer_name(x509, name) == 1,
        "certificate name");
    AddExtension(x509, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(x509, NID_key_usage, "critical,digitalSignature");
    AddExtension(x509, NID_ext_key_usage, "serverAuth");
    AddExtension(x509, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    CheckOpenssl(X509_sign(x509, made.key.get(), EVP_sha256()) > 0, "signature");
    return made;
}

std::string PemOf(const Certificate& certificate) {
    const testbed::BioPointer bio(BIO_new(BIO_s_mem()));
    CheckOpenssl(bio && PEM_write_bio_X509(bio.get(), certificate.certificate.get()) == 1, "PEM");
    return TextOf(bio);
}

testbed::TlsContextPointer MakeServerContext(const Certificate& certificate) {
    testbed::TlsContextPointer context(SSL_CTX_new(TLS_server_method()));
    CheckOpenssl(context && SSL_CTX_use_certificate(context.get(), certificate.certificate.get()) == 1 &&
                     SSL_CTX_use_PrivateKey(context.get(), certificate.key.get()) == 1 &&
                     SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1,
                 "TLS context");
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    // The tickets hold the whole session.
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    return context;
}

}  // namespace mpm
