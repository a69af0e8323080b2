// The certificates of the trusted authorities that an enterprise profile names by their thumbprints.
#include <array>

#include "base/CertificateOwners.h"
#include "base/Log.h"
#include "wifi/EnterpriseProfile.h"

namespace {

constexpr size_t kSizeOfOne = 1024;     // of a certificate's text, roughly
constexpr DWORD kThumbprintBytes = 20;  // SHA-1
constexpr DWORD kMaxName = 256;
constexpr size_t kLineEnd = 2;

// Returns null for a thumbprint that is none, or that no certificate of the store has.
UniqueCertificate FindByThumbprint(HCERTSTORE store, const std::string& thumbprint) {
    std::array<BYTE, kThumbprintBytes> bytes{};
    CRYPT_HASH_BLOB hash{kThumbprintBytes, bytes.data()};
    if (!CryptStringToBinaryA(thumbprint.c_str(), 0, CRYPT_STRING_HEX_ANY, hash.pbData, &hash.cbData, nullptr,
                              nullptr)) {
        LogError("Failed to convert thumbprint for: %s", thumbprint);
        return {};
    }
    UniqueCertificate found(CertFindCertificateInStore(store, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                                       CERT_FIND_SHA1_HASH, &hash, nullptr));
    if (!found) LogError("Unable to retrieve Certificate by thumbprint: %s", thumbprint);
    return found;
}

void LogNameOf(PCCERT_CONTEXT certificate) {
    char name[kMaxName] = {};
    // 1 stands for an empty name, and for a failure.
    if (CertGetNameStringA(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name, kMaxName) > 1) {
        LogInfo("Certificate found: %s", name);
    } else {
        LogError("CertGetName failed.");
    }
}

// Returns the certificate as PEM, empty when it cannot be converted.
std::string PemOf(const CERT_CONTEXT& certificate) {
    DWORD size = 0;
    if (!CryptBinaryToStringA(certificate.pbCertEncoded, certificate.cbCertEncoded, CRYPT_STRING_BASE64HEADER,
                              nullptr, &size))
        return {};
    std::string text(size, '\0');
    if (!CryptBinaryToStringA(certificate.pbCertEncoded, certificate.cbCertEncoded, CRYPT_STRING_BASE64HEADER,
                              text.data(), &size))
        return {};
    text.resize(size);
    return text;
}

}  // namespace

uint32_t GetCertificatesByThumbprint(const std::vector<std::string>& thumbprints, std::string& output) {
    const UniqueCertificateStore store(CertOpenSystemStoreA(0, "ROOT"));
    if (!store) {
        LogError("Failed to open certificate store.");
        return 1;
    }
    output.reserve(thumbprints.size() * kSizeOfOne);
    for (const std::string& thumbprint : thumbprints) {
        LogInfo("Search Certificate by thumbprint: %s", thumbprint);
        const UniqueCertificate certificate = FindByThumbprint(store.Get(), thumbprint);
        if (!certificate) continue;
        LogNameOf(certificate.Get());
        const std::string text = PemOf(*certificate.Get());
        if (text.size() <= kLineEnd) {
            LogError("Failed to retrieve certificate data.");
            continue;
        }
        // The last line has no end, so that the next certificate follows on it.
        output.append(text, 0, text.size() - kLineEnd);
    }
    return 0;
}
