// The firmware's key and request for a certificate, and what it finds in the host's answer.
#include "firmware/enrol/Enrolment.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <cstring>
#include <string>

namespace mpm::test {
namespace {

using testbed::BioPointer, testbed::CertificatePointer, testbed::KeyPointer;

// An authority that certifies any key.
class Signer {
  public:
    Signer() : m_key(EVP_EC_gen("P-256")), m_certificate(Make("Signer", m_key.get())) {}
    std::string Certificate() const { return Pem(m_certificate.get()); }
    std::string Sign(const CsrRequest& request) const {
        const BioPointer bio(BIO_new_mem_buf(request.CSR, int(request.CSRSize)));
        const testbed::RequestPointer csr(PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr));
        const KeyPointer key(csr ? X509_REQ_get_pubkey(csr.get()) : nullptr);
        EXPECT_TRUE(key && X509_REQ_verify(csr.get(), key.get()) == 1);
        return Pem(Make("laptop", key.get()).get());
    }

  private:
    CertificatePointer Make(const char* name, EVP_PKEY* key) const {
        CertificatePointer made(X509_new());
        // An authority of version 1 needs no extensions.
        X509_set_version(made.get(), X509_VERSION_1);
        X509_gmtime_adj(X509_getm_notBefore(made.get()), -60);
        X509_gmtime_adj(X509_getm_notAfter(made.get()), 3600);
        X509_set_pubkey(made.get(), key);
        const auto add = [](X509_NAME* to, const char* value) {
            X509_NAME_add_entry_by_txt(to, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(value),
                                       -1, -1, 0);
        };
        add(X509_get_subject_name(made.get()), name);
        add(X509_get_issuer_name(made.get()), "Signer");
        X509_sign(made.get(), m_key.get(), EVP_sha256());
        return made;
    }
    static std::string Pem(X509* certificate) {
        const BioPointer bio(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(bio.get(), certificate);
        return TextOf(bio);
    }

    KeyPointer m_key;
    CertificatePointer m_certificate;
};

const EnrolmentNames kNames{"ca.example.test", "Signer", "Machine", "laptop"};

CsrResponse Answer(const std::string& certificate, const std::string& root) {
    CsrResponse response{};
    response.SignedCertSize = uint32_t(certificate.copy(response.SignedCert, sizeof response.SignedCert));
    response.RootCertSize = uint32_t(root.copy(response.RootCert, sizeof response.RootCert));
    return response;
}

}  // namespace

TEST(EnrolmentTest, ACertificateIsCheckedAgainstItsKeyAndItsRoot) {
    Enrolments enrolments;
    const Signer signer;
    EXPECT_TRUE(enrolments.Last().isNull());
    const CsrRequest request = enrolments.Begin(kNames);
    EXPECT_STREQ(request.ADCSName, "ca.example.test");
    EXPECT_STREQ(request.ADCSTemplateName, "Machine");
    const Json::Value good = enrolments.Examine(Answer(signer.Sign(request), signer.Certificate()));
    EXPECT_TRUE(good["matchesKey"].asBool());
    EXPECT_TRUE(good["chainsToRoot"].asBool());
    EXPECT_EQ(good["verdict"].asString(),
              "CN=laptop, issued by CN=Signer, matches its key, chains to the root CN=Signer");
    EXPECT_EQ(enrolments.Last(), good);
}

TEST(EnrolmentTest, AnotherRootIsSeen) {
    Enrolments enrolments;
    const Signer signer, other;
    const std::string certificate = signer.Sign(enrolments.Begin(kNames));
    const Json::Value examined = enrolments.Examine(Answer(certificate, other.Certificate()));
    EXPECT_TRUE(examined["matchesKey"].asBool());
    EXPECT_FALSE(examined["chainsToRoot"].asBool()) << "the same name, and another key";
}

TEST(EnrolmentTest, AnotherKeyIsSeen) {
    Enrolments enrolments, others;
    const Signer signer;
    enrolments.Begin(kNames);
    const Json::Value examined =
        enrolments.Examine(Answer(signer.Sign(others.Begin(kNames)), signer.Certificate()));
    EXPECT_FALSE(examined["matchesKey"].asBool());
    EXPECT_TRUE(examined["chainsToRoot"].asBool());
}

TEST(EnrolmentTest, SeveralMayBeUnderWay) {
    Enrolments enrolments;
    const Signer signer;
    const CsrRequest first = enrolments.Begin(kNames), second = enrolments.Begin(kNames);
    for (const CsrRequest& request : {second, first})
        EXPECT_TRUE(enrolments.Examine(Answer(signer.Sign(request), {}))["matchesKey"].asBool());
    EXPECT_FALSE(enrolments.Examine(Answer(signer.Sign(first), {}))["matchesKey"].asBool())
        << "its key is forgotten";
    EXPECT_EQ(enrolments.Last()["answers"].asInt(), 3);
}

TEST(EnrolmentTest, WhatIsNoCertificateIsRefused) {
    Enrolments enrolments;
    const Signer signer;
    EXPECT_EQ(enrolments.Examine({})["verdict"].asString(), "refused: no certificate");
    EXPECT_EQ(enrolments.Examine(Answer(std::string(4096, 'x'), signer.Certificate()))["verdict"].asString(),
              "refused: the answer is no certificate");
    CsrResponse larger = Answer(signer.Sign(enrolments.Begin(kNames)), {});
    larger.RootCertSize = 0xFFFFFFFF;
    EXPECT_EQ(enrolments.Examine(larger)["verdict"].asString(),
              "CN=laptop, issued by CN=Signer, matches its key, came without its root");
}

}  // namespace mpm::test
