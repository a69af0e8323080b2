// When the firmware gets the Wi-Fi profile of the host, and what is in it.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/unit/wifi/ProfileText.h"
#include "tests/unit/wifi/WiFiFixture.h"

namespace {

class WiFiSyncTest : public WiFiFixture {};

constexpr char kEnterprise[] =
    "Enterprise Wi-Fi Profile found.The synching of the enterprise profile is currently not implemented.";

}  // namespace

TEST_F(WiFiSyncTest, ANetworkOfWpa2IsSentOnce) {
    const WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(record.size_of_this_structure, 132u);
    EXPECT_EQ(record.is_valid, 1);
    EXPECT_STREQ(record.ssid, "office");
    EXPECT_EQ(record.channel, 36);
    EXPECT_EQ(record.wpaauth, 2u);
    EXPECT_STREQ(record.key_material, "correct horse");
    EXPECT_EQ(record.pairwise, 3u);
    EXPECT_EQ(record.groupwise, 3u);
    EXPECT_EQ(record.group_mgmt, 0u);
    EXPECT_EQ(record.band, 2u);
    EXPECT_EQ(record.pmf, 0u);
    EXPECT_EQ(record.wpa_ptk_rekey, 0u);
    EXPECT_TRUE(Check());
    EXPECT_EQ(Sent().size(), 1u);
}

TEST_F(WiFiSyncTest, ASentProfileIsLoggedWithoutItsKey) {
    Check();
    ExpectLogInOrder({"CenterFrequency: 5180000, channel: 36",
                      "Profile Name: office",
                      "Band: 5GHz",
                      "Profile name used: office",
                      "Connection Attributes Signal Quality: 80",
                      "Connection Attributes Receiving Rate: 866000",
                      "Connection Attributes Transmission Rate: 866000",
                      "SSID from Connection Attribute: office",
                      "SecurityEnabled: Yes",
                      "802.1X enabled: No",
                      "dot11AuthAlgorithm (0x7)",
                      "Authtype from current connection: WPA2PSK",
                      "Cipher Algorithm: CCMP TKIP",
                      "Successfully extracted Wi-Fi profile data",
                      "Updated last connected Wi-Fi profile.",
                      "size_of_this_structure: 132",
                      "is_valid: 1",
                      "ssid: office",
                      "wpaauth: 2",
                      "pairwise: 3",
                      "groupwise: 3",
                      "group_mgmt: 0",
                      "band: 2",
                      "channel: 36",
                      "pmf: 0",
                      "wpa_ptk_rekey: 0",
                      "Send WiFi Profile Configuration to driver",
                      "System is connected to WLAN"});
    EXPECT_EQ(LogCount("correct horse"), 0u);
}

TEST_F(WiFiSyncTest, ANetworkOfWpa3IsSent) {
    Connect(Network("lab", "WPA3SAE"));
    const WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(record.wpaauth, 4u);
    EXPECT_EQ(record.pairwise, 1u);
    EXPECT_EQ(record.groupwise, 1u);
    EXPECT_EQ(record.group_mgmt, 4u);
    EXPECT_EQ(record.pmf, 1u);
    EXPECT_STREQ(record.key_material, "correct horse");
    EXPECT_TRUE(HasLine("INFO", "Authtype from current connection: WPA3SAE"));
    EXPECT_TRUE(HasLine("INFO", "Cipher Algorithm: CCMP"));
}

TEST_F(WiFiSyncTest, TheSameNetworkOnAnotherChannelSendsNothing) {
    Check();
    ChangeNetwork([](auto& network) { network.channel = 6; });
    EXPECT_TRUE(Check());
    EXPECT_EQ(Sent().size(), 1u);
    EXPECT_EQ(LogCount("CenterFrequency"), 1u);
}

TEST_F(WiFiSyncTest, AChangedPassphraseIsSent) {
    Check();
    ChangeNetwork([](auto& network) { network.key = "another key"; });
    EXPECT_STREQ(CheckAndTakeRecord().key_material, "another key");
    EXPECT_EQ(LogCount("another key"), 0u);
}

TEST_F(WiFiSyncTest, AKeyThatIsNoPassphraseIsLeftOut) {
    ChangeNetwork([](auto& network) { network.keyType = "networkKey"; });
    const WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(record.wpaauth, 2u);
    EXPECT_STREQ(record.key_material, "");
}

TEST_F(WiFiSyncTest, AnEnterpriseNetworkIsAnnouncedOnceAndNeverSent) {
    Connect(Network("campus", "WPA2"));
    EXPECT_TRUE(Check());
    EXPECT_TRUE(Check());
    EXPECT_TRUE(Sent().empty());
    EXPECT_EQ(LogCount(kEnterprise), 2u);
    EXPECT_EQ(LogCount("Enterprise Wi-Fi profile found"), 1u);
    EXPECT_EQ(LogCount("ssid: campus"), 1u);
    EXPECT_EQ(LogCount("correct horse"), 0u);
    // It took the place of the profile before it.
    Connect(Network("office", "WPA2PSK"));
    CheckAndTakeRecord();
}

TEST_F(WiFiSyncTest, AnOpenNetworkIsAnErrorAtEachCheckAndKeepsTheStoredProfile) {
    Check();
    ExpectError(kExtractionError);
    const winhost::WlanNetwork office = Pc().Description().wlanNetworks.front();
    Connect(Network("cafe", "open"));
    EXPECT_TRUE(Check());
    EXPECT_TRUE(Check());
    EXPECT_EQ(LogCount(kOpenNetwork), 2u);
    EXPECT_EQ(LogCount(kExtractionError), 2u);
    Connect(office);
    EXPECT_TRUE(Check());
    EXPECT_EQ(Sent().size(), 1u);
}

TEST_F(WiFiSyncTest, BelowLevel40NoProfileIsRead) {
    service->m_vorkVersion = 39;
    EXPECT_TRUE(Check());
    for (const char* call : {"WlanQueryInterface", "WlanGetProfile", "WlanGetNetworkBssList"})
        EXPECT_EQ(Gate().Count(call), 0u) << call;
    EXPECT_TRUE(firmware.Requests().empty());
    service->m_vorkVersion = 40;
    CheckAndTakeRecord();
}

TEST_F(WiFiSyncTest, ANetworkThatIsLeftAndJoinedAgainIsSentAgain) {
    Check();
    const winhost::WlanNetwork office = Pc().Description().wlanNetworks.front();
    Disconnect();
    EXPECT_FALSE(Check());
    Connect(office);
    CheckAndTakeRecord();
    // A PC without an interface has left its network too.
    Pc().Change([](auto& pc) { pc.wlanInterfaces.clear(); });
    EXPECT_FALSE(Check());
    Connect(office);
    CheckAndTakeRecord();
}

TEST_F(WiFiSyncTest, AStopForgetsTheProfile) {
    Check();
    service->StopPlatformUpdates();
    service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    CheckAndTakeRecord();
}

TEST_F(WiFiSyncTest, AHostWithoutAnyInterfaceForgetsTheProfile) {
    AllowError("GetAdaptersInfo failed");
    AllowError("No valid IPv4 address found");
    Check();
    const auto adapters = Pc().Description().adapters;
    Pc().Change([](auto& pc) { pc.adapters->clear(); });
    service->m_networkMonitor.ReportNetwork({.updatesAddress = false});
    Pc().Change([&](auto& pc) { pc.adapters = adapters; });
    CheckAndTakeRecord();
}

TEST_F(WiFiSyncTest, OnlyACheckAfterAnEventComparesTheNames) {
    ExpectError(kExtractionError);
    Check();
    Connect(Network("cafe", "open"));
    Check();
    EXPECT_EQ(LogCount("SSID does not match"), 0u);
    Check(false);
    ExpectLogInOrder({"Previous stored SSID office, Current SSID obtained cafe", "SSID does not match"});
    EXPECT_EQ(LogCount("System is connected to"), 2u);
}

TEST_F(WiFiSyncTest, TheConnectionOverridesTheProfile) {
    // WPA2 and WPA3 in one network: the profile has one of them, the connection another one.
    ChangeNetwork([](auto& network) { network.authAlgorithm = DOT11_AUTH_ALGO_WPA3_SAE; });
    WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(record.wpaauth, 4u);
    EXPECT_EQ(record.pmf, 1u);
    EXPECT_EQ(record.pairwise, 1u);
    EXPECT_EQ(record.group_mgmt, 0u) << "it comes from the profile";

    winhost::WlanNetwork transition = Network("transition", "WPA3SAE");
    transition.authAlgorithm = DOT11_AUTH_ALGO_RSNA_PSK;
    Connect(transition);
    record = CheckAndTakeRecord();
    EXPECT_EQ(record.wpaauth, 2u);
    EXPECT_EQ(record.pmf, 0u);
    EXPECT_EQ(record.pairwise, 3u);
    EXPECT_EQ(record.groupwise, 3u);
    EXPECT_EQ(record.group_mgmt, 4u);
}

TEST_F(WiFiSyncTest, TheCipherOfAnEnterpriseNetworkIsThatOfItsConnection) {
    struct Case {
        uint32_t algorithm;
        const char *pairwise, *groupwise, *text;
    };
    for (const Case& each : {Case{2, "pairwise: 2", "groupwise: 2", "Cipher Algorithm: TKIP"},
                             {4, "pairwise: 1", "groupwise: 1", "Cipher Algorithm: CCMP"},
                             {9, "pairwise: 5", "groupwise: 0", "Cipher Algorithm: GCMP_256"},
                             {12, "pairwise: 0", "groupwise: 0", "Cipher Algorithm: BIP_GMAC_256"},
                             {0x101, "pairwise: 0", "groupwise: 0", "Cipher Algorithm: Other (0x101)"}}) {
        winhost::WlanNetwork network = Network("campus" + std::to_string(each.algorithm), "WPA2");
        network.cipherAlgorithm = each.algorithm;
        Connect(network);
        Check();
        ExpectLogInOrder({each.text, "ssid: " + network.name, each.pairwise, each.groupwise});
    }
    winhost::WlanNetwork network = Network("plain", "WPA3");
    network.encryption = "none";
    network.oneX = true;
    Connect(network);
    Check();
    ExpectLogInOrder({"802.1X enabled: Yes", "Cipher Algorithm: None", "ssid: plain", "wpaauth: 5",
                      "pairwise: 0", "groupwise: 0"});
}

TEST_F(WiFiSyncTest, TheSsidIsThatOfTheConnectionWhenTheProfileHasNone) {
    UseProfile("<WLANProfile><MSM><security>" + Authentication("WPA2PSK") +
               "</security></MSM></WLANProfile>");
    ChangeNetwork([](auto& network) { network.ssid = std::string(32, 's'); });
    EXPECT_EQ(CheckAndTakeRecord().ssid, std::string(32, 's'));
}

TEST_F(WiFiSyncTest, AnSsidOfAnyBytesIsSent) {
    ChangeNetwork([](auto& network) { network.ssid = "Bücher & Café"; });
    EXPECT_STREQ(CheckAndTakeRecord().ssid, "Bücher & Café");
    UseProfile("<WLANProfile><MSM><security>" + Authentication("WPA2PSK") +
               "</security></MSM></WLANProfile>");
    ChangeNetwork([](auto& network) { network.ssidBytes = "FF0041"; });
    const WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(std::memcmp(record.ssid, "\xFF\0A\0", 4), 0);
}
