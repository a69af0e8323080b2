// The look-up of an authority's certificate and of its root.
#include "identity/CertificateChain.h"

#include <gtest/gtest.h>

#include "identity/CsrFiles.h"
#include "tests/unit/identity/EnrolmentFixture.h"

namespace {

class CertificateLookup : public EnrolmentFixture {
  protected:
    static constexpr char kNoRootInStore[] = "Root certificate not found in the store.";
    static constexpr char kNoRootName[] = "Failed to get root certificate issuer.";

    void SetUp() override {
        EnrolmentFixture::SetUp();
        std::filesystem::create_directories(HostPath(kFolder));
    }
    static std::string Intermediate() { return ReadHost(InFolder("intermediate.pem")); }
    static std::string Root() { return ReadHost(InFolder("root.pem")); }
};

}  // namespace

TEST_F(CertificateLookup, TheRootOfTheChainIsFoundInItsStore) {
    FillStores({kMachinePem, kGammaPem}, {kAlphaPem, kDeltaPem});
    EXPECT_EQ(FindCertificateChain("Issuing Gamma"), 0u);
    EXPECT_EQ(Intermediate(), OneLinePem(kGammaPem)) << "that of the subject, not one that it has issued";
    EXPECT_EQ(Root(), OneLinePem(kDeltaPem));
    const std::vector<std::string> lines = Messages();
    const std::vector<std::string> expected = {
        "Check for issuer: Issuing Gamma",
        "Look for issuer in Cert store",
        "Open Cert Store",
        "Call CertFindCertificateInStore API",
        "Save Intermediate Certificate",
        "Use issuer to locate root certificate issuer",
        "Get Chain Context",
        "Get Certificate Chain ",
        "Successfully retrieved Certificate chain.",
        "Read Simple Chain from RGP Chain",
        "Simple Chain has Elements. Use it to get Root Cert",
        "Fill Root Issuer using Root Cert",
        "Fill Root Issuer using buffer",
        "Free Certificate Chain",
        "Root Certificate: Example Root Delta",
        "Open Cert Store",
        "Call CertFindCertificateInStore API",
    };
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(std::vector(lines.end() - static_cast<long>(expected.size()), lines.end()), expected);
}

TEST_F(CertificateLookup, ASelfSignedAuthorityIsItsOwnRoot) {
    FillStores({kBetaPem, kAlphaPem}, {kAlphaPem, kBetaPem});
    EXPECT_EQ(FindCertificateChain("example root alpha"), 0u) << "in any case";
    EXPECT_EQ(Intermediate(), OneLinePem(kAlphaPem));
    EXPECT_EQ(Root(), OneLinePem(kAlphaPem));
}

TEST_F(CertificateLookup, AnEmptyNameFindsTheFirst) {
    FillStores({kBetaPem, kAlphaPem}, {kAlphaPem, kBetaPem});
    EXPECT_EQ(FindCertificateChain(""), 0u);
    EXPECT_EQ(Root(), OneLinePem(kBetaPem));
}

TEST_F(CertificateLookup, TheFirstOfSeveralIsTaken) {
    FillStores({kMachinePem, kBetaPem, kAlphaPem}, {kAlphaPem, kBetaPem});
    EXPECT_EQ(FindCertificateChain("Example Root"), 0u);
    EXPECT_EQ(Intermediate(), OneLinePem(kBetaPem));
}

TEST_F(CertificateLookup, ASecondRunOverwritesTheFiles) {
    FillStores({kGammaPem, kAlphaPem}, {kAlphaPem, kDeltaPem});
    EXPECT_EQ(FindCertificateChain("Gamma"), 0u);
    EXPECT_EQ(FindCertificateChain("Alpha"), 0u);
    EXPECT_EQ(Intermediate(), OneLinePem(kAlphaPem));
    EXPECT_EQ(Root(), OneLinePem(kAlphaPem));
}

TEST_F(CertificateLookup, AnUnknownNameLeavesNoFiles) {
    ExpectError("Failed to find the certificate: Elsewhere");
    FillStores({kAlphaPem}, {kAlphaPem});
    EXPECT_EQ(FindCertificateChain("Elsewhere"), 1u);
    EXPECT_EQ(LogCount("Close Cert Store"), 1u);
    EXPECT_FALSE(std::filesystem::exists(InFolder("intermediate.pem")));
}

TEST_F(CertificateLookup, AnUntrustedRootHasANameThatNoStoreHas) {
    ExpectError(kNoRootInStore);
    FillStores({kGammaPem}, {kAlphaPem}, {kDeltaPem});
    EXPECT_EQ(FindCertificateChain("Gamma"), 1u);
    EXPECT_TRUE(HasLine("INFO", "Root Certificate: Example Root Delta"));
    EXPECT_EQ(Intermediate(), OneLinePem(kGammaPem));
    EXPECT_EQ(Root(), "");
}

TEST_F(CertificateLookup, AnIncompleteChainEndsWithItsLastElement) {
    ExpectError(kNoRootInStore);
    FillStores({kGammaPem}, {kAlphaPem});
    EXPECT_EQ(FindCertificateChain("Gamma"), 1u);
    EXPECT_TRUE(HasLine("INFO", "Root Certificate: Example Issuing Gamma"));
}

TEST_F(CertificateLookup, AStoreThatCannotBeOpenedHasNothing) {
    ExpectErrors({"Failed to find the certificate: Alpha", kNoRootInStore});
    FillStores({kAlphaPem}, {kAlphaPem});
    Gate().FailNth("CertOpenStore", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(FindCertificateChain("Alpha"), 1u);
    EXPECT_EQ(LogCount("Call CertFindCertificateInStore API"), 0u);
    Gate().FailNth("CertOpenStore", 2, ERROR_ACCESS_DENIED);
    EXPECT_EQ(FindCertificateChain("Alpha"), 1u);
    EXPECT_EQ(LogCount("Close Cert Store"), 0u);
}

TEST_F(CertificateLookup, WithoutAChainThereIsNoRoot) {
    ExpectErrors(
        {"Failed to build certificate chain.", "Failed to get certificate chain context.", kNoRootName});
    FillStores({kAlphaPem}, {kAlphaPem});
    Gate().FailNth("CertGetCertificateChain", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(FindCertificateChain("Alpha"), 1u);
    EXPECT_EQ(Intermediate(), OneLinePem(kAlphaPem));
    EXPECT_EQ(LogCount("Free Certificate Chain"), 0u);
}

TEST_F(CertificateLookup, WithoutANameThereIsNoRoot) {
    ExpectError(kNoRootName);
    FillStores({kAlphaPem}, {kAlphaPem});
    Gate().FailNth("CertGetNameStringA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(FindCertificateChain("Alpha"), 1u);
}

TEST_F(CertificateLookup, ACertificateThatCannotBeConvertedIsAnEmptyText) {
    FillStores({kAlphaPem}, {kAlphaPem});
    for (int call : {1, 2}) {
        Gate().FailNth("CryptBinaryToStringA", call, ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(FindCertificateChain("Alpha"), 0u);
        EXPECT_EQ(Intermediate(), "-----BEGIN CERTIFICATE-----\n\n-----END CERTIFICATE-----\n");
        EXPECT_EQ(Root(), OneLinePem(kAlphaPem));
    }
}

TEST_F(CertificateLookup, WithoutAFolderNothingIsWritten) {
    FillStores({kAlphaPem}, {kAlphaPem});
    std::filesystem::remove_all(HostPath(kFolder));
    EXPECT_EQ(FindCertificateChain("Alpha"), 0u);
    EXPECT_FALSE(std::filesystem::exists(HostPath(kFolder)));
}

TEST_F(CertificateLookup, ACertificateWithoutAStoreHasNoChain) {
    ExpectErrors({"Certificate context is null.", "Certificate store is null.",
                  "Failed to get certificate chain context."});
    EXPECT_EQ(GetRootIssuerName(nullptr), "");
    const CERT_CONTEXT without{};
    EXPECT_EQ(GetRootIssuerName(&without), "");
    EXPECT_EQ(LogCount("Failed to get certificate chain context."), 2u);
}

TEST_F(CertificateLookup, ClosesItsStores) {
    FillStores({kGammaPem}, {kDeltaPem});
    const size_t before = OpenHandles();
    EXPECT_EQ(FindCertificateChain("Gamma"), 0u);
    EXPECT_EQ(OpenHandles(), before);
}
