#include "firmware/enrol/Enrolment.h"

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstring>

namespace mpm {

namespace {

using testbed::BioPointer, testbed::CertificatePointer, testbed::CheckOpenssl, testbed::KeyPointer;
using testbed::OpensslDelete, testbed::RequestPointer;
using StorePointer = std::unique_ptr<X509_STORE, OpensslDelete<X509_STORE_free>>;
using VerifierPointer = std::unique_ptr<X509_STORE_CTX, OpensslDelete<X509_STORE_CTX_free>>;

std::string RequestFor(EVP_PKEY* key, const std::string& subject) {
    const RequestPointer request(X509_REQ_new());
    const BioPointer bio(BIO_new(BIO_s_mem()));
    CheckOpenssl(request && bio, "request");
    X509_NAME* const name = X509_REQ_get_subject_name(request.get());
    CheckOpenssl(X509_REQ_set_pubkey(request.get(), key) == 1 &&
                     X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                                reinterpret_cast<const unsigned char*>(subject.c_str()), -1,
                                                -1, 0) == 1 &&
                     X509_REQ_sign(request.get(), key, EVP_sha256()) > 0 &&
                     PEM_write_bio_X509_REQ(bio.get(), request.get()) == 1,
                 "request");
    return TextOf(bio);
}

// Null for bytes that hold no certificate, neither as PEM nor encoded.
CertificatePointer Parse(const char* bytes, size_t size) {
    const BioPointer bio(BIO_new_mem_buf(bytes, int(size)));
    CertificatePointer certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!certificate) {
        const auto* encoded = reinterpret_cast<const unsigned char*>(bytes);
        certificate.reset(d2i_X509(nullptr, &encoded, long(size)));
    }
    ERR_clear_error();
    return certificate;
}

std::string TextOf(const X509_NAME* name) {
    const BioPointer bio(BIO_new(BIO_s_mem()));
    if (!bio || X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) < 0) return {};
    return TextOf(bio);
}

bool ChainsTo(X509* root, X509* certificate) {
    const StorePointer store(X509_STORE_new());
    const VerifierPointer verifier(X509_STORE_CTX_new());
    const bool chains = store && verifier && X509_STORE_add_cert(store.get(), root) == 1 &&
                        X509_STORE_CTX_init(verifier.get(), store.get(), certificate, nullptr) == 1 &&
                        X509_verify_cert(verifier.get()) == 1;
    ERR_clear_error();
    return chains;
}

std::string VerdictOf(const Json::Value& examined) {
    if (!examined.isMember("subject"))
        return examined["signedCertSize"].asUInt() == 0 ? "refused: no certificate"
                                                        : "refused: the answer is no certificate";
    std::string verdict = examined["subject"].asString() + ", issued by " + examined["issuer"].asString();
    verdict += examined["matchesKey"].asBool() ? ", matches its key" : ", does not match the key";
    if (!examined.isMember("root")) return verdict + ", came without its root";
    return verdict +
           (examined["chainsToRoot"].asBool() ? ", chains to the root " : ", does not chain to the root ") +
           examined["root"].asString();
}

}  // namespace

CsrRequest Enrolments::Begin(const EnrolmentNames& names) {
    KeyPointer key(EVP_EC_gen("P-256"));
    CheckOpenssl(key != nullptr, "key");
    const std::string csr = RequestFor(key.get(), names.subject);
    CsrRequest request{};
    names.host.copy(request.ADCSName, sizeof request.ADCSName);
    names.authority.copy(request.RootCAName, sizeof request.RootCAName);
    names.certificateTemplate.copy(request.ADCSTemplateName, sizeof request.ADCSTemplateName);
    request.CSRSize = uint32_t(csr.copy(request.CSR, sizeof request.CSR));
    request.IsRootCARequired = 1;
    std::lock_guard lock(m_mutex);
    if (m_keys.size() == kMostKeys) m_keys.pop_front();
    m_keys.push_back(std::move(key));
    return request;
}

Json::Value Enrolments::Examine(const CsrResponse& response) {
    std::lock_guard lock(m_mutex);
    Json::Value examined(Json::objectValue);
    examined["answers"] = ++m_answers;
    examined["signedCertSize"] = Json::UInt(response.SignedCertSize);
    examined["rootCertSize"] = Json::UInt(response.RootCertSize);
    const auto parse = [](const auto& field, uint32_t size) {
        return Parse(field, std::min<size_t>(size, sizeof field));
    };
    const CertificatePointer certificate = parse(response.SignedCert, response.SignedCertSize);
    const CertificatePointer root = parse(response.RootCert, response.RootCertSize);
    if (certificate) {
        examined["subject"] = TextOf(X509_get_subject_name(certificate.get()));
        examined["issuer"] = TextOf(X509_get_issuer_name(certificate.get()));
    }
    if (root) examined["root"] = TextOf(X509_get_subject_name(root.get()));
    examined["matchesKey"] = certificate && TakeKeyOf(certificate.get());
    examined["chainsToRoot"] = certificate && root && ChainsTo(root.get(), certificate.get());
    examined["verdict"] = VerdictOf(examined);
    return m_last = examined;
}

Json::Value Enrolments::Last() const {
    std::lock_guard lock(m_mutex);
    return m_last;
}

bool Enrolments::TakeKeyOf(X509* certificate) {
    const auto found = std::find_if(m_keys.begin(), m_keys.end(), [&](const KeyPointer& key) {
        return X509_check_private_key(certificate, key.get()) == 1;
    });
    ERR_clear_error();
    if (found == m_keys.end()) return false;
    m_keys.erase(found);
    return true;
}

}  // namespace mpm
