// What the firmware gets from the profile of a network.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/ServiceFixture.h"
#include "tests/unit/wifi/ProfileText.h"
#include "wifi/WLANProfileReader.h"

namespace {

WiFiSyncInfo Read(const std::string& xml) {
    WiFiSyncInfo record{};
    WLANProfileReader(xml).ReadProfile(record);
    return record;
}

std::string Refusal(const std::string& xml) {
    try {
        Read(xml);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "not refused";
}

class ProfileNodes : public ServiceFixture {};

}  // namespace

TEST(ProfileReader, ReadsANetworkOfWpa2) {
    const WiFiSyncInfo record = Read(Wpa2Profile());
    EXPECT_STREQ(record.ssid, "office");
    EXPECT_EQ(record.wpaauth, 2u);
    EXPECT_STREQ(record.key_material, "correct horse");
    EXPECT_EQ(record.pairwise, 3u);
    EXPECT_EQ(record.groupwise, 3u);
    EXPECT_EQ(record.pmf, 0u);
    EXPECT_EQ(record.group_mgmt, 0u);
}

TEST(ProfileReader, ReadsANetworkOfWpa3) {
    const WiFiSyncInfo record = Read(ProfileWith(Authentication("WPA3SAE") + SharedKey("correct horse")));
    EXPECT_EQ(record.wpaauth, 4u);
    EXPECT_STREQ(record.key_material, "correct horse");
    EXPECT_EQ(record.pairwise, 1u);
    EXPECT_EQ(record.groupwise, 1u);
    EXPECT_EQ(record.pmf, 1u);
    EXPECT_EQ(record.group_mgmt, 4u);
}

TEST(ProfileReader, TheKindOfAuthenticationMayBeInEitherCase) {
    EXPECT_EQ(Read(ProfileWith(Authentication("wpa2psk"))).wpaauth, 2u);
    EXPECT_EQ(Read(ProfileWith(Authentication("Wpa3Sae"))).wpaauth, 4u);
    EXPECT_EQ(Read(ProfileWith("<AUTHENCRYPTION><authentication>WPA2PSK</authentication></AUTHENCRYPTION>"))
                  .wpaauth,
              0u)
        << "names of elements are not folded";
}

TEST(ProfileReader, TheKeyOfAnEnterpriseNetworkIsNotRead) {
    for (const auto& [kind, wpaauth] : {std::pair("WPA2", 3u), {"WPA3", 5u}}) {
        const WiFiSyncInfo record = Read(ProfileWith(Authentication(kind) + SharedKey("secret key")));
        EXPECT_EQ(record.wpaauth, wpaauth);
        EXPECT_STREQ(record.key_material, "");
    }
}

TEST(ProfileReader, AnUnknownKindLeavesTheNetworkOpen) {
    for (const char* kind : {"open", "WPAPSK", "shared", "OWE", "", "WPA2PSK "})
        EXPECT_EQ(Read(ProfileWith(Authentication(kind) + SharedKey("k"))).wpaauth, 0u) << kind;
    const WiFiSyncInfo record = Read(ProfileWith(Authentication("WPA3ENT192")));
    EXPECT_EQ(record.wpaauth, 0u);
    EXPECT_EQ(record.pmf, 1u);
    EXPECT_EQ(record.group_mgmt, 4u);
}

TEST(ProfileReader, OnlyAPassphraseIsAKey) {
    for (const char* type : {"networkKey", "passphrase", "passPhrase ", ""})
        EXPECT_STREQ(Read(ProfileWith(Authentication("WPA2PSK") + SharedKey("secret", type))).key_material,
                     "")
            << type;
}

TEST(ProfileReader, AKeyIsCutTo63Characters) {
    const std::string key(63, 'k');
    EXPECT_EQ(Read(Wpa2Profile(key)).key_material, key);
    EXPECT_EQ(Read(Wpa2Profile(key + "x")).key_material, key);
    EXPECT_EQ(Read(Wpa2Profile(std::string(1000, 'k'))).key_material, key);
}

TEST(ProfileReader, AnSsidIsCutTo32Bytes) {
    const std::string ssid(32, 's');
    EXPECT_EQ(Read(ProfileWith("", ssid)).ssid, ssid);
    EXPECT_EQ(Read(ProfileWith("", ssid + "x")).ssid, ssid);
    EXPECT_STREQ(Read(ProfileWith("", "Büro & Café")).ssid, "Büro & Café");
    EXPECT_STREQ(Read(ProfileWith("", "")).ssid, "");
}

TEST(ProfileReader, AMissingPartOfTheSsidEmptiesIt) {
    const auto ssidAfter = [](const std::string& xml) {
        WiFiSyncInfo record{};
        std::strcpy(record.ssid, "of the connection");
        WLANProfileReader(xml).ReadProfile(record);
        return std::string(record.ssid);
    };
    EXPECT_EQ(ssidAfter("<WLANProfile><SSIDConfig><SSID/></SSIDConfig></WLANProfile>"), "");
    EXPECT_EQ(ssidAfter("<WLANProfile><SSIDConfig/></WLANProfile>"), "");
    EXPECT_EQ(ssidAfter("<WLANProfile/>"), "of the connection");
}

TEST(ProfileReader, ATextMayStandInPartsAndWithEntities) {
    EXPECT_STREQ(Read(Wpa2Profile("a&lt;b&amp;&#x41;&quot;")).key_material, "a<b&A\"");
    EXPECT_STREQ(Read(Wpa2Profile("<![CDATA[a<b]]>")).key_material, "a<b");
    EXPECT_STREQ(Read(Wpa2Profile("ab<![CDATA[c]]>d<!-- no -->e")).key_material, "abcde");
    EXPECT_STREQ(Read(Wpa2Profile(" two blanks ")).key_material, " two blanks ");
    EXPECT_STREQ(Read(Wpa2Profile("before&#0;behind")).key_material, "before");
}

TEST(ProfileReader, AByteOrderMarkAndADeclarationMayComeFirst) {
    EXPECT_EQ(Read("\xEF\xBB\xBF" + Wpa2Profile()).wpaauth, 2u);
    EXPECT_EQ(Read("<?xml version=\"1.0\" encoding=\"UTF-16\"?><!-- c --><!DOCTYPE x [<!ENTITY e \"v\">]>" +
                   Wpa2Profile().substr(Wpa2Profile().find("?>") + 2))
                  .wpaauth,
              2u);
}

TEST(ProfileReader, ANameWithAPrefixIsAnotherName) {
    std::string xml = Wpa2Profile();
    for (size_t at = xml.find("WLANProfile"); at != std::string::npos; at = xml.find("WLANProfile", at + 13))
        xml.insert(at, "w:");
    const WiFiSyncInfo record = Read(xml);
    EXPECT_STREQ(record.ssid, "");
    EXPECT_EQ(record.wpaauth, 0u);
}

TEST(ProfileReader, EachMissingPartLeavesItsFields) {
    EXPECT_EQ(Read("").wpaauth, 0u);
    EXPECT_EQ(Read("<WLANProfile/>").wpaauth, 0u);
    EXPECT_EQ(Read("<WLANProfile><MSM/></WLANProfile>").wpaauth, 0u);
    EXPECT_EQ(Read(ProfileWith("")).wpaauth, 0u);
    EXPECT_EQ(Read(ProfileWith("<authEncryption/>")).wpaauth, 0u);
    EXPECT_STREQ(Read(ProfileWith(Authentication("WPA2PSK"))).key_material, "");
    EXPECT_STREQ(Read(ProfileWith(Authentication("WPA2PSK") + "<sharedKey/>")).key_material, "");
    EXPECT_STREQ(
        Read(ProfileWith(Authentication("WPA2PSK") + "<sharedKey><keyType>passPhrase</keyType></sharedKey>"))
            .key_material,
        "");
    EXPECT_STREQ(
        Read(ProfileWith(Authentication("WPA2PSK") + "<sharedKey><keyMaterial>k</keyMaterial></sharedKey>"))
            .key_material,
        "");
}

TEST(ProfileReader, TheFirstElementOfANameCounts) {
    EXPECT_EQ(Read(ProfileWith(Authentication("WPA2PSK") + Authentication("WPA3SAE"))).wpaauth, 2u);
}

TEST(ProfileReader, BrokenXmlIsRefused) {
    for (const char* xml :
         {"<WLANProfile>", "no xml", "<WLANProfile></wrong>", "<a b></a>", "<a b='c></a>",
          "<a>&#xFFFFFFFF;</a>", "<!-- ", "<![CDATA[", "<a", "<", "<a/>trailing", "<\xFE\xFF><", "W\0L"})
        EXPECT_NE(Refusal(xml), "not refused") << xml;
    // As UTF-16 that is taken for UTF-8.
    EXPECT_NE(Refusal("\xFF\xFE<\0a\0/\0>"), "not refused");
}

TEST(ProfileReader, ARefusalShowsNothingOfTheKey) {
    const std::string xml = ProfileWith(Authentication("WPA2PSK") + SharedKey("secret&#xFFFFFFFF;secret"));
    EXPECT_EQ(Refusal(xml).find("secret"), std::string::npos);
    EXPECT_LT(Refusal(xml).size(), 60u);
}

TEST(ProfileReader, AProfileBeyondItsLimitsIsRefused) {
    EXPECT_EQ(Refusal(Wpa2Profile(std::string(10'000'000, 'k'))), "profile is too long");
    std::string nested;
    for (int i = 0; i < 1'000'000; ++i)
        nested += "<a>";
    EXPECT_EQ(Refusal(nested), "profile is too long");
    EXPECT_EQ(Refusal(nested.substr(0, 200'000)), "profile has too many elements");
}

TEST(ProfileReader, AProfileMayReachItsLimits) {
    constexpr size_t kMost = WLANProfileReader::kMaxElements;
    std::string nested;
    for (size_t i = 0; i < kMost; ++i)
        nested += "<a>";
    for (size_t i = 0; i < kMost; ++i)
        nested += "</a>";
    EXPECT_EQ(Refusal(nested), "not refused");
    EXPECT_EQ(Refusal("<b/>" + nested), "profile has too many elements");
    // Closing elements, comments and declarations nest nothing.
    std::string flat = "<a>";
    for (size_t i = 0; i < 2 * kMost; ++i)
        flat += "<!--x-->";
    EXPECT_EQ(Refusal(flat + "</a>"), "not refused");
    std::string longest = Wpa2Profile("");
    longest += std::string(WLANProfileReader::kMaxProfileSize - longest.size(), ' ');
    EXPECT_EQ(Read(longest).wpaauth, 2u);
    EXPECT_EQ(Refusal(longest + " "), "profile is too long");
}

TEST(ProfileReader, ANewDocumentReplacesTheEarlierOne) {
    WLANProfileReader reader(Wpa2Profile());
    reader.Load(ProfileWith("", "another"));
    WiFiSyncInfo record{};
    reader.ReadProfile(record);
    EXPECT_STREQ(record.ssid, "another");
    EXPECT_EQ(record.wpaauth, 0u);
    EXPECT_THROW(reader.Load("<"), std::exception);
    record = {};
    reader.ReadProfile(record);
    EXPECT_STREQ(record.ssid, "");
}

TEST_F(ProfileNodes, AMissingNodeIsLogged) {
    ExpectErrors(
        {"parent Node is null", "Node object is null", "Attribute not found, for attribute name: no"});
    rapidxml::xml_document<> document;
    std::string text = "<a yes='1'><b/></a>";
    document.parse<0>(text.data());
    const WLANProfileReader::Node* const node = WLANProfileReader::FindChildNode("a", &document);
    ASSERT_TRUE(node);
    EXPECT_TRUE(WLANProfileReader::FindChildNode("b", node));
    EXPECT_FALSE(WLANProfileReader::FindChildNode("B", node));
    EXPECT_EQ(LogCount("parent Node"), 0u);
    EXPECT_FALSE(WLANProfileReader::FindChildNode("b", nullptr));
    EXPECT_EQ(WLANProfileReader::GetAttribute("yes", node), "1");
    EXPECT_EQ(WLANProfileReader::GetAttribute("no", node), "");
    EXPECT_EQ(WLANProfileReader::GetAttribute("yes", nullptr), "");
}
