#include "identity/CertificateChain.h"

#include <fstream>

#include "base/FileGuard.h"
#include "base/Log.h"
#include "identity/CsrFiles.h"
#include "state/ServiceState.h"

namespace {

constexpr DWORD kMaxName = 512;

// Without the line end that Windows adds by default.
std::string Base64Of(const CERT_CONTEXT& certificate) {
    constexpr DWORD kFlags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    DWORD size = 0;
    if (!CryptBinaryToStringA(certificate.pbCertEncoded, certificate.cbCertEncoded, kFlags, nullptr, &size))
        return {};
    std::string text(size, '\0');
    if (!CryptBinaryToStringA(certificate.pbCertEncoded, certificate.cbCertEncoded, kFlags, text.data(),
                              &size))
        return {};
    text.resize(size);
    return text;
}

UniqueCertificateChain BuildChain(PCCERT_CONTEXT certificate) {
    CERT_CHAIN_PARA parameters{};
    static_assert(sizeof parameters == 32);
    parameters.cbSize = sizeof parameters;
    UniqueCertificateChain chain;
    if (CertGetCertificateChain(nullptr, certificate, nullptr, certificate->hCertStore, &parameters, 0,
                                nullptr, chain.Receive())) {
        LogInfo("Successfully retrieved Certificate chain.");
    } else {
        LogError("Failed to build certificate chain.");
    }
    return chain;
}

std::string NameOfLast(const CERT_SIMPLE_CHAIN& chain) {
    if (chain.cElement == 0) return {};
    LogInfo("Simple Chain has Elements. Use it to get Root Cert");
    LogInfo("Fill Root Issuer using Root Cert");
    char name[kMaxName] = {};
    if (CertGetNameStringA(chain.rgpElement[chain.cElement - 1]->pCertContext, CERT_NAME_SIMPLE_DISPLAY_TYPE,
                           0, nullptr, name, kMaxName) == 0)
        return {};
    LogInfo("Fill Root Issuer using buffer");
    return name;
}

}  // namespace

uint32_t FindCertificateChain(const std::string& issuerName) {
    LogInfo("Check for issuer: %s", issuerName);
    LogInfo("Look for issuer in Cert store");
    const FoundCertificate issuer = FindInStore(L"MY", issuerName);
    if (!issuer.certificate) {
        LogError("Failed to find the certificate: %s", issuerName);
        return 1;
    }
    LogInfo("Save Intermediate Certificate");
    WriteCertificatePem(GetIntermediateCertPath(), *issuer.certificate.Get());
    LogInfo("Use issuer to locate root certificate issuer");
    const std::string rootName = GetRootIssuerName(issuer.certificate.Get());
    if (rootName.empty()) {
        LogError("Failed to get root certificate issuer.");
        return 1;
    }
    LogInfo("Root Certificate: %s", rootName);
    const FoundCertificate root = FindInStore(L"ROOT", rootName);
    if (!root.certificate) {
        LogError("Root certificate not found in the store.");
        return 1;
    }
    WriteCertificatePem(GetRootCertPath(), *root.certificate.Get());
    return 0;
}

FoundCertificate FindInStore(const wchar_t* storeName, const std::string& subject) {
    FoundCertificate found;
    LogInfo("Open Cert Store");
    found.store.Reset(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0,
                                    CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG, storeName));
    if (!found.store) return found;
    LogInfo("Call CertFindCertificateInStore API");
    found.certificate.Reset(CertFindCertificateInStore(found.store.Get(), X509_ASN_ENCODING, 0,
                                                       CERT_FIND_SUBJECT_STR_A, subject.c_str(), nullptr));
    if (found.certificate) return found;
    LogInfo("Close Cert Store");
    found.store.Reset();
    return found;
}

std::string GetRootIssuerName(PCCERT_CONTEXT certificate) {
    LogInfo("Get Chain Context");
    LogInfo("Get Certificate Chain ");
    UniqueCertificateChain chain;
    if (!certificate) {
        LogError("Certificate context is null.");
    } else if (!certificate->hCertStore) {
        LogError("Certificate store is null.");
    } else {
        chain = BuildChain(certificate);
    }
    std::string name;
    if (chain && chain.Get()->cChain > 0) {
        LogInfo("Read Simple Chain from RGP Chain");
        name = NameOfLast(*chain.Get()->rgpChain[0]);
    } else {
        LogError("Failed to get certificate chain context.");
    }
    if (chain) LogInfo("Free Certificate Chain");
    return name;
}

void WriteCertificatePem(const std::string& path, const CERT_CONTEXT& certificate) {
    std::ofstream file =
        OpenForWriting(path, g_pServiceState->m_bWorkingFolderSecure, std::ios::out | std::ios::binary);
    if (!file.is_open()) return;
    file << "-----BEGIN CERTIFICATE-----\n" << Base64Of(certificate) << "\n-----END CERTIFICATE-----\n";
}
