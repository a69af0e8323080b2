// Owner types for certificate stores, the certificates that are found in them, and their chains.
#pragma once

#include <windows.h>
#include <wincrypt.h>

#include "base/Handles.h"

struct CertificateStoreTraits {
    using Value = HCERTSTORE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { CertCloseStore(value, 0); }
};
using UniqueCertificateStore = UniqueResource<CertificateStoreTraits>;

struct CertificateTraits {
    using Value = PCCERT_CONTEXT;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { CertFreeCertificateContext(value); }
};
using UniqueCertificate = UniqueResource<CertificateTraits>;

struct CertificateChainTraits {
    using Value = PCCERT_CHAIN_CONTEXT;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { CertFreeCertificateChain(value); }
};
using UniqueCertificateChain = UniqueResource<CertificateChainTraits>;
