#include "companions/certreq/Authority.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "testbed/Openssl.h"

namespace certreq {

namespace {

namespace fs = std::filesystem;

constexpr long kDay = 24L * 60 * 60;
constexpr long kAuthorityDays = 3650, kCertificateDays = 365;

using testbed::BioPointer, testbed::CertificatePointer, testbed::CheckOpenssl, testbed::KeyPointer;
using testbed::OpensslDelete, testbed::ReaderOf, testbed::RequestPointer, testbed::TextOf;

std::string PemOf(X509* certificate) {
    const BioPointer bio(BIO_new(BIO_s_mem()));
    CheckOpenssl(bio && PEM_write_bio_X509(bio.get(), certificate) == 1, "PEM");
    return TextOf(bio);
}

void AddExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, OpensslDelete<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    CheckOpenssl(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "certificate extension");
}

// A certificate without a name, an issuer and a signature.
CertificatePointer Blank(EVP_PKEY* key, long days) {
    CertificatePointer certificate(X509_new());
    X509* const x509 = certificate.get();
    uint64_t serial = 0;
    CheckOpenssl(x509 && X509_set_version(x509, X509_VERSION_3) == 1 &&
                     RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1 &&
                     ASN1_INTEGER_set_uint64(X509_get_serialNumber(x509), serial >> 1) == 1 &&
                     // A day back, for those whose clock is behind.
                     X509_gmtime_adj(X509_getm_notBefore(x509), -kDay) &&
                     X509_gmtime_adj(X509_getm_notAfter(x509), days * kDay) &&
                     X509_set_pubkey(x509, key) == 1,
                 "certificate");
    return certificate;
}

void AddName(X509_NAME* name, const char* field, const char* value) {
    CheckOpenssl(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                            reinterpret_cast<const unsigned char*>(value), -1, -1, 0) == 1,
                 "name");
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Under a name that no other process has.
fs::path WriteBeside(const fs::path& path, const std::string& text) {
    fs::path other = path;
    other += "." + std::to_string(std::random_device()());
    std::ofstream file(other, std::ios::binary);
    file << text;
    file.close();
    if (file.fail()) throw std::runtime_error("the authority's folder cannot be written to");
    return other;
}

KeyPointer MakeKey() {
    KeyPointer key(EVP_EC_gen("P-256"));
    CheckOpenssl(key != nullptr, "key");
    return key;
}

CertificatePointer MakeCertificate(EVP_PKEY* key) {
    CertificatePointer certificate = Blank(key, kAuthorityDays);
    X509* const x509 = certificate.get();
    X509_NAME* const name = X509_get_subject_name(x509);
    AddName(name, "O", "Example");
    AddName(name, "CN", kAuthorityName);
    CheckOpenssl(X509_set_issuer_name(x509, name) == 1, "name");
    AddExtension(x509, x509, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(x509, x509, NID_key_usage, "critical,keyCertSign,cRLSign");
    AddExtension(x509, x509, NID_subject_key_identifier, "hash");
    CheckOpenssl(X509_sign(x509, key, EVP_sha256()) > 0, "signature");
    return certificate;
}

// Key and certificate in one text.
std::string MakeSecret() {
    const KeyPointer key = MakeKey();
    const BioPointer bio(BIO_new(BIO_s_mem()));
    CheckOpenssl(
        bio && PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
        "PEM");
    return TextOf(bio) + PemOf(MakeCertificate(key.get()).get());
}

}  // namespace

struct Authority::Keys {
    KeyPointer key;
    CertificatePointer certificate;
};

Authority::~Authority() = default;

Authority::Authority(const fs::path& folder) : m_keys(std::make_unique<Keys>()) {
    const fs::path secret = folder / "authority.pem", published = folder / "ca.pem";
    fs::create_directories(folder);
    if (!fs::exists(secret)) {
        const fs::path own = WriteBeside(secret, MakeSecret());
        // Does nothing when another process was faster.
        std::error_code ignored;
        fs::create_hard_link(own, secret, ignored);
        fs::remove(own);
    }
    const std::string pem = ReadFile(secret);
    m_keys->key.reset(PEM_read_bio_PrivateKey(ReaderOf(pem).get(), nullptr, nullptr, nullptr));
    m_keys->certificate.reset(PEM_read_bio_X509(ReaderOf(pem).get(), nullptr, nullptr, nullptr));
    CheckOpenssl(m_keys->key && m_keys->certificate, "the authority's files cannot be read");
    fs::rename(WriteBeside(published, PemOf(m_keys->certificate.get())), published);
}

std::string Authority::Issue(const std::string& request) const {
    const RequestPointer csr(PEM_read_bio_X509_REQ(ReaderOf(request).get(), nullptr, nullptr, nullptr));
    CheckOpenssl(csr != nullptr, "the file is no certificate request");
    const KeyPointer key(X509_REQ_get_pubkey(csr.get()));
    CheckOpenssl(key && X509_REQ_verify(csr.get(), key.get()) == 1,
                 "the request is not signed by its own key");
    const CertificatePointer certificate = Blank(key.get(), kCertificateDays);
    X509 *const x509 = certificate.get(), *const issuer = m_keys->certificate.get();
    CheckOpenssl(X509_set_subject_name(x509, X509_REQ_get_subject_name(csr.get())) == 1 &&
                     X509_set_issuer_name(x509, X509_get_subject_name(issuer)) == 1,
                 "name");
    AddExtension(x509, issuer, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(x509, issuer, NID_key_usage, "critical,digitalSignature");
    AddExtension(x509, issuer, NID_ext_key_usage, "clientAuth,serverAuth");
    AddExtension(x509, issuer, NID_authority_key_identifier, "keyid");
    CheckOpenssl(X509_sign(x509, m_keys->key.get(), EVP_sha256()) > 0, "signature");
    return PemOf(x509);
}

}  // namespace certreq
