// What pages read at their own pace, and how the firmware's thread leaves it for them.
#include <gtest/gtest.h>

#include "firmware/Hex.h"
#include "firmware/Report.h"
#include "firmware/web/Feed.h"
#include "firmware/web/Inbox.h"
#include "mailbox/MailboxTables.h"

namespace mpm::web::test {
namespace {

struct Number {
    int value;
    size_t size = 10;
    size_t Size() const { return size; }
};

class WebFeedTest : public testing::Test {
  protected:
    void Add(int count) {
        for (int i = 0; i < count; ++i)
            m_feed.Add(m_feed.Newest() + 1, {i});
    }

    int m_shown = 0;
    Feed<Number> m_feed{5, 1000, [this](uint64_t serial, const Number&) {
                            ++m_shown;
                            return std::to_string(serial);
                        }};
};

Event MakeEvent(Event::Kind kind, const char* name, uint32_t code, Bytes data) {
    return {kind, name, code, data, {}, std::chrono::system_clock::now()};
}

}  // namespace

TEST_F(WebFeedTest, APageGetsEachEntryOnceAndInOrder) {
    uint64_t cursor = 0;
    Add(3);
    EXPECT_EQ(m_feed.Take(cursor, 2, 1000).array, "[1,2]");
    EXPECT_TRUE(m_feed.HasAfter(cursor));
    EXPECT_EQ(m_feed.Take(cursor, 2, 1000).array, "[3]");
    EXPECT_FALSE(m_feed.HasAfter(cursor));
    EXPECT_EQ(m_feed.Take(cursor, 2, 1000).array, "");
}

TEST_F(WebFeedTest, WhatAPageHasMissedIsCounted) {
    uint64_t cursor = 0;
    Add(8);
    const auto batch = m_feed.Take(cursor, 10, 1000);
    EXPECT_EQ(batch.dropped, 3u);
    EXPECT_EQ(batch.array, "[4,5,6,7,8]");
}

TEST_F(WebFeedTest, WhatWasLostOnItsWayIsCountedAheadOfTheEntriesAfterIt) {
    uint64_t cursor = 0;
    m_feed.Add(1, {1});
    m_feed.Add(4, {4});
    auto batch = m_feed.Take(cursor, 10, 1000);
    EXPECT_EQ(batch.dropped, 0u);
    EXPECT_EQ(batch.array, "[1]");
    batch = m_feed.Take(cursor, 10, 1000);
    EXPECT_EQ(batch.dropped, 2u);
    EXPECT_EQ(batch.array, "[4]");
}

TEST_F(WebFeedTest, ABatchEndsWithTheEntryThatFillsIt) {
    uint64_t cursor = 0;
    Add(5);
    EXPECT_EQ(m_feed.Take(cursor, 10, 4).array, "[1,2]");
}

TEST_F(WebFeedTest, AnEntryIsShownOnceForAllPages) {
    Add(3);
    for (int page = 0; page < 4; ++page) {
        uint64_t cursor = 0;
        m_feed.Take(cursor, 2, 1000);
    }
    EXPECT_EQ(m_shown, 2);
}

TEST_F(WebFeedTest, BytesAreBoundedWithTheTexts) {
    Feed<Number> feed(1000, 100, [](uint64_t, const Number&) { return std::string(30, 'x'); });
    for (uint64_t serial = 1; serial <= 50; ++serial) {
        uint64_t cursor = 0;
        feed.Add(serial, {1});
        feed.Take(cursor, 1000, 10000);
        EXPECT_LE(feed.Bytes(), 100u);
    }
    EXPECT_EQ(feed.Entries(), 2u);
    EXPECT_EQ(feed.Find(48), nullptr);
    ASSERT_NE(feed.Find(50), nullptr);
}

TEST(InboxTest, KeepsTheNewestEvents) {
    Inbox inbox;
    for (size_t i = 0; i < kMaxEntries + 7; ++i)
        inbox.Push(MakeEvent(Event::Kind::Note, "note", 0, {}), Secrets::Masked);
    const auto entries = inbox.TakeAll();
    ASSERT_EQ(entries.size(), kMaxEntries);
    EXPECT_EQ(entries.front().serial, 8u);
    EXPECT_EQ(entries.back().serial, kMaxEntries + 7);
    EXPECT_TRUE(inbox.TakeAll().empty());
}

TEST(InboxTest, KeepsNoMoreBytesThanItMay) {
    Inbox inbox;
    const std::vector<uint8_t> large(1u << 20);
    for (int i = 0; i < 20; ++i)
        inbox.Push(MakeEvent(Event::Kind::Message, "raw", 0, large), Secrets::Masked);
    EXPECT_EQ(inbox.TakeAll().size(), 15u);
}

TEST(InboxTest, KnowsWhetherTheFirmwareIsThere) {
    Inbox inbox;
    inbox.Push(MakeEvent(Event::Kind::Note, "vanished", 0, {}), Secrets::Masked);
    EXPECT_TRUE(inbox.Vanished());
    inbox.Push(MakeEvent(Event::Kind::Note, "listening", 0, {}), Secrets::Masked);
    EXPECT_TRUE(inbox.Vanished());
    inbox.Push(MakeEvent(Event::Kind::Note, "back", 0, {}), Secrets::Masked);
    EXPECT_FALSE(inbox.Vanished());
}

TEST(WireEntryTest, IsTheEventOfTheRecordWithItsPlaceAndDirection) {
    const std::vector<uint8_t> state = {1, 0, 0, 0};
    WireEntry entry(MakeEvent(Event::Kind::Request, "WriteZELStatus", MailboxCode::WriteZELStatus, state),
                    Secrets::Masked);
    entry.serial = 17;
    const Json::Value json = testbed::ParseObject(entry.ToJson());
    EXPECT_EQ(json["serial"], 17);
    EXPECT_EQ(json["direction"], "host");
    EXPECT_EQ(json["fields"]["state"], 1);
    EXPECT_EQ(entry.Hex(), "01000000");
}

TEST(WireEntryTest, TheBytesOfASecretAreNotShown) {
    ADPasswordUpdate update{};
    std::memset(&update, 'p', sizeof update);
    const Event event = MakeEvent(Event::Kind::Message, "MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD",
                                  MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD, Bytes::Of(update));
    const WireEntry masked(event, Secrets::Masked);
    EXPECT_EQ(masked.Hex(), std::string(2 * sizeof update, '*'));
    EXPECT_EQ(masked.ToJson().find("pppp"), std::string::npos);
}

TEST(WireEntryTest, TheKeyOfTheWiFiNetworkIsShownOnlyWithItsSetting) {
    std::vector<uint8_t> record(sizeof(WiFiSyncInfo), 'k');
    const Event event =
        MakeEvent(Event::Kind::Request, "WriteWiFiSyncInfo", MailboxCode::WriteWiFiSyncInfo, record);
    EXPECT_NE(WireEntry(event, Secrets::Masked).Hex().find("**"), std::string::npos);
    EXPECT_EQ(WireEntry(event, Secrets::Shown).Hex(), ToHex(record));
}

TEST(WireEntryTest, BytesWithoutAKnownMeaningAreNotShown) {
    const std::vector<uint8_t> bytes = {1, 2, 3};
    for (const Event& event :
         {MakeEvent(Event::Kind::Message, "raw", 0, bytes),
          MakeEvent(Event::Kind::Message, "200", 200, bytes),
          MakeEvent(Event::Kind::Request, "WriteZELStatus", MailboxCode::WriteZELStatus, bytes),
          MakeEvent(Event::Kind::Note, "dash", 0, {})})
        EXPECT_THROW(WireEntry(event, Secrets::Masked).Hex(), std::invalid_argument) << event.name;
}

}  // namespace mpm::web::test
