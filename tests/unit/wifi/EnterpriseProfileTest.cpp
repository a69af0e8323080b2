// The enterprise part of a profile, down to the certificates of its authorities.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/ServiceFixture.h"
#include "tests/unit/wifi/ProfileText.h"
#include "wifi/WLANProfileReader.h"
#include "winhost/tests/Certificates.h"

namespace {

class EnterpriseProfile : public ServiceFixture {
  protected:
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.rootCertificates = {kAlphaPem, kBetaPem};
    }

    static std::string With(const std::string& type, const std::string& validation) {
        return ProfileWith(
            Authentication("WPA2") +
            "<OneX><authMode>machineOrUser</authMode><EAPConfig><EapHostConfig><EapMethod><Type>" + type +
            "</Type></EapMethod><Config><Eap><EapType><ServerValidation>" + validation +
            "</ServerValidation></EapType></Eap></Config></EapHostConfig></EAPConfig></OneX>");
    }
    static std::string RootCa(const std::string& thumbprint) {
        return "<TrustedRootCA>" + thumbprint + "</TrustedRootCA>";
    }
    static EnterpriseProfileData Read(const std::string& xml) {
        EnterpriseProfileData data;
        WLANProfileReader(xml).ReadEnterpriseProfile(data);
        return data;
    }
    // As the store gives it, without the last line's end.
    static std::string TextOf(const char* pem) {
        std::string text;
        for (const char c : std::string(pem))
            text += c == '\n' ? "\r\n" : std::string(1, c);
        return text.substr(0, text.size() - 2);
    }
    static std::string CertificatesOf(const EnterpriseProfileData& data) {
        return {data.server_certificates,
                std::min<size_t>(data.server_certificates_size, sizeof data.server_certificates)};
    }
};

}  // namespace

TEST_F(EnterpriseProfile, FindsTheCertificatesOfItsAuthorities) {
    const EnterpriseProfileData data =
        Read(With("25", "<ServerNames>x</ServerNames>" + RootCa(kAlphaThumbprint) + RootCa(kBetaThumbprint)));
    EXPECT_EQ(data.eap_type, 1u);
    EXPECT_EQ(CertificatesOf(data), TextOf(kAlphaPem) + TextOf(kBetaPem));
    ExpectLogInOrder(
        {"authMode machineOrUser", "EAP-AuthType 25", "Server Validation Node: ServerNames",
         "Server Validation Node: TrustedRootCA", std::string("CACert Thumbprint: ") + kAlphaThumbprint,
         std::string("CACert Thumbprint: ") + kBetaThumbprint, "Number of Server Certificates: 2",
         std::string("Search Certificate by thumbprint: ") + kAlphaThumbprint,
         "Certificate found: Example Root Alpha",
         std::string("Search Certificate by thumbprint: ") + kBetaThumbprint,
         "Certificate found: Example Root Beta", "Number of Server Certificates: 2", "PEAP"});
}

TEST_F(EnterpriseProfile, EachKindOfEapHasItsNumber) {
    EXPECT_EQ(Read(With("13", "")).eap_type, 2u);
    EXPECT_TRUE(HasLine("INFO", "TLS"));
    EXPECT_EQ(Read(With("21", "")).eap_type, 3u);
    EXPECT_TRUE(HasLine("INFO", "TTLS"));
    EXPECT_EQ(Read(With("43", RootCa(kAlphaThumbprint))).eap_type, 0u);
    EXPECT_TRUE(HasLine("INFO", "EAP-AuthType 43"));
    EXPECT_EQ(LogCount("CACert Thumbprint"), 0u);
    EXPECT_EQ(LogCount("Number of Server Certificates: 0"), 2u);
}

TEST_F(EnterpriseProfile, AThumbprintMayHaveBlanks) {
    const std::string spaced = "\n 84 e6 c1 69 46 7c ae 6a\t38 0e f7 e6 e1 40 5a 8d 4b b1 08 7f ";
    EXPECT_EQ(CertificatesOf(Read(With("25", RootCa(spaced)))), TextOf(kAlphaPem));
    EXPECT_TRUE(HasLine("INFO", "CACert Thumbprint: 84e6c169467cae6a380ef7e6e1405a8d4bb1087f"));
}

TEST_F(EnterpriseProfile, ACertificateThatIsNotThereIsSkipped) {
    const std::string missing(40, 'A');
    ExpectErrors({"Unable to retrieve Certificate by thumbprint: " + missing,
                  "Failed to convert thumbprint for: none",
                  "Failed to convert thumbprint for: " + missing + "AA"});
    const EnterpriseProfileData data =
        Read(With("25", RootCa(missing) + RootCa("none") + RootCa(missing + "AA") + RootCa(kBetaThumbprint)));
    EXPECT_EQ(CertificatesOf(data), TextOf(kBetaPem));
}

TEST_F(EnterpriseProfile, MoreCertificatesThanFitAreCutAndCounted) {
    std::string authorities;
    for (int i = 0; i < 8; ++i)
        authorities += RootCa(kAlphaThumbprint);
    const EnterpriseProfileData data = Read(With("25", authorities));
    const std::string one = TextOf(kAlphaPem);
    EXPECT_EQ(data.server_certificates_size, 8 * one.size());
    EXPECT_GT(data.server_certificates_size, sizeof data.server_certificates);
    EXPECT_EQ(CertificatesOf(data).substr(0, one.size()), one);
}

TEST_F(EnterpriseProfile, AMissingPartEndsTheReading) {
    EXPECT_EQ(Read("<WLANProfile/>").eap_type, 0u);
    EXPECT_EQ(Read(ProfileWith("")).eap_type, 0u);
    EXPECT_EQ(Read(ProfileWith("<OneX/>")).eap_type, 0u);
    EXPECT_EQ(
        Read(ProfileWith("<OneX><EAPConfig><EapHostConfig><EapMethod/></EapHostConfig></EAPConfig></OneX>"))
            .eap_type,
        0u);
    EXPECT_EQ(LogCount("authMode"), 0u);
    EXPECT_EQ(LogCount("EAP-AuthType"), 0u);
}

TEST_F(EnterpriseProfile, AStoreThatCannotBeOpenedGivesNoCertificates) {
    ExpectError("Failed to open certificate store.");
    Gate().FailNth("CertOpenSystemStoreA", 1, ERROR_ACCESS_DENIED);
    const EnterpriseProfileData data = Read(With("13", RootCa(kAlphaThumbprint)));
    EXPECT_EQ(data.eap_type, 2u);
    EXPECT_EQ(data.server_certificates_size, 0u);
}

TEST_F(EnterpriseProfile, ACertificateWithoutNameOrTextIsLogged) {
    ExpectErrors({"CertGetName failed.", "Failed to retrieve certificate data."});
    Gate().FailNth("CertGetNameStringA", 1, ERROR_NOT_ENOUGH_MEMORY);
    Gate().FailNth("CryptBinaryToStringA", 2, ERROR_NOT_ENOUGH_MEMORY);
    const std::string authorities = RootCa(kAlphaThumbprint) + RootCa(kBetaThumbprint);
    EXPECT_EQ(CertificatesOf(Read(With("25", authorities))), TextOf(kBetaPem));
    Gate().FailNth("CryptBinaryToStringA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(CertificatesOf(Read(With("25", RootCa(kAlphaThumbprint)))), "");
}
