// The certificate store "ROOT", with the certificates that the PC's description names.
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <strings.h>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/pc/Pc.h"

using winhost::HandleTable;

namespace {

constexpr size_t kSha1Bytes = 20;
constexpr DWORD kNotFound = 0x80092004;  // CRYPT_E_NOT_FOUND

using X509Owner = std::unique_ptr<X509, decltype(&X509_free)>;
using Encoded = std::vector<BYTE>;

std::string PemOf(const std::string& certificate) {
    if (certificate.starts_with("-----BEGIN")) return certificate;
    std::ifstream file(winhost::Pc::Instance().HostPath(certificate), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Empty for a text that is no certificate.
Encoded EncodedOf(const std::string& certificate) {
    const std::string pem = PemOf(certificate);
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &BIO_free);
    const X509Owner x509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), &X509_free);
    unsigned char* bytes = nullptr;
    const int size = x509 ? i2d_X509(x509.get(), &bytes) : 0;
    Encoded encoded(bytes, bytes + std::max(size, 0));
    OPENSSL_free(bytes);
    return encoded;
}

class CertificateStore final : public winhost::Object {
  public:
    CertificateStore() {
        for (const std::string& certificate : winhost::Pc::Instance().Description().rootCertificates)
            m_certificates.push_back(EncodedOf(certificate));
    }
    bool IsClosedByCloseHandle() const override { return false; }
    const std::vector<Encoded>& All() const { return m_certificates; }

  private:
    std::vector<Encoded> m_certificates;
};

// The context lies in its own memory, and with it the bytes that it points to.
struct Context : CERT_CONTEXT {
    explicit Context(const Encoded& bytes) : CERT_CONTEXT{}, encoded(bytes) {
        dwCertEncodingType = X509_ASN_ENCODING;
        pbCertEncoded = encoded.data();
        cbCertEncoded = static_cast<DWORD>(encoded.size());
    }
    Encoded encoded;
};

bool HasHash(const Encoded& encoded, const CRYPT_HASH_BLOB& hash) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    return hash.cbData == kSha1Bytes &&
           EVP_Digest(encoded.data(), encoded.size(), digest.data(), &size, EVP_sha1(), nullptr) == 1 &&
           std::memcmp(digest.data(), hash.pbData, kSha1Bytes) == 0;
}

std::string SimpleNameOf(const CERT_CONTEXT& context) {
    const unsigned char* bytes = context.pbCertEncoded;
    const X509Owner x509(d2i_X509(nullptr, &bytes, static_cast<long>(context.cbCertEncoded)), &X509_free);
    if (!x509) return {};
    X509_NAME* const subject = X509_get_subject_name(x509.get());
    for (const int nid :
         {NID_commonName, NID_organizationalUnitName, NID_organizationName, NID_pkcs9_emailAddress}) {
        const int at = X509_NAME_get_index_by_NID(subject, nid, -1);
        if (at < 0) continue;
        unsigned char* text = nullptr;
        const int size =
            ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
        std::string name(reinterpret_cast<const char*>(text), static_cast<size_t>(std::max(size, 0)));
        OPENSSL_free(text);
        return name;
    }
    return {};
}

}  // namespace

HCERTSTORE CertOpenSystemStoreA(HCRYPTPROV_LEGACY, LPCSTR szSubsystemProtocol) {
    WINHOST_GATE("CertOpenSystemStoreA", nullptr);
    if (!szSubsystemProtocol || strcasecmp(szSubsystemProtocol, "ROOT") != 0) {
        SetLastError(szSubsystemProtocol ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return HandleTable::Instance().Add(std::make_shared<CertificateStore>());
}

BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags) {
    WINHOST_GATE("CertCloseStore", FALSE);
    if (dwFlags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (HandleTable::Instance().Close<CertificateStore>(hCertStore)) return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags,
                                          DWORD dwFindType, const void* pvFindPara,
                                          PCCERT_CONTEXT pPrevCertContext) {
    WINHOST_GATE("CertFindCertificateInStore", nullptr);
    const auto* const hash = static_cast<const CRYPT_HASH_BLOB*>(pvFindPara);
    const auto store = HandleTable::Instance().Find<CertificateStore>(hCertStore);
    if (!store || !hash || !hash->pbData || dwFindFlags != 0 || dwFindType != CERT_FIND_SHA1_HASH ||
        !(dwCertEncodingType & X509_ASN_ENCODING)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    // No two certificates have one hash, so that nothing comes after the previous one.
    if (pPrevCertContext) {
        delete static_cast<const Context*>(pPrevCertContext);
    } else {
        for (const Encoded& encoded : store->All()) {
            if (encoded.empty() || !HasHash(encoded, *hash)) continue;
            auto* const found = new Context(encoded);
            found->hCertStore = hCertStore;
            return found;
        }
    }
    SetLastError(kNotFound);
    return nullptr;
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    WINHOST_GATE_PASS("CertFreeCertificateContext");
    delete static_cast<const Context*>(pCertContext);
    return TRUE;
}

DWORD CertGetNameStringA(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags, void* pvTypePara,
                         LPSTR pszNameString, DWORD cchNameString) {
    // Without a name it returns an empty text, as a failure does.
    const auto fail = [&] {
        if (pszNameString && cchNameString > 0) *pszNameString = '\0';
        return DWORD{1};
    };
    WINHOST_GATE("CertGetNameStringA", fail());
    if (!pCertContext || dwType != CERT_NAME_SIMPLE_DISPLAY_TYPE || dwFlags != 0 || pvTypePara) return fail();
    const std::string name = SimpleNameOf(*pCertContext);
    if (!pszNameString || cchNameString == 0) return static_cast<DWORD>(name.size() + 1);
    const size_t length = name.copy(pszNameString, cchNameString - 1);
    pszNameString[length] = '\0';
    return static_cast<DWORD>(length + 1);
}
