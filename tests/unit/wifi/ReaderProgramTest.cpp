// Records that another program reads, as the extraction takes them from a package.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/ServiceFixture.h"
#include "wifi/WiFiProfile.h"

namespace {

class ReaderProgram : public ServiceFixture {
  protected:
    static constexpr char kUpdated[] = "Updated last connected Wi-Fi profile.";
    static inline WiFiSyncInfo answer{};
    static void Answer(WiFiSyncInfo* record) { *record = answer; }

    void SetUp() override {
        ServiceFixture::SetUp();
        answer = {};
        answer.size_of_this_structure = 132;
        std::strcpy(answer.ssid, "office");
        std::strcpy(answer.key_material, "correct horse");
        answer.wpaauth = WpaAuth::Wpa2Personal;
        context.reader = &Answer;
    }
    WiFiProfileCode Extract() {
        record = EmptyWiFiRecord();
        return ExtractWiFiProfile(context, &last, record);
    }

    WlanContext context;
    WiFiSyncInfo last{}, record{};
};

}  // namespace

TEST_F(ReaderProgram, AnAnswerIsNewOnce) {
    EXPECT_EQ(Extract(), WiFiProfileCode::New);
    EXPECT_EQ(record.is_valid, 1);
    EXPECT_STREQ(last.key_material, "correct horse");
    EXPECT_EQ(Extract(), WiFiProfileCode::AlreadyKnown);
    EXPECT_EQ(LogCount(kUpdated), 1u);
    EXPECT_EQ(Gate().Count("WlanQueryInterface"), 0u);
}

TEST_F(ReaderProgram, EachComparedFieldMakesItNew) {
    for (const auto change :
         {+[] { answer.ssid[32] = 'x'; }, +[] { answer.wpaauth = 4; }, +[] { answer.pairwise = 1; },
          +[] { answer.groupwise = 1; }, +[] { answer.key_material[63] = 'x'; }}) {
        Extract();
        change();
        EXPECT_EQ(Extract(), WiFiProfileCode::New);
    }
    for (const auto change : {+[] { answer.channel = 11; }, +[] { answer.band = 1; }, +[] { answer.pmf = 1; },
                              +[] { answer.group_mgmt = 4; }}) {
        change();
        EXPECT_EQ(Extract(), WiFiProfileCode::AlreadyKnown);
    }
}

TEST_F(ReaderProgram, AnEmptyAnswerIsStoredAndSent) {
    answer = {};
    EXPECT_EQ(Extract(), WiFiProfileCode::New);
    EXPECT_EQ(record.is_valid, 1);
    EXPECT_EQ(record.size_of_this_structure, 0u);
    EXPECT_EQ(last.is_valid, 1);
    EXPECT_EQ(Extract(), WiFiProfileCode::New) << "only a personal network can be known";
}

TEST_F(ReaderProgram, EachKindOfEnterpriseIsAnnouncedOnceWithoutItsKey) {
    for (const uint32_t wpaauth : {3u, 5u, 6u}) {
        answer.wpaauth = wpaauth;
        EXPECT_EQ(Extract(), WiFiProfileCode::Enterprise) << wpaauth;
        EXPECT_STREQ(last.key_material, "");
        EXPECT_EQ(Extract(), WiFiProfileCode::AlreadyKnown) << wpaauth;
    }
}

TEST_F(ReaderProgram, WithoutAStoredProfileEachIsNew) {
    for (int i = 0; i < 2; ++i) {
        record = EmptyWiFiRecord();
        EXPECT_EQ(ExtractWiFiProfile(context, nullptr, record), WiFiProfileCode::New);
    }
    EXPECT_EQ(LogCount(kUpdated), 0u);
}

TEST_F(ReaderProgram, NamesTheCurrentNetwork) {
    EXPECT_EQ(GetCurrentSSID(context), "office");
    std::memset(answer.ssid, 's', sizeof answer.ssid);
    EXPECT_EQ(GetCurrentSSID(context), std::string(33, 's')) << "a record need not end its text";
}
