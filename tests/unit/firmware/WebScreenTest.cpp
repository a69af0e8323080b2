// The screen's frames for pages.
#include <gtest/gtest.h>

#include "firmware/web/ScreenTap.h"
#include "tests/unit/firmware/ScreenFixture.h"

namespace mpm::web::test {
namespace {

FrameQueue::Message MessageOf(size_t size) {
    return std::make_shared<const std::string>(size, 'x');
}

class FrameQueueTest : public testing::Test {
  protected:
    void Add(const std::string& kinds) {
        for (const char kind : kinds)
            m_queue.Add(kind == 'K', MessageOf(100));
    }
    // The serial numbers of all that a page gets now.
    std::vector<uint64_t> All() {
        std::vector<uint64_t> serials;
        while (m_queue.Next(m_cursor))
            serials.push_back(m_cursor);
        return serials;
    }

    using Serials = std::vector<uint64_t>;
    FrameQueue m_queue;
    uint64_t m_cursor = 0;
};

struct Watcher : ScreenObserver {
    void BeginStream() override { ++begun; }
    void TakeFrame(const Frame& frame) override {
        std::lock_guard lock(mutex);
        frames.emplace_back(frame.data.begin(), frame.data.end());
        last = frame;
    }
    void TakePicture(std::shared_ptr<const Picture> picture) override {
        std::lock_guard lock(mutex);
        newest = std::move(picture);
    }

    std::mutex mutex;
    int begun = 0;
    std::vector<std::vector<uint8_t>> frames;
    Frame last{};
    std::shared_ptr<const Picture> newest;
};

class ScreenObserverTest : public mpm::test::ScreenFixture {};

}  // namespace

TEST_F(FrameQueueTest, APageBeginsAtTheNewestKeyFrame) {
    Add("K--K--");
    EXPECT_EQ(All(), (Serials{4, 5, 6}));
    Add("-");
    EXPECT_EQ(All(), Serials{7});
}

TEST_F(FrameQueueTest, WithoutAKeyFrameThereIsNothingToBeginWith) {
    Add("--");
    EXPECT_EQ(All(), Serials());
    EXPECT_TRUE(m_queue.NeedsKey(m_cursor));
    Add("K");
    EXPECT_FALSE(m_queue.NeedsKey(m_cursor));
    EXPECT_EQ(All(), Serials{3});
}

TEST_F(FrameQueueTest, APageThatFollowsPassesOverNoFrame) {
    Add("K");
    All();
    Add("--K-");
    EXPECT_EQ(All(), (Serials{2, 3, 4, 5}));
}

TEST_F(FrameQueueTest, APageThatIsFarBehindGoesOnWithANewerKeyFrame) {
    Add("K");
    All();
    Add(std::string(40, '-') + "K-");
    EXPECT_EQ(All(), (Serials{42, 43}));
}

TEST_F(FrameQueueTest, APageThatIsFarBehindFollowsWhereThereIsNoNewerKeyFrame) {
    Add("K");
    All();
    Add(std::string(40, '-'));
    EXPECT_EQ(All().size(), 40u);
}

TEST_F(FrameQueueTest, BytesAreBounded) {
    Add("K");
    All();
    for (int i = 0; i < 20; ++i)
        m_queue.Add(false, MessageOf(1u << 20));
    EXPECT_TRUE(m_queue.NeedsKey(m_cursor));
    EXPECT_EQ(All(), Serials());
    m_cursor = 15;
    EXPECT_EQ(All().size(), 6u);
}

TEST_F(FrameQueueTest, AnotherStreamNeedsItsOwnKeyFrame) {
    Add("K-");
    All();
    m_queue.Clear();
    EXPECT_FALSE(m_queue.NeedsKey(m_cursor));
    Add("-");
    EXPECT_EQ(All(), Serials());
    EXPECT_TRUE(m_queue.NeedsKey(m_cursor));
    Add("K");
    EXPECT_EQ(All(), Serials{4});
}

TEST(FrameHeadTest, HasItsPlaceForEachNumber) {
    FrameHead head;
    head.kind = FrameHead::Kind::Picture;
    head.key = true;
    head.width = 0x01020304;
    head.height = 5;
    head.number = 6;
    head.asked = std::chrono::system_clock::time_point(std::chrono::microseconds(7));
    head.complete = std::chrono::system_clock::time_point(std::chrono::microseconds(0x0102030405));
    const std::string message = head.Message(1);
    const uint8_t expected[] = {2, 1, 0, 0, 4, 3, 2, 1, 5, 0, 0, 0, 6, 0, 0, 0,
                                7, 0, 0, 0, 0, 0, 0, 0, 5, 4, 3, 2, 1, 0, 0, 0};
    ASSERT_EQ(message.size(), FrameHead::kSize + 1);
    EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected),
                           reinterpret_cast<const uint8_t*>(message.data())));
}

TEST(KeyFrameTest, TheFirstFrameOfAnEncoderIsOneAndTheNextIsNot) {
    mpm::test::Av1Encoder encoder(64, 64);
    const auto first = encoder.Encode(mpm::test::Painting::Of(64, 64));
    EXPECT_TRUE(IsKeyFrame(first));
    EXPECT_FALSE(IsKeyFrame(encoder.Encode(mpm::test::Painting::Of(64, 64, 20))));
    // Cut anywhere ahead of the frame's own head it is none.
    EXPECT_FALSE(IsKeyFrame(std::span(first).first(5)));
}

TEST(KeyFrameTest, OtherBytesAreNone) {
    const std::vector<uint8_t> units[] = {{},
                                          {0x12},
                                          {0xFF, 0xFF},
                                          {0x32, 0x01, 0x10},  // a frame without a sequence
                                          {0x0A, 0x7F, 0x00},  // longer than the unit
                                          {0x0A, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01},
                                          {0x0A, 0x00, 0x32, 0x00},         // an empty frame
                                          {0x0A, 0x00, 0x32, 0x01, 0x30},   // not a key frame
                                          {0x0A, 0x00, 0x32, 0x01, 0x90}};  // one that was shown before
    for (const auto& unit : units)
        EXPECT_FALSE(IsKeyFrame(unit)) << testing::PrintToString(unit);
    EXPECT_TRUE(IsKeyFrame(std::vector<uint8_t>{0x12, 0x00, 0x0A, 0x00, 0x32, 0x01, 0x10}));
}

TEST_F(ScreenObserverTest, SeesEachFrameAsItCameAndThePictures) {
    const auto watcher = std::make_shared<Watcher>();
    m_firmware->ObserveScreen(watcher);
    Begin();
    const auto frame = mpm::test::EncodeOne(mpm::test::Painting::Of(64, 64));
    SendFrame(frame);
    AwaitDecoded(1);
    for (const auto end = mpm::test::Clock::now() + kPatience; mpm::test::Clock::now() < end;) {
        std::lock_guard lock(watcher->mutex);
        if (watcher->newest) break;
    }
    EXPECT_EQ(watcher->begun, 1);
    ASSERT_EQ(watcher->frames.size(), 1u);
    EXPECT_EQ(watcher->frames[0], frame);
    EXPECT_EQ(watcher->last.width, 64u);
    EXPECT_EQ(watcher->last.number, 1u);
    EXPECT_LE(watcher->last.asked, watcher->last.complete);
    ASSERT_TRUE(watcher->newest);
    EXPECT_EQ(watcher->newest->Width(), 64);
    m_firmware->ObserveScreen(nullptr);
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    SendFrame(frame);
    EXPECT_EQ(watcher->frames.size(), 1u);
}

TEST_F(ScreenObserverTest, APictureIsShownInItsColours) {
    const auto tap = std::make_shared<ScreenTap>([] {});
    m_firmware->ObserveScreen(tap);
    Begin();
    mpm::test::Painting painting = mpm::test::Painting::Of(64, 64, 16);
    SendFrame(mpm::test::EncodeOne(painting));
    AwaitDecoded(1);
    for (const auto end = mpm::test::Clock::now() + kPatience; mpm::test::Clock::now() < end;)
        if (tap->Newest().picture) break;
    const auto shown = tap->Newest();
    ASSERT_TRUE(shown.picture);
    std::string message = PictureMessage(shown);
    ASSERT_EQ(message.size(), FrameHead::kSize + painting.pixels.size());
    std::vector<uint8_t> pixels(message.begin() + FrameHead::kSize, message.end());
    for (size_t i = 0; i < pixels.size(); i += 4)
        std::swap(pixels[i], pixels[i + 2]);
    EXPECT_GT(painting.Psnr(pixels), 30);
    uint64_t cursor = 0;
    EXPECT_TRUE(tap->Next(cursor));
    m_firmware->ObserveScreen(nullptr);
}

}  // namespace mpm::web::test
