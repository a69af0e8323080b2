// A WLAN service that refuses, and profiles that no access point has.
#include <gtest/gtest.h>

#include "tests/unit/wifi/ProfileText.h"
#include "tests/unit/wifi/WiFiFixture.h"
#include "wifi/WlanConnection.h"
#include "winhost/wlan/WlanService.h"

namespace {

class WiFiFaults : public WiFiFixture {
  protected:
    static constexpr DWORD kRefused = 5023;
    void FailNth(const char* call, uint64_t n) { Gate().FailNth(call, n, kRefused); }
    // The check sends nothing, and the next one does.
    void ExpectOneLostPass() {
        EXPECT_TRUE(Check());
        EXPECT_TRUE(Sent().empty());
        CheckAndTakeRecord();
    }
};

}  // namespace

TEST_F(WiFiFaults, WithoutTheConnectionThereIsNoProfile) {
    ExpectErrors({"WlanQueryInterface API to get Connection Info failed with error: 5023", kExtractionError});
    FailNth("WlanQueryInterface", 1);
    ExpectOneLostPass();
}

TEST_F(WiFiFaults, WithoutAProfileNothingIsSent) {
    ExpectErrors({"WlanGetProfile failed with error: 5023", kExtractionError});
    FailNth("WlanGetProfile", 1);
    ExpectOneLostPass();
}

TEST_F(WiFiFaults, WithoutAChannelTheBandIsNone) {
    ExpectError("WlanQueryInterface to get channel info failed with error: 5023");
    FailNth("WlanQueryInterface", 2);
    const WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(record.channel, 0);
    EXPECT_EQ(record.band, 0u);
    EXPECT_TRUE(HasLine("INFO", "Band: None"));
}

TEST_F(WiFiFaults, WithoutAFrequencyTheBandIsAll) {
    ExpectError("WlanGetNetworkBssList API failed with error: 5023");
    FailNth("WlanGetNetworkBssList", 1);
    EXPECT_EQ(CheckAndTakeRecord().band, 4u);
    EXPECT_TRUE(HasLine("INFO", "Band: All Bands"));
    Disconnect();
    Check();
    Pc().Change([](auto& pc) {
        pc.wlanInterfaces.front().state = 1;
        pc.wlanNetworks.front().listed = false;
    });
    EXPECT_EQ(CheckAndTakeRecord().band, 4u);
}

TEST_F(WiFiFaults, WithoutTheCurrentSsidTheProfileIsSentAllTheSame) {
    ExpectError("getCurrentSSID: WlanQueryInterface API to get Connection Info failed with error: 5023");
    FailNth("WlanQueryInterface", 3);
    Check(false);
    EXPECT_EQ(Sent().size(), 1u);
    EXPECT_EQ(LogCount("Previous stored SSID office, Current SSID obtained"), 1u);
}

TEST_F(WiFiFaults, EachCallThatFailsForGoodSendsNothingOrLess) {
    for (const char* call : {"WlanQueryInterface", "WlanGetProfile", "WlanGetNetworkBssList"}) {
        AllowError("failed with error: 5023");
        AllowError(kExtractionError);
        Gate().FailNth(call, 1, kRefused, true);
        EXPECT_TRUE(Check()) << call;
        Gate().Reset();
        Disconnect();
        EXPECT_FALSE(Check());
        Pc().Change([](auto& pc) { pc.wlanInterfaces.front().state = 1; });
        CheckAndTakeRecord();
        Disconnect();
        EXPECT_FALSE(Check());
        Pc().Change([](auto& pc) { pc.wlanInterfaces.front().state = 1; });
    }
}

TEST_F(WiFiFaults, AServiceThatRestartsWithinACheckCostsThatCheck) {
    ExpectErrors({"WlanQueryInterface API to get Connection Info failed with error: 6", kExtractionError});
    Gate().FailNth("WlanQueryInterface", 1, ERROR_INVALID_HANDLE);
    ExpectOneLostPass();
}

TEST_F(WiFiFaults, TheCheckAfterARestartOfTheServiceSendsTheProfile) {
    Check();
    winhost::WlanService::Instance().Restart();
    ChangeNetwork([](auto& network) { network.key = "another key"; });
    EXPECT_STREQ(CheckAndTakeRecord().key_material, "another key");
    EXPECT_TRUE(HasLine("INFO", "WlanEnumInterfaces failed with error: 6"));
}

TEST_F(WiFiFaults, ABrokenProfileCostsItsCheckOneLine) {
    Check();
    ExpectError("Wi-Fi profile cannot be parsed: ");
    std::string nested;
    for (int i = 0; i < 1'000'000; ++i)
        nested += "<a>";
    const std::vector<std::string> profiles = {"<WLANProfile>",
                                               "no XML",
                                               "<WLANProfile></other>",
                                               "<a>&#xFFFFFFFF;</a>",
                                               std::string(10'000'000, '<'),
                                               Wpa2Profile(std::string(10'000'000, 'k')),
                                               nested};
    for (const std::string& profile : profiles) {
        const size_t before = Log().size();
        UseProfile(profile);
        EXPECT_TRUE(Check(false));
        EXPECT_EQ(Log().size(), before + 1) << profile.substr(0, 100);
    }
    EXPECT_EQ(Sent().size(), 1u);
    // The stored profile is still there.
    UseProfile("");
    EXPECT_TRUE(Check());
    EXPECT_EQ(Sent().size(), 1u);
}

TEST_F(WiFiFaults, AProfileThatIsEmptyOrOfAnotherRootIsAnOpenNetwork) {
    ExpectError(kExtractionError);
    for (const char* profile : {" ", "<Profile/>", "<w:WLANProfile xmlns:w='x'/>", "<WLANProfile/>"}) {
        UseProfile(profile);
        const size_t before = Log().size();
        EXPECT_TRUE(Check(false));
        EXPECT_EQ(LogCount("parent Node is null"), 0u);
        EXPECT_LE(Log().size(), before + 4) << profile;
    }
    EXPECT_EQ(LogCount(kOpenNetwork), 4u);
}

TEST_F(WiFiFaults, FieldsAtTheirLimitsAreSent) {
    ChangeNetwork([](auto& network) {
        network.ssid = std::string(32, 's');
        network.key = std::string(1000, 'k');
        network.channel = 65'536 + 233;
        network.frequency = 7'115'000;
    });
    const WiFiSyncInfo record = CheckAndTakeRecord();
    EXPECT_EQ(record.ssid, std::string(32, 's'));
    EXPECT_EQ(record.key_material, std::string(63, 'k'));
    EXPECT_EQ(record.channel, 233);
    EXPECT_EQ(record.band, 3u);
    EXPECT_EQ(LogCount(std::string(20, 'k')), 0u);
}

TEST(Band, FollowsItsOddRule) {
    EXPECT_EQ(BandOf(0, 5'180'000), 0u);
    // The lower bound is in MHz.
    for (const uint32_t frequency : {2412u, 2413u, 2'412'000u, 2'484'000u})
        EXPECT_EQ(BandOf(1, frequency), 1u) << frequency;
    for (const uint32_t frequency : {0u, 2411u, 2'484'001u})
        EXPECT_EQ(BandOf(14, frequency), 4u) << frequency;
    EXPECT_EQ(BandOf(14, 2'484'000), 1u);
    EXPECT_EQ(BandOf(15, 2'484'000), 4u);
    EXPECT_EQ(BandOf(36, 5'160'000), 2u);
    EXPECT_EQ(BandOf(173, 5'885'000), 2u);
    EXPECT_EQ(BandOf(35, 5'160'000), 4u);
    EXPECT_EQ(BandOf(174, 5'885'000), 4u);
    EXPECT_EQ(BandOf(36, 5'159'999), 4u);
    EXPECT_EQ(BandOf(36, 5'885'001), 4u);
    EXPECT_EQ(BandOf(1, 5'935'000), 3u);
    EXPECT_EQ(BandOf(37, 7'115'000), 3u);
    EXPECT_EQ(BandOf(37, 5'934'999), 4u);
    EXPECT_EQ(BandOf(37, 7'115'001), 4u);
}
