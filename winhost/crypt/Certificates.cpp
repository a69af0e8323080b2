// Certificates, their stores, and the search in these.
#include <openssl/evp.h>
#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <strings.h>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/crypt/CertificateStore.h"
#include "winhost/crypt/SubjectText.h"

using winhost::CertificateContext;
using winhost::CertificateStore;
using winhost::Encoded;
using winhost::Fail;
using winhost::HandleTable;

namespace {

constexpr size_t kSha1Bytes = 20;
constexpr DWORD kNotFound = 0x80092004;  // CRYPT_E_NOT_FOUND

bool HasHash(const Encoded& encoded, const CRYPT_HASH_BLOB& hash) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    return hash.cbData == kSha1Bytes &&
           EVP_Digest(encoded.data(), encoded.size(), digest.data(), &size, EVP_sha1(), nullptr) == 1 &&
           std::memcmp(digest.data(), hash.pbData, kSha1Bytes) == 0;
}

// Whether a certificate of the store is one that is searched for; nothing for a search that is none.
std::optional<std::function<bool(const Encoded&)>> MatchOf(DWORD type, const void* parameter) {
    if (type == CERT_FIND_SUBJECT_STR_A) {
        const auto* const text = static_cast<const char*>(parameter);
        return [wanted = std::string(text ? text : "")](const Encoded& encoded) {
            return winhost::SubjectContains(encoded, wanted);
        };
    }
    const auto* const hash = static_cast<const CRYPT_HASH_BLOB*>(parameter);
    if (type != CERT_FIND_SHA1_HASH || !hash || !hash->pbData) return std::nullopt;
    return [hash](const Encoded& encoded) { return HasHash(encoded, *hash); };
}

HCERTSTORE OpenStore(std::string_view name) {
    const auto certificates = winhost::CertificatesOf(name);
    if (!certificates) return Fail(ERROR_FILE_NOT_FOUND, HCERTSTORE{});
    return HandleTable::Instance().Add(std::make_shared<CertificateStore>(*certificates));
}

}  // namespace

HCERTSTORE CertOpenSystemStoreA(HCRYPTPROV_LEGACY, LPCSTR szSubsystemProtocol) {
    WINHOST_GATE("CertOpenSystemStoreA", nullptr);
    if (!szSubsystemProtocol) return Fail(ERROR_INVALID_PARAMETER, HCERTSTORE{});
    // The user's stores, of which the PC has only this one.
    if (strcasecmp(szSubsystemProtocol, "ROOT") != 0) return Fail(ERROR_FILE_NOT_FOUND, HCERTSTORE{});
    return OpenStore("ROOT");
}

HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD, HCRYPTPROV_LEGACY hCryptProv, DWORD dwFlags,
                         const void* pvPara) {
    WINHOST_GATE("CertOpenStore", nullptr);
    if (lpszStoreProvider != CERT_STORE_PROV_SYSTEM_W) return Fail(ERROR_FILE_NOT_FOUND, HCERTSTORE{});
    if (hCryptProv || !pvPara || dwFlags != (CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG))
        return Fail(ERROR_INVALID_PARAMETER, HCERTSTORE{});
    return OpenStore(testbed::ToUtf8(std::wstring_view(static_cast<const WCHAR*>(pvPara))));
}

BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags) {
    WINHOST_GATE("CertCloseStore", FALSE);
    if (dwFlags != 0) return Fail(ERROR_INVALID_PARAMETER);
    return HandleTable::Instance().Close<CertificateStore>(hCertStore) ? TRUE : Fail(ERROR_INVALID_HANDLE);
}

PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags,
                                          DWORD dwFindType, const void* pvFindPara,
                                          PCCERT_CONTEXT pPrevCertContext) {
    WINHOST_GATE("CertFindCertificateInStore", nullptr);
    const auto store = HandleTable::Instance().Find<CertificateStore>(hCertStore);
    const auto matches = MatchOf(dwFindType, pvFindPara);
    if (!store || !matches || dwFindFlags != 0 || !(dwCertEncodingType & X509_ASN_ENCODING))
        return Fail(ERROR_INVALID_PARAMETER, PCCERT_CONTEXT{});
    const auto& all = store->All();
    auto next = all.begin();
    if (pPrevCertContext) {
        const std::unique_ptr<const CertificateContext> previous(
            static_cast<const CertificateContext*>(pPrevCertContext));
        next = std::find(all.begin(), all.end(), previous->encoded);
        if (next != all.end()) ++next;
    }
    next = std::find_if(next, all.end(), *matches);
    if (next == all.end()) return Fail(kNotFound, PCCERT_CONTEXT{});
    return new CertificateContext(*next, hCertStore);
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    WINHOST_GATE_PASS("CertFreeCertificateContext");
    delete static_cast<const CertificateContext*>(pCertContext);
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
    const std::string name = winhost::DisplayNameOf(
        winhost::Parse(pCertContext->pbCertEncoded, pCertContext->cbCertEncoded).get());
    if (!pszNameString || cchNameString == 0) return static_cast<DWORD>(name.size() + 1);
    const size_t length = name.copy(pszNameString, cchNameString - 1);
    pszNameString[length] = '\0';
    return static_cast<DWORD>(length + 1);
}
