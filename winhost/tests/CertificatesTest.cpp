// The certificate stores of the PC, the search in them, chains, and the conversion of certificates to text.
#include <wincrypt.h>

#include <array>

#include "winhost/tests/Certificates.h"
#include "winhost/tests/PcFixture.h"

namespace {

constexpr DWORD kNoSuchCertificate = 0x80092004;
constexpr DWORD kMachineReadOnly = CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG;

using Bytes = std::vector<BYTE>;

Bytes BytesOf(const std::string& hex) {
    Bytes bytes(100);
    auto size = static_cast<DWORD>(bytes.size());
    EXPECT_TRUE(
        CryptStringToBinaryA(hex.c_str(), 0, CRYPT_STRING_HEX_ANY, bytes.data(), &size, nullptr, nullptr));
    bytes.resize(size);
    return bytes;
}

// The store of roots that belongs to the user, and the machine's stores.
class Certificates : public PcFixture {
  protected:
    using List = std::vector<std::string>;
    using Chain = std::pair<List, DWORD>;

    void Describe(const List& root, const List& intermediate = {}, const List& personal = {}) {
        StartPc([&](auto& pc) {
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
    HCERTSTORE KeepStore(HCERTSTORE store) {
        return store ? Keep(store, [](HCERTSTORE open) { EXPECT_TRUE(CertCloseStore(open, 0)); }) : store;
    }
    HCERTSTORE Open(const wchar_t* name) {
        return KeepStore(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kMachineReadOnly, name));
    }
    HCERTSTORE OpenRoots() { return KeepStore(CertOpenSystemStoreA(0, "Root")); }
    PCCERT_CONTEXT KeepFound(PCCERT_CONTEXT found) {
        const auto free = [](PCCERT_CONTEXT certificate) {
            EXPECT_TRUE(CertFreeCertificateContext(certificate));
        };
        return found ? Keep(found, free) : found;
    }
    PCCERT_CONTEXT Find(const wchar_t* storeName, const char* subject) {
        return KeepFound(CertFindCertificateInStore(Open(storeName), X509_ASN_ENCODING, 0,
                                                    CERT_FIND_SUBJECT_STR_A, subject, nullptr));
    }
    PCCERT_CONTEXT FindThumbprint(const std::string& thumbprint) {
        Bytes bytes = BytesOf(thumbprint);
        const CRYPT_HASH_BLOB hash{static_cast<DWORD>(bytes.size()), bytes.data()};
        return KeepFound(CertFindCertificateInStore(OpenRoots(), X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                                    CERT_FIND_SHA1_HASH, &hash, nullptr));
    }
    static std::string NameOf(PCCERT_CONTEXT certificate, DWORD room = 256) {
        if (!certificate) return "none";
        std::vector<char> name(room, 'x');
        const DWORD length =
            CertGetNameStringA(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name.data(), room);
        EXPECT_EQ(length, std::strlen(name.data()) + 1);
        return name.data();
    }
    std::string NameOfFound(const wchar_t* storeName, const char* subject) {
        return NameOf(Find(storeName, subject));
    }
    // The names in the chain of the machine's certificate, and what is wrong with it.
    Chain ChainOfFirst() {
        const PCCERT_CONTEXT first = Find(L"MY", "");
        CERT_CHAIN_PARA parameters{};
        parameters.cbSize = sizeof parameters;
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        EXPECT_TRUE(CertGetCertificateChain(nullptr, first, nullptr, first->hCertStore, &parameters, 0,
                                            nullptr, &chain));
        EXPECT_EQ(chain->cChain, 1u);
        const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[0];
        List names;
        for (DWORD i = 0; i < simple.cElement; ++i)
            names.push_back(NameOf(simple.rgpElement[i]->pCertContext));
        const DWORD error = simple.TrustStatus.dwErrorStatus;
        CertFreeCertificateChain(chain);
        return {names, error};
    }
};

}  // namespace

// ---- stores ----

TEST_F(Certificates, EachStoreHasItsOwn) {
    Describe({kDeltaPem}, {kGammaPem}, {kMachinePem});
    EXPECT_EQ(NameOfFound(L"ROOT", ""), kDeltaName);
    EXPECT_EQ(NameOfFound(L"ca", ""), kGammaName);
    EXPECT_EQ(NameOfFound(L"My", ""), kMachineName);
}

TEST_F(Certificates, AStoreIsReadWhenItIsOpened) {
    Describe({}, {}, {R"(C:\ca.pem)"});
    EXPECT_EQ(NameOfFound(L"MY", ""), "none");
    std::ofstream(OnC("ca.pem")) << kAlphaPem;
    EXPECT_EQ(NameOfFound(L"MY", ""), kAlphaName);
}

TEST_F(Certificates, AFileMayHoldOne) {
    const std::string file = (m_root / "alpha.pem").string();
    std::ofstream(file) << kAlphaPem;
    Describe({"/nowhere.pem", "C:\\b.pem", file});
    EXPECT_TRUE(FindThumbprint(kAlphaThumbprint));
}

TEST_F(Certificates, AnotherStoreDoesNotExist) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(CertOpenSystemStoreA(0, "MY"))) << "the machine's alone";
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(Open(L"Elsewhere")));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              ErrorOf(CertOpenStore(reinterpret_cast<LPCSTR>(2), 0, 0, kMachineReadOnly, L"MY")));
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"MY")));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CertCloseStore(nullptr, 0)));
}

// ---- the search ----

TEST_F(Certificates, AreFoundByTheirThumbprint) {
    Describe({kAlphaPem, kBetaPem});
    EXPECT_EQ(NameOf(FindThumbprint(kBetaThumbprint)), kBetaName);
    EXPECT_EQ(kNoSuchCertificate, ErrorOf(FindThumbprint(std::string(40, '0'))));
    EXPECT_EQ(nullptr, FindThumbprint("73309F")) << "a thumbprint has 20 bytes";
}

TEST_F(Certificates, APartOfTheSubjectIsEnoughInAnyCase) {
    Describe({kAlphaPem, kBetaPem, kDeltaPem}, {}, {kMachinePem, kGammaPem});
    EXPECT_EQ(NameOfFound(L"ROOT", "root BETA"), kBetaName);
    EXPECT_EQ(NameOfFound(L"ROOT", "Example, Example Root Delta"), kDeltaName) << "the whole subject";
    EXPECT_EQ(NameOfFound(L"MY", "test, example, Example Issuing"), kGammaName);
    EXPECT_EQ(NameOfFound(L"MY", "Gamma"), kGammaName) << "and not the certificate that Gamma has issued";
    EXPECT_EQ(NameOfFound(L"MY", R"("Example, ""Inc""", laptop)"), kMachineName) << "a value with a comma";
    EXPECT_EQ(NameOfFound(L"MY", "CN=laptop"), "none") << "the text has only values";
    EXPECT_EQ(kNoSuchCertificate, ErrorOf(Find(L"ROOT", "Example Root Betas")));
}

TEST_F(Certificates, TheFirstOfSeveralIsFoundAndThenTheNext) {
    Describe({kBetaPem, kGammaPem, kAlphaPem});
    EXPECT_EQ(NameOfFound(L"ROOT", ""), kBetaName) << "an empty text finds the first";
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

// ---- chains ----

TEST_F(Certificates, AChainLeadsToTheRoot) {
    Describe({kAlphaPem, kDeltaPem}, {kGammaPem}, {kMachinePem});
    EXPECT_EQ(ChainOfFirst(), (Chain{{kMachineName, kGammaName, kDeltaName}, CERT_TRUST_NO_ERROR}));
}

TEST_F(Certificates, ASelfSignedOneIsItsOwnChain) {
    Describe({kAlphaPem}, {}, {kAlphaPem});
    EXPECT_EQ(ChainOfFirst(), (Chain{{kAlphaName}, CERT_TRUST_NO_ERROR}));
    Describe({}, {}, {kAlphaPem});
    EXPECT_EQ(ChainOfFirst(), (Chain{{kAlphaName}, CERT_TRUST_IS_UNTRUSTED_ROOT}));
}

TEST_F(Certificates, AChainWithoutATrustedRootEndsWhereItsIssuersEnd) {
    Describe({}, {kDeltaPem}, {kGammaPem});
    EXPECT_EQ(ChainOfFirst(), (Chain{{kGammaName, kDeltaName}, CERT_TRUST_IS_UNTRUSTED_ROOT}));
    Describe({kAlphaPem}, {}, {kMachinePem, kGammaPem});
    EXPECT_EQ(ChainOfFirst(), (Chain{{kMachineName, kGammaName}, CERT_TRUST_IS_PARTIAL_CHAIN}));
}

TEST_F(Certificates, WhatAChainCannotDoIsRefused) {
    Describe({kAlphaPem});
    const PCCERT_CONTEXT alpha = Find(L"ROOT", "");
    CERT_CHAIN_PARA parameters{};
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    const auto get = [&](DWORD flags) {
        return CertGetCertificateChain(nullptr, alpha, nullptr, nullptr, &parameters, flags, nullptr, &chain);
    };
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(get(0))) << "the record's size is missing";
    parameters.cbSize = sizeof parameters;
    EXPECT_FALSE(get(1));
    Fail("CertGetCertificateChain", ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(get(0));
    EXPECT_EQ(chain, nullptr);
    ASSERT_TRUE(get(0));
    CertFreeCertificateChain(chain);
}

// ---- text ----

TEST_F(Certificates, ANameIsCutToItsBuffer) {
    Describe({kAlphaPem});
    const PCCERT_CONTEXT alpha = Find(L"ROOT", "");
    ASSERT_TRUE(alpha);
    EXPECT_EQ(NameOf(alpha, 8), "Example");
    Fail("CertGetNameStringA", ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(NameOf(alpha), "");
}

TEST_F(Certificates, BecomeTextInTwoSteps) {
    Describe({kAlphaPem});
    const PCCERT_CONTEXT alpha = Find(L"ROOT", "");
    std::string base64 = kAlphaPem;
    base64 = base64.substr(base64.find('\n') + 1);
    base64.resize(base64.find("-----END"));
    std::erase(base64, '\n');
    for (const auto& [flags, expected] : {std::pair<DWORD, std::string>(CRYPT_STRING_BASE64HEADER, kAlphaPem),
                                          {CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, base64}}) {
        SCOPED_TRACE(flags);
        const auto convert = [&, flags = flags](char* text, DWORD& size) {
            return CryptBinaryToStringA(alpha->pbCertEncoded, alpha->cbCertEncoded, flags, text, &size);
        };
        DWORD size = 0;
        ASSERT_TRUE(convert(nullptr, size));
        std::string text(size, '?');
        ASSERT_TRUE(convert(text.data(), size));
        EXPECT_EQ(size + 1, text.size()) << "the length is that without the NUL";
        DWORD small = size;
        std::string room = text;
        EXPECT_EQ(ERROR_MORE_DATA, ErrorOf(convert(room.data(), small)));
        text.resize(size);
        std::erase(text, '\r');
        EXPECT_EQ(text, expected);
    }
}

TEST_F(Certificates, HexadecimalTextMayHaveBlanks) {
    EXPECT_EQ(BytesOf("0aFF 10\r\n7f"), (Bytes{0x0A, 0xFF, 0x10, 0x7F}));
    std::array<BYTE, 2> room{};
    const auto errorOf = [&](const char* text) {
        DWORD size = room.size();
        return ErrorOf(
            CryptStringToBinaryA(text, 0, CRYPT_STRING_HEX_ANY, room.data(), &size, nullptr, nullptr));
    };
    for (const char* wrong : {"", "0", "0g", "0x12", "1 2"})
        EXPECT_EQ(ERROR_INVALID_DATA, errorOf(wrong)) << wrong;
    EXPECT_EQ(ERROR_MORE_DATA, errorOf("010203"));
}
