// The machine's certificate stores, the search by a subject, and the chains of certificates.
#include <wincrypt.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/tests/Certificates.h"
#include "winhost/tests/PcFixture.h"

namespace {

constexpr DWORD kNoSuchSubject = 0x80092004;
constexpr DWORD kMachineReadOnly = CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG;

class MachineStores : public PcFixture {
  protected:
    using List = std::vector<std::string>;

    ~MachineStores() override {
        for (const PCCERT_CONTEXT certificate : m_certificates)
            CertFreeCertificateContext(certificate);
        for (const HCERTSTORE store : m_stores)
            EXPECT_TRUE(CertCloseStore(store, 0));
    }
    void Describe(const List& root, const List& intermediate, const List& personal) {
        StartPc([&](winhost::PcDescription& pc) {
            pc.rootCertificates = root;
            const auto keep = [&](const std::string& store, const List& certificates) {
                auto& values = pc.registry[R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\SystemCertificates\)" +
                                           store + R"(\Certificates)"];
                for (const std::string& certificate : certificates)
                    values[std::to_string(values.size() + 1)] = certificate;
            };
            keep("CA", intermediate);
            keep("MY", personal);
        });
    }
    HCERTSTORE Open(const wchar_t* name) {
        const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kMachineReadOnly, name);
        if (store) m_stores.push_back(store);
        return store;
    }
    PCCERT_CONTEXT Find(const wchar_t* storeName, const char* subject) {
        const PCCERT_CONTEXT found = CertFindCertificateInStore(Open(storeName), X509_ASN_ENCODING, 0,
                                                                CERT_FIND_SUBJECT_STR_A, subject, nullptr);
        if (found) m_certificates.push_back(found);
        return found;
    }
    static std::string NameOf(PCCERT_CONTEXT certificate) {
        char name[256] = "none";
        if (certificate)
            CertGetNameStringA(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name, sizeof name);
        return name;
    }
    std::string NameOfFound(const wchar_t* storeName, const char* subject) {
        return NameOf(Find(storeName, subject));
    }
    static PCCERT_CHAIN_CONTEXT ChainOf(PCCERT_CONTEXT certificate) {
        CERT_CHAIN_PARA parameters{};
        parameters.cbSize = sizeof parameters;
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        EXPECT_TRUE(CertGetCertificateChain(nullptr, certificate, nullptr, certificate->hCertStore,
                                            &parameters, 0, nullptr, &chain));
        return chain;
    }
    // The names in the chain of the machine's certificate, and what is wrong with it.
    std::pair<List, DWORD> ChainOfFirst() {
        const PCCERT_CHAIN_CONTEXT chain = ChainOf(Find(L"MY", ""));
        EXPECT_EQ(chain->cChain, 1u);
        const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[0];
        List names;
        for (DWORD i = 0; i < simple.cElement; ++i)
            names.push_back(NameOf(simple.rgpElement[i]->pCertContext));
        const DWORD error = simple.TrustStatus.dwErrorStatus;
        CertFreeCertificateChain(chain);
        return {names, error};
    }

  private:
    std::vector<HCERTSTORE> m_stores;
    std::vector<PCCERT_CONTEXT> m_certificates;
};

}  // namespace

// ---- stores ----

TEST_F(MachineStores, EachHasItsOwnCertificates) {
    Describe({kDeltaPem}, {kGammaPem}, {kMachinePem});
    EXPECT_EQ(NameOfFound(L"ROOT", ""), kDeltaName);
    EXPECT_EQ(NameOfFound(L"ca", ""), kGammaName);
    EXPECT_EQ(NameOfFound(L"My", ""), kMachineName);
}

TEST_F(MachineStores, AStoreIsReadWhenItIsOpened) {
    Describe({}, {}, {R"(C:\ca.pem)"});
    EXPECT_EQ(NameOfFound(L"MY", ""), "none");
    std::ofstream(m_root / "C:" / "ca.pem") << kAlphaPem;
    EXPECT_EQ(NameOfFound(L"MY", ""), kAlphaName);
}

TEST_F(MachineStores, AnotherStoreDoesNotExist) {
    EXPECT_EQ(nullptr, Open(L"Elsewhere"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
    EXPECT_EQ(nullptr, CertOpenStore(reinterpret_cast<LPCSTR>(2), 0, 0, kMachineReadOnly, L"MY"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
    EXPECT_EQ(nullptr, CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"MY"));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
}

// ---- the search ----

TEST_F(MachineStores, APartOfTheSubjectIsEnoughInAnyCase) {
    Describe({kAlphaPem, kBetaPem, kDeltaPem}, {}, {kMachinePem, kGammaPem});
    EXPECT_EQ(NameOfFound(L"ROOT", "root BETA"), kBetaName);
    EXPECT_EQ(NameOfFound(L"ROOT", "Example, Example Root Delta"), kDeltaName) << "the whole subject";
    EXPECT_EQ(NameOfFound(L"MY", "test, example, Example Issuing"), kGammaName);
    EXPECT_EQ(NameOfFound(L"MY", "Gamma"), kGammaName) << "and not the certificate that Gamma has issued";
    EXPECT_EQ(NameOfFound(L"MY", R"("Example, ""Inc""", laptop)"), kMachineName) << "a value with a comma";
    EXPECT_EQ(NameOfFound(L"MY", "CN=laptop"), "none") << "the text has only values";
    EXPECT_EQ(nullptr, Find(L"ROOT", "Example Root Betas"));
    EXPECT_EQ(kNoSuchSubject, GetLastError());
}

TEST_F(MachineStores, TheFirstOfSeveralIsFoundAndThenTheNext) {
    Describe({kBetaPem, kGammaPem, kAlphaPem}, {}, {});
    const HCERTSTORE store = Open(L"ROOT");
    const auto next = [&](PCCERT_CONTEXT previous) {
        return CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_A,
                                          "Example Root", previous);
    };
    PCCERT_CONTEXT found = next(nullptr);
    EXPECT_EQ(NameOf(found), kBetaName);
    found = next(found);
    EXPECT_EQ(NameOf(found), kAlphaName);
    EXPECT_EQ(next(found), nullptr);
}

TEST_F(MachineStores, AnEmptyTextFindsTheFirst) {
    Describe({kBetaPem, kAlphaPem}, {}, {});
    EXPECT_EQ(NameOfFound(L"ROOT", ""), kBetaName);
}

// ---- chains ----

TEST_F(MachineStores, AChainLeadsToTheRoot) {
    Describe({kAlphaPem, kDeltaPem}, {kGammaPem}, {kMachinePem});
    EXPECT_EQ(ChainOfFirst(),
              (std::pair{List{kMachineName, kGammaName, kDeltaName}, DWORD{CERT_TRUST_NO_ERROR}}));
}

TEST_F(MachineStores, ASelfSignedCertificateIsItsOwnChain) {
    Describe({kAlphaPem}, {}, {kAlphaPem});
    EXPECT_EQ(ChainOfFirst(), (std::pair{List{kAlphaName}, DWORD{CERT_TRUST_NO_ERROR}}));
    Describe({}, {}, {kAlphaPem});
    EXPECT_EQ(ChainOfFirst(), (std::pair{List{kAlphaName}, DWORD{CERT_TRUST_IS_UNTRUSTED_ROOT}}));
}

TEST_F(MachineStores, AChainWithoutATrustedRootEndsWhereItsIssuersEnd) {
    Describe({}, {kDeltaPem}, {kGammaPem});
    EXPECT_EQ(ChainOfFirst(), (std::pair{List{kGammaName, kDeltaName}, DWORD{CERT_TRUST_IS_UNTRUSTED_ROOT}}));
    Describe({kAlphaPem}, {}, {kMachinePem, kGammaPem});
    EXPECT_EQ(ChainOfFirst(),
              (std::pair{List{kMachineName, kGammaName}, DWORD{CERT_TRUST_IS_PARTIAL_CHAIN}}));
}

TEST_F(MachineStores, WhatAChainCannotDoIsRefused) {
    Describe({kAlphaPem}, {}, {});
    const PCCERT_CONTEXT alpha = Find(L"ROOT", "");
    CERT_CHAIN_PARA parameters{};
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    EXPECT_FALSE(CertGetCertificateChain(nullptr, alpha, nullptr, nullptr, &parameters, 0, nullptr, &chain));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError()) << "the record's size is missing";
    parameters.cbSize = sizeof parameters;
    EXPECT_FALSE(CertGetCertificateChain(nullptr, alpha, nullptr, nullptr, &parameters, 1, nullptr, &chain));
    winhost::Gate::Instance().FailNth("CertGetCertificateChain", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(CertGetCertificateChain(nullptr, alpha, nullptr, nullptr, &parameters, 0, nullptr, &chain));
    EXPECT_EQ(chain, nullptr);
    ASSERT_TRUE(CertGetCertificateChain(nullptr, alpha, nullptr, nullptr, &parameters, 0, nullptr, &chain));
    CertFreeCertificateChain(chain);
}

// ---- text ----

TEST_F(MachineStores, ACertificateBecomesOneLineOfBase64) {
    Describe({kAlphaPem}, {}, {});
    const PCCERT_CONTEXT alpha = Find(L"ROOT", "");
    constexpr DWORD kFlags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    DWORD size = 0;
    ASSERT_TRUE(CryptBinaryToStringA(alpha->pbCertEncoded, alpha->cbCertEncoded, kFlags, nullptr, &size));
    std::string text(size, '?');
    ASSERT_TRUE(CryptBinaryToStringA(alpha->pbCertEncoded, alpha->cbCertEncoded, kFlags, text.data(), &size));
    EXPECT_EQ(size + 1, text.size()) << "the length is that without the NUL";
    text.resize(size);
    std::string expected = kAlphaPem;
    expected = expected.substr(expected.find('\n') + 1);
    expected.resize(expected.find("-----END"));
    std::erase(expected, '\n');
    EXPECT_EQ(text, expected);
}
