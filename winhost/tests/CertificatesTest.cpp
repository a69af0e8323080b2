// The certificate store of the PC, and the conversion of its certificates to text.
#include <wincrypt.h>

#include <array>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/tests/Certificates.h"
#include "winhost/tests/PcFixture.h"

namespace {

constexpr DWORD kNoSuchCertificate = 0x80092004;

std::vector<BYTE> BytesOf(const std::string& hex) {
    std::vector<BYTE> bytes(100);
    auto size = static_cast<DWORD>(bytes.size());
    EXPECT_TRUE(
        CryptStringToBinaryA(hex.c_str(), 0, CRYPT_STRING_HEX_ANY, bytes.data(), &size, nullptr, nullptr));
    bytes.resize(size);
    return bytes;
}

class Certificates : public PcFixture {
  protected:
    Certificates() {
        StartPc([](winhost::PcDescription& pc) { pc.rootCertificates = {kAlphaPem, kBetaPem}; });
        m_store = CertOpenSystemStoreA(0, "ROOT");
    }
    ~Certificates() override { EXPECT_TRUE(CertCloseStore(m_store, 0)); }

    PCCERT_CONTEXT Find(const std::string& thumbprint) const {
        std::vector<BYTE> bytes = BytesOf(thumbprint);
        const CRYPT_HASH_BLOB hash{static_cast<DWORD>(bytes.size()), bytes.data()};
        return CertFindCertificateInStore(m_store, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                          CERT_FIND_SHA1_HASH, &hash, nullptr);
    }
    static std::string NameOf(PCCERT_CONTEXT certificate, DWORD room = 256) {
        std::vector<char> name(room, 'x');
        const DWORD length =
            CertGetNameStringA(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name.data(), room);
        EXPECT_EQ(length, std::strlen(name.data()) + 1);
        return name.data();
    }

    HCERTSTORE m_store = nullptr;
};

TEST_F(Certificates, AreFoundByTheirThumbprint) {
    const PCCERT_CONTEXT beta = Find(kBetaThumbprint);
    ASSERT_TRUE(beta);
    EXPECT_EQ(NameOf(beta), kBetaName);
    EXPECT_TRUE(CertFreeCertificateContext(beta));
    EXPECT_EQ(nullptr, Find(std::string(40, '0')));
    EXPECT_EQ(kNoSuchCertificate, GetLastError());
    EXPECT_EQ(nullptr, Find("73309F")) << "a thumbprint has 20 bytes";
}

TEST_F(Certificates, AFileMayHoldOne) {
    const std::string file = (m_root / "alpha.pem").string();
    std::ofstream(file) << kAlphaPem;
    EXPECT_TRUE(CertCloseStore(m_store, 0));
    StartPc([&](winhost::PcDescription& pc) { pc.rootCertificates = {"/nowhere.pem", "C:\\b.pem", file}; });
    m_store = CertOpenSystemStoreA(0, "Root");
    const PCCERT_CONTEXT alpha = Find(kAlphaThumbprint);
    ASSERT_TRUE(alpha);
    CertFreeCertificateContext(alpha);
}

TEST_F(Certificates, ANameIsCutToItsBuffer) {
    const PCCERT_CONTEXT alpha = Find(kAlphaThumbprint);
    ASSERT_TRUE(alpha);
    EXPECT_EQ(NameOf(alpha, 8), "Example");
    CertFreeCertificateContext(alpha);
}

TEST_F(Certificates, BecomeTextInTwoSteps) {
    const PCCERT_CONTEXT alpha = Find(kAlphaThumbprint);
    ASSERT_TRUE(alpha);
    DWORD size = 0;
    ASSERT_TRUE(CryptBinaryToStringA(alpha->pbCertEncoded, alpha->cbCertEncoded, CRYPT_STRING_BASE64HEADER,
                                     nullptr, &size));
    std::string text(size, '?');
    ASSERT_TRUE(CryptBinaryToStringA(alpha->pbCertEncoded, alpha->cbCertEncoded, CRYPT_STRING_BASE64HEADER,
                                     text.data(), &size));
    EXPECT_EQ(size + 1, text.size()) << "the length is that without the NUL";
    text.resize(size);
    std::erase(text, '\r');
    EXPECT_EQ(text, kAlphaPem);
    DWORD small = size;
    EXPECT_FALSE(CryptBinaryToStringA(alpha->pbCertEncoded, alpha->cbCertEncoded, CRYPT_STRING_BASE64HEADER,
                                      text.data(), &small));
    EXPECT_EQ(DWORD{ERROR_MORE_DATA}, GetLastError());
    CertFreeCertificateContext(alpha);
}

TEST_F(Certificates, HexadecimalTextMayHaveBlanks) {
    EXPECT_EQ(BytesOf("0aFF 10\r\n7f"), (std::vector<BYTE>{0x0A, 0xFF, 0x10, 0x7F}));
    std::array<BYTE, 2> room{};
    for (const char* wrong : {"", "0", "0g", "0x12", "1 2"}) {
        DWORD size = room.size();
        EXPECT_FALSE(
            CryptStringToBinaryA(wrong, 0, CRYPT_STRING_HEX_ANY, room.data(), &size, nullptr, nullptr))
            << wrong;
        EXPECT_EQ(DWORD{ERROR_INVALID_DATA}, GetLastError()) << wrong;
    }
    DWORD size = room.size();
    EXPECT_FALSE(
        CryptStringToBinaryA("010203", 0, CRYPT_STRING_HEX_ANY, room.data(), &size, nullptr, nullptr));
    EXPECT_EQ(DWORD{ERROR_MORE_DATA}, GetLastError());
}

TEST_F(Certificates, OnlyTheStoreOfRootsExists) {
    EXPECT_EQ(nullptr, CertOpenSystemStoreA(0, "MY"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
    EXPECT_FALSE(CertCloseStore(nullptr, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}

TEST_F(Certificates, EachCallCanBeMadeToFail) {
    winhost::Gate& gate = winhost::Gate::Instance();
    gate.FailNth("CertOpenSystemStoreA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(nullptr, CertOpenSystemStoreA(0, "ROOT"));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    const PCCERT_CONTEXT alpha = Find(kAlphaThumbprint);
    gate.FailNth("CertGetNameStringA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(NameOf(alpha), "");
    CertFreeCertificateContext(alpha);
}

}  // namespace
