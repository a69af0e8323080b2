// The chain of a certificate up to its root, built by OpenSSL.
#include <openssl/x509_vfy.h>
#include <wincrypt.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/crypt/CertificateStore.h"

using winhost::CertificateContext;
using winhost::CertificateStore;
using winhost::Encoded;
using winhost::Fail;
using winhost::HandleTable;
using winhost::X509Owner;

namespace {

void FreeStack(STACK_OF(X509) * stack) {
    sk_X509_pop_free(stack, &X509_free);
}
using StackOwner = std::unique_ptr<STACK_OF(X509), decltype(&FreeStack)>;
using VerifierOwner = std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)>;

DWORD TrustErrorOf(int error) {
    switch (error) {
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_CERT_UNTRUSTED:
            return CERT_TRUST_IS_UNTRUSTED_ROOT;
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return CERT_TRUST_IS_PARTIAL_CHAIN;
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
            return CERT_TRUST_IS_NOT_SIGNATURE_VALID;
        default:
            return CERT_TRUST_INVALID_EXTENSION;
    }
}

// Collects what is wrong with the chain and lets it be built to its end.
int CollectError(int ok, X509_STORE_CTX* verifier) {
    if (!ok)
        *static_cast<DWORD*>(X509_STORE_CTX_get_app_data(verifier)) |=
            TrustErrorOf(X509_STORE_CTX_get_error(verifier));
    return 1;
}

void Add(STACK_OF(X509) * stack, const std::vector<Encoded>& certificates) {
    for (const Encoded& encoded : certificates) {
        X509Owner x509 = winhost::Parse(encoded.data(), encoded.size());
        if (x509 && sk_X509_push(stack, x509.get()) > 0) static_cast<void>(x509.release());
    }
}

// Empty when there is no memory.
std::vector<Encoded> BuildChain(X509* leaf, const std::vector<Encoded>& additional, DWORD& trustError) {
    const StackOwner issuers(sk_X509_new_null(), &FreeStack), roots(sk_X509_new_null(), &FreeStack);
    const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> trusted(X509_STORE_new(), &X509_STORE_free);
    const VerifierOwner verifier(X509_STORE_CTX_new(), &X509_STORE_CTX_free);
    if (!issuers || !roots || !trusted || !verifier) return {};
    Add(issuers.get(), additional);
    for (const char* store : {"CA", "MY"})
        Add(issuers.get(), *winhost::CertificatesOf(store));
    Add(roots.get(), *winhost::CertificatesOf("ROOT"));
    for (int i = 0; i < sk_X509_num(roots.get()); ++i)
        X509_STORE_add_cert(trusted.get(), sk_X509_value(roots.get(), i));
    if (X509_STORE_CTX_init(verifier.get(), trusted.get(), leaf, issuers.get()) != 1) return {};
    X509_STORE_CTX_set_app_data(verifier.get(), &trustError);
    X509_STORE_CTX_set_verify_cb(verifier.get(), &CollectError);
    X509_STORE_CTX_set_flags(verifier.get(), X509_V_FLAG_NO_CHECK_TIME);
    X509_verify_cert(verifier.get());
    const StackOwner chain(X509_STORE_CTX_get1_chain(verifier.get()), &FreeStack);
    std::vector<Encoded> encoded;
    encoded.reserve(static_cast<size_t>(std::max(sk_X509_num(chain.get()), 0)));
    for (int i = 0; i < sk_X509_num(chain.get()); ++i)
        encoded.push_back(winhost::EncodedOf(sk_X509_value(chain.get(), i)));
    return encoded;
}

// The context with all that it points to.
struct ChainContext : CERT_CHAIN_CONTEXT {
    ChainContext(const std::vector<Encoded>& certificates, DWORD trustError)
        : CERT_CHAIN_CONTEXT{}, elements(certificates.size()) {
        for (size_t i = 0; i < certificates.size(); ++i) {
            contexts.push_back(std::make_unique<CertificateContext>(certificates[i], nullptr));
            elements[i].cbSize = sizeof elements[i];
            elements[i].pCertContext = contexts.back().get();
            elements[i].TrustStatus.dwErrorStatus = trustError;
            elementPointers.push_back(&elements[i]);
        }
        simple.cbSize = sizeof simple;
        simple.TrustStatus.dwErrorStatus = trustError;
        simple.cElement = static_cast<DWORD>(elements.size());
        simple.rgpElement = elementPointers.data();
        cbSize = sizeof(CERT_CHAIN_CONTEXT);
        TrustStatus.dwErrorStatus = trustError;
        cChain = 1;
        rgpChain = &simplePointer;
    }
    ChainContext(const ChainContext&) = delete;
    ChainContext& operator=(const ChainContext&) = delete;

    std::vector<std::unique_ptr<CertificateContext>> contexts;
    std::vector<CERT_CHAIN_ELEMENT> elements;
    std::vector<PCERT_CHAIN_ELEMENT> elementPointers;
    CERT_SIMPLE_CHAIN simple{};
    PCERT_SIMPLE_CHAIN simplePointer = &simple;
};

}  // namespace

BOOL CertGetCertificateChain(HCERTCHAINENGINE hChainEngine, PCCERT_CONTEXT pCertContext, FILETIME* pTime,
                             HCERTSTORE hAdditionalStore, PCERT_CHAIN_PARA pChainPara, DWORD dwFlags,
                             LPVOID pvReserved, PCCERT_CHAIN_CONTEXT* ppChainContext) {
    WINHOST_GATE("CertGetCertificateChain", FALSE);
    const bool isPlain = !hChainEngine && !pTime && dwFlags == 0 && !pvReserved;
    const auto additional = HandleTable::Instance().Find<CertificateStore>(hAdditionalStore);
    if (!isPlain || !pCertContext || !pChainPara || pChainPara->cbSize != sizeof *pChainPara ||
        pChainPara->RequestedUsage.Usage.cUsageIdentifier != 0 || !ppChainContext ||
        (hAdditionalStore && !additional))
        return Fail(ERROR_INVALID_PARAMETER);
    const X509Owner leaf = winhost::Parse(pCertContext->pbCertEncoded, pCertContext->cbCertEncoded);
    if (!leaf) return Fail(ERROR_INVALID_PARAMETER);
    DWORD trustError = CERT_TRUST_NO_ERROR;
    const std::vector<Encoded> chain =
        BuildChain(leaf.get(), additional ? additional->All() : std::vector<Encoded>(), trustError);
    if (chain.empty()) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    *ppChainContext = new ChainContext(chain, trustError);
    return TRUE;
}

void CertFreeCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext) {
    WINHOST_GATE_PASS("CertFreeCertificateChain");
    delete static_cast<const ChainContext*>(pChainContext);
}
